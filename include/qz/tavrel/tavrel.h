/// @file
/// All of tavrel.
///
/// To start a process: `Factory`, `Builder`. To work: `Component`, `ComponentAccessor`, `TreePath`,
/// `AbstractVisitor`, `ConfigurationWriter`. To extend: `Factory`, `Action`, `Database`, `NameResolver`,
/// `Initializer`.
#pragma once

// Starting a process from its files.
#include <qz/tavrel/Builder.h>
#include <qz/tavrel/ComponentCSVCache.h>
#include <qz/tavrel/Factory.h>
#include <qz/tavrel/Initializer.h>
#include <qz/tavrel/NameResolver.h>
#include <qz/tavrel/Specification.h>

// The object tree.
#include <qz/tavrel/Component.h>
#include <qz/tavrel/ComponentAccessor.h>
#include <qz/tavrel/ComponentClass.h>
#include <qz/tavrel/ComponentVisitor.h>
#include <qz/tavrel/ConfigurationWriter.h>
#include <qz/tavrel/TreePath.h>

// Actions.
#include <qz/tavrel/Action.h>
#include <qz/tavrel/AddComponent.h>
#include <qz/tavrel/ControlTarget.h>
#include <qz/tavrel/PrintMessage.h>
#include <qz/tavrel/ShareComponent.h>
#include <qz/tavrel/Sleep.h>

// The shared description of the tree.
#include <qz/tavrel/Association.h>
#include <qz/tavrel/Configuration.h>
#include <qz/tavrel/TreeConfig.h>

// Property storage.
#include <qz/tavrel/BMCRelationalDB.h>
#include <qz/tavrel/Database.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/Resource.h>
#include <qz/tavrel/ResourceManager.h>

// Locks.
#include <qz/tavrel/ComponentLockProvider.h>
#include <qz/tavrel/LockObject.h>
#include <qz/tavrel/SemLockProvider.h>
#include <qz/tavrel/Semaphore.h>
#include <qz/tavrel/SharedMemory.h>
#include <qz/tavrel/TreePathLockProvider.h>

// Faults, reports, and memory of each thread.
#include <qz/tavrel/Counter.h>
#include <qz/tavrel/GuardSection.h>
#include <qz/tavrel/Logger.h>
#include <qz/tavrel/QZException.h>
