// An exclusive lock of an open file between processes. The kernel releases it when the process closes any
// descriptor of the file or ends, and names the process that has it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

#include "platform/core/base/status.h"

// Waits at most that long: kStatusTimedOut then, with *holder the process that has the lock (0 if it cannot
// be seen from here). Otherwise kStatusOk or the system's error.
[[nodiscard]] Status lock_file(int fd, std::chrono::milliseconds patience, pid_t* holder);

// The process that has a lock of any kind on the file, or 0. Not for a file that this process has locked:
// the lock would be released.
pid_t find_lock_holder(const char* path);

// For messages: "process 7", or "another process" for 0, a process that cannot be seen from here.
std::string describe_process(pid_t process);
