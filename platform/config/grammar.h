// The words of configuration items, taken apart. Not for other folders.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/config/word_types.h"

namespace vrf_config {

struct Element {
  std::string_view literal;
  const WordType* type = nullptr;      // null: the literal
  std::vector<std::string> choices{};  // of the type
};
using Elements = std::vector<Element>;

// Items with the same words are one.
struct Syntax {
  std::string_view words;
  std::vector<const Item*> items;
  Elements required;
  std::vector<Elements> optional;  // each at most once, in this order
};

// In the order of the items.
const std::vector<Syntax>& all_syntaxes();
const Syntax& syntax_of(const Item& item);

}  // namespace vrf_config
