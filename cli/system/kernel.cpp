#include "cli/system/kernel.h"

#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <poll.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>

#include "cli/session.h"
#include "sources/kernel/netlink/dump.h"

namespace cli {

namespace {

constexpr int kPatienceMs = 5000;  // for a datagram
constexpr unsigned kDatagrams = 64;

Failure kernel_failure(const std::string& reason) {
  return {kExitFailed, "the kernel cannot be read: " + reason};
}

void wait_for(const kernel::Dump& dump) {
  pollfd waiting{dump.fd(), POLLIN, 0};
  if (poll(&waiting, 1, kPatienceMs) == 0) throw kernel_failure("no answer on rtnetlink");
}

// A dump that changes disturb may lack objects that did not change: it is taken as it is.
void dump(std::vector<kernel::DumpRequest> requests, const kernel::MessageReader& read) {
  kernel::Dump dump;
  if (const Status status = dump.begin(std::move(requests))) throw kernel_failure(err_text(status));
  for (;;) {
    switch (dump.step(kDatagrams, read)) {
      case kernel::Dump::Progress::kMore:
        break;
      case kernel::Dump::Progress::kWaiting:
        wait_for(dump);
        break;
      case kernel::Dump::Progress::kComplete:
        return;
      case kernel::Dump::Progress::kFailed:
        throw kernel_failure(err_text(dump.error()));
    }
  }
}

// A message with this header, in which only the family is set.
template <typename Header, typename Octet>
kernel::DumpRequest request_of_family(std::uint16_t type, Octet Header::*family, int value) {
  kernel::DumpRequest request;
  nlmsghdr* const message = mnl_nlmsg_put_header(request.octets.data());
  message->nlmsg_type = type;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  auto* const header = static_cast<Header*>(mnl_nlmsg_put_extra_header(message, sizeof(Header)));
  header->*family = static_cast<Octet>(value);
  request.may_lack = true;
  return request;
}

int read_rule_attribute(const nlattr* attribute, void* data) {
  auto& rule = *static_cast<LookupRule*>(data);
  std::uint8_t is_l3mdev = 0;
  switch (mnl_attr_get_type(attribute)) {
    case FRA_PRIORITY:
      return kernel::verdict(kernel::read_number(attribute, &rule.priority));
    case FRA_TABLE:
      return kernel::verdict(kernel::read_number(attribute, &rule.table));
    case FRA_L3MDEV:
      if (!kernel::read_number(attribute, &is_l3mdev)) return MNL_CB_ERROR;
      rule.is_l3mdev = is_l3mdev != 0;
      return MNL_CB_OK;
    case FRA_SUPPRESS_PREFIXLEN:
    case FRA_SUPPRESS_IFGROUP:
    case FRA_PROTOCOL:
    case FRA_PAD:
      return MNL_CB_OK;
    default:
      rule.has_selector = true;
      return MNL_CB_OK;
  }
}

bool parse_rule(const nlmsghdr* message, std::vector<LookupRule>* rules) {
  if (message->nlmsg_type != RTM_NEWRULE) return true;
  if (mnl_nlmsg_get_payload_len(message) < sizeof(fib_rule_hdr)) return false;
  const auto* const header = static_cast<const fib_rule_hdr*>(mnl_nlmsg_get_payload(message));
  LookupRule rule{.action = header->action, .table = header->table};
  rule.has_selector = header->tos != 0 || (header->flags & FIB_RULE_INVERT) != 0;
  if (mnl_attr_parse(message, sizeof(fib_rule_hdr), read_rule_attribute, &rule) != MNL_CB_OK) return false;
  rules->push_back(rule);
  return true;
}

using NextHops = std::map<std::uint32_t, kernel::NextHopObject>;  // by id

NextHops read_next_hops() {
  std::vector<kernel::RouteEvent> events;
  kernel::DumpRequest request = kernel::request_next_hops();
  request.may_lack = true;
  dump({std::move(request)},
       [&events](const nlmsghdr* message) { return kernel::parse_route_message(message, &events); });
  NextHops objects;
  for (kernel::RouteEvent& event : events) {
    if (auto* const seen = std::get_if<kernel::NextHopSeen>(&event))
      objects[seen->object.id] = std::move(seen->object);
  }
  return objects;
}

// The object and, if it is a group, its members; none without an object.
std::set<std::uint32_t> ids_of(const NextHops& objects, std::uint32_t id) {
  const auto found = objects.find(id);
  if (found == objects.end()) return {};
  std::set<std::uint32_t> ids = {found->second.members.begin(), found->second.members.end()};
  ids.insert(id);
  return ids;
}

}  // namespace

std::vector<kernel::LinkSeen> read_links() {
  std::vector<kernel::Event> events;
  dump({kernel::request_links()},
       [&events](const nlmsghdr* message) { return kernel::parse_link_message(message, &events); });
  std::vector<kernel::LinkSeen> links;
  for (kernel::Event& event : events) {
    if (auto* const seen = std::get_if<kernel::LinkSeen>(&event)) links.push_back(std::move(*seen));
  }
  return links;
}

std::vector<kernel::KernelRoute> read_routes(std::uint32_t table, const WantedRoute& is_wanted) {
  std::vector<kernel::KernelRoute> routes;
  std::vector<kernel::RouteEvent> events;  // of one message
  std::vector<kernel::DumpRequest> requests;
  for (const router::Family family : {router::Family::kIpv4, router::Family::kIpv6}) {
    requests.push_back(kernel::request_routes({family, table}));
    requests.back().may_lack = true;
  }
  dump(requests, [&](const nlmsghdr* message) {
    events.clear();
    if (!kernel::parse_route_message(message, &events)) return false;
    for (kernel::RouteEvent& event : events) {
      auto* const seen = std::get_if<kernel::RouteSeen>(&event);
      if (seen == nullptr || seen->route.table != table) continue;
      if (!is_wanted || is_wanted(seen->route)) routes.push_back(std::move(seen->route));
    }
    return true;
  });
  return routes;
}

std::set<std::uint32_t> read_label_links(const std::vector<std::uint32_t>& tables) {
  std::set<std::uint32_t> links;
  const auto add = [&links](const kernel::RoutePath& path) {
    if (!path.labels.empty() && path.interface_index != 0) links.insert(path.interface_index);
  };
  const NextHops objects = read_next_hops();
  std::set<std::uint32_t> used;
  for (const std::uint32_t table : tables) {
    for (const kernel::KernelRoute& route : read_routes(table)) {
      std::ranges::for_each(route.paths, add);
      used.merge(ids_of(objects, route.next_hop_object));
    }
  }
  for (const std::uint32_t id : used) {
    if (const auto found = objects.find(id); found != objects.end()) add(found->second.path);
  }
  return links;
}

std::size_t count_label_routes() {
  std::size_t count = 0;
  // A kernel without MPLS answers with the routes of other families, which do not count.
  dump({request_of_family(RTM_GETROUTE, &rtmsg::rtm_family, AF_MPLS)}, [&count](const nlmsghdr* message) {
    if (message->nlmsg_type != RTM_NEWROUTE) return true;
    const auto* const route = static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
    if (route->rtm_family == AF_MPLS) ++count;
    return true;
  });
  return count;
}

std::vector<LookupRule> read_rules(router::Family family) {
  std::vector<LookupRule> rules;
  const int value = family == router::Family::kIpv4 ? AF_INET : AF_INET6;
  dump({request_of_family(RTM_GETRULE, &fib_rule_hdr::family, value)},
       [&rules](const nlmsghdr* message) { return parse_rule(message, &rules); });
  return rules;
}

std::string read_sysctl(const std::string& name) {
  std::ifstream file("/proc/sys/" + name);
  std::string value;
  std::getline(file, value);
  return value;
}

}  // namespace cli
