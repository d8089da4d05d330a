#include "sources/frr/derived.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "sources/frr/parser/parser.h"

namespace frr {

namespace {

using vrf_config::Direction;
using vrf_config::Family;
using vrf_config::Target;
using Json = nlohmann::json;

struct Collected {
  Derived derived{};
  std::map<std::uint64_t, std::string> vrfs_of_vnis{};
};

struct Question {
  std::string command;
  void (*read)(const Question& question, const Json& shown, Collected* collected);
  Family family = Family::kIpv4;
  std::string vrf{};
  Target rd{};
};

const Json& member(const Json& object, const char* key) {
  static const Json none;
  const auto found = object.is_object() ? object.find(key) : object.end();
  return found == object.end() ? none : *found;
}

std::string text_of(const Json& value) {
  return value.is_string() ? value.get<std::string>() : std::string();
}

bool is_vpn_name(const std::string& vrf) {
  return vrf != router::kDefaultVrf && router::valid_vrf_name(vrf);
}

// "none" and "n/a" mean that there is none.
std::optional<Target> read_target(const std::string& text, const std::string& vrf, Collected* collected) {
  if (text.empty() || text == "none" || text == "n/a") return std::nullopt;
  const std::optional<Target> target = parse_suite_target(text);
  if (!target) {
    collected->derived.errors.push_back("VRF " + vrf + ": '" + text +
                                        "' is not a derived RD or route target");
  }
  return target;
}

// A list in one text ("65000:1 10.0.0.1:2") or in an array.
std::vector<std::string> texts_of(const Json& list) {
  std::vector<std::string> texts;
  if (list.is_string()) {
    const std::string line = list.get<std::string>();
    for (const std::string_view word : split_words(line)) texts.emplace_back(word);
  }
  if (list.is_array()) {
    for (const Json& item : list) texts.push_back(text_of(item));
  }
  return texts;
}

void add_targets(const std::string& vrf, Family family, Direction direction, const Json& list,
                 Collected* collected) {
  for (const std::string& text : texts_of(list)) {
    if (const auto target = read_target(text, vrf, collected)) {
      collected->derived.nodes.push_back(vrf_config::route_target(vrf, family, direction, *target));
    }
  }
}

void add_items(const std::string& vrf, Family family, const Json& rd, const Json& imports,
               const Json& exports, Collected* collected) {
  if (const auto target = read_target(text_of(rd), vrf, collected)) {
    collected->derived.nodes.push_back(vrf_config::route_distinguisher(vrf, family, *target));
  }
  add_targets(vrf, family, Direction::kImport, imports, collected);
  add_targets(vrf, family, Direction::kExport, exports, collected);
}

// --- VRFs that are imported by name ---

// {"vrfs": {"red": {"importRts": "...", "routeDistinguisher": "...", "exportRts": "..."}}}
void read_leaks(const Question& question, const Json& shown, Collected* collected) {
  for (const auto& [vrf, leaks] : member(shown, "vrfs").items()) {
    if (!is_vpn_name(vrf)) continue;
    add_items(vrf, question.family, member(leaks, "routeDistinguisher"), member(leaks, "importRts"),
              member(leaks, "exportRts"), collected);
  }
}

// --- EVPN ---

// {"vrfs": {"red": {"l3vni": 100}}}
void read_vnis(const Question&, const Json& shown, Collected* collected) {
  for (const auto& [vrf, instance] : member(shown, "vrfs").items()) {
    const Json& vni = member(instance, "l3vni");
    if (is_vpn_name(vrf) && vni.is_number_unsigned() && vni != 0) {
      collected->vrfs_of_vnis[vni.get<std::uint64_t>()] = vrf;
    }
  }
}

// {"100": {"vni": 100, "type": "L3", "rd": "...", "importRTs": ["..."], "exportRTs": ["..."]}}
void read_evpn(const Question&, const Json& shown, Collected* collected) {
  for (const auto& [key, item] : shown.items()) {
    const Json& vni = member(item, "vni");
    if (!vni.is_number_unsigned() || text_of(member(item, "type")) != "L3") continue;
    const auto vrf = collected->vrfs_of_vnis.find(vni.get<std::uint64_t>());
    if (vrf == collected->vrfs_of_vnis.end()) continue;
    add_items(vrf->second, Family::kEvpn, member(item, "rd"), member(item, "importRTs"),
              member(item, "exportRTs"), collected);
  }
}

// --- RDs of exported routes ---

bool is_exported_by(const Json& path, const std::string& vrf) {
  const Json& own = member(path, "announceNexthopSelf");
  return own.is_boolean() && own.get<bool>() && text_of(member(path, "nhVrfName")) == vrf;
}

bool has_route_of(const Json& prefixes, const std::string& vrf) {
  return std::any_of(prefixes.begin(), prefixes.end(), [&vrf](const Json& paths) {
    return std::any_of(paths.begin(), paths.end(),
                       [&vrf](const Json& path) { return is_exported_by(path, vrf); });
  });
}

// {"routes": {"routeDistinguishers": {"10.0.0.1:2": {"10.4.0.0/24": [{"nhVrfName": "red", ...}]}}}}
void read_exports(const Question& question, const Json& shown, Collected* collected) {
  const Json& rds = member(member(shown, "routes"), "routeDistinguishers");
  if (std::none_of(rds.begin(), rds.end(), [&](const Json& rd) { return has_route_of(rd, question.vrf); }))
    return;
  const KvConfigNode node = vrf_config::route_distinguisher(question.vrf, question.family, question.rd);
  collected->derived.ineffective.push_back(node.path);
  collected->derived.nodes.push_back(node);
}

// A derived route target for exports is equal to the derived RD. Where the configuration has such a target
// alone beside another RD, the RD may be an earlier one.
void add_question_of_exports(const BgpInstance& instance, std::size_t family,
                             std::vector<Question>* questions) {
  const VpnFamily& vpn = instance.families[family];
  if (!vpn.rd || vpn.exports.size() != 1 || *vpn.rd == vpn.exports[0]) return;
  const Target& target = vpn.exports[0];
  if (target.type != Target::Type::kIpv4Address) return;
  const std::string text = vrf_config::target_text(target);
  if (!instance.router_id.empty() && !text.starts_with(instance.router_id + ":")) return;
  const std::string words = family == 0 ? "ipv4" : "ipv6";
  questions->push_back({"show bgp " + words + " vpn rd " + text + " json", read_exports,
                        vrf_config::kFamiliesOfTargets[family], instance.vrf, target});
}

std::vector<Question> questions_of(const RunningConfig& config, bool exports) {
  std::vector<Question> questions;
  if (config.imports_by_name) {
    questions.push_back({"show bgp vrf all ipv4 unicast route-leak json", read_leaks, Family::kIpv4});
    questions.push_back({"show bgp vrf all ipv6 unicast route-leak json", read_leaks, Family::kIpv6});
  }
  if (config.has_evpn) {
    questions.push_back({"show bgp vrfs json", read_vnis});
    questions.push_back({"show bgp l2vpn evpn vni json", read_evpn});
  }
  if (!exports) return questions;
  for (const BgpInstance& instance : config.bgp) {
    for (std::size_t family = 0; family < 2; ++family) {
      add_question_of_exports(instance, family, &questions);
    }
  }
  return questions;
}

// The JSON in the shell's output; an empty object when there is none.
Json json_in(std::string_view text) {
  const std::size_t start = text.find('{');
  if (start == std::string_view::npos) return Json::object();
  text.remove_prefix(start);
  return Json::parse(text.substr(0, text.rfind('}') + 1), nullptr, false);
}

// A configured item is not derived, unless it is ineffective.
void remove_configured(const std::vector<KvConfigNode>& configured, Derived* derived) {
  std::sort(derived->ineffective.begin(), derived->ineffective.end());
  std::erase_if(derived->nodes, [&](const KvConfigNode& node) {
    return std::binary_search(configured.begin(), configured.end(), node, by_path) &&
           !std::binary_search(derived->ineffective.begin(), derived->ineffective.end(), node.path);
  });
}

}  // namespace

std::vector<std::string> derived_commands(const RunningConfig& config, bool exports) {
  std::vector<std::string> commands;
  for (const Question& question : questions_of(config, exports)) commands.push_back(question.command);
  return commands;
}

std::optional<Derived> derive(const RunningConfig& config, bool exports,
                              const std::vector<std::string>& texts,
                              const std::vector<KvConfigNode>& configured) {
  const std::vector<Question> questions = questions_of(config, exports);
  if (questions.size() != texts.size()) return std::nullopt;
  Collected collected;
  for (std::size_t i = 0; i < questions.size(); ++i) {
    const Json shown = json_in(texts[i]);
    if (!shown.is_object()) return std::nullopt;
    questions[i].read(questions[i], shown, &collected);
  }
  Derived& derived = collected.derived;
  remove_configured(configured, &derived);
  std::stable_sort(derived.nodes.begin(), derived.nodes.end(), by_path);
  const auto has_same_path = [](const KvConfigNode& left, const KvConfigNode& right) {
    return left.path == right.path;
  };
  derived.nodes.erase(std::unique(derived.nodes.begin(), derived.nodes.end(), has_same_path),
                      derived.nodes.end());
  return std::move(derived);
}

}  // namespace frr
