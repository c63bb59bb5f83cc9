/// @file
/// Finding other processes.
#pragma once

/// Finds a running process by its short name ("/proc/PID/comm") or the base name of its first argument.
///
/// Zombies do not count. Of several processes of one name the lowest process id is given.
///
/// @param name  name to look for
/// @param pid   receives the process id; untouched when there is none
/// @return 0 when one was found, otherwise non-zero
/// Threads: any.
int get_pid_by_name(const char* name, int* pid);
