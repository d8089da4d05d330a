// Nodes of configuration items: written from an item's fields, and read. Not for other folders.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/config/items.h"

namespace vrf_config {

std::string path_of(const Item& item, const Fields& fields);
// The item's node, with the value that the fields have.
KvConfigNode node_of(const Item& item, const Fields& fields);
// The fields that the value of an item has; false for a value of another form.
bool read_value(const Item& item, const KvValue& value, Fields* fields);

// A path that fits an item's pattern. Valid while the path is.
struct ParsedPath {
  const Item* item = nullptr;
  std::vector<std::string_view> components;  // without those of the scope
};
std::optional<ParsedPath> parse_path(std::string_view path);

// What the path says; none when a key cannot be read.
std::optional<Fields> fields_of(const ParsedPath& path);
// The same if the item with these fields has this very path: subscribers accept more paths than are written.
std::optional<Fields> exact_fields_of(std::string_view path);

}  // namespace vrf_config
