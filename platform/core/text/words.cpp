#include "platform/core/text/words.h"

#include <algorithm>

namespace text {

std::string_view take_until(std::string_view* rest, char separator) {
  const std::size_t length = std::min(rest->find(separator), rest->size());
  const std::string_view part = rest->substr(0, length);
  rest->remove_prefix(std::min(length + 1, rest->size()));
  return part;
}

std::vector<std::string_view> split(std::string_view whole, char separator) {
  std::vector<std::string_view> parts;
  while (!whole.empty()) parts.push_back(take_until(&whole, separator));
  return parts;
}

std::string quoted(std::string_view whole) {
  return '"' + std::string(whole) + '"';
}

std::string alternatives(const std::vector<std::string>& words) {
  std::string all;
  for (std::size_t at = 0; at < words.size(); ++at) {
    if (at > 0) all += at + 1 == words.size() ? " or " : ", ";
    all += words[at];
  }
  return all;
}

}  // namespace text
