#pragma once

/// @file
/// Every trace point of the library. The code names the entry; the decoder prints from the same table.
///
/// A record of words opens with process id and thread id; the last column says what follows them. A record whose last
/// column begins with "text" holds text alone.

// clang-format off
#define TAVREL_TRACE_POINTS(X) \
    /* Factory */ \
    X(FactoryUnknownName, 0x10001, Debug2, "Factory", "unknown class name", "text: name") \
    /* Builder */ \
    X(BuilderRowSkipped, 0x10100, Debug, "Builder", "component row skipped", "text: name") \
    X(BuilderLoadClass, 0x10101, Debug, "Builder", "loadClass entered", "") \
    X(BuilderClassesFailed, 0x10102, Error, "Builder", "class building failed", "") \
    X(BuilderClassesLoaded, 0x10104, Debug, "Builder", "class loading finished", "") \
    X(BuilderBuild, 0x10105, Debug, "Builder", "build entered", "") \
    X(BuilderVersion, 0x10106, Debug, "Builder", "version of a fresh tree", "text: version") \
    X(BuilderRootType, 0x10107, Debug, "Builder", "root type of a fresh tree", "text: type name") \
    X(BuilderRootTypeSet, 0x10108, Debug, "Builder", "root type set", "") \
    X(BuilderBuilt, 0x10109, Debug, "Builder", "build finished", "") \
    X(BuilderActionNotMade, 0x1010A, Error, "Builder", "action could not be made", "text: class name") \
    X(BuilderCompoSpecFailed, 0x1010B, Error, "Builder", "component specification does not load", "") \
    X(BuilderActionSpecFailed, 0x1010C, Error, "Builder", "action specification does not load", "") \
    X(BuilderResourceTypeUnknown, 0x1010D, Error, "Builder", "resource type gives no object", "text: type") \
    X(BuilderResourceFailed, 0x1010E, Error, "Builder", "resource did not initialize", "text: name") \
    X(BuilderNoResourceSpec, 0x1010F, Debug, "Builder", "no resource specification", "") \
    X(BuilderAttributesFailed, 0x10110, Error, "Builder", "action refused its attributes", "text: class name") \
    X(BuilderAttribute, 0x10111, Error, "Builder", "one attribute of a refused action", "text: attribute") \
    X(BuilderActionSectionFailed, 0x10112, Error, "Builder", "action section given up", "text: section") \
    X(BuilderTooManyComponents, 0x10113, Error, "Builder", "specification needs too many components", "count, limit") \
    X(BuilderVersionUnchanged, 0x10114, Debug, "Builder", "version unchanged", "") \
    /* Specification */ \
    X(SpecificationNotOpened, 0x10200, Error, "Specification", "file cannot be opened", "text: path") \
    X(SpecificationDuplicate, 0x10201, Debug, "Specification", "duplicate subsection", "text: key") \
    /* NameResolver */ \
    X(PropertyKeyUnknown, 0x10300, Debug, "NameResolver", "property name unknown", "text") \
    X(ActionIdUnknown, 0x10301, Debug, "NameResolver", "action name unknown", "text") \
    X(ComponentTypeAdded, 0x10302, Debug, "NameResolver", "component type added", "text") \
    X(DictionaryConflict, 0x10303, Debug, "NameResolver", "name keeps its value", "text") \
    /* Component */ \
    X(ComponentInvalidId, 0x20100, Debug, "Component", "invalid id", "id, 0") \
    X(ComponentReadLock, 0x20101, Debug, "Component", "readLock asked", "id, 0") \
    X(ComponentReadLocked, 0x20102, Debug, "Component", "readLock taken", "id, 0") \
    X(ComponentReadLockFailed, 0x20103, Error, "Component", "readLock failed", "id, 0") \
    X(ComponentReadUnlock, 0x20104, Debug, "Component", "readUnlock asked", "id, 0") \
    X(ComponentReadUnlocked, 0x20105, Debug, "Component", "readUnlock done", "id, 0") \
    X(ComponentReadUnlockFailed, 0x20106, Error, "Component", "readUnlock failed", "id, 0") \
    X(ComponentWriteLock, 0x20107, Debug, "Component", "writeLock asked", "id, 0") \
    X(ComponentWriteLocked, 0x20108, Debug, "Component", "writeLock taken", "id, 0") \
    X(ComponentWriteLockFailed, 0x20109, Error, "Component", "writeLock failed", "id, 0") \
    X(ComponentWriteUnlock, 0x2010A, Debug, "Component", "writeUnlock asked", "id, 0") \
    X(ComponentWriteUnlocked, 0x2010B, Debug, "Component", "writeUnlock done", "id, 0") \
    X(ComponentWriteUnlockFailed, 0x2010C, Error, "Component", "writeUnlock failed", "id, 0") \
    X(ComponentCreated, 0x2010D, Info, "Component", "component created", "parent id, id, type") \
    X(ComponentDeleted, 0x2010E, Info, "Component", "component deleted", "id, 0") \
    X(ComponentClearFailed, 0x2010F, Error, "Component", "clearProperties failed", "id, read locks, write locks") \
    X(ComponentGetProperty, 0x20110, Debug, "Component", "getProperty entered", "id, key, read locks, write locks") \
    X(ComponentGetPropertyFailed, 0x20111, Debug, "Component", "getProperty failed", "id, key, read locks, write locks") \
    X(ComponentSetProperty, 0x20112, Debug, "Component", "setProperty entered", "id, key, read locks, write locks") \
    X(ComponentSetPropertyFailed, 0x20113, Error, "Component", "setProperty failed", "id, key, read locks, write locks") \
    X(ComponentActionFailed, 0x20114, Error, "Component", "action raised", "id, action id, type") \
    X(ComponentShareRefused, 0x20115, Error, "Component", "shared child refused: an owned one has its type", "id, child id") \
    X(ComponentShared, 0x20116, Info, "Component", "shared child added", "id, child id") \
    X(ComponentListShared, 0x20117, Info, "Component", "shared child of a list added", "id, child id") \
    X(ComponentListShareRefused, 0x20118, Error, "Component", "shared child of a list refused: an owned one has its type", "id, child id") \
    X(ComponentUnshared, 0x20119, Info, "Component", "shared child removed", "id, child id") \
    X(ComponentRevisionChanged, 0x2011A, Info, "Component", "node changed since last seen", "id, old revision, new revision") \
    X(ComponentConfigureNoClass, 0x2011B, Error, "Component", "configure: type has no class", "id, type") \
    X(ComponentClearNoClass, 0x2011C, Error, "Component", "clearProperties: type has no class", "id, type") \
    X(ComponentGetPropertyNoClass, 0x2011D, Error, "Component", "getProperty: type has no class", "id, key, type") \
    X(ComponentSetPropertyNoClass, 0x2011E, Error, "Component", "setProperty: type has no class", "id, key, type") \
    X(ComponentActionNoClass, 0x2011F, Error, "Component", "doAction: type has no class", "id, action id, type") \
    X(ComponentTreeLocked, 0x20121, Info, "Component", "whole tree locked", "id, 0") \
    X(ComponentTreeUnlocked, 0x20122, Info, "Component", "whole tree unlocked", "id, 0") \
    /* PropertyLocator, PropertyAccessor */ \
    X(PropertyKeyNotFound, 0x20200, Error, "PropertyLocator", "key unknown", "key, 0") \
    X(PropertyOffsetNegative, 0x20201, Error, "PropertyLocator", "offset below 0", "offset, 0") \
    X(PropertyOffsetTooLarge, 0x20202, Error, "PropertyLocator", "offset past the property", "offset, size") \
    /* Association */ \
    X(AssociationBadLink, 0x20304, Error, "Association", "link refused: bad id", "key, source, destination") \
    X(AssociationCycle, 0x20305, Error, "Association", "link refused: it closes a cycle", "key, source, destination") \
    X(AssociationReachable, 0x20306, Error, "Association", "link refused: already reachable", "key, source, destination") \
    X(AssociationLoaded, 0x20307, Info, "Association", "loaded", "key, old revision, new revision") \
    X(AssociationSaved, 0x20308, Info, "Association", "saved", "key, revision") \
    /* TreeConfig */ \
    X(TreeConfigHole, 0x20380, Info, "TreeConfig", "missing node added as free", "id, 0") \
    X(TreeConfigLockLeft, 0x20381, Error, "TreeConfig", "destroyed while locked", "") \
    X(TreeConfigLoadFailed, 0x20382, Debug, "TreeConfig", "load failed in lock", "") \
    X(TreeConfigLoadFailedText, 0x20383, Debug, "TreeConfig", "load failed in lock", "text: reason") \
    X(TreeConfigLoadFailedUnknown, 0x20384, Debug, "TreeConfig", "load failed in lock, no standard exception", "") \
    X(TreeConfigSaveFailed, 0x20385, Debug, "TreeConfig", "save failed in unlock", "") \
    X(TreeConfigSaveFailedText, 0x20386, Debug, "TreeConfig", "save failed in unlock", "text: reason") \
    X(TreeConfigSaveFailedUnknown, 0x20387, Debug, "TreeConfig", "save failed in unlock, no standard exception", "") \
    /* TreePath */ \
    X(TreePathAddNull, 0x20400, Error, "TreePath", "no component to add", "") \
    X(TreePathNoBinder, 0x20401, Error, "TreePath", "text: step without a number", "") \
    X(TreePathNoBinderText, 0x20402, Error, "TreePath", "text: step without a number", "text: path") \
    X(TreePathBadNumber, 0x20403, Error, "TreePath", "text: negative number", "") \
    X(TreePathBadNumberText, 0x20404, Error, "TreePath", "text: negative number", "text: digits") \
    X(TreePathRootDiffers, 0x20405, Error, "TreePath", "first step is not the root", "step type, step number, root type, root number") \
    X(TreePathStepNotFound, 0x20406, Error, "TreePath", "step not found", "type, number, id reached") \
    X(TreePathTypeIndex, 0x20407, Error, "TreePath", "getTypeAt out of range", "index, 0") \
    X(TreePathNumberIndex, 0x20408, Error, "TreePath", "getNumberAt out of range", "index, 0") \
    X(TreePathStreamBadStep, 0x20409, Error, "TreePath", "stream: negative or missing value", "type, number") \
    X(TreePathMemoryBadStep, 0x2040A, Error, "TreePath", "memory: negative value", "type, number") \
    /* ComponentAccessor */ \
    X(AccessorNull, 0x20500, Error, "ComponentAccessor", "made on no component", "0, 0") \
    X(AccessorInvalidId, 0x20501, Error, "ComponentAccessor", "made on an invalid id", "id, 0") \
    X(AccessorIdMismatch, 0x20502, Error, "ComponentAccessor", "made on an id with another revision", "id, revision wanted, revision found") \
    X(AccessorUnavailable, 0x20503, Debug, "ComponentAccessor", "used while unavailable", "id, revision") \
    X(AccessorRevisionMismatch, 0x20504, Error, "ComponentAccessor", "revision no longer holds", "id, revision, revision found") \
    X(AccessorSetType, 0x20505, Error, "ComponentAccessor", "setType refused", "type, id, revision") \
    X(AccessorGetType, 0x20506, Error, "ComponentAccessor", "getType refused", "id, revision") \
    X(AccessorSetNumber, 0x20507, Error, "ComponentAccessor", "setNumber refused", "number, id, revision") \
    X(AccessorGetNumber, 0x20508, Error, "ComponentAccessor", "getNumber refused", "id, revision") \
    X(AccessorGetProperty, 0x20509, Error, "ComponentAccessor", "getProperty refused", "key, id, revision") \
    X(AccessorSetProperty, 0x2050A, Error, "ComponentAccessor", "setProperty refused", "key, id, revision") \
    X(AccessorGetPropertyKeys, 0x2050B, Error, "ComponentAccessor", "getPropertyKeys refused", "id, revision") \
    X(AccessorGetPropertySize, 0x2050C, Error, "ComponentAccessor", "getPropertySize refused", "key, id, revision") \
    X(AccessorCreateComponent, 0x2050D, Error, "ComponentAccessor", "createComponent refused", "type, id, revision") \
    X(AccessorDeleteComponent, 0x2050E, Error, "ComponentAccessor", "deleteComponent refused", "id, revision") \
    X(AccessorContains, 0x2050F, Error, "ComponentAccessor", "contains refused", "id, revision") \
    X(AccessorGetChildren, 0x20510, Error, "ComponentAccessor", "getComponent refused", "id, revision") \
    X(AccessorGetChildrenOfType, 0x20511, Error, "ComponentAccessor", "getComponent by type refused", "id, revision") \
    X(AccessorGetChild, 0x20512, Error, "ComponentAccessor", "getComponent by type and number refused", "type, number, id, revision") \
    X(AccessorGetFeatured, 0x20513, Error, "ComponentAccessor", "getFeatured refused", "id, revision") \
    X(AccessorFindComponent, 0x20514, Error, "ComponentAccessor", "findComponent refused", "id, revision") \
    X(AccessorFindFeatured, 0x20515, Error, "ComponentAccessor", "findFeatured refused", "id, revision") \
    X(AccessorGetParent, 0x20516, Error, "ComponentAccessor", "getParent refused", "id, revision") \
    X(AccessorGetParents, 0x20517, Error, "ComponentAccessor", "getParents refused", "id, revision") \
    X(AccessorGetParentsOfType, 0x20518, Error, "ComponentAccessor", "getParents by type refused", "id, revision") \
    X(AccessorGetTreePath, 0x20519, Error, "ComponentAccessor", "getTreePath refused", "id, revision") \
    X(AccessorDoAction, 0x2051A, Error, "ComponentAccessor", "doAction refused", "action id, id, revision") \
    X(AccessorHasAction, 0x2051B, Error, "ComponentAccessor", "hasAction refused", "action id, id, revision") \
    X(AccessorGetActionIds, 0x2051C, Error, "ComponentAccessor", "getActionIds refused", "id, revision") \
    X(AccessorComponentMismatch, 0x2051E, Error, "ComponentAccessor", "made on a component with another revision", "id, revision wanted, revision found") \
    X(AccessorNoneEnabled, 0x2051F, Info, "ComponentAccessor", "no step of the path holds", "0, 0") \
    /* GuardSection */ \
    X(GuardSectionNoClock, 0x20600, Error, "GuardSection", "clock unavailable", "") \
    /* ResourceManager */ \
    X(ResourceNameUnknown, 0x30000, Debug, "ResourceManager", "resource name unknown", "text") \
    X(ResourceExists, 0x30001, Info, "ResourceManager", "resource added twice", "text") \
    X(RedirectionConflict, 0x30002, Error, "ResourceManager", "redirection conflicts", "") \
    X(RedirectionConflictText, 0x30003, Error, "ResourceManager", "redirection conflicts", "text") \
    X(ResourceNameOfUnknownId, 0x30004, Error, "ResourceManager", "getResourceName: id unknown", "resource id, 0") \
    X(ResourceIdUnknown, 0x30005, Error, "ResourceManager", "getResource: id unknown", "resource id, 0") \
    X(ResourceNotRegistered, 0x30006, Error, "ResourceManager", "getResourceName: resource not registered", "") \
    X(ResourceNameTaken, 0x30007, Error, "ResourceManager", "name belongs to another resource", "text") \
    X(ResourceHasName, 0x30008, Error, "ResourceManager", "resource has another name", "text") \
    X(ResourceInvalid, 0x30009, Error, "ResourceManager", "empty name or no resource", "") \
    /* Database */ \
    X(DatabaseReadOffset, 0x30100, Error, "Database", "read: offset below 0", "key, subkey, offset") \
    X(DatabaseReadAbsent, 0x30101, Error, "Database", "read: nothing there", "key, subkey, offset") \
    X(DatabaseWriteOffset, 0x30102, Error, "Database", "write: offset below 0", "key, subkey, offset") \
    X(DatabaseWriteEqual, 0x30103, Debug, "Database", "write suppressed: same bytes", "key, subkey") \
    X(DatabaseWriteGap, 0x30104, Info, "Database", "write past the end: gap padded", "key, subkey, old length, new length") \
    /* SharedMemory */ \
    X(SharedMemoryAttached, 0x40100, Debug, "SharedMemory", "attached", "id, address, size") \
    X(SharedMemoryStatFailed, 0x40101, Error, "SharedMemory", "shmctl IPC_STAT failed in attach", "error number, 0") \
    X(SharedMemoryDetachUnusable, 0x40102, Error, "SharedMemory", "shmdt failed in attach", "error number, 0") \
    X(SharedMemoryAttachFailed, 0x40103, Error, "SharedMemory", "shmat failed in attach", "error number, 0") \
    X(SharedMemoryRemoveUnusable, 0x40104, Error, "SharedMemory", "shmctl IPC_RMID failed in attach", "error number, 0") \
    X(SharedMemoryAllocated, 0x40105, Info, "SharedMemory", "allocated", "id, size, address") \
    X(SharedMemoryAllocateAttach, 0x40106, Error, "SharedMemory", "shmat failed in allocate", "error number, 0") \
    X(SharedMemoryGetFailed, 0x40107, Error, "SharedMemory", "shmget failed in allocate", "error number, 0") \
    X(SharedMemoryDetachFailed, 0x40108, Error, "SharedMemory", "shmdt failed in free", "error number, 0") \
    X(SharedMemoryRemoved, 0x40109, Debug, "SharedMemory", "removed", "id, 0") \
    X(SharedMemoryRemoveFailed, 0x4010A, Error, "SharedMemory", "shmctl IPC_RMID failed in free", "error number, 0") \
    /* TreePathLockProvider */ \
    X(JournalFull, 0x40200, Error, "TreePathLockProvider", "no free journal entry", "0, 0") \
    X(HolderDead, 0x40201, Error, "TreePathLockProvider", "dead holder found", "component id, kind, holder pid, holder tid") \
    X(HolderRecovered, 0x40202, Info, "TreePathLockProvider", "dead holder's lock removed", "component id, kind") \
    X(CounterUnderflow, 0x40204, Error, "TreePathLockProvider", "counter would go below zero", "0, 0") \
    X(UnlockNoJournal, 0x40205, Error, "TreePathLockProvider", "unlock without journal entry", "component id, 0") \
    X(WriterWaits, 0x40206, Info, "TreePathLockProvider", "reader held back by a waiting writer", "component id, index, holder pid, holder tid") \
    X(ReadRefusedByWriter, 0x40207, Info, "TreePathLockProvider", "read refused by a writer on the path", "component id, index, holder pid, holder tid") \
    X(ReadRefusedBeneath, 0x40208, Info, "TreePathLockProvider", "read refused by a writer beneath", "component id, index, holder pid, holder tid") \
    X(WriteRefusedByReader, 0x40209, Info, "TreePathLockProvider", "write refused by a reader on the path", "component id, index, holder pid, holder tid") \
    X(WriteRefusedByWriter, 0x4020A, Info, "TreePathLockProvider", "write refused by a writer on the path", "component id, index, holder pid, holder tid") \
    X(WriteRefusedReaderBeneath, 0x4020B, Info, "TreePathLockProvider", "write refused by a reader beneath", "component id, index, holder pid, holder tid") \
    X(WriteRefusedWriterBeneath, 0x4020C, Info, "TreePathLockProvider", "write refused by a writer beneath", "component id, index, holder pid, holder tid") \
    X(HoldersFull, 0x4020D, Error, "TreePathLockProvider", "holder table full", "component id, kind") \
    X(HoldersFullEntry, 0x4020E, Info, "TreePathLockProvider", "one entry of a full holder table", "component id, kind, holder pid, holder tid") \
    X(ReaderWoke, 0x4020F, Info, "TreePathLockProvider", "reader woke", "component id, 0") \
    X(WriterWoke, 0x40210, Debug, "TreePathLockProvider", "writer woke", "component id, 0") \
    X(LastReaderLeft, 0x40211, Info, "TreePathLockProvider", "last reader of a node left", "component id, 0") \
    X(WriterLeft, 0x40212, Debug, "TreePathLockProvider", "writer left", "component id, 0") \
    /* PthreadRWLock */ \
    X(RwlockReadLockFailed, 0x40301, Error, "PthreadRWLock", "readLock failed", "error number, 0") \
    X(RwlockReadUnlockFailed, 0x40302, Error, "PthreadRWLock", "readUnlock failed", "error number, 0") \
    X(RwlockWriteLockFailed, 0x40303, Error, "PthreadRWLock", "writeLock failed", "error number, 0") \
    X(RwlockWriteUnlockFailed, 0x40304, Error, "PthreadRWLock", "writeUnlock failed", "error number, 0") \
    X(RwlockTimedReadLockFailed, 0x40305, Error, "PthreadRWLock", "timedReadLock failed", "error number, 0") \
    X(RwlockTimedWriteLockFailed, 0x40306, Error, "PthreadRWLock", "timedWriteLock failed", "error number, 0") \
    /* Semaphore */ \
    X(SemaphoreInfoFailed, 0x40400, Error, "Semaphore", "IPC_INFO failed", "error number, 0") \
    X(SemaphoreInfoFailedText, 0x40401, Error, "Semaphore", "IPC_INFO failed", "text: reason") \
    X(SemaphoreInfoRemoveFailed, 0x40402, Error, "Semaphore", "IPC_RMID of the probe set failed", "error number, 0") \
    X(SemaphoreInfoRemoveFailedText, 0x40403, Error, "Semaphore", "IPC_RMID of the probe set failed", "text: reason") \
    X(SemaphoreInfoGetFailed, 0x40404, Error, "Semaphore", "semget of the probe set failed", "error number, 0") \
    X(SemaphoreInfoGetFailedText, 0x40405, Error, "Semaphore", "semget of the probe set failed", "text: reason") \
    X(SemaphoreGetFailed, 0x40406, Error, "Semaphore", "semget failed", "key, count, flag") \
    X(SemaphoreGetFailedText, 0x40407, Error, "Semaphore", "semget failed", "text: reason") \
    X(SemaphoreSetAllFailed, 0x40408, Error, "Semaphore", "SETALL failed", "id, 0") \
    X(SemaphoreSetAllFailedText, 0x40409, Error, "Semaphore", "SETALL failed", "text: reason") \
    X(SemaphoreSetUpFailed, 0x4040A, Error, "Semaphore", "first semop failed", "id, index") \
    X(SemaphoreSetUpFailedText, 0x4040B, Error, "Semaphore", "first semop failed", "text: reason") \
    X(SemaphoreCreated, 0x4040C, Debug, "Semaphore", "set created", "id, count") \
    X(SemaphoreStatFailed, 0x4040D, Error, "Semaphore", "IPC_STAT failed", "id, 0") \
    X(SemaphoreStatFailedText, 0x4040E, Error, "Semaphore", "IPC_STAT failed", "text: reason") \
    X(SemaphoreNeverReady, 0x4040F, Error, "Semaphore", "set never became ready", "id, 0") \
    X(SemaphoreOperateFailed, 0x40410, Error, "Semaphore", "semop failed", "id, records") \
    X(SemaphoreOperateFailedText, 0x40411, Error, "Semaphore", "semop failed", "text: reason") \
    X(SemaphoreRemoveFailed, 0x40412, Error, "Semaphore", "IPC_RMID failed", "id, 0") \
    X(SemaphoreRemoveFailedText, 0x40413, Error, "Semaphore", "IPC_RMID failed", "text: reason") \
    X(SemaphoreRemoved, 0x40414, Debug, "Semaphore", "set removed", "id, 0") \
    /* SemLockProvider */ \
    X(SemLockTooMany, 0x40500, Error, "SemLockProvider", "more components to lock than semaphores", "count, limit") \
    X(SemLockPrepared, 0x40501, Info, "SemLockProvider", "assignment prepared", "index, 0") \
    X(SemLockSwitched, 0x40502, Info, "SemLockProvider", "assignment taken into use", "index, 0") \
    /* SemRWLock */ \
    X(SemRWLockTooMany, 0x40600, Error, "SemRWLock", "more semaphores than a set holds", "count, limit") \
    /* NullAction */ \
    X(NullActionRun, 0x50000, Info, "NullAction", "run", "component id, action id") \
    /* ComponentCSVCacheSave, ComponentCSVCache */ \
    X(CacheSaveRowSkipped, 0x60000, Debug, "ComponentCSVCacheSave", "component row skipped", "text: name") \
    X(CacheBuild, 0x80000, Debug, "ComponentCSVCache", "build entered", "") \
    X(CacheBuilt, 0x80007, Debug, "ComponentCSVCache", "build finished", "") \
    X(CacheLoad, 0x90101, Debug, "Builder", "cache load begins", "") \
    X(CacheMiss, 0x90102, Debug, "Builder", "cache miss", "") \
    X(CacheRegenerated, 0x90103, Debug, "Builder", "cache regenerated", "") \
    X(CacheHit, 0x90104, Debug, "Builder", "cache hit", "") \
    X(CompoSpecNotOpened, 0x90105, Error, "Builder", "component specification cannot be opened", "text: path") \
    X(CacheUnreadable, 0x90106, Error, "Builder", "cache cannot be read back", "") \
    X(CacheOpenFailed, 0x90107, Debug, "ComponentCSVCache", "cache cannot be opened", "error number, 0") \
    X(CacheMapFailed, 0x90108, Debug, "ComponentCSVCache", "cache cannot be mapped", "error number, 0") \
    X(CacheLoadFailed, 0x90109, Debug, "ComponentCSVCache", "cache is bad", "text") \
    X(CacheNameIndex, 0x9010A, Error, "ComponentCSVCache", "name index out of range", "index, 0") \
    /* BMCRelationalDB */ \
    X(DbConstruct, 0xA0000, Debug, "BMCRelationalDB", "constructor entered", "") \
    X(DbConstructExit, 0xA000F, Debug, "BMCRelationalDB", "constructor left", "") \
    X(DbDestruct, 0xA0100, Debug, "BMCRelationalDB", "destructor entered", "") \
    X(DbDestructExit, 0xA010F, Debug, "BMCRelationalDB", "destructor left", "") \
    X(DbInitialize, 0xA0200, Debug, "BMCRelationalDB", "initialize entered", "") \
    X(DbInitializeTypeChosen, 0xA0201, Debug, "BMCRelationalDB", "type chosen", "type, 0") \
    X(DbInitializeExit, 0xA020F, Debug, "BMCRelationalDB", "initialize left", "") \
    X(DbGetValue, 0xA0300, Debug, "BMCRelationalDB", "getValue entered", "") \
    X(DbGetValueCollectDue, 0xA0301, Debug, "BMCRelationalDB", "compaction due", "tombstones, limit") \
    X(DbGetValueReloadDue, 0xA0302, Debug, "BMCRelationalDB", "reload due", "next offset, write position") \
    X(DbGetValueInternal, 0xA0310, Debug, "BMCRelationalDB", "getValue_internal entered", "") \
    X(DbGetValueCheckFailed, 0xA0311, Debug, "BMCRelationalDB", "record check failed", "record offset, 0") \
    X(DbGetValueGoneAfterReload, 0xA0312, Debug, "BMCRelationalDB", "key gone after reload", "") \
    X(DbGetValueAbsent, 0xA0313, Debug, "BMCRelationalDB", "key absent", "") \
    X(DbGetValueInternalExit, 0xA031F, Debug, "BMCRelationalDB", "getValue_internal left", "") \
    X(DbGetValueExit, 0xA030F, Debug, "BMCRelationalDB", "getValue left", "") \
    X(DbSetValue, 0xA0400, Debug, "BMCRelationalDB", "setValue entered", "") \
    X(DbSetValueCollectDue, 0xA0401, Debug, "BMCRelationalDB", "compaction due", "tombstones, limit") \
    X(DbSetValueReloadDue, 0xA0402, Debug, "BMCRelationalDB", "reload due", "next offset, write position") \
    X(DbSetValueInternal, 0xA0410, Debug, "BMCRelationalDB", "setValue_internal entered", "") \
    X(DbSetValueCheckFailed, 0xA0411, Debug, "BMCRelationalDB", "record check failed", "record offset, 0") \
    X(DbSetValueGoneAfterReload, 0xA0412, Debug, "BMCRelationalDB", "key gone after reload", "") \
    X(DbSetValueLengthChanged, 0xA0413, Debug, "BMCRelationalDB", "length changed", "record offset, 0") \
    X(DbSetValueLengths, 0xA0414, Debug, "BMCRelationalDB", "old and new length", "old length, new length") \
    X(DbSetValueAppending, 0xA0415, Debug, "BMCRelationalDB", "appending", "record offset, end") \
    X(DbSetValueOverflow, 0xA0416, Debug, "BMCRelationalDB", "record would reach the reserve at the end", "end, file size") \
    X(DbSetValueInternalExit, 0xA041F, Debug, "BMCRelationalDB", "setValue_internal left", "") \
    X(DbSetValueExit, 0xA040F, Debug, "BMCRelationalDB", "setValue left", "") \
    X(DbOpen, 0xA0500, Debug, "BMCRelationalDB", "dbfile_open entered", "") \
    X(DbOpenCreateFailed, 0xA0501, Debug, "BMCRelationalDB", "create failed", "error number, 0") \
    X(DbOpenNoBlock, 0xA0502, Debug, "BMCRelationalDB", "block allocation failed", "") \
    X(DbOpenFillFailed, 0xA0503, Debug, "BMCRelationalDB", "writing the new file failed", "error number, 0") \
    X(DbOpenOpenFailed, 0xA0504, Debug, "BMCRelationalDB", "open failed", "error number, 0") \
    X(DbOpenMapFailed, 0xA0505, Debug, "BMCRelationalDB", "mmap failed", "error number, 0") \
    X(DbOpenExit, 0xA050F, Debug, "BMCRelationalDB", "dbfile_open left", "") \
    X(DbLoad, 0xA0600, Debug, "BMCRelationalDB", "dbfile_load entered", "") \
    X(DbLoadExit, 0xA060F, Debug, "BMCRelationalDB", "dbfile_load left", "") \
    X(DbSync, 0xA0700, Debug, "BMCRelationalDB", "datasync entered", "") \
    X(DbSyncExit, 0xA070F, Debug, "BMCRelationalDB", "datasync left", "") \
    X(DbNotify, 0xA0800, Debug, "BMCRelationalDB", "notifySyncDaemon entered", "") \
    X(DbNotifyNoDaemon, 0xA0801, Info, "BMCRelationalDB", "no sync daemon", "") \
    X(DbNotifyDaemonFound, 0xA0803, Debug, "BMCRelationalDB", "daemon pid found", "pid, 0") \
    X(DbNotifySignalFailed, 0xA0804, Error, "BMCRelationalDB", "kill failed", "error number, pid") \
    X(DbNotifyPidZero, 0xA0805, Error, "BMCRelationalDB", "daemon pid is 0", "") \
    X(DbNotifyExit, 0xA080F, Debug, "BMCRelationalDB", "notifySyncDaemon left", "") \
    X(DbCollect, 0xA0900, Debug, "BMCRelationalDB", "garbage_collect entered", "") \
    X(DbCollectNoMemory, 0xA0901, Debug, "BMCRelationalDB", "no memory for the copy", "") \
    X(DbCollectExit, 0xA090F, Debug, "BMCRelationalDB", "garbage_collect left", "") \
    X(DbAdjust, 0xA0A00, Debug, "BMCRelationalDB", "size_adjust entered", "") \
    X(DbAdjustStatFailed, 0xA0A01, Debug, "BMCRelationalDB", "fstat failed", "error number, 0") \
    X(DbAdjustNotNeeded, 0xA0A02, Debug, "BMCRelationalDB", "no growth needed", "file size, 0") \
    X(DbAdjustNoBlock, 0xA0A03, Debug, "BMCRelationalDB", "no memory for the block", "") \
    X(DbAdjustSeekFailed, 0xA0A04, Debug, "BMCRelationalDB", "seek failed", "result, file size") \
    X(DbAdjustWriteFailed, 0xA0A05, Debug, "BMCRelationalDB", "extending write failed", "error number, 0") \
    X(DbAdjustExit, 0xA0A0F, Debug, "BMCRelationalDB", "size_adjust left", "")
// clang-format on

namespace qz::internal {

enum class TraceLevel { Error, Info, Debug, Debug2 };

struct TracePoint {
    unsigned long id;
    TraceLevel level;
    const char* where; ///< class that writes it
    const char* event;
    const char* words; ///< what follows process id and thread id
};

/// The entries by name.
namespace point {
#define TAVREL_TRACE_POINT(name, id, level, where, event, words)                                                  \
    inline constexpr TracePoint name{id, TraceLevel::level, where, event, words};
TAVREL_TRACE_POINTS(TAVREL_TRACE_POINT)
#undef TAVREL_TRACE_POINT
} // namespace point

/// The entries as a list, in the order of the table.
inline constexpr TracePoint tracePoints[] = {
#define TAVREL_TRACE_POINT(name, id, level, where, event, words) point::name,
    TAVREL_TRACE_POINTS(TAVREL_TRACE_POINT)
#undef TAVREL_TRACE_POINT
};

} // namespace qz::internal
