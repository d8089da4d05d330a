// A small or large file that is read as a whole.
#pragma once

#include <cstddef>
#include <string>

#include "platform/core/base/status.h"

// Reads a regular file of at most `limit` octets. Never waits for another process, as a FIFO or a terminal
// would: everything else than a regular file is kStatusInvalid. kStatusMessageTooLarge, or the system's
// error. *error is a text without the path; *text is set only on success. Fault point "read_file". Any
// thread.
[[nodiscard]] Status read_file(const std::string& path, std::size_t limit, std::string* text,
                               std::string* error);
