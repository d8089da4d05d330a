// A small file that is written as a whole.
#pragma once

#include <string>
#include <string_view>

#include "platform/core/base/status.h"

// The file has the text, or what it had before: the text is written to PATH.new, which then takes the name. A
// power cut may undo it. The system's error; what was beside the file is removed then.
[[nodiscard]] Status replace_file(const std::string& path, std::string_view text);
