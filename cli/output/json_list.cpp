#include "cli/output/json_list.h"

namespace cli {

std::string json_line(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json text_or_null(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

void JsonList::add(const Json& item) {
  out_ << (is_empty_ ? "[\n" : ",\n") << json_line(item);
  is_empty_ = false;
}

JsonList::~JsonList() {
  if (!is_empty_ && !is_ended_) end();
}

void JsonList::end() {
  is_ended_ = true;
  out_ << (is_empty_ ? "[]\n" : "\n]\n");
}

}  // namespace cli
