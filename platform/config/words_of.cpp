// Nodes to words. A node is put into words and the words are read again: only when they give this very path
// is the node one that words can say.
#include "platform/config/addresses.h"
#include "platform/config/paths.h"
#include "platform/config/vrf_config.h"

namespace vrf_config {

namespace {

// A path and its value, on the way to words. A key that is not there, or of another form, is an empty word,
// which no item takes.
struct Item {
  std::string_view whole_path;
  const ParsedPath& path;
  const KvValue& value;

  std::string key(std::size_t at) const { return decode_key(path.keys.at(at)).value_or(""); }
  std::uint32_t number(std::size_t at) const { return parse_number(path.keys.at(at)).value_or(UINT32_MAX); }
  std::string family(std::size_t at) const {
    for (const Family family : kFamiliesOfTargets) {
      if (number(at) == static_cast<std::uint32_t>(family)) return family_word(family);
    }
    return "";
  }
};

// Of the paths below a VRF's table.
constexpr std::size_t kAfi = 1;

std::optional<Words> target_words(const Item& item, const char* direction) {
  const std::optional<Target> target = target_at(item.path);
  if (!target) return std::nullopt;
  return Words{"rt", direction, target_text(*target), item.family(kAfi)};
}

std::optional<Words> policy_words(const Item& item, const char* direction) {
  if (item.value.type != KvValueType::kText) return std::nullopt;
  return Words{"policy", direction, item.family(kAfi), item.value.text};
}

std::optional<Words> description_words(const Item& item) {
  if (item.value.type != KvValueType::kText) return std::nullopt;
  return Words{"description", item.value.text};
}

std::optional<Words> rd_words(const Item& item) {
  if (item.value.type != KvValueType::kText) return std::nullopt;
  return Words{"rd", item.value.text, item.family(kAfi)};
}

std::optional<Words> vni_words(const Item& item) {
  if (item.value.type != KvValueType::kNumber) return std::nullopt;
  return Words{"vni", std::to_string(item.value.number)};
}

std::optional<Words> threshold_words(const Item& item) {
  if (item.value.type != KvValueType::kTuple || item.value.tuple.size() != 2) return std::nullopt;
  return Words{"threshold", item.family(kAfi), std::to_string(item.value.tuple[0]),
               std::to_string(item.value.tuple[1])};
}

std::optional<Words> bgp_words(const Item& item) {
  const std::size_t neighbour = item.path.keys.at(8) == "-" ? 6 : 8;
  return Words{"bgp", item.key(2), "neighbor", item.key(neighbour), item.family(7)};
}

std::optional<Words> ospf_words(const Item& item) {
  return Words{"ospf", item.key(0), "area", item.key(3), "interface", item.key(5)};
}

std::optional<Words> static_words(const Item& item) {
  Words words = {"static", item.key(4) + "/" + item.key(5)};
  if (const std::string interface = item.key(8); !interface.empty()) {
    words.insert(words.end(), {"interface", interface});
  }
  if (const std::string next_hop = item.key(9); !next_hop.empty()) {
    words.insert(words.end(), {"via", next_hop});
  }
  return words;
}

std::optional<Words> as_format_words(const Item& item) {
  if (item.value.type != KvValueType::kText) return std::nullopt;
  return Words{"bgp", "as-format", item.value.text};
}

std::optional<Words> trap_words(const Item& item) {
  if (item.key(0) != kTrapReissueTime) return Words{"traps", item.key(0)};
  if (item.value.type != KvValueType::kNumber) return std::nullopt;
  return Words{"traps", item.key(0), std::to_string(item.value.number)};
}

std::optional<Words> item_words(const Item& item) {
  switch (item.path.kind) {
    case Kind::kDescription:
      return description_words(item);
    case Kind::kRouteDistinguisher:
      return rd_words(item);
    case Kind::kImportTarget:
      return target_words(item, "import");
    case Kind::kExportTarget:
      return target_words(item, "export");
    case Kind::kImportPolicy:
      return policy_words(item, "import");
    case Kind::kExportPolicy:
      return policy_words(item, "export");
    case Kind::kThreshold:
      return threshold_words(item);
    case Kind::kVni:
      return vni_words(item);
    case Kind::kBgp:
      return bgp_words(item);
    case Kind::kRip:
      return Words{is_ripng(item.whole_path) ? "ripng" : "rip", "interface", item.key(1)};
    case Kind::kOspf:
      return ospf_words(item);
    case Kind::kEigrp:
      return Words{"eigrp", item.key(0), "interface", item.key(4)};
    case Kind::kStatic:
      return static_words(item);
    case Kind::kAsFormat:
      return as_format_words(item);
    case Kind::kTrap:
      return trap_words(item);
  }
  return std::nullopt;
}

bool say_this_node(const Words& words, const KvConfigNode& node) {
  const auto parsed = parse_words(words);
  const auto* nodes = std::get_if<std::vector<KvConfigNode>>(&parsed);
  return nodes != nullptr && nodes->size() == 1 && nodes->front().path == node.path;
}

}  // namespace

std::optional<Words> word_list_of(const KvConfigNode& node) {
  const std::optional<ParsedPath> path = parse_path(node.path);
  if (!path) return std::nullopt;
  const Item item{node.path, *path, node.value};
  std::optional<Words> words = item_words(item);
  if (!words) return std::nullopt;
  if (path->vrf) words->insert(words->begin(), {"vrf", item.key(*path->vrf)});
  return say_this_node(*words, node) ? std::move(words) : std::nullopt;
}

std::optional<std::string> words_of(const KvConfigNode& node) {
  const std::optional<Words> words = word_list_of(node);
  return words ? std::optional(join_words(*words)) : std::nullopt;
}

}  // namespace vrf_config
