// yaml-cpp keeps both of two equal keys in a map and finds keys by linear search, so maps
// are walked once, in the order of the text, and each key is looked up in the reader's own table.
#include "sources/file/reader/yaml_reader.h"
#include "platform/core/text/numbers.h"

#include <algorithm>

namespace router_file {

namespace {

// yaml-cpp's tag of a scalar that was written between quotation marks.
constexpr const char* kQuotedTag = "!";

std::string listed(const std::vector<std::string_view>& words) {
  std::string text;
  for (const std::string_view word : words) {
    if (!text.empty()) text += ", ";
    text += word;
  }
  return text;
}

std::string key_name(const YAML::Node& key, std::string_view what) {
  if (!key.IsScalar()) refuse(key.Mark(), "a key of " + std::string(what) + " is one word");
  return key.Scalar();
}

std::string plain_scalar(const YAML::Node& value, const std::string& expected) {
  if (!value.IsScalar() || value.Tag() == kQuotedTag) refuse(value.Mark(), expected);
  return value.Scalar();
}

bool is_control(char octet) {
  return static_cast<unsigned char>(octet) < 0x20 || octet == 0x7f;
}

}  // namespace

void refuse(const YAML::Mark& mark, const std::string& what) {
  throw Misreading(mark, what);
}

void read_keys(const YAML::Node& map, std::string_view what, const std::vector<std::string_view>& names,
               const std::function<void(std::size_t position, const YAML::Node& value)>& on_key) {
  if (!map.IsMap()) {
    refuse(map.Mark(), std::string(what) + " is written as keys with values; the keys are " + listed(names));
  }
  std::vector<bool> seen(names.size());
  for (const auto& pair : map) {
    const std::string name = key_name(pair.first, what);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
      refuse(pair.first.Mark(),
             std::string(what) + " has no key \"" + name + "\"; the keys are " + listed(names));
    }
    const auto position = static_cast<std::size_t>(found - names.begin());
    if (seen[position]) refuse(pair.first.Mark(), "the key \"" + name + "\" is written twice");
    seen[position] = true;
    on_key(position, pair.second);
  }
}

void read_sequence(const YAML::Node& sequence, std::string_view what,
                   const std::function<void(const YAML::Node& item)>& on_item) {
  if (sequence.IsNull()) return;
  if (!sequence.IsSequence()) refuse(sequence.Mark(), std::string(what) + " are written as a list");
  for (const YAML::Node& item : sequence) on_item(item);
}

std::string read_text(const YAML::Node& value, std::string_view what) {
  if (!value.IsScalar()) refuse(value.Mark(), std::string(what) + " is a text");
  return value.Scalar();
}

std::string read_line(const YAML::Node& value, std::string_view what, std::size_t most) {
  std::string text = read_text(value, what);
  if (std::any_of(text.begin(), text.end(), is_control)) {
    refuse(value.Mark(), std::string(what) + " is one line without control characters");
  }
  if (text.size() > most) {
    refuse(value.Mark(), std::string(what) + " has " + std::to_string(text.size()) + " octets, more than " +
                             std::to_string(most));
  }
  return text;
}

std::uint32_t read_number(const YAML::Node& value, std::string_view what, std::uint32_t least,
                          std::uint32_t most) {
  const std::string expected =
      std::string(what) + " is a number from " + std::to_string(least) + " to " + std::to_string(most);
  const std::string text = plain_scalar(value, expected);
  const std::optional<std::uint32_t> number = text::parse_number(text, most);
  if (!number || *number < least) refuse(value.Mark(), expected + ", not \"" + text + "\"");
  return *number;
}

bool read_switch(const YAML::Node& value, std::string_view what) {
  const std::string text = plain_scalar(value, std::string(what) + " is true or false");
  if (text != "true" && text != "false") {
    refuse(value.Mark(), std::string(what) + " is true or false, not \"" + text + "\"");
  }
  return text == "true";
}

std::size_t read_choice(const YAML::Node& value, std::string_view what,
                        const std::vector<std::string_view>& words) {
  const std::string text = read_text(value, what);
  const auto found = std::find(words.begin(), words.end(), text);
  if (found == words.end()) {
    refuse(value.Mark(), std::string(what) + " is one of " + listed(words) + ", not \"" + text + "\"");
  }
  return static_cast<std::size_t>(found - words.begin());
}

}  // namespace router_file
