// Lines on standard error that never hold the process up: whoever reads them (a pipe, a terminal, the
// journal's socket) may stop reading or go away, and the event loops go on.
#pragma once

#include <cstdint>
#include <string_view>

// Writes the line, with a line break behind it, by one call, so that lines of several threads and processes
// do not mix; what is beyond PIPE_BUF octets is cut. A line that standard error cannot take at once is
// dropped and counted; the next line that can be written is preceded by "standard error: N lines were lost".
// Descriptor 2 stays as it is: others share it. errno is kept. Any thread. Fault point "standard_error_open":
// the descriptor cannot be opened anew.
void write_error_line(std::string_view line);

// Lines that were dropped and not yet told of.
std::uint64_t lost_error_lines();
