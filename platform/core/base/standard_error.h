// Lines on standard error that never block the process. The reader (a pipe, a terminal, the journal's socket)
// may stop reading or exit; the event loops continue.
#pragma once

#include <cstdint>
#include <string_view>

// Writes the line and a line break in one call, so that lines of several threads and processes do not mix.
// Cuts the line at PIPE_BUF octets. A line that standard error cannot take without blocking is dropped and
// counted; the next line that can be written is preceded by "standard error: N lines were lost". Does not
// change the flags of descriptor 2, which other processes share, nor errno. Any thread. Fault point
// "standard_error_open": the descriptor cannot be opened again.
void write_error_line(std::string_view line);

// The number of dropped lines that no line has reported yet.
std::uint64_t lost_error_lines();

// Whether standard error is the journal's stream: the service manager states its device and inode in
// JOURNAL_STREAM.
bool standard_error_is_journal();
