// The table of configuration items. An item is a node of the configuration tree that users write as a line of
// words: "vrf red rt import 65000:1 ipv4". From a row of the table derive
//   - the path of a node, and how a path is read (paths.h);
//   - how words are read, which words may follow, and the words of a node (parse_words.cpp, words_of.cpp);
//   - the help text, and the scopes in which items are counted or name a VRF.
// A new item is a new row, with a builder in builders.cpp if a source sets it. Constant data.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/config/vrf_config.h"

namespace vrf_config {

enum class Kind {
  kDescription,
  kRouteDistinguisher,
  kImportTarget,
  kExportTarget,
  kImportPolicy,
  kExportPolicy,
  kThreshold,
  kLowWater,
  kVni,
  kWatchedPrefix,
  kBgp,
  kOspf,
  kRip,
  kRipng,
  kEigrp,
  kStatic,
  kAsFormat,
  kTrap,
  kReissueTime,
};

// The value of an item's node.
enum class ValueForm {
  kPresent,  // 1: only the presence of the node counts
  kText,
  kNumber,
  kNumbers,
};

// What an item says, in its path, its value and its words. Each item uses some members.
struct Fields {
  std::string vrf{};
  Family family = Family::kIpv4;
  std::optional<Direction> direction{};
  Target target{};  // or a route distinguisher
  std::uint32_t as_number = 0;
  std::string neighbor{};  // an address, or the name of an interface or a group
  std::string process{};
  std::uint32_t area = 0;
  std::string interface {};
  std::string prefix{};
  std::string next_hop{};
  std::string text{};        // a description, a policy, a format, a trap
  std::uint32_t number = 0;  // a maximum, a VNI, seconds
  std::uint32_t mid = 0;
};

// Members in the order of a row; what a row does not name has its default.
struct Item {
  Kind kind;
  std::string_view scope;
  // Below the scope. A component is one of
  //   text     a literal; "ord_X" is one like any other. Paths of existing items never change, because stored
  //            configuration and subscribers have them. A new item takes any path of its scope that fits no
  //            other item;
  //   <key>    a key (path_keys.cpp), of one component or several;
  //   <=text>  a key that is always written as this text, though the subscribers accept any.
  std::string_view path;
  bool is_counted = false;  // see counted_scopes()
  ValueForm value = ValueForm::kPresent;
  // Literals and fields (word_types.cpp), the optional ones in brackets. Items with the same words differ in
  // their direction.
  std::string_view words;
  // When the words name no family. Empty if they always do, or if the item has no family.
  std::span<const Family> default_families{};
  std::optional<Direction> direction{};
  std::string_view help{};
};

std::span<const Item> all_items();
const Item& item_of(Kind kind);
// The item's node, with the value that the fields have.
KvConfigNode node_of(Kind kind, const Fields& fields);
// The kind of the item that has the path; none for a path that is not an item's.
std::optional<Kind> kind_of(std::string_view path);

}  // namespace vrf_config
