#include "cli/explain/address_link.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/doctor/check.h"
#include "cli/explain/evidence.h"
#include "cli/explain/kernel_routes.h"
#include "cli/system/program.h"

namespace cli::explain {

namespace {

struct LongestMatch {
  std::optional<inet::Prefix> prefix{};  // none: no route contains the address
  const char* discards = nullptr;        // how; null: it does not
  std::string unread{};                  // why the routes of the VRF are not known

  bool is_weak() const { return !prefix || prefix->length == 0 || discards != nullptr; }
  bool is_absence() const { return !prefix || (prefix->length == 0 && discards != nullptr); }
};

// The match that `read` adds, if what it reads can be looked at: a link below has the reason if not.
template <typename Read>
void try_reading(Read read) {
  try {
    read();
  } catch (const Failure&) {
  } catch (const doctor::NotPossible&) {
  }
}

bool is_longer(const std::optional<inet::Prefix>& left, const std::optional<inet::Prefix>& right) {
  return left && (!right || left->length > right->length);
}

// The kernel forwards by it. Without a kernel that can be read, by the rows of the daemon.
LongestMatch match_of_kernel(Evidence& evidence) {
  LongestMatch match;
  try {
    const auto& routes = evidence.kernel_routes();
    if (routes.empty()) return match;
    const auto best = std::ranges::min_element(routes, {}, &kernel::KernelRoute::priority);
    return {inet::Prefix{{best->family, best->destination}, best->prefix_length}, discarding(best->type)};
  } catch (const Failure&) {
  } catch (const doctor::NotPossible&) {
  }
  try {
    const auto& rows = evidence.mib_routes();
    if (!rows.empty()) return {rows.front().prefix, rows.front().discards};
  } catch (const Failure& failure) {
    match.unread = failure.what();
  } catch (const doctor::NotPossible& reason) {
    match.unread = reason.what();
  }
  return match;
}

// A longer route that the suite has selected is one that the kernel should have.
LongestMatch match_of_vrf(Evidence& evidence) {
  LongestMatch match = match_of_kernel(evidence);
  try_reading([&] {
    for (const RibEntry& entry : evidence.rib()) {
      const auto prefix = inet::parse_prefix(entry.prefix);
      if (entry.is_selected && is_longer(prefix, match.prefix)) match = {prefix, nullptr};
    }
  });
  return match;
}

void take_longest(const std::vector<BgpPath>& paths, std::optional<inet::Prefix>* longest) {
  for (const BgpPath& path : paths) {
    const auto prefix = inet::parse_prefix(path.prefix);
    if (is_longer(prefix, *longest)) *longest = prefix;
  }
}

// Those of other VPNs only if the VRF has nothing of its own.
std::optional<inet::Prefix> match_of_bgp(Evidence& evidence, bool with_other_vpns) {
  std::optional<inet::Prefix> longest;
  try_reading([&] {
    std::vector<BgpPath> paths = evidence.vpn_paths();
    std::erase_if(paths, [&](const BgpPath& path) { return !evidence.is_imported(path); });
    take_longest(paths, &longest);
    take_longest(evidence.vrf_paths(), &longest);
    if (!longest && with_other_vpns) take_longest(evidence.vpn_paths(), &longest);
  });
  return longest;
}

std::string text_of(const LongestMatch& match) {
  if (!match.prefix) return "no route";
  const std::string prefix = inet::prefix_text(*match.prefix);
  return match.discards == nullptr ? prefix : fmt::format("{}, which {}", prefix, match.discards);
}

// The links after this one look at what a suite has; without one nothing else says why there is no route.
bool has_no_suite(Evidence& evidence) {
  try {
    return !doctor::has_suite(evidence.facts.status());
  } catch (const Failure&) {
    return false;
  }
}

Judgement judge_absence(Evidence& evidence, const std::string& address, const LongestMatch& match) {
  const std::string text = fmt::format("the VRF has {} for {}", text_of(match), address);
  if (!has_no_suite(evidence)) return not_checked(text);
  const std::string& vrf = evidence.request.vrf;
  return broken(text, fmt::format("add a route to {} in VRF {}; mplsvpn show routes {} lists its routes",
                                  address, vrf, shell_word(vrf)));
}

}  // namespace

Judgement judge_address(Evidence& evidence) {
  const std::string address = evidence.prefix_name();
  const LongestMatch match = match_of_vrf(evidence);
  const auto of_bgp = match.is_weak() ? match_of_bgp(evidence, match.is_absence()) : std::nullopt;
  if (is_longer(of_bgp, match.prefix)) {
    evidence.narrow_to(*of_bgp);
    return ok(fmt::format("{} is in {}, which BGP has; the VRF has {} for it", address,
                          inet::prefix_text(*of_bgp), text_of(match)));
  }
  evidence.narrow_to(match.is_absence() ? evidence.prefix() : *match.prefix);
  if (!match.prefix && !match.unread.empty())
    return not_checked(fmt::format("the routes of the VRF are not known: {}", match.unread));
  if (match.is_absence()) return judge_absence(evidence, address, match);
  return ok(fmt::format("the longest route to {} is that of {}", address, text_of(match)));
}

}  // namespace cli::explain
