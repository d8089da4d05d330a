// Divides a text into the JSON objects that it has one after another, while it arrives in parts.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace cli {

class JsonObjects {
 public:
  // Calls take() with the text of each object that ends in this part.
  void add(std::string_view part, const std::function<void(const std::string&)>& take);

  // Of the object that has begun.
  std::size_t octets() const { return object_.size(); }
  // What was outside of objects.
  const std::string& rest() const { return rest_; }

 private:
  void follow(char octet);

  std::string object_;
  std::string rest_;
  unsigned depth_ = 0;
  bool is_in_string_ = false;
  bool is_escaped_ = false;
};

}  // namespace cli
