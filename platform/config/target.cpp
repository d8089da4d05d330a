// Texts of route targets and route distinguishers: ADMINISTRATOR:NUMBER, 48 bits together (RFC 4364 section
// 4.2). The administrator determines the type: an IPv4 address, an AS number up to 65535, a greater AS
// number, or one in asdot notation (RFC 5396), which always has four octets.
#include "platform/config/paths.h"
#include "platform/config/target_fault.h"
#include "platform/config/vrf_config.h"
#include "platform/core/address/address.h"
#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"

namespace vrf_config {

namespace {

using inet::dotted_quad;
using inet::parse_dotted_quad;
using text::parse_number;

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

bool is_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// What is before the ":" is correct, and a number follows that is too large.
bool has_large_number(const std::string& word) {
  const std::size_t colon = word.find(':');
  if (colon == std::string::npos || !is_digits(std::string_view(word).substr(colon + 1))) return false;
  return parse_administrator(word.substr(0, colon)).has_value();
}

}  // namespace

std::string target_fault(const std::string& word, std::string_view what) {
  if (!has_large_number(word)) return text::quoted(word) + " is not " + std::string(what);
  return text::quoted(word) +
         ": the number after \":\" must be 0-4294967295 (0-65535 after an address or a large AS)";
}

std::optional<Target> route_target_of(std::string_view path) {
  if (path.find("-rt/") == std::string_view::npos) return std::nullopt;  // spares most paths the rest
  const std::optional<ParsedPath> parsed = parse_path(path);
  const bool is_target =
      parsed && (parsed->item->kind == Kind::kImportTarget || parsed->item->kind == Kind::kExportTarget);
  if (!is_target) return std::nullopt;
  const std::optional<Fields> fields = fields_of(*parsed);
  return fields ? std::optional(fields->target) : std::nullopt;
}

std::optional<TargetPath> target_path_of(std::string_view path) {
  const bool is_target = path.find("-rt/") != std::string_view::npos;
  if (!is_target && !path.ends_with("/rd")) return std::nullopt;
  std::optional<Fields> fields = exact_fields_of(path);
  if (!fields) return std::nullopt;
  return TargetPath{std::move(fields->vrf), fields->family, fields->direction, fields->target};
}

std::optional<std::uint32_t> parse_as_number(std::string_view text) {
  const std::optional<std::uint32_t> number = parse_number(text);
  return number ? number : parse_asdot(text);
}

std::optional<std::uint32_t> parse_area(std::string_view text) {
  const std::optional<std::uint32_t> number = parse_number(text);
  return number ? number : parse_dotted_quad(text);
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
