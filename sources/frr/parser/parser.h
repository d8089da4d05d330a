// Internals that the source files of the running configuration's parser share.
//
// Each line is matched, word by word, against the table of its stanza or address family. The handler of the
// first matching row gets the line's words and writes to the records that the stanza has opened.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sources/frr/parser/running_config.h"

namespace frr {

inline constexpr std::size_t kTextMax = 255;  // octets of a description or of a route map's name

using Words = std::vector<std::string_view>;

struct Parser;

// A row of a table. In the pattern "*" is any word and "..." at the end any number of further ones.
struct LineRule {
  std::string_view pattern;
  void (*take)(Parser& parser, const Words& words);
};

struct Parser {
  RunningConfig config{};
  std::size_t line = 0;
  std::span<const LineRule> lines{};  // of the open stanza, or of its open address family
  std::string vrf{};                  // of a `vrf` stanza
  std::string interface {};           // of an `interface` stanza
  std::size_t family = 0;             // of an `address-family`, in the order of BgpInstance::families
  std::string_view line_text{};       // the whole line, without its indentation

  void error(const std::string& what) { config.errors.push_back({line, what}); }
  // "'red' is not a route target"
  void invalid(std::string_view word, const std::string& why) { error("'" + std::string(word) + "' " + why); }
};

Words split_words(std::string_view text);
// False for the default VRF and, with an error, for an invalid VRF name.
bool is_vpn(Parser& parser, std::string_view vrf);
// A whole decimal number up to the limit.
bool parse_number(std::string_view text, std::uint32_t limit, std::uint32_t* number);
// An address of the family with its length.
bool parse_network(std::string_view text, router::Family family, router::Address* prefix);

// The heads of the stanzas of BGP: bgp_parser.cpp.
void open_bgp(Parser& parser, const Words& words);
void open_default_bgp(Parser& parser, const Words& words);
// `ip route` and `ipv6 route` in a VRF: static_parser.cpp.
void take_static_route(Parser& parser, const Words& words);

// A route target or route distinguisher as the suite writes it. With the notation dot+ it writes the AS
// number 65000 of two octets as 0.65000, which elsewhere is one of four. A route target for any AS number
// ("*:5") is that of AS 0, as in the suite's own tables.
std::optional<vrf_config::Target> parse_suite_target(std::string_view text);

}  // namespace frr
