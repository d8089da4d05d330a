// Reads a YAML document strictly: every value has one type, every key is known and written once, and every
// error is reported with its position.
//
// The functions throw Misreading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/text/words.h"
#include "sources/file/reader/yaml_document.h"

namespace router_file {

using text::quoted;

// One key of a map and the function that reads its value into a T.
template <typename T>
struct Key {
  const char* name;
  void (*read)(const Node& value, T* into);
};

// Calls `on_key` with the position (in `names`) and the value of every key of the map, in the order of the
// text. `what` names the map in messages ("a VRF").
void read_keys(const Node& map, std::string_view what, const std::vector<std::string_view>& names,
               const std::function<void(std::size_t position, const Node& value)>& on_key);

template <typename T, std::size_t kCount>
void read_map(const Node& map, std::string_view what, const Key<T> (&keys)[kCount], T* into) {
  std::vector<std::string_view> names;
  for (const Key<T>& key : keys) names.emplace_back(key.name);
  read_keys(map, what, names,
            [&](std::size_t position, const Node& value) { keys[position].read(value, into); });
}

// A sequence's items in order; an empty value ("vrfs:") is an empty sequence. `what` names the items
// ("VRFs").
void read_sequence(const Node& sequence, std::string_view what,
                   const std::function<void(const Node& item)>& on_item);

// A text; numbers and words without quotation marks count as texts, an empty value does not.
std::string read_text(const Node& value, std::string_view what);
// A text of one line, without control characters, of at most `most` octets.
std::string read_line(const Node& value, std::string_view what, std::size_t most);
// A decimal number without quotation marks, from `least` to `most`.
std::uint32_t read_number(const Node& value, std::string_view what, std::uint32_t least, std::uint32_t most);
// true or false.
bool read_switch(const Node& value, std::string_view what);
// One of the words; the answer is its position.
std::size_t read_choice(const Node& value, std::string_view what, const std::vector<std::string_view>& words);

}  // namespace router_file
