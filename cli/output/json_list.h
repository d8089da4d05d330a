// JSON output: one object a line, lists as one array that is printed item by item.
#pragma once

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>

namespace cli {

using Json = nlohmann::ordered_json;

// On one line. Octets that are not UTF-8 are replaced by U+FFFD.
std::string json_line(const Json& value);
// The text, or null for an empty one.
Json text_or_null(const std::string& text);

// An array. One that a failure cuts short is closed nevertheless, if it has an item.
class JsonList {
 public:
  explicit JsonList(std::ostream& out) : out_(out) {}
  JsonList(const JsonList&) = delete;
  JsonList& operator=(const JsonList&) = delete;
  ~JsonList();
  void add(const Json& item);
  void end();

 private:
  std::ostream& out_;
  bool is_empty_ = true;
  bool is_ended_ = false;
};

}  // namespace cli
