/// @file
/// The trace sink that the library writes its binary records to.
#pragma once

extern "C" {

/// Stores one trace record; the caller's record is copied before this returns.
///
/// The definition in this library is weak: a program that defines its own function of this name gets every
/// record instead. The bundled one keeps records in the shared ring "/qz_trace"; the environment variable
/// "QZ_TRACE_LEVEL" ("error", "info", "debug", "debug2", "off"; default "info") is looked at first, once a
/// process.
///
/// @param channel  channel number of the writer; 13 for tavrel
/// @param flags    level: 0x8002 error, 0x8001 info, 0x0801 debug, 0x0001 debug2. Of other flags 0x8000 means
///                 error with 0x0002 and info without; 0x0800 debug; anything else debug2
/// @param module   module number of the writer; 37 for tavrel
/// @param traceId  which point of the writer's code this is
/// @param data     the record; `size` bytes
/// @param size     bytes in the record; a record longer than a slot (208) is cut, its true length is kept
/// @return 0 when the record was stored or filtered, -1 when it was dropped: the ring cannot be opened, or
///         the slots that were tried are all in use by other writers
/// Threads: any, also in a forked child and with any lock held; never blocks, never allocates, leaves `errno`
/// as it was.
int qz_trace_write(int channel, int flags, unsigned module, unsigned long traceId, const void* data,
                   unsigned size);
}
