// A document keeps both of two equal keys in a map, so maps
// are walked once, in the order of the text, and each key is looked up in the reader's own table.
#include "sources/file/reader/yaml_reader.h"
#include "platform/core/text/numbers.h"

#include <algorithm>

namespace router_file {

namespace {

std::string listed(const std::vector<std::string_view>& words) {
  std::string text;
  for (const std::string_view word : words) {
    if (!text.empty()) text += ", ";
    text += word;
  }
  return text;
}

std::string key_name(const Node& key, std::string_view what) {
  if (!key.is_scalar()) refuse(key.mark(), "a key of " + std::string(what) + " is one word");
  return key.scalar();
}

std::string plain_scalar(const Node& value, const std::string& expected) {
  if (!value.is_scalar() || value.is_quoted()) refuse(value.mark(), expected);
  return value.scalar();
}

// Names the key that is probably meant, and all of them.
[[noreturn]] void refuse_key(const Node& key, std::string_view what,
                             const std::vector<std::string_view>& names) {
  const std::string unknown = std::string(what) + " has no key " + quoted(key.scalar());
  const std::string similar = text::hint(key.scalar(), {names.begin(), names.end()}, "");
  refuse(key.mark(), text::continued(text::continued(unknown, similar), "the keys are " + listed(names)));
}

bool is_control(char octet) {
  return static_cast<unsigned char>(octet) < 0x20 || octet == 0x7f;
}

}  // namespace

void read_keys(const Node& map, std::string_view what, const std::vector<std::string_view>& names,
               const std::function<void(std::size_t position, const Node& value)>& on_key) {
  if (!map.is_map()) {
    refuse(map.mark(), std::string(what) + " is written as keys with values; the keys are " + listed(names));
  }
  std::vector<bool> seen(names.size());
  for (std::size_t at = 0; at + 1 < map.items().size(); at += 2) {
    const Node& key = *map.items()[at];
    const std::string name = key_name(key, what);
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) refuse_key(key, what, names);
    const auto position = static_cast<std::size_t>(found - names.begin());
    if (seen[position]) refuse(key.mark(), "the key \"" + name + "\" is written twice");
    seen[position] = true;
    on_key(position, *map.items()[at + 1]);
  }
}

void read_sequence(const Node& sequence, std::string_view what,
                   const std::function<void(const Node& item)>& on_item) {
  if (sequence.is_null()) return;
  if (!sequence.is_sequence()) refuse(sequence.mark(), std::string(what) + " are written as a list");
  for (const Node* item : sequence.items()) on_item(*item);
}

std::string read_text(const Node& value, std::string_view what) {
  if (!value.is_scalar()) refuse(value.mark(), std::string(what) + " is a text");
  return value.scalar();
}

std::string read_line(const Node& value, std::string_view what, std::size_t most) {
  std::string text = read_text(value, what);
  if (std::any_of(text.begin(), text.end(), is_control)) {
    refuse(value.mark(), std::string(what) + " is one line without control characters");
  }
  if (text.size() > most) {
    refuse(value.mark(), std::string(what) + " has " + std::to_string(text.size()) + " octets, more than " +
                             std::to_string(most));
  }
  return text;
}

std::uint32_t read_number(const Node& value, std::string_view what, std::uint32_t least, std::uint32_t most) {
  const std::string expected =
      std::string(what) + " is a number from " + std::to_string(least) + " to " + std::to_string(most);
  const std::string text = plain_scalar(value, expected);
  const std::optional<std::uint32_t> number = text::parse_number(text, most);
  if (!number || *number < least) refuse(value.mark(), expected + ", not \"" + text + "\"");
  return *number;
}

bool read_switch(const Node& value, std::string_view what) {
  const std::string text = plain_scalar(value, std::string(what) + " is true or false");
  if (text != "true" && text != "false") {
    refuse(value.mark(), std::string(what) + " is true or false, not \"" + text + "\"");
  }
  return text == "true";
}

std::size_t read_choice(const Node& value, std::string_view what,
                        const std::vector<std::string_view>& words) {
  const std::string text = read_text(value, what);
  const auto found = std::find(words.begin(), words.end(), text);
  if (found == words.end()) {
    refuse(value.mark(), std::string(what) + " is one of " + listed(words) + ", not \"" + text + "\"");
  }
  return static_cast<std::size_t>(found - words.begin());
}

}  // namespace router_file
