// Texts of route targets and route distinguishers: ADMINISTRATOR:NUMBER, of 48 bits together (RFC 4364
// section 4.2). What stands before the colon tells the type: a dotted quad, an AS number of up to 65535, a
// greater one, or one in asdot (RFC 5396), which is of four octets whatever it is.
#include "platform/config/addresses.h"
#include "platform/config/paths.h"
#include "platform/config/vrf_config.h"

namespace vrf_config {

namespace {

constexpr std::uint32_t kMost16 = 0xffff;

std::optional<std::uint32_t> parse_asdot(std::string_view text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string_view::npos) return std::nullopt;
  const std::optional<std::uint32_t> upper = parse_number(text.substr(0, dot), kMost16);
  const std::optional<std::uint32_t> lower = parse_number(text.substr(dot + 1), kMost16);
  return upper && lower ? std::optional(*upper << 16 | *lower) : std::nullopt;
}

// The type and the administrator; the number is still to come.
std::optional<Target> parse_administrator(std::string_view text) {
  if (const std::optional<std::uint32_t> as_number = parse_number(text)) {
    const auto type = *as_number > kMost16 ? Target::Type::kFourOctetAs : Target::Type::kTwoOctetAs;
    return Target{type, *as_number, 0};
  }
  if (const std::optional<std::uint32_t> as_number = parse_asdot(text)) {
    return Target{Target::Type::kFourOctetAs, *as_number, 0};
  }
  const std::optional<std::uint32_t> address = parse_dotted_quad(text);
  return address ? std::optional(Target{Target::Type::kIpv4Address, *address, 0}) : std::nullopt;
}

// The keys of a route target in its path.
constexpr std::size_t kTypeKey = 4;
constexpr std::size_t kUpperKey = 5;
constexpr std::size_t kLowerKey = 6;
constexpr std::size_t kAsNumberKey = 7;  // assigned by the AS
constexpr std::size_t kAddressKey = 8;
constexpr std::size_t kAddressNumberKey = 9;  // assigned by the address's owner

std::optional<Target> address_target_at(const ParsedPath& path) {
  const std::optional<std::uint32_t> address = parse_dotted_quad(path.keys.at(kAddressKey));
  const std::optional<std::uint32_t> assigned = parse_number(path.keys.at(kAddressNumberKey), kMost16);
  if (!address || !assigned) return std::nullopt;
  return Target{Target::Type::kIpv4Address, *address, *assigned};
}

std::optional<Target> as_target_at(const ParsedPath& path, Target::Type type) {
  const bool is_short = type == Target::Type::kTwoOctetAs;
  const std::optional<std::uint32_t> upper = parse_number(path.keys.at(kUpperKey), is_short ? 0 : kMost16);
  const std::optional<std::uint32_t> lower = parse_number(path.keys.at(kLowerKey), kMost16);
  const std::optional<std::uint32_t> assigned =
      parse_number(path.keys.at(kAsNumberKey), is_short ? UINT32_MAX : kMost16);
  if (!upper || !lower || !assigned) return std::nullopt;
  return Target{type, *upper << 16 | *lower, *assigned};
}

}  // namespace

std::optional<Target> target_at(const ParsedPath& path) {
  const std::optional<std::uint32_t> type = parse_number(path.keys.at(kTypeKey), 2);
  if (!type) return std::nullopt;
  if (Target::Type{*type} == Target::Type::kIpv4Address) return address_target_at(path);
  return as_target_at(path, Target::Type{*type});
}

std::optional<Target> route_target_of(std::string_view path) {
  if (path.find("-rt/") == std::string_view::npos) return std::nullopt;  // spares most paths the rest
  const std::optional<ParsedPath> parsed = parse_path(path);
  const bool is_target =
      parsed && (parsed->kind == Kind::kImportTarget || parsed->kind == Kind::kExportTarget);
  return is_target ? target_at(*parsed) : std::nullopt;
}

namespace {

// The item of this kind and family, if it is what the path says: another SAFI or spelling is another path.
std::optional<TargetPath> same_path(const ParsedPath& parsed, std::string_view path, Family family) {
  const std::optional<std::string> vrf = decode_key(parsed.keys.at(*parsed.vrf));
  if (!vrf) return std::nullopt;
  TargetPath item{*vrf, family, std::nullopt, {}};
  if (parsed.kind == Kind::kRouteDistinguisher) {
    return route_distinguisher(*vrf, family, {}).path == path ? std::optional(item) : std::nullopt;
  }
  const std::optional<Target> target = target_at(parsed);
  if (!target) return std::nullopt;
  item.direction = parsed.kind == Kind::kImportTarget ? Direction::kImport : Direction::kExport;
  item.target = *target;
  return route_target(*vrf, family, *item.direction, *target).path == path ? std::optional(item)
                                                                           : std::nullopt;
}

}  // namespace

std::optional<TargetPath> target_path_of(std::string_view path) {
  if (path.find("-rt/") == std::string_view::npos && !path.ends_with("/rd")) return std::nullopt;
  const std::optional<ParsedPath> parsed = parse_path(path);
  const bool is_wanted =
      parsed && (parsed->kind == Kind::kImportTarget || parsed->kind == Kind::kExportTarget ||
                 parsed->kind == Kind::kRouteDistinguisher);
  if (!is_wanted) return std::nullopt;
  for (const Family family : kFamiliesOfTargets) {
    if (auto item = same_path(*parsed, path, family)) return item;
  }
  return std::nullopt;
}

std::optional<std::uint32_t> parse_as_number(std::string_view text) {
  const std::optional<std::uint32_t> number = parse_number(text);
  return number ? number : parse_asdot(text);
}

std::optional<Target> parse_target(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::optional<Target> target = parse_administrator(text.substr(0, colon));
  if (!target) return std::nullopt;
  const std::uint32_t most = target->type == Target::Type::kTwoOctetAs ? UINT32_MAX : kMost16;
  const std::optional<std::uint32_t> assigned = parse_number(text.substr(colon + 1), most);
  if (!assigned) return std::nullopt;
  target->assigned = *assigned;
  return target;
}

std::string target_text(const Target& target) {
  const std::string assigned = ":" + std::to_string(target.assigned);
  if (target.type == Target::Type::kIpv4Address) return dotted_quad(target.administrator) + assigned;
  const bool is_small_in_four = target.type == Target::Type::kFourOctetAs && target.administrator <= kMost16;
  return (is_small_in_four ? "0." : "") + std::to_string(target.administrator) + assigned;
}

}  // namespace vrf_config
