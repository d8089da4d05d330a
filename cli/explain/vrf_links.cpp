#include "cli/explain/vrf_links.h"

#include <fmt/format.h>

#include "cli/doctor/check.h"
#include "cli/explain/evidence.h"
#include "cli/system/program.h"

namespace cli::explain {

namespace {

std::string create_device(const std::string& vrf) {
  return fmt::format("ip link add {0} type vrf table NUMBER; ip link set dev {0} up", shell_word(vrf));
}

// The VRFs of this router that have the target on this side.
std::set<std::string> vrfs_with(Evidence& evidence, const std::string& target, bool is_import) {
  std::set<std::string> names;
  for (const Target& each : evidence.targets()) {
    const bool is_other = each.vrf != evidence.request.vrf;
    if (is_other && each.target == target && each.is_import == is_import) names.insert("VRF " + each.vrf);
  }
  return names;
}

struct Exporters {
  std::string text{};     // "65000:10 from VRF blue 10.255.0.2; ..."
  bool is_any = false;    // at least one target is exported
  std::string unknown{};  // why those of other routers are not known
};

std::set<std::string> other_routers(Evidence& evidence, const std::string& target, std::string* unknown) {
  try {
    const auto& exporters = evidence.exporters();
    const auto found = exporters.find(target);
    return found == exporters.end() ? std::set<std::string>() : found->second;
  } catch (const Failure& failure) {
    *unknown = failure.what();
  } catch (const doctor::NotPossible& reason) {
    *unknown = reason.what();
  }
  return {};
}

Exporters exporters_of(Evidence& evidence, const std::set<std::string>& targets) {
  Exporters found;
  for (const std::string& target : targets) {
    std::set<std::string> names = vrfs_with(evidence, target, false);
    names.merge(other_routers(evidence, target, &found.unknown));
    found.is_any |= !names.empty();
    const std::string separator = found.text.empty() ? "" : "; ";
    found.text += fmt::format("{}{} from {}", separator, target, list_of(names));
  }
  return found;
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
  if (device == nullptr)
    return broken(fmt::format("the kernel has no VRF device {}", name), create_device(name));
  if (!device->is_enabled)
    return broken(fmt::format("the device {} is down", name),
                  fmt::format("ip link set dev {} up", shell_word(name)));
  return ok(fmt::format("the device {} is up, with table {}", name, device->table));
}

Judgement judge_rd(Evidence& evidence) {
  const VrfFacts* const vrf = evidence.vrf();
  if (vrf == nullptr) return not_checked("there is no such VRF");
  if (!vrf->rd.empty()) return ok(vrf->rd);
  if (evidence.own_targets(false).empty()) return not_checked("the VRF exports nothing and has no RD");
  return broken("the VRF has export targets and no route distinguisher: its routes are not announced",
                "configure \"rd vpn export AS:NUMBER\" in its address families");
}

Judgement judge_imports(Evidence& evidence) {
  const std::set<std::string> targets = evidence.own_targets(true);
  if (targets.empty()) return not_checked("the VRF imports no route target");
  const Exporters exporters = exporters_of(evidence, targets);
  if (exporters.is_any) return ok(exporters.text);
  if (!exporters.unknown.empty())
    return not_checked(fmt::format("no other VRF of this router exports {}; other routers are unknown: {}",
                                   list_of(targets), exporters.unknown));
  return broken(fmt::format("no other VRF and no other router exports {}", list_of(targets)),
                export_command(targets));
}

// Whether other routers import a target is only known there.
Judgement judge_exports(Evidence& evidence) {
  const std::set<std::string> targets = evidence.own_targets(false);
  if (targets.empty()) return not_checked("the VRF exports no route target");
  std::string text;
  for (const std::string& target : targets) {
    const std::set<std::string> importers = vrfs_with(evidence, target, true);
    const std::string importing = importers.empty() ? "no other VRF of this router" : list_of(importers);
    text += fmt::format("{}{}, imported by {}", text.empty() ? "" : "; ", target, importing);
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
