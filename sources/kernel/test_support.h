// For the tests of this folder: encoded rtnetlink messages, and an observer that records notifications.
#pragma once

#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

#include <array>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/links/link_message.h"

namespace kernel {

inline constexpr std::uint32_t kUpAndRunning = IFF_UP | IFF_RUNNING | 0x10000;  // ... and IFF_LOWER_UP

using Octets = std::vector<std::uint8_t>;

// One link message, attribute by attribute; attributes that are not set are left out.
struct LinkMessage {
  std::uint16_t type = RTM_NEWLINK;
  std::uint16_t message_flags = 0;
  std::uint8_t family = AF_UNSPEC;
  int index = 0;
  std::uint32_t flags = 0;
  std::optional<std::string> name{};
  std::optional<std::string> alias{};
  std::optional<std::uint8_t> operstate{};
  std::optional<std::uint32_t> master{};
  std::string kind{};
  std::optional<std::uint32_t> vrf_table{};
  std::string slave_kind{};
  bool data_before_kind = false;
  bool wireless = false;
};

struct AddressMessage {
  std::uint16_t type = RTM_NEWADDR;
  std::uint8_t family = AF_INET;
  std::uint32_t index = 0;
  std::string address{};  // IFA_ADDRESS
  std::string local{};    // IFA_LOCAL
  std::uint8_t prefix_length = 24;
  std::uint8_t scope = RT_SCOPE_UNIVERSE;
  std::uint8_t header_flags = 0;
  std::optional<std::uint32_t> flags{};  // IFA_FLAGS
};

class MessageBuffer {
 public:
  nlmsghdr* Begin(std::uint16_t type, std::uint16_t flags) {
    nlmsghdr* message = mnl_nlmsg_put_header(octets_.data());
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    return message;
  }
  Octets Take(const nlmsghdr* message) const {
    return {octets_.begin(), octets_.begin() + static_cast<std::ptrdiff_t>(message->nlmsg_len)};
  }

 private:
  alignas(nlmsghdr) std::array<std::uint8_t, 4096> octets_{};
};

inline void PutLinkInfo(nlmsghdr* message, const LinkMessage& link) {
  const auto put_data = [&] {
    if (link.vrf_table) {
      nlattr* data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
      mnl_attr_put_u32(message, IFLA_VRF_TABLE, *link.vrf_table);
      mnl_attr_nest_end(message, data);
    }
  };
  nlattr* info = mnl_attr_nest_start(message, IFLA_LINKINFO);
  if (link.data_before_kind) put_data();
  if (!link.kind.empty()) mnl_attr_put_strz(message, IFLA_INFO_KIND, link.kind.c_str());
  if (!link.data_before_kind) put_data();
  if (!link.slave_kind.empty()) mnl_attr_put_strz(message, IFLA_INFO_SLAVE_KIND, link.slave_kind.c_str());
  mnl_attr_nest_end(message, info);
}

inline Octets Encode(const LinkMessage& link) {
  MessageBuffer buffer;
  nlmsghdr* message = buffer.Begin(link.type, link.message_flags);
  auto* header = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  header->ifi_family = link.family;
  header->ifi_index = link.index;
  header->ifi_flags = link.flags;
  if (link.name) mnl_attr_put_strz(message, IFLA_IFNAME, link.name->c_str());
  if (link.alias) mnl_attr_put_strz(message, IFLA_IFALIAS, link.alias->c_str());
  if (link.operstate) mnl_attr_put_u8(message, IFLA_OPERSTATE, *link.operstate);
  if (link.master) mnl_attr_put_u32(message, IFLA_MASTER, *link.master);
  if (link.wireless) mnl_attr_put_u32(message, IFLA_WIRELESS, 0);
  if (!link.kind.empty() || link.vrf_table || !link.slave_kind.empty()) PutLinkInfo(message, link);
  return buffer.Take(message);
}

inline void PutAddress(nlmsghdr* message, std::uint16_t attribute, const std::string& text) {
  router::Address address;
  ASSERT_TRUE(router::parse_address(text, &address)) << text;
  const std::size_t size = address.family == router::Family::kIpv4 ? 4 : 16;
  mnl_attr_put(message, attribute, size, address.octets.data());
}

inline Octets Encode(const AddressMessage& address) {
  MessageBuffer buffer;
  nlmsghdr* message = buffer.Begin(address.type, 0);
  auto* header = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifaddrmsg)));
  header->ifa_family = address.family;
  header->ifa_prefixlen = address.prefix_length;
  header->ifa_flags = address.header_flags;
  header->ifa_scope = address.scope;
  header->ifa_index = address.index;
  if (!address.address.empty()) PutAddress(message, IFA_ADDRESS, address.address);
  if (!address.local.empty()) PutAddress(message, IFA_LOCAL, address.local);
  if (address.flags) mnl_attr_put_u32(message, IFA_FLAGS, *address.flags);
  return buffer.Take(message);
}

inline std::vector<Event> Parse(const Octets& datagram, ParseReport* report = nullptr) {
  std::vector<Event> events;
  const ParseReport result = parse_link_datagram(datagram, &events);
  if (report != nullptr) *report = result;
  return events;
}

// The event of a message that has one, of this type.
template <class What, class AnyEvent>
What OnlyEvent(const std::vector<AnyEvent>& events) {
  if (events.size() != 1 || !std::holds_alternative<What>(events[0])) {
    ADD_FAILURE() << "not one such event but " << events.size() << " events";
    return {};
  }
  return std::get<What>(events[0]);
}

template <class Parser>
void ExpectNoEvents(Parser parse, const Octets& datagram, unsigned malformed) {
  ParseReport report;
  EXPECT_TRUE(parse(datagram, &report).empty());
  EXPECT_EQ(report.malformed, malformed);
}

inline Link VrfLink(const std::string& name, std::uint32_t index, std::uint32_t table) {
  return {.index = index, .name = name, .is_vrf = true, .vrf_table = table};
}

inline LinkAddress MakeAddress(std::uint32_t index, const std::string& text, bool secondary = false) {
  LinkAddress address{.index = index, .secondary = secondary};
  EXPECT_TRUE(router::parse_address(text, &address.address)) << text;
  address.peer = address.address.octets;
  return address;
}

// A recording: datagrams as received, each preceded by its length in four octets, most significant first.
inline std::vector<Octets> ReadRecording(const std::string& name) {
  std::ifstream file("tests/data/netlink/" + name, std::ios::binary);
  const Octets all((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_FALSE(all.empty()) << name;
  std::vector<Octets> datagrams;
  for (std::size_t at = 0; at + 4 <= all.size();) {
    const std::size_t length = (std::size_t{all[at]} << 24) | (std::size_t{all[at + 1]} << 16) |
                               (std::size_t{all[at + 2]} << 8) | all[at + 3];
    EXPECT_LE(at + 4 + length, all.size()) << name;
    const auto begin = all.begin() + static_cast<std::ptrdiff_t>(at + 4);
    datagrams.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
    at += 4 + length;
  }
  return datagrams;
}

// Records one line per notification, and checks the order that every observer may rely on.
class Listener : public router::Observer {
 public:
  explicit Listener(router::Router* model) : model_(model) {
    model_->observe(router::ObserverRank::kOther, this);
  }
  ~Listener() override { model_->stop_observing(this); }

  void vrf_created(const router::Vrf& vrf) override { Say("created " + vrf.name); }
  void vrf_changed(const router::Vrf&, const router::Vrf& now) override {
    Say("described " + now.name + " '" + now.description + "'");
  }
  void vrf_deleted(const router::Vrf& vrf) override {
    model_->for_each_interface([&](const router::Interface& each) {
      EXPECT_NE(each.vrf, vrf.name) << each.name << " is still in the VRF that was deleted";
    });
    Say("deleted " + vrf.name);
  }
  void interface_added(const router::Interface& now) override {
    ExpectVrf(now.vrf);
    Say("added " + now.name + " in " + now.vrf + (now.up ? " up" : " down"));
  }
  void interface_changed(const router::Interface& before, const router::Interface& now) override {
    if (before.name != now.name) Say("renamed " + before.name + " to " + now.name);
    if (before.up != now.up) Say(now.name + (now.up ? " up" : " down"));
    if (before.description != now.description) Say(now.name + " '" + now.description + "'");
    if (before.addresses != now.addresses) Say(now.name + " addresses " + Addresses(now));
  }
  void interface_moved(const router::Interface& now, const std::string& from) override {
    ExpectVrf(now.vrf);
    Say("moved " + now.name + " from " + from + " to " + now.vrf);
  }
  void interface_removed(const router::Interface& last) override {
    Say("removed " + last.name + " in " + last.vrf);
  }

  std::vector<std::string> TakeLines() { return std::exchange(lines_, {}); }
  static std::string Addresses(const router::Interface& interface) {
    std::string text;
    for (const router::Address& address : interface.addresses) {
      text += (text.empty() ? "" : " ") + router::format_address(address);
    }
    return text;
  }

 private:
  void ExpectVrf(const std::string& name) {
    EXPECT_NE(model_->find_vrf(name), nullptr) << "joined before it was created: " << name;
  }
  void Say(std::string line) { lines_.push_back(std::move(line)); }
  router::Router* model_;
  std::vector<std::string> lines_;
};

// The whole model, one line an object: VRFs in the model's order (shorter names first), then interfaces in
// index order.
inline std::vector<std::string> Describe(const router::Router& model) {
  std::vector<std::string> lines;
  model.for_each_vrf([&](const router::Vrf& vrf) {
    if (vrf.name == router::kDefaultVrf) return;
    lines.push_back("vrf " + vrf.name + " id " + std::to_string(vrf.id) + " tables " +
                    std::to_string(vrf.ipv4_table) + " " + std::to_string(vrf.ipv6_table) + " '" +
                    vrf.description + "'");
  });
  std::map<std::uint32_t, std::string> interfaces;
  model.for_each_interface([&](const router::Interface& each) {
    interfaces[each.index] = std::to_string(each.index) + " " + each.name + " in " + each.vrf +
                             (each.up ? " up" : " down") + " '" + each.description + "' " +
                             Listener::Addresses(each);
  });
  for (const auto& [index, line] : interfaces) lines.push_back(line);
  return lines;
}

}  // namespace kernel
