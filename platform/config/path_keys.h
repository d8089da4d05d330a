// The keys in the paths of configuration items. A key has one component or several. Not for other folders.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/config/items.h"

namespace vrf_config {

using Components = std::span<const std::string_view>;

struct Key {
  std::string_view name;  // in the patterns of items.cpp
  std::size_t size;       // components
  std::string (*write)(const Fields& fields);
  bool (*read)(Components components, Fields* fields);  // false: not readable
  // Whether a component belongs to this key; null: all do.
  bool (*accepts)(std::string_view component) = nullptr;
};

// Null for an unknown name.
const Key* find_key(std::string_view name);

// The text of a component; none for "-", which is an absent key, and for one that does not decode.
std::optional<std::string> decode_key(std::string_view component);

}  // namespace vrf_config
