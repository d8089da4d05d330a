#include "cli/system/json_objects.h"

namespace cli {

void JsonObjects::add(std::string_view part, const std::function<void(const std::string&)>& take) {
  for (const char octet : part) {
    if (depth_ == 0 && octet != '{') {
      rest_ += octet;
      continue;
    }
    object_ += octet;
    follow(octet);
    if (depth_ > 0) continue;
    take(object_);
    object_.clear();
  }
}

// Braces in strings do not count.
void JsonObjects::follow(char octet) {
  if (is_escaped_) {
    is_escaped_ = false;
  } else if (is_in_string_) {
    is_escaped_ = octet == '\\';
    is_in_string_ = octet != '"';
  } else {
    is_in_string_ = octet == '"';
    if (octet == '{') ++depth_;
    if (octet == '}') --depth_;
  }
}

}  // namespace cli
