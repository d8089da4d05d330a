// Process manager: readiness, thread names, library presence.
#pragma once

#include "platform/core/base/status.h"

// Tells the service manager that the daemon is up (READY=1 on NOTIFY_SOCKET; success without one).
// Fault point "proc_ready".
[[nodiscard]] Status proc_ready();
// Names the calling thread (15 characters are kept).
void proc_name_thread(const char* name);
// 0 when the file can be read, else its errno. Fault point "proc_file_readable".
[[nodiscard]] Status proc_file_readable(const char* path);
