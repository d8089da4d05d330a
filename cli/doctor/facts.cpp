#include "cli/doctor/facts.h"

#include <net/if.h>

#include <algorithm>
#include <map>

#include "cli/diagnosis/status_facts.h"
#include "cli/doctor/check.h"

namespace cli::doctor {

namespace {

constexpr std::string_view kFileSource = "file";
constexpr std::string_view kKernelSource = "kernel";

using NamesByIndex = std::map<std::uint32_t, std::vector<std::string>>;

NamesByIndex members_by_master(const std::vector<kernel::LinkSeen>& links) {
  NamesByIndex names;
  for (const kernel::LinkSeen& each : links) {
    if (each.link.vrf_master != 0) names[each.link.vrf_master].push_back(each.link.name);
  }
  return names;
}

}  // namespace

const Facts::Status& Facts::status() {
  return status_.get([this] { return read_status(session); });
}

// A daemon that does not run may have any source: then the kernel decides.
void Facts::require_kernel_source() {
  const Status* known = nullptr;
  try {
    known = &status();
  } catch (const Failure&) {
    return;
  }
  const auto sources = sources_of(*known);
  const auto is_file = [](const auto& source) { return text_or_empty(source.name) == kFileSource; };
  if (std::ranges::any_of(sources, is_file))
    throw NotPossible("the daemon reads a router file, not this kernel");
}

const std::vector<kernel::LinkSeen>& Facts::links() {
  return links_.get([this] { return std::make_unique<std::vector<kernel::LinkSeen>>(reader.links()); });
}

const std::vector<Vrf>& Facts::vrfs() {
  require_kernel_source();
  return vrfs_.get([this] {
    auto all = std::make_unique<std::vector<Vrf>>();
    NamesByIndex members = members_by_master(links());
    for (const auto& [link, facts] : links()) {
      if (!link.is_vrf) continue;
      all->push_back({link.index, link.name, link.vrf_table, (facts.flags & IFF_UP) != 0,
                      std::move(members[link.index])});
    }
    return all;
  });
}

const SuiteConfiguration& Facts::suite_configuration() {
  return suite_configuration_.get([this] {
    const std::string text = suite.ask("show running-config");
    // Asked afterwards: it may have ended meanwhile.
    if (!suite.runs("bgpd"))
      throw Failure(kExitFailed, "bgpd does not run: the configuration of VPN routes is unknown");
    return std::make_unique<SuiteConfiguration>(parse_suite_configuration(text));
  });
}

std::span<const process_status::SourceStatus> sources_of(const Facts::Status& status) {
  return {static_cast<const process_status::SourceStatus*>(status->sources.elements),
          static_cast<std::size_t>(status->sources.count)};
}

bool has_suite(const Facts::Status& status) {
  return std::ranges::any_of(sources_of(status), [](const auto& source) {
    const std::string name = text_or_empty(source.name);
    return name != kKernelSource && name != kFileSource;
  });
}

}  // namespace cli::doctor
