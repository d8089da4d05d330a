// Quotes the user's texts in messages.
#pragma once

#include <string>
#include <string_view>

namespace router_file {

inline std::string quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

}  // namespace router_file
