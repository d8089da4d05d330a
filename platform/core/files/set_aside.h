// Names for files that cannot be used: PATH.unusable.N, N from 1. They are stored for an operator, beside the
// file that replaces them.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>

#include "platform/core/base/status.h"

// The first name that no file has, and with these suffixes neither; empty if there are too many.
std::string free_unusable_name(const std::string& path, std::initializer_list<const char*> suffixes = {});
// How many there are, up to the first name that no file has.
std::uint32_t count_unusable(const std::string& path);
// The file also has this name from now on, if the file system can do that, otherwise instead of its own: then
// it is not lost when the caller ends before it has written another one. The system's error. Fault point
// "set_aside".
[[nodiscard]] Status set_aside(const std::string& path, std::string* name);
