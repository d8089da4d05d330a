#include "cli/explain/suite_paths.h"

#include "cli/explain/targets.h"
#include "platform/core/text/words.h"

namespace cli::explain {

namespace {

constexpr char kOfThisRouter[] = "0.0.0.0";
constexpr char kUnspecified[] = "(unspec)";
constexpr char kCore[] = "default";
constexpr std::uint32_t kImplicitNull = 3;  // RFC 3032: no label; the suite sends it if it has none
constexpr std::string_view kTarget = "RT:";

std::string text_at(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

bool flag_at(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_boolean() && found->get<bool>();
}

const Json& part_at(const Json& object, const char* key) {
  static const Json kNone = Json::object();
  const auto found = object.find(key);
  return found == object.end() ? kNone : *found;
}

std::vector<std::string> targets_of(const Json& path) {
  std::vector<std::string> targets;
  const std::string communities = text_at(part_at(path, "extendedCommunity"), "string");
  for (const std::string_view word : text::split(communities, ' ')) {
    if (word.starts_with(kTarget)) targets.push_back(plain_target(word.substr(kTarget.size())));
  }
  return targets;
}

std::string next_hop_of(const Json& path) {
  for (const Json& hop : part_at(path, "nexthops")) {
    const std::string address = text_at(hop, "ip");
    if (flag_at(hop, "used") && address != kOfThisRouter && address != "::") return address;
  }
  return {};
}

std::optional<std::uint32_t> label_of(const Json& path) {
  const auto label = path.find("remoteLabel");
  if (label == path.end() || !label->is_number_unsigned()) return std::nullopt;
  const auto number = label->get<std::uint32_t>();
  return number == kImplicitNull ? std::nullopt : std::optional(number);
}

BgpPath read_path(const Json& path) {
  BgpPath read;
  read.targets = targets_of(path);
  read.next_hop = next_hop_of(path);
  read.neighbor = text_at(part_at(path, "peer"), "peerId");
  if (read.neighbor == kOfThisRouter || read.neighbor == kUnspecified || read.neighbor == "::")
    read.neighbor.clear();
  read.next_hop_vrf = text_at(path, "nhVrfName");
  read.label = label_of(path);
  read.segment = text_at(path, "remoteSid");
  read.is_valid = flag_at(path, "valid");
  read.is_best = flag_at(part_at(path, "bestpath"), "overall");
  read.selection = text_at(part_at(path, "bestpath"), "selectionReason");
  return read;
}

std::string used_next_hop(const Json& hop) {
  const std::string address = text_at(hop, "ip");
  const std::string link = text_at(hop, "interfaceName");
  return address + (address.empty() || link.empty() ? "" : " ") + link;
}

RibEntry read_entry(const Json& entry) {
  RibEntry read{.prefix = text_at(entry, "prefix"),
                .protocol = text_at(entry, "protocol"),
                .is_selected = flag_at(entry, "selected"),
                .is_installed = flag_at(entry, "installed"),
                .is_rejected = flag_at(entry, "failed")};
  for (const Json& hop : part_at(entry, "nexthops")) {
    read.discards |= flag_at(hop, "unreachable") || flag_at(hop, "blackhole") || flag_at(hop, "reject");
    if (!flag_at(hop, "active")) continue;
    read.has_label |= hop.contains("labels");
    read.has_segment |= hop.contains("seg6");
    if (flag_at(hop, "fib") && read.next_hop.empty()) read.next_hop = used_next_hop(hop);
  }
  return read;
}

// "65000:10 65000:99" of "  UN=10.255.0.2 EC{65000:10 65000:99} label=16 type=bgp, subtype=0".
std::string_view between(std::string_view line, std::string_view before, char after) {
  const std::size_t at = line.find(before);
  if (at == std::string_view::npos) return {};
  line.remove_prefix(at + before.size());
  return line.substr(0, line.find(after));
}

}  // namespace

bool BgpPath::is_of_this_router() const {
  return neighbor.empty() && (next_hop.empty() || (!next_hop_vrf.empty() && next_hop_vrf != kCore));
}

std::vector<BgpPath> parse_vrf_paths(const Json& answer) {
  std::vector<BgpPath> paths;
  if (!answer.is_object()) return paths;
  for (const Json& path : part_at(answer, "paths")) {
    if (path.is_object()) paths.push_back(read_path(path));
  }
  for (BgpPath& path : paths) path.prefix = text_at(answer, "prefix");
  return paths;
}

std::vector<BgpPath> parse_vpn_paths(const Json& answer) {
  std::vector<BgpPath> all;
  if (!answer.is_object()) return all;
  for (const auto& [rd, paths] : answer.items()) {
    for (BgpPath& path : parse_vrf_paths(paths)) {
      path.rd = rd;
      all.push_back(std::move(path));
    }
  }
  return all;
}

std::vector<RibEntry> parse_rib(const Json& answer) {
  std::vector<RibEntry> entries;
  if (!answer.is_object()) return entries;
  for (const Json& of_prefix : answer) {
    for (const Json& entry : of_prefix) {
      if (entry.is_object()) entries.push_back(read_entry(entry));
    }
  }
  return entries;
}

// Routes of this router have another subtype.
std::map<std::string, std::set<std::string>> parse_exporters(std::string_view table) {
  std::map<std::string, std::set<std::string>> exporters;
  while (!table.empty()) {
    const std::string_view line = text::take_until(&table, '\n');
    if (!line.ends_with("subtype=0")) continue;
    const std::string_view router = between(line, "UN=", ' ');
    for (const std::string_view target : text::split(between(line, "EC{", '}'), ' '))
      exporters[plain_target(target)].emplace(router);
  }
  return exporters;
}

std::map<std::string, std::string> parse_sessions(const Json& answer) {
  std::map<std::string, std::string> sessions;
  if (!answer.is_object()) return sessions;
  const Json& peers = part_at(answer, "peers");
  if (!peers.is_object()) return sessions;
  for (const auto& [address, peer] : peers.items()) sessions[address] = text_at(peer, "state");
  return sessions;
}

std::set<std::string> parse_vpn_labels(const Json& answer, const std::string& vrf) {
  std::set<std::string> labels;
  if (!answer.is_object()) return labels;
  for (const auto& [label, entry] : answer.items()) {
    for (const Json& hop : part_at(entry, "nexthops")) {
      if (text_at(hop, "interface") == vrf) labels.insert(label);
    }
  }
  return labels;
}

}  // namespace cli::explain
