// What a configuration path is about, and the keys in it. Not for other folders.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

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
  kVni,
  kBgp,
  kRip,
  kOspf,
  kEigrp,
  kStatic,
  kAsFormat,
  kTrap,
};

// A path taken apart. Keys are in the path's order, as they stand in it; valid while the path is.
struct ParsedPath {
  Kind kind = Kind::kDescription;
  std::vector<std::string_view> keys;
  std::optional<std::size_t> vrf;        // the key that has the VRF's name
  std::optional<std::size_t> interface;  // likewise
};
std::optional<ParsedPath> parse_path(std::string_view path);

// The route target of a path of kind kImportTarget or kExportTarget; none for keys that make none.
std::optional<Target> target_at(const ParsedPath& path);

// The text of a key; none for "-", which is a key left out, and for one that does not decode.
std::optional<std::string> decode_key(std::string_view key);

}  // namespace vrf_config
