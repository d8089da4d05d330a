// How the kernel's messages are interpreted:
//   - A VRF is a link whose IFLA_INFO_KIND is "vrf"; IFLA_VRF_TABLE is its routing table. A port of a VRF has
//     an IFLA_MASTER and the IFLA_INFO_SLAVE_KIND "vrf": ports of bridges, bonds and teams have a master too.
//   - The operational state (RFC 2863, section 3.1.14) is IFLA_OPERSTATE. The kernel leaves it at UNKNOWN for
//     drivers that do not manage it (loopback, dummy): there, up means administratively up with a carrier.
//   - A bridge announces its ports with messages of family AF_BRIDGE, the deletion of a port with RTM_DELLINK
//     among them; the link lives on, so only AF_UNSPEC counts.
//   - Wireless drivers send RTM_NEWLINK with nothing but an IFLA_WIRELESS report; as a link it would be one
//     without a state.
//   - IPv4 addresses have IFA_LOCAL; IPv6 ones only with a peer. IFA_FLAGS, where present, has the 32 bits of
//     which the header's ifa_flags are the first eight.
// Everything read is copied; nothing points into the datagram afterwards. Any thread.
#include "sources/kernel/links/link_message.h"

#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <cstring>
#include <string_view>

namespace kernel {
namespace {

constexpr std::uint8_t kOperUnknown = 0;  // IF_OPER_UNKNOWN
constexpr std::uint8_t kOperUp = 6;       // IF_OPER_UP
constexpr std::uint32_t kRouteFlags = IFF_UP | IFF_RUNNING | kFlagLowerUp;

// The attributes of a link message, before it is checked as a whole.
struct LinkDraft {
  Link link;
  std::uint8_t operstate = kOperUnknown;
  std::uint32_t master = 0;
  bool port_of_vrf = false;
  bool wireless = false;
};

struct AddressDraft {
  LinkAddress address;
  std::uint32_t flags = 0;
  std::array<std::uint8_t, 16> local{};
  bool has_local = false;
  bool has_address = false;
};

// Attribute texts have their NUL, but only the length is trusted.
std::string_view text_of(const nlattr* attribute) {
  const auto* text = static_cast<const char*>(mnl_attr_get_payload(attribute));
  return {text, strnlen(text, mnl_attr_get_payload_len(attribute))};
}

int read_vrf_attribute(const nlattr* attribute, void* data) {
  auto* draft = static_cast<LinkDraft*>(data);
  if (mnl_attr_get_type(attribute) == IFLA_VRF_TABLE) {
    return verdict(read_number(attribute, &draft->link.vrf_table));
  }
  return MNL_CB_OK;
}

// The data of a kind is read in a second pass, when the kind is known in any order of the attributes.
int read_link_kind(const nlattr* attribute, void* data) {
  auto* draft = static_cast<LinkDraft*>(data);
  switch (mnl_attr_get_type(attribute)) {
    case IFLA_INFO_KIND:
      draft->link.is_vrf = text_of(attribute) == "vrf";
      break;
    case IFLA_INFO_SLAVE_KIND:
      draft->port_of_vrf = text_of(attribute) == "vrf";
      break;
    default:
      break;
  }
  return MNL_CB_OK;
}

int read_link_data(const nlattr* attribute, void* data) {
  auto* draft = static_cast<LinkDraft*>(data);
  if (mnl_attr_get_type(attribute) == IFLA_INFO_DATA && draft->link.is_vrf) {
    return mnl_attr_parse_nested(attribute, read_vrf_attribute, draft);
  }
  return MNL_CB_OK;
}

int read_link_info(const nlattr* attribute, LinkDraft* draft) {
  const int result = mnl_attr_parse_nested(attribute, read_link_kind, draft);
  return result == MNL_CB_OK ? mnl_attr_parse_nested(attribute, read_link_data, draft) : result;
}

int read_link_attribute(const nlattr* attribute, void* data) {
  auto* draft = static_cast<LinkDraft*>(data);
  switch (mnl_attr_get_type(attribute)) {
    case IFLA_IFNAME:
      draft->link.name = text_of(attribute);
      return MNL_CB_OK;
    case IFLA_IFALIAS:
      draft->link.alias = text_of(attribute);
      return MNL_CB_OK;
    case IFLA_MASTER:
      return verdict(read_number(attribute, &draft->master));
    case IFLA_OPERSTATE:
      return verdict(read_number(attribute, &draft->operstate));
    case IFLA_LINKINFO:
      return read_link_info(attribute, draft);
    case IFLA_WIRELESS:
      draft->wireless = true;
      return MNL_CB_OK;
    default:
      return MNL_CB_OK;
  }
}

bool is_up(std::uint32_t flags, std::uint8_t operstate) {
  if (operstate == kOperUnknown) return (flags & IFF_UP) != 0 && (flags & kFlagLowerUp) != 0;
  return operstate == kOperUp;
}

bool complete_link(const LinkDraft& draft) {
  const Link& link = draft.link;
  return !link.name.empty() && link.name.size() <= kLinkNameMax && (!link.is_vrf || link.vrf_table != 0);
}

bool parse_link(const nlmsghdr* message, std::vector<Event>* events) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(ifinfomsg)) return false;
  const auto* header = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
  if (header->ifi_family != AF_UNSPEC) return true;
  if (header->ifi_index <= 0) return false;
  LinkDraft draft;
  draft.link.index = static_cast<std::uint32_t>(header->ifi_index);
  if (message->nlmsg_type == RTM_DELLINK) {
    events->emplace_back(LinkRemoved{draft.link.index});
    return true;
  }
  if (mnl_attr_parse(message, sizeof(ifinfomsg), read_link_attribute, &draft) != MNL_CB_OK) return false;
  if (draft.wireless) return true;
  if (!complete_link(draft)) return false;
  draft.link.vrf_master = draft.port_of_vrf ? draft.master : 0;
  draft.link.up = is_up(header->ifi_flags, draft.operstate);
  events->emplace_back(LinkSeen{std::move(draft.link), {header->ifi_flags & kRouteFlags, draft.master}});
  return true;
}

int read_address_attribute(const nlattr* attribute, void* data) {
  auto* draft = static_cast<AddressDraft*>(data);
  const router::Family family = draft->address.address.family;
  switch (mnl_attr_get_type(attribute)) {
    case IFA_LOCAL:
      draft->has_local = true;
      return verdict(read_octets(attribute, family, &draft->local));
    case IFA_ADDRESS:
      draft->has_address = true;
      return verdict(read_octets(attribute, family, &draft->address.peer));
    case IFA_FLAGS:
      return verdict(read_number(attribute, &draft->flags));
    default:
      return MNL_CB_OK;
  }
}

bool usable(std::uint32_t flags) {
  const bool unproven = (flags & IFA_F_TENTATIVE) != 0 && (flags & IFA_F_OPTIMISTIC) == 0;
  return !unproven && (flags & IFA_F_DADFAILED) == 0;
}

bool begin_address(const ifaddrmsg& header, AddressDraft* draft) {
  LinkAddress& address = draft->address;
  address.index = header.ifa_index;
  address.scope = header.ifa_scope;
  address.address.family = header.ifa_family == AF_INET ? router::Family::kIpv4 : router::Family::kIpv6;
  address.address.prefix_length = header.ifa_prefixlen;
  draft->flags = header.ifa_flags;
  return address.index != 0 && address.index <= 0x7fffffff &&
         header.ifa_prefixlen <= inet::bits_of(address.address.family);
}

bool complete_address(AddressDraft* draft) {
  if (!draft->has_local && !draft->has_address) return false;
  LinkAddress& address = draft->address;
  address.address.octets = draft->has_local ? draft->local : address.peer;
  if (!draft->has_address) {
    address.peer = draft->local;
  }
  // In IPv6 the bit of "secondary" means "temporary".
  address.secondary =
      address.address.family == router::Family::kIpv4 && (draft->flags & IFA_F_SECONDARY) != 0;
  address.usable = usable(draft->flags);
  return true;
}

bool parse_address_message(const nlmsghdr* message, std::vector<Event>* events) {
  if (mnl_nlmsg_get_payload_len(message) < sizeof(ifaddrmsg)) return false;
  const auto* header = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(message));
  if (header->ifa_family != AF_INET && header->ifa_family != AF_INET6) return true;
  AddressDraft draft;
  if (!begin_address(*header, &draft) ||
      mnl_attr_parse(message, sizeof(ifaddrmsg), read_address_attribute, &draft) != MNL_CB_OK ||
      !complete_address(&draft)) {
    return false;
  }
  if (message->nlmsg_type == RTM_DELADDR) {
    events->emplace_back(AddressRemoved{draft.address});
  } else {
    events->emplace_back(AddressSeen{draft.address});
  }
  return true;
}

}  // namespace

bool parse_link_message(const nlmsghdr* message, std::vector<Event>* events) {
  switch (message->nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      return parse_link(message, events);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return parse_address_message(message, events);
    default:
      return true;
  }
}

ParseReport parse_link_datagram(std::span<const std::uint8_t> datagram, std::vector<Event>* events) {
  return for_each_message(datagram,
                          [events](const nlmsghdr* message) { return parse_link_message(message, events); });
}

}  // namespace kernel
