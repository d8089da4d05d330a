// Header fields that are not set stay zero, which means every address family.
#include "sources/kernel/netlink/request.h"

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace kernel {
namespace {

// A message with an empty header of the type.
template <class Header>
DumpRequest make_request(std::uint16_t type) {
  DumpRequest request;
  nlmsghdr* message = mnl_nlmsg_put_header(request.octets.data());
  message->nlmsg_type = type;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  mnl_nlmsg_put_extra_header(message, sizeof(Header));
  return request;
}

}  // namespace

DumpRequest request_links() {
  DumpRequest request = make_request<ifinfomsg>(RTM_GETLINK);
  mnl_attr_put_u32(request.message(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return request;
}

DumpRequest request_addresses() {
  return make_request<ifaddrmsg>(RTM_GETADDR);
}

DumpRequest request_routes(router::RouteTableId table) {
  DumpRequest request = make_request<rtmsg>(RTM_GETROUTE);
  auto* header = static_cast<rtmsg*>(mnl_nlmsg_get_payload(request.message()));
  header->rtm_family = table.family == router::Family::kIpv4 ? AF_INET : AF_INET6;
  mnl_attr_put_u32(request.message(), RTA_TABLE, table.table);
  request.strict = request.may_lack = true;
  return request;
}

DumpRequest request_next_hops() {
  DumpRequest request = make_request<nhmsg>(RTM_GETNEXTHOP);
  request.strict = request.may_lack = true;
  return request;
}

}  // namespace kernel
