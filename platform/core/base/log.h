// The process's own log line on standard error (the journal, under a service manager), for what concerns the
// process and not one of the daemon's debug areas: a client that was closed, a source that went away.
#pragma once

// One line, printf style; the line break is added. Never waits (standard_error.h). Any thread.
[[gnu::format(printf, 1, 2)]] void log_line(const char* format, ...);
