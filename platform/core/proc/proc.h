// Process manager: readiness, thread names, library presence.
#pragma once

#include "platform/core/base/status.h"

// Notifies the service manager that the daemon is ready (READY=1 on NOTIFY_SOCKET; success if it is unset).
// Fault point "proc_ready".
[[nodiscard]] Status proc_ready();
// Names the calling thread; the kernel stores 15 characters.
void proc_name_thread(const char* name);
// 0 when the file can be read, else its errno. Fault point "proc_file_readable".
[[nodiscard]] Status proc_file_readable(const char* path);
