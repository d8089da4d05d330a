#include "cli/explain/vrf_links.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/doctor/check.h"
#include "cli/explain/evidence.h"
#include "cli/system/program.h"

namespace cli::explain {

namespace {

constexpr char kNoVrf[] = "there is no such VRF";

std::string create_device(const std::string& vrf) {
  return fmt::format("ip link add {0} type vrf table NUMBER; ip link set dev {0} up", shell_word(vrf));
}

// The VRFs of this router that use the target on this side.
std::set<std::string> vrfs_with(Evidence& evidence, const std::string& family, const std::string& target,
                                bool is_import) {
  std::set<std::string> names;
  for (const Target& each : evidence.targets()) {
    const bool is_used = each.is_used && each.is_import == is_import && each.family == family;
    if (is_used && each.vrf != evidence.request.vrf && each.target == target) names.insert("VRF " + each.vrf);
  }
  return names;
}

struct Exporters {
  std::string text{};     // "65000:10 from VRF blue 10.255.0.2; ..."
  bool is_any = false;    // at least one target is exported
  std::string unknown{};  // why those of other routers are not known
};

std::set<std::string> other_routers(Evidence& evidence, const std::string& family, const std::string& target,
                                    std::string* unknown) {
  try {
    const auto& exporters = evidence.exporters(family);
    const auto found = exporters.find(target);
    return found == exporters.end() ? std::set<std::string>() : found->second;
  } catch (const Failure& failure) {
    *unknown = failure.what();
  } catch (const doctor::NotPossible& reason) {
    *unknown = reason.what();
  }
  return {};
}

void append(const std::string& part, std::string* text) {
  *text += (text->empty() ? "" : "; ") + part;
}

Exporters exporters_of(Evidence& evidence, const std::string& family, const std::set<std::string>& targets) {
  Exporters found;
  for (const std::string& target : targets) {
    std::set<std::string> names = vrfs_with(evidence, family, target, false);
    names.merge(other_routers(evidence, family, target, &found.unknown));
    found.is_any |= !names.empty();
    append(fmt::format("{} from {}", target, list_of(names)), &found.text);
  }
  return found;
}

// The targets of the VRF by family, of families that import or export. Not those of EVPN, whose routes are in
// another table.
std::map<std::string, std::set<std::string>> used_targets(Evidence& evidence, bool is_import) {
  std::map<std::string, std::set<std::string>> used;
  for (const Target& each : evidence.targets()) {
    const bool is_own = each.vrf == evidence.request.vrf && each.is_import == is_import;
    if (is_own && each.is_used && !each.family.empty()) used[each.family].insert(each.target);
  }
  return used;
}

Judgement without_targets(Evidence& evidence, bool is_import) {
  const std::set<std::string> unused = evidence.own_targets(is_import);
  const char* const verb = is_import ? "import" : "export";
  if (unused.empty() && evidence.vrf() == nullptr) return not_checked(kNoVrf);
  if (unused.empty()) return not_checked(fmt::format("the VRF {}s no route target", verb));
  return not_checked(
      fmt::format("the VRF has {0} targets ({1}) and no family with \"{0} vpn\"", verb, list_of(unused)));
}

std::vector<doctor::SuiteFamily> families_or_none(Evidence& evidence) {
  try {
    return evidence.families();
  } catch (const Failure&) {  // the links of the targets have the reason
  } catch (const doctor::NotPossible&) {
  }
  return {};
}

// Of a daemon that reads the kernel: one that cannot be asked may read a router file.
Judgement without_device(Evidence& evidence) {
  const std::string& name = evidence.request.vrf;
  const std::string text = fmt::format("the kernel has no VRF device {}", name);
  if (evidence.vrf() != nullptr) return broken(text, create_device(name));
  try {
    if (!evidence.is_configured()) return not_checked(kNoVrf);
  } catch (const Failure& failure) {
    return not_checked(
        fmt::format("{}; whether the suite configures it is unknown: {}", text, failure.what()));
  }
  return broken(text + ", which the suite configures", create_device(name));
}

std::string export_command(const std::set<std::string>& targets) {
  return fmt::format("on the router that has the routes: rt vpn export {}, export vpn", list_of(targets));
}

}  // namespace

Judgement judge_vrf(Evidence& evidence) {
  const VrfFacts* const vrf = evidence.vrf();
  const std::string& name = evidence.request.vrf;
  if (vrf == nullptr)
    return broken(fmt::format("the daemon has no VRF {}", name), "mplsvpn show vrf lists the VRFs");
  if (vrf->is_up) return ok(fmt::format("VRF {} is up", name));
  const std::string text = fmt::format("VRF {} is down: none of its interfaces is up with an address", name);
  if (evidence.is_of_route()) return ok(text);  // routes from other routers need none
  return broken(text, fmt::format("mplsvpn show interfaces {}", shell_word(name)));
}

Judgement judge_device(Evidence& evidence) {
  const doctor::Vrf* const device = evidence.device();
  const std::string& name = evidence.request.vrf;
  if (device == nullptr) return without_device(evidence);
  if (!device->is_enabled)
    return broken(fmt::format("the device {} is down", name),
                  fmt::format("ip link set dev {} up", shell_word(name)));
  return ok(fmt::format("the device {} is up, with table {}", name, device->table));
}

Judgement judge_rd(Evidence& evidence) {
  const VrfFacts* const vrf = evidence.vrf();
  if (vrf == nullptr) return not_checked(kNoVrf);
  std::set<std::string> rds;
  for (const doctor::SuiteFamily& each : families_or_none(evidence)) {
    if (each.exports && each.rd.empty())
      return broken(fmt::format("the VRF exports its {} routes without a route distinguisher: they are not "
                                "announced",
                                each.family),
                    evidence.configure(each, "rd vpn export AS:NUMBER"));
    if (!each.rd.empty()) rds.insert(each.rd);
  }
  const std::string of_mib = vrf->rd.empty() ? "none" : vrf->rd;
  // Their notations may differ: "bgp as-format" is that of the MIB.
  const auto is_of_mib = [&](const std::string& rd) { return plain_target(rd) == plain_target(vrf->rd); };
  const bool is_same = std::ranges::any_of(rds, is_of_mib);
  if (!rds.empty()) return ok(list_of(rds) + (is_same ? "" : fmt::format("; the MIB differs: {}", of_mib)));
  if (!vrf->rd.empty()) return ok(vrf->rd);
  if (evidence.own_targets(false).empty()) return not_checked("the VRF exports nothing and has no RD");
  return broken("the VRF has export targets and no route distinguisher: its routes are not announced",
                "configure \"rd vpn export AS:NUMBER\" in its address families");
}

Judgement judge_sessions(Evidence& evidence) {
  std::string text;
  for (const doctor::SuiteFamily& each : evidence.families()) {
    if (!each.imports && !each.exports) continue;
    const std::string family = each.family.substr(0, each.family.find(' '));
    const auto sessions = evidence.sessions(family);
    const auto is_up = [](const auto& session) { return session.second == kEstablished; };
    if (!sessions.empty() && std::ranges::none_of(sessions, is_up))
      return broken(
          fmt::format("no {} vpn session is established{}", family, evidence.session_problem(family)),
          fmt::format("{} -c {}", evidence.facts.suite.words(),
                      shell_word("show bgp neighbors " + sessions.begin()->first)));
    for (const auto& [neighbor, state] : sessions)
      append(fmt::format("{} vpn with {}: {}", family, neighbor, state), &text);
  }
  return text.empty() ? not_checked("no neighbor is activated for VPN routes of this VRF") : ok(text);
}

Judgement judge_imports(Evidence& evidence) {
  const auto by_family = used_targets(evidence, true);
  if (by_family.empty()) return without_targets(evidence, true);
  std::string text;
  for (const auto& [family, targets] : by_family) {
    const Exporters exporters = exporters_of(evidence, family, targets);
    append(fmt::format("{}: {}", family, exporters.text), &text);
    if (exporters.is_any) continue;
    if (!exporters.unknown.empty())
      return not_checked(fmt::format("no other VRF of this router exports {}; other routers are unknown: {}",
                                     list_of(targets), exporters.unknown));
    return broken(fmt::format("no other VRF and no other router exports {} for {}{}", list_of(targets),
                              family, evidence.session_problem(family)),
                  export_command(targets));
  }
  return ok(text);
}

// Whether other routers import a target is only known there.
Judgement judge_exports(Evidence& evidence) {
  const auto by_family = used_targets(evidence, false);
  if (by_family.empty()) return without_targets(evidence, false);
  std::string text;
  for (const auto& [family, targets] : by_family) {
    for (const std::string& target : targets) {
      const std::set<std::string> importers = vrfs_with(evidence, family, target, true);
      append(fmt::format("{}: {}, imported by {}", family, target,
                         importers.empty() ? "no other VRF of this router" : list_of(importers)),
             &text);
    }
  }
  return ok(text);
}

Judgement judge_vpn_label(Evidence& evidence) {
  const doctor::SuiteFamily* const lacking = evidence.family_without_label();
  if (lacking != nullptr)
    return broken(fmt::format("the {} routes are exported without a label or segment identifier: packets for "
                              "them arrive without the label of the VRF",
                              lacking->family),
                  evidence.configure(*lacking, "label vpn export auto"));
  if (!evidence.exports_with_labels()) return not_checked("the VRF exports nothing with a label");
  const std::set<std::string>& labels = evidence.vpn_labels();
  if (labels.empty())
    return broken("the suite has no label for packets to this VRF",
                  fmt::format("{} -c 'show mpls table'", evidence.facts.suite.words()));
  return ok(fmt::format("packets with label {} are for this VRF", list_of(labels)));
}

}  // namespace cli::explain
