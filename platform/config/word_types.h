// The words of configuration items that are not literals: how each is read and written. Not for other
// folders.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/config/items.h"

namespace vrf_config {

// What was read so far. Several families and directions make several items.
struct Draft {
  Fields fields;
  std::vector<Family> families;
  std::vector<Direction> directions;
};

struct WordType {
  std::string_view name;  // as help shows it; lower-case words between bars are the choices
  std::string_view what;  // in messages; empty: the choices
  // What is wrong with the word; none if nothing is.
  std::optional<std::string> (*read)(const WordType& type, const std::string& word, Draft* draft);
  std::string (*write)(const Fields& fields);
  bool takes_rest = false;  // with all words after it
};

// Null for a literal.
const WordType* find_word_type(std::string_view name);

// The words of which a word of the type is one; empty when it is not so bounded.
std::vector<std::string> choices_of(const WordType& type);

}  // namespace vrf_config
