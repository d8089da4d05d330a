// Process manager: readiness, state and watchdog, thread names, library presence.
#pragma once

#include <cstdint>
#include <string>

#include "platform/core/base/status.h"

// Notifies the service manager that the daemon is ready (READY=1 on NOTIFY_SOCKET; success if it is unset).
// At the start, and when a reload has ended. Fault point "proc_ready".
[[nodiscard]] Status proc_ready();
// The process reads its settings again; proc_ready() ends that.
void proc_reloading();
// The line that "systemctl status" shows of the process. A failure is ignored, here and below: the service
// does not depend on it.
void proc_status(const std::string& text);
// The process ends in order; the text is its last status.
void proc_stopping(const std::string& text);
// The service manager restarts a process that does not call proc_watchdog() at this interval, in nanoseconds;
// it is half of what the service manager allows. 0: it does not watch this process.
std::uint64_t proc_watchdog_interval();
void proc_watchdog();
// Names the calling thread; the kernel stores 15 characters.
void proc_name_thread(const char* name);
// 0 when the file can be read, else its errno. Fault point "proc_file_readable".
[[nodiscard]] Status proc_file_readable(const char* path);
