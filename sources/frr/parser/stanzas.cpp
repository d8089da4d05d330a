// The heads of stanzas, and the lines of OSPF, RIP, EIGRP, interfaces and VRFs. bgp_parser.cpp and
// static_parser.cpp have the rest; parser.h has what they share.
//
// Any line in the first column ends the open stanza: the suite closes some with "exit", others with
// "exit-vrf", and in older versions with "!" only.
#include "sources/frr/parser/running_config.h"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"
#include "sources/frr/parser/parser.h"

namespace frr {

namespace {

constexpr std::uint32_t kOnlyProcess = 1;
constexpr std::uint32_t kMostProcesses = 65535;  // of OSPF on a router

std::string_view take_word(std::string_view* text) {
  const std::size_t start = text->find_first_not_of(" \t");
  if (start == std::string_view::npos) return {};
  const std::size_t end = std::min(text->find_first_of(" \t", start), text->size());
  const std::string_view word = text->substr(start, end - start);
  text->remove_prefix(end);
  return word;
}

bool matches(std::string_view pattern, const Words& words) {
  for (const std::string_view word : words) {
    const std::string_view wanted = take_word(&pattern);
    if (wanted == "...") return true;
    if (wanted != "*" && wanted != word) return false;
  }
  const std::string_view further = take_word(&pattern);
  return further.empty() || further == "...";
}

// --- Lines of stanzas ---

std::optional<std::uint32_t> read_area(Parser& parser, std::string_view text) {
  const std::optional<std::uint32_t> area = vrf_config::parse_area(text);
  if (!area) parser.invalid(text, "is not an area");
  return area;
}

bool read_instance(Parser& parser, std::string_view text, std::uint32_t* process) {
  const bool is_one = parse_number(text, kMostProcesses, process);
  if (!is_one) parser.invalid(text, "is not an instance of OSPF");
  return is_one;
}

void take_ospf_network(Parser& parser, const Words& words) {
  Network network;
  const std::optional<std::uint32_t> area = vrf_config::parse_area(words[3]);
  if (!parse_network(words[1], router::Family::kIpv4, &network.prefix) || !area) {
    return parser.invalid(parser.line_text, "is not 'network PREFIX area AREA'");
  }
  network.area = *area;
  parser.config.ospf.back().networks.push_back(network);
}

// The networks of RIP and RIPng are prefixes or names of interfaces.
void take_network_or_name(Parser& parser, std::string_view word, router::Family family, IgpProcess* process) {
  Network network;
  if (parse_network(word, family, &network.prefix)) {
    process->networks.push_back(network);
  } else if (router::valid_interface_name(word) && word.find('/') == std::string_view::npos) {
    process->interfaces.emplace_back(word);
  } else {
    const bool is_ipv4 = family == router::Family::kIpv4;
    parser.invalid(word, is_ipv4 ? "is not an IPv4 network" : "is not an IPv6 network");
  }
}

void take_rip_network(Parser& parser, const Words& words) {
  take_network_or_name(parser, words[1], router::Family::kIpv4, &parser.config.rip.back());
}

void take_ripng_network(Parser& parser, const Words& words) {
  take_network_or_name(parser, words[1], router::Family::kIpv6, &parser.config.ripng.back());
}

void take_eigrp_network(Parser& parser, const Words& words) {
  Network network;
  if (!parse_network(words[1], router::Family::kIpv4, &network.prefix)) {
    return parser.invalid(words[1], "is not an IPv4 network");
  }
  parser.config.eigrp.back().networks.push_back(network);
}

void take_ospf_area(Parser& parser, std::uint32_t process, std::string_view text) {
  if (const auto area = read_area(parser, text)) {
    parser.config.interfaces[parser.interface].ospf.push_back({std::to_string(process), *area});
  }
}

void take_interface_area(Parser& parser, const Words& words) {
  take_ospf_area(parser, kOnlyProcess, words[3]);
}

void take_interface_instance_area(Parser& parser, const Words& words) {
  std::uint32_t process = 0;
  if (read_instance(parser, words[2], &process)) take_ospf_area(parser, process, words[4]);
}

void take_interface_area6(Parser& parser, const Words& words) {
  if (const auto area = read_area(parser, words[3])) {
    parser.config.interfaces[parser.interface].ospf6_area = *area;
  }
}

void take_vni(Parser& parser, const Words& words) {
  std::uint32_t number = 0;
  if (!parse_number(words[1], vrf_config::kGreatestVni, &number) || number == 0) {
    return parser.invalid(words[1], "is not a VNI");
  }
  parser.config.vnis[parser.vrf] = number;
}

// The rest of the line verbatim: a description may contain blanks.
void take_description(Parser& parser, const Words&) {
  constexpr std::string_view kWord = "description ";
  if (parser.line_text.size() > kWord.size() + kTextMax) return parser.error("the description is too long");
  parser.config.interfaces[parser.interface].description = parser.line_text.substr(kWord.size());
}

constexpr LineRule kOspfLines[] = {{"network * area *", take_ospf_network}};
constexpr LineRule kRipLines[] = {{"network *", take_rip_network}};
constexpr LineRule kRipngLines[] = {{"network *", take_ripng_network}};
constexpr LineRule kEigrpLines[] = {{"network *", take_eigrp_network}};
constexpr LineRule kVrfLines[] = {
    {"ip route ...", take_static_route},
    {"ipv6 route ...", take_static_route},
    {"vni * ...", take_vni},
};
// An area may be followed by one of the interface's addresses, to which it applies.
constexpr LineRule kInterfaceLines[] = {
    {"ip ospf area * ...", take_interface_area},
    {"ip ospf * area * ...", take_interface_instance_area},
    {"ipv6 ospf6 area *", take_interface_area6},
    {"description * ...", take_description},
};

// --- Heads of stanzas ---

// "router ospf [INSTANCE] vrf NAME": words[2] is the instance, if there is one.
void open_ospf(Parser& parser, const Words& words) {
  std::uint32_t process = kOnlyProcess;
  if (!is_vpn(parser, words.back())) return;
  if (words.size() == 5 && !read_instance(parser, words[2], &process)) return;
  parser.lines = kOspfLines;
  parser.config.ospf.push_back({std::string(words.back()), std::to_string(process)});
}

void open_ospf6(Parser& parser, const Words& words) {
  if (is_vpn(parser, words[3])) parser.config.ospf6.push_back({std::string(words[3]), ""});
}

void open_ripng(Parser& parser, const Words& words) {
  if (!is_vpn(parser, words[3])) return;
  parser.lines = kRipngLines;
  parser.config.ripng.push_back({std::string(words[3]), ""});
}

void open_rip(Parser& parser, const Words& words) {
  if (!is_vpn(parser, words[3])) return;
  parser.lines = kRipLines;
  parser.config.rip.push_back({std::string(words[3]), ""});
}

void open_eigrp(Parser& parser, const Words& words) {
  std::uint32_t as_number = 0;
  if (!is_vpn(parser, words[4])) return;
  if (!parse_number(words[2], 65535, &as_number)) return parser.invalid(words[2], "is not an AS number");
  parser.lines = kEigrpLines;
  parser.config.eigrp.push_back({std::string(words[4]), std::to_string(as_number)});
}

void open_vrf(Parser& parser, const Words& words) {
  if (!is_vpn(parser, words[1])) return;
  parser.lines = kVrfLines;
  parser.vrf = words[1];
}

// Some versions add the interface's VRF, which the router model already has.
void open_interface(Parser& parser, const Words& words) {
  if (!router::valid_interface_name(words[1])) return parser.error("invalid interface name");
  parser.lines = kInterfaceLines;
  parser.interface = words[1];
}

void take_version(Parser& parser, const Words& words) {
  parser.config.version = words[2].substr(0, kTextMax);
}

constexpr LineRule kHeads[] = {
    {"frr version *", take_version},
    {"router bgp * vrf * ...", open_bgp},
    {"router bgp *", open_default_bgp},
    {"router bgp * as-notation *", open_default_bgp},
    {"router ospf vrf *", open_ospf},
    {"router ospf * vrf *", open_ospf},
    {"router ospf6 vrf *", open_ospf6},
    {"router rip vrf *", open_rip},
    {"router ripng vrf *", open_ripng},
    {"router eigrp * vrf *", open_eigrp},
    {"vrf *", open_vrf},
    {"interface * ...", open_interface},
};

void take_line(std::span<const LineRule> rules, Parser& parser, const Words& words) {
  const auto rule =
      std::ranges::find_if(rules, [&](const LineRule& each) { return matches(each.pattern, words); });
  if (rule != rules.end()) rule->take(parser, words);
}

void parse_line(Parser& parser, std::string_view line) {
  ++parser.line;
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  const Words words = split_words(line);
  if (words.empty()) return;
  parser.line_text = line.substr(line.find_first_not_of(" \t"));
  const bool is_head = line.front() != ' ' && line.front() != '\t';
  if (is_head) parser.lines = {};
  take_line(is_head ? kHeads : parser.lines, parser, words);
}

}  // namespace

Words split_words(std::string_view text) {
  Words words;
  for (auto word = take_word(&text); !word.empty(); word = take_word(&text)) words.push_back(word);
  return words;
}

bool is_vpn(Parser& parser, std::string_view vrf) {
  if (vrf == router::kDefaultVrf) return false;
  if (router::valid_vrf_name(vrf)) return true;
  parser.error("invalid VRF name");
  return false;
}

bool parse_number(std::string_view text, std::uint32_t limit, std::uint32_t* number) {
  const std::optional<std::uint32_t> parsed = text::parse_number(text, limit);
  if (parsed) *number = *parsed;
  return parsed.has_value();
}

bool parse_network(std::string_view text, router::Family family, router::Address* prefix) {
  return text.find('/') != std::string_view::npos && router::parse_address(text, prefix) &&
         prefix->family == family;
}

RunningConfig parse_running_config(std::string_view text) {
  Parser parser;
  while (!text.empty()) {
    parse_line(parser, text::take_until(&text, '\n'));
  }
  return std::move(parser.config);
}

}  // namespace frr
