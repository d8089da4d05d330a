#include "cli/explain/kernel_routes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <linux/rtnetlink.h>

#include <algorithm>

namespace cli::explain {

namespace {

std::string path_text(Evidence& evidence, const kernel::RoutePath& path) {
  std::string text;
  if (path.has_gateway) text = "via " + inet::address_text({path.gateway_family, path.gateway});
  for (const kernel::LinkSeen& link : evidence.facts.links()) {
    if (link.link.index == path.interface_index)
      text += fmt::format("{}dev {}", text.empty() ? "" : " ", link.link.name);
  }
  if (!path.labels.empty()) text += fmt::format(" with label {}", fmt::join(path.labels, "/"));
  return text;
}

}  // namespace

const char* discarding(std::uint8_t type) {
  switch (type) {
    case RTN_BLACKHOLE:
      return "drops packets (blackhole)";
    case RTN_UNREACHABLE:
      return "rejects packets (unreachable)";
    case RTN_PROHIBIT:
      return "rejects packets (prohibit)";
    default:
      return nullptr;
  }
}

std::string route_text(Evidence& evidence, const kernel::KernelRoute& route) {
  if (const char* const text = discarding(route.type)) return text;
  if (route.paths.empty()) return fmt::format("by the next-hop object {}", route.next_hop_object);
  std::string text;
  for (const kernel::RoutePath& path : route.paths)
    text += (text.empty() ? "" : ", ") + path_text(evidence, path);
  return text;
}

bool is_dead(const kernel::KernelRoute& route) {
  return !route.paths.empty() && std::ranges::all_of(route.paths, [](const auto& path) { return path.dead; });
}

bool is_without_row(const kernel::KernelRoute& route) {
  constexpr inet::Octets kLinkLocal = {0xfe, 0x80};
  constexpr unsigned kLinkLocalBits = 10;
  const bool is_unicast = route.type != RTN_LOCAL && route.type != RTN_BROADCAST &&
                          route.type != RTN_ANYCAST && route.type != RTN_MULTICAST;
  return !is_unicast || (route.family == inet::Family::kIpv6 &&
                         inet::share_prefix(route.destination, kLinkLocal, kLinkLocalBits));
}

}  // namespace cli::explain
