#pragma once

#include <fmt/format.h>

#include <string>

namespace cli::doctor {

// "a, b and 3 more".
template <typename Names>
std::string some_of(const Names& names, std::size_t most = 5) {
  std::string text;
  std::size_t count = 0;
  for (const std::string& name : names) {
    if (++count > most) return text + fmt::format(" and {} more", names.size() - most);
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

}  // namespace cli::doctor
