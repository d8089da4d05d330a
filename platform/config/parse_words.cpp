// Words to nodes. A word that does not fit ends the reading with an exception that does not leave this file.
#include <algorithm>
#include <functional>
#include <stdexcept>

#include "platform/config/addresses.h"
#include "platform/config/vrf_config.h"

namespace vrf_config {

namespace {

constexpr std::size_t kLongestVrf = 31;    // an MplsL3VpnName (RFC 4382)
constexpr std::size_t kLongestName = 63;   // of an interface: what the daemon's records hold
constexpr std::size_t kLongestText = 255;  // an SnmpAdminString (RFC 3411)

using Nodes = std::vector<KvConfigNode>;

class WordMistake : public std::runtime_error {
 public:
  explicit WordMistake(const std::string& text, bool is_incomplete = false)
      : std::runtime_error(text), is_incomplete_(is_incomplete) {}
  Mistake mistake() const { return {what(), is_incomplete_}; }

 private:
  bool is_incomplete_;
};

std::string in_quotes(const std::string& word) {
  return '"' + word + '"';
}

// The words from first to last.
class Reader {
 public:
  explicit Reader(const Words& words) : words_(words) {}

  bool is_done() const { return at_ == words_.size(); }
  const std::string& take(const std::string& what) {
    if (is_done()) {
      throw WordMistake(what + " is missing" + (at_ > 0 ? " behind " + in_quotes(words_[at_ - 1]) : ""),
                        true);
    }
    return words_[at_++];
  }
  void expect(const std::string& literal) {
    const std::string& word = take(in_quotes(literal));
    if (word != literal) throw WordMistake(in_quotes(literal) + " is expected, not " + in_quotes(word));
  }
  bool take_if(const std::string& literal) {
    if (is_done() || words_[at_] != literal) return false;
    ++at_;
    return true;
  }
  void end() const {
    if (!is_done()) throw WordMistake(in_quotes(words_[at_]) + " is one word too many");
  }

 private:
  const Words& words_;
  std::size_t at_ = 0;
};

// What `parse` makes of the next word.
template <typename Parse>
auto take_as(Reader& reader, const std::string& what, Parse parse) {
  const std::string& word = reader.take(what);
  auto value = parse(word);
  if (!value) throw WordMistake(in_quotes(word) + " is not " + what);
  return *std::move(value);
}

std::string take_name(Reader& reader, const std::string& what, std::size_t longest = kLongestName) {
  const std::string& word = reader.take(what);
  if (word.empty()) throw WordMistake(what + " is empty");
  if (word.size() > longest) {
    throw WordMistake(what + " is longer than " + std::to_string(longest) + " octets");
  }
  if (word.find('\0') != std::string::npos) throw WordMistake(what + " has an octet 0");
  return word;
}

std::optional<Family> parse_family(const std::string& word) {
  if (word == "ipv4") return Family::kIpv4;
  if (word == "ipv6") return Family::kIpv6;
  return std::nullopt;
}

// Of RDs and route targets.
std::optional<Family> parse_target_family(const std::string& word) {
  return word == "evpn" ? std::optional(Family::kEvpn) : parse_family(word);
}

Family take_target_family(Reader& reader) {
  return take_as(reader, "ipv4, ipv6 or evpn", parse_target_family);
}

Family take_family(Reader& reader) {
  return take_as(reader, "ipv4 or ipv6", parse_family);
}

std::optional<Direction> parse_direction(const std::string& word) {
  if (word == "import") return Direction::kImport;
  if (word == "export") return Direction::kExport;
  return std::nullopt;
}

std::optional<std::vector<Direction>> parse_directions(const std::string& word) {
  if (word == "both") return std::vector{Direction::kImport, Direction::kExport};
  const std::optional<Direction> one = parse_direction(word);
  return one ? std::optional(std::vector{*one}) : std::nullopt;
}

std::uint32_t take_number(Reader& reader, const std::string& what) {
  return take_as(reader, what, [](const std::string& word) { return parse_number(word); });
}

std::uint32_t take_as_number(Reader& reader) {
  const auto parse = [](const std::string& word) {
    const std::optional<std::uint32_t> number = parse_number(word);
    return number && *number > 0 ? number : std::nullopt;
  };
  return take_as(reader, "an AS number", parse);
}

std::string take_interface(Reader& reader) {
  reader.expect("interface");
  return take_name(reader, "the interface");
}

std::string take_address(Reader& reader) {
  const std::string& word = reader.take("an address");
  if (!parse_address(word)) throw WordMistake(in_quotes(word) + " is not an address");
  return word;
}

// The rest is the text, whether or not it was quoted.
Nodes parse_description(const std::string& vrf, Reader& reader) {
  std::string text = reader.take("the text");
  while (!reader.is_done()) text += ' ' + reader.take("the text");
  if (text.size() > kLongestText) {
    throw WordMistake("a description has at most " + std::to_string(kLongestText) + " octets");
  }
  return {description(vrf, text)};
}

Nodes parse_rd(const std::string& vrf, Reader& reader) {
  const Target rd = take_as(reader, "a route distinguisher (65000:1, 10.0.0.1:1)", parse_target);
  return {route_distinguisher(vrf, reader.is_done() ? Family::kIpv4 : take_target_family(reader), rd)};
}

Nodes parse_rt(const std::string& vrf, Reader& reader) {
  const std::vector<Direction> directions = take_as(reader, "import, export or both", parse_directions);
  const Target target = take_as(reader, "a route target (65000:1, 10.0.0.1:1)", parse_target);
  std::vector<Family> families = {Family::kIpv4, Family::kIpv6};
  if (!reader.is_done()) families = {take_target_family(reader)};
  Nodes nodes;
  for (const Family family : families) {
    for (const Direction direction : directions)
      nodes.push_back(route_target(vrf, family, direction, target));
  }
  return nodes;
}

Nodes parse_policy(const std::string& vrf, Reader& reader) {
  const Direction direction = take_as(reader, "import or export", parse_direction);
  const Family family = take_family(reader);
  return {route_policy(vrf, family, direction, take_name(reader, "the policy", kLongestText))};
}

Nodes parse_threshold(const std::string& vrf, Reader& reader) {
  const Family family = take_family(reader);
  const std::uint32_t maximum = take_number(reader, "the maximum of routes");
  const std::uint32_t mid = take_number(reader, "the mid threshold");
  if (mid > maximum) {
    throw WordMistake("the mid threshold " + std::to_string(mid) + " is above the maximum of " +
                      std::to_string(maximum));
  }
  return {route_threshold(vrf, family, maximum, mid)};
}

Nodes parse_vni(const std::string& vrf, Reader& reader) {
  const auto parse = [](const std::string& word) {
    const std::optional<std::uint32_t> number = parse_number(word, kGreatestVni);
    return number && *number > 0 ? number : std::nullopt;
  };
  return {vni(vrf, take_as(reader, "a VNI (1 to 16777215)", parse))};
}

Nodes parse_bgp(const std::string& vrf, Reader& reader) {
  const std::uint32_t as_number = take_as_number(reader);
  reader.expect("neighbor");
  const std::string neighbour = take_name(reader, "the neighbor");
  return {bgp_neighbour(vrf, as_number, neighbour, take_family(reader))};
}

Nodes parse_ospf(const std::string& vrf, Reader& reader) {
  const std::string process = take_name(reader, "the process");
  reader.expect("area");
  const std::uint32_t area = take_as(reader, "an area (0, 0.0.0.0)", parse_area);
  return {ospf_interface(vrf, process, area, take_interface(reader))};
}

Nodes parse_rip(const std::string& vrf, Reader& reader) {
  return {rip_interface(vrf, take_interface(reader))};
}

Nodes parse_ripng(const std::string& vrf, Reader& reader) {
  return {ripng_interface(vrf, take_interface(reader))};
}

Nodes parse_eigrp(const std::string& vrf, Reader& reader) {
  const std::uint32_t as_number = take_as_number(reader);
  return {eigrp_interface(vrf, as_number, take_interface(reader))};
}

Nodes parse_static(const std::string& vrf, Reader& reader) {
  StaticRoute route;
  route.prefix = reader.take("a prefix");
  const std::optional<Prefix> prefix = parse_prefix(route.prefix);
  if (!prefix) throw WordMistake(in_quotes(route.prefix) + " is not a prefix (10.1.0.0/16)");
  if (has_host_bits(*prefix)) throw WordMistake(route.prefix + " has bits set beyond its length");
  route.family = prefix->address.family;
  if (reader.take_if("interface")) route.interface = take_name(reader, "the interface");
  if (reader.take_if("via")) route.next_hop = take_address(reader);
  return {static_route(vrf, route)};
}

struct VrfItem {
  std::string_view word;
  Nodes (*parse)(const std::string& vrf, Reader& reader);
};
constexpr VrfItem kVrfItems[] = {
    {"description", parse_description},
    {"rd", parse_rd},
    {"rt", parse_rt},
    {"policy", parse_policy},
    {"threshold", parse_threshold},
    {"vni", parse_vni},
    {"bgp", parse_bgp},
    {"ospf", parse_ospf},
    {"rip", parse_rip},
    {"ripng", parse_ripng},
    {"eigrp", parse_eigrp},
    {"static", parse_static},
};

std::string vrf_item_words() {
  std::string words;
  for (const VrfItem& item : kVrfItems) words.append(words.empty() ? "" : ", ").append(item.word);
  return words;
}

Nodes parse_vrf(Reader& reader) {
  const std::string vrf = take_name(reader, "the VRF", kLongestVrf);
  const std::string& word = reader.take("what of the VRF");
  for (const VrfItem& item : kVrfItems) {
    if (item.word == word) return item.parse(vrf, reader);
  }
  throw WordMistake("a VRF has no " + in_quotes(word) + ", but " + vrf_item_words());
}

std::optional<std::int64_t> parse_seconds(const std::string& word) {
  const std::optional<std::uint32_t> seconds = parse_number(word, std::uint32_t{kLongestReissue});
  return seconds ? std::optional<std::int64_t>(*seconds) : std::nullopt;
}

Nodes parse_trap(Reader& reader) {
  const std::string& word = reader.take("the item");
  if (word == kTrapReissueTime) {
    return {trap_switch(word,
                        take_as(reader, "seconds, 0 to " + std::to_string(kLongestReissue), parse_seconds))};
  }
  bool is_known = word == kTrapAll;
  for (const std::string_view item : kTrapItems) is_known = is_known || word == item;
  if (!is_known) {
    throw WordMistake("there is no item " + in_quotes(word) + "; the items of traps are " + trap_items());
  }
  return {trap_switch(word, 1)};
}

std::optional<std::string> parse_as_format(const std::string& word) {
  const bool is_one = std::find(kAsFormats.begin(), kAsFormats.end(), word) != kAsFormats.end();
  return is_one ? std::optional(word) : std::nullopt;
}

Nodes parse_bgp_common(Reader& reader) {
  reader.expect("as-format");
  return {as_format(take_as(reader, "asplain, asdot or asdot+", parse_as_format))};
}

Nodes parse(Reader& reader) {
  const std::string& word = reader.take("vrf, bgp or traps");
  Nodes nodes;
  if (word == "vrf") {
    nodes = parse_vrf(reader);
  } else if (word == "bgp") {
    nodes = parse_bgp_common(reader);
  } else if (word == "traps") {
    nodes = parse_trap(reader);
  } else {
    throw WordMistake("there is no configuration of " + in_quotes(word));
  }
  reader.end();
  return nodes;
}

}  // namespace

std::string trap_items() {
  std::string items;
  for (const std::string_view item : kTrapItems) items.append(item).append(", ");
  return items.append(kTrapAll).append(" and ").append(kTrapReissueTime);
}

std::variant<std::vector<KvConfigNode>, Mistake> parse_words(const Words& words) {
  Reader reader(words);
  try {
    Nodes nodes = parse(reader);
    for (const KvConfigNode& node : nodes) {
      if (node.path.size() > kKvMaxPath) return Mistake{"the names are too long together"};
    }
    return nodes;
  } catch (const WordMistake& mistake) {
    return mistake.mistake();
  }
}

}  // namespace vrf_config
