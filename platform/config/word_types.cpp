#include "platform/config/word_types.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "platform/config/target_fault.h"
#include "platform/core/address/address.h"
#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"

namespace vrf_config {

namespace {

using Fault = std::optional<std::string>;

constexpr std::size_t kLongestVrf = 31;    // an MplsL3VpnName (RFC 4382)
constexpr std::size_t kLongestName = 63;   // of an interface: what the daemon's records hold
constexpr std::size_t kLongestText = 255;  // an SnmpAdminString (RFC 3411)

Fault is_not(const std::string& word, std::string_view what) {
  return text::quoted(word) + " is not " + std::string(what);
}

// Stores what was read of the word.
template <typename T, typename Place>
Fault store_word(const WordType& type, const std::string& word, const std::optional<T>& value, Place* place) {
  if (!value) return is_not(word, type.what);
  *place = *value;
  return std::nullopt;
}

template <std::string Fields::*kName, std::size_t kLongest>
Fault read_name(const WordType& type, const std::string& word, Draft* draft) {
  const std::string what(type.what);
  if (word.empty()) return what + " is empty";
  if (word.size() > kLongest) return what + " is longer than " + std::to_string(kLongest) + " octets";
  if (word.find('\0') != std::string::npos) return what + " has an octet 0";
  draft->fields.*kName = word;
  return std::nullopt;
}
template <std::string Fields::*kName>
std::string write_name(const Fields& fields) {
  return fields.*kName;
}

Fault read_description(const WordType& /*type*/, const std::string& word, Draft* draft) {
  if (word.size() > kLongestText) {
    return "a description has at most " + std::to_string(kLongestText) + " octets";
  }
  draft->fields.text = word;
  return std::nullopt;
}

// A route distinguisher is the value of its item.
Fault read_rd(const WordType& type, const std::string& word, Draft* draft) {
  const std::optional<Target> rd = parse_target(word);
  if (!rd) return target_fault(word, type.what);
  draft->fields.text = target_text(*rd);
  return std::nullopt;
}

Fault read_rt(const WordType& type, const std::string& word, Draft* draft) {
  const std::optional<Target> target = parse_target(word);
  if (!target) return target_fault(word, type.what);
  draft->fields.target = *target;
  return std::nullopt;
}
std::string write_rt(const Fields& fields) {
  return target_text(fields.target);
}

Fault read_family(const WordType& /*type*/, const std::string& word, Draft* draft) {
  draft->families = {parse_family(word).value()};
  return std::nullopt;
}
std::string write_family_word(const Fields& fields) {
  return family_word(fields.family);
}

Fault read_directions(const WordType& /*type*/, const std::string& word, Draft* draft) {
  if (word != "export") draft->directions.push_back(Direction::kImport);
  if (word != "import") draft->directions.push_back(Direction::kExport);
  return std::nullopt;
}
std::string write_direction(const Fields& fields) {
  return fields.direction == Direction::kImport ? "import" : "export";
}

template <std::uint32_t Fields::*kNumber, std::uint32_t kLeast, std::uint32_t kMost>
Fault read_bounded(const WordType& type, const std::string& word, Draft* draft) {
  const std::optional<std::uint32_t> number = text::parse_number(word, kMost);
  return store_word(type, word, number && *number >= kLeast ? number : std::nullopt,
                    &(draft->fields.*kNumber));
}
template <std::uint32_t Fields::*kNumber>
std::string write_decimal(const Fields& fields) {
  return std::to_string(fields.*kNumber);
}

// Seconds, or another unit: "5m".
template <std::uint32_t Fields::*kNumber, std::uint32_t kMost>
Fault read_seconds(const WordType& type, const std::string& word, Draft* draft) {
  const std::optional<double> seconds = text::parse_duration(word, 1);
  const bool is_correct = seconds && *seconds >= 0 && *seconds <= kMost && std::floor(*seconds) == *seconds;
  return store_word(type, word,
                    is_correct ? std::optional(static_cast<std::uint32_t>(*seconds)) : std::nullopt,
                    &(draft->fields.*kNumber));
}

Fault read_mid(const WordType& type, const std::string& word, Draft* draft) {
  Fields& fields = draft->fields;
  if (Fault fault = read_bounded<&Fields::mid, 0, UINT32_MAX>(type, word, draft)) return fault;
  if (fields.mid <= fields.number) return std::nullopt;
  return "the mid threshold " + std::to_string(fields.mid) + " is above the maximum of " +
         std::to_string(fields.number);
}

Fault read_area_word(const WordType& type, const std::string& word, Draft* draft) {
  return store_word(type, word, parse_area(word), &draft->fields.area);
}
std::string write_area_word(const Fields& fields) {
  return inet::dotted_quad(fields.area);
}

Fault read_prefix_word(const WordType& /*type*/, const std::string& word, Draft* draft) {
  const std::optional<inet::Prefix> prefix = inet::parse_prefix(word);
  if (!prefix) return is_not(word, "a prefix (10.1.0.0/16)");
  if (inet::has_host_bits(prefix->address.octets, prefix->length))
    return inet::host_bits_error(word, *prefix);
  draft->fields.prefix = word;
  draft->families = {Family{static_cast<std::uint32_t>(prefix->address.family)}};
  return std::nullopt;
}

Fault read_next_hop(const WordType& type, const std::string& word, Draft* draft) {
  if (!inet::parse_address(word)) return is_not(word, type.what);
  draft->fields.next_hop = word;
  return std::nullopt;
}

Fault read_choice(const WordType& /*type*/, const std::string& word, Draft* draft) {
  draft->fields.text = word;
  return std::nullopt;
}

constexpr char kTraps[] = "ITEM";
constexpr std::uint32_t kMostSeconds = kLongestReissue;
constexpr std::uint32_t kMostHold = 86400;

constexpr WordType kWordTypes[] = {
    {"NAME", "the VRF", read_name<&Fields::vrf, kLongestVrf>, write_name<&Fields::vrf>},
    {"TEXT", "the text", read_description, write_name<&Fields::text>, true},
    {"RD", "a route distinguisher (65000:1, 10.0.0.1:1)", read_rd, write_name<&Fields::text>},
    {"RT", "a route target (65000:1, 10.0.0.1:1)", read_rt, write_rt},
    {"ipv4|ipv6", "", read_family, write_family_word},
    {"ipv4|ipv6|evpn", "", read_family, write_family_word},
    {"import|export", "", read_directions, write_direction},
    {"import|export|both", "", read_directions, write_direction},
    {"POLICY", "the policy", read_name<&Fields::text, kLongestText>, write_name<&Fields::text>},
    {"MAX", "the maximum of routes", read_bounded<&Fields::number, 0, UINT32_MAX>,
     write_decimal<&Fields::number>},
    {"MID", "the mid threshold", read_mid, write_decimal<&Fields::mid>},
    {"LOW", "a low-water mark (1 to 4294967295 routes)", read_bounded<&Fields::number, 1, UINT32_MAX>,
     write_decimal<&Fields::number>},
    {"HOLD", "a time of whole seconds (60, 1m), at most 24h", read_seconds<&Fields::mid, kMostHold>,
     write_decimal<&Fields::mid>},
    {"VNI", "a VNI (1 to 16777215)", read_bounded<&Fields::number, 1, kGreatestVni>,
     write_decimal<&Fields::number>},
    {"AS", "an AS number", read_bounded<&Fields::as_number, 1, UINT32_MAX>,
     write_decimal<&Fields::as_number>},
    {"ADDRESS|NAME", "the neighbor", read_name<&Fields::neighbor, kLongestName>,
     write_name<&Fields::neighbor>},
    {"PROCESS", "the process", read_name<&Fields::process, kLongestName>, write_name<&Fields::process>},
    {"AREA", "an area (0, 0.0.0.0)", read_area_word, write_area_word},
    {"INTERFACE", "the interface", read_name<&Fields::interface, kLongestName>,
     write_name<&Fields::interface>},
    {"PREFIX", "a prefix", read_prefix_word, write_name<&Fields::prefix>},
    {"ADDRESS", "an address", read_next_hop, write_name<&Fields::next_hop>},
    {"asplain|asdot|asdot+", "", read_choice, write_name<&Fields::text>},
    {kTraps, "", read_choice, write_name<&Fields::text>},
    {"TIME", "a time of whole seconds (300, 5m), at most 2147483647",
     read_seconds<&Fields::number, kMostSeconds>, write_decimal<&Fields::number>},
};
static_assert(kMostSeconds == 2147483647 && kGreatestVni == 16777215);

std::vector<std::string> trap_words() {
  std::vector<std::string> words(kTrapItems.begin(), kTrapItems.end());
  words.emplace_back(kTrapAll);
  return words;
}

}  // namespace

const WordType* find_word_type(std::string_view name) {
  const auto* const found = std::find_if(std::begin(kWordTypes), std::end(kWordTypes),
                                         [=](const WordType& type) { return type.name == name; });
  return found == std::end(kWordTypes) ? nullptr : found;
}

std::vector<std::string> choices_of(const WordType& type) {
  if (!type.what.empty()) return {};
  if (type.name == kTraps) return trap_words();
  const std::vector<std::string_view> choices = text::split(type.name, '|');
  return {choices.begin(), choices.end()};
}

}  // namespace vrf_config
