// The kernel's links and addresses as last heard, and which of them changed since somebody looked.
//
// One mirror lives as long as the source and follows the events; another one collects each dump and is then
// taken over by it. Identity is the link's index: a name is a property, a VRF that is renamed is the same
// link. Main thread only.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/links/link_message.h"

namespace kernel {

// Links by index. One that was deleted and made anew under the same index is in both sets.
struct Changes {
  std::set<std::uint32_t> removed;
  std::set<std::uint32_t> touched;  // link or addresses new or different
  bool empty() const { return removed.empty() && touched.empty(); }
};

class Mirror {
 public:
  // Link and address events change the mirror; the others are of no concern to it.
  void apply(const Event& event);
  // Becomes what an undisturbed dump saw; what differs counts as changed.
  void replace(Mirror dump);
  // Takes over what a disturbed dump saw; what it did not see may exist all the same and stays.
  void merge(const Mirror& dump);

  const Link* find(std::uint32_t index) const;  // valid until the mirror changes
  const std::map<std::uint32_t, Link>& links() const { return links_; }
  // The usable addresses without repetitions: IPv4 in the kernel's order, so that its primary address is the
  // first; then IPv6 by scope (the widest first) and octets, so that the order does not depend on who came
  // first.
  std::vector<router::Address> addresses(std::uint32_t index) const;
  // Every IPv4 address, in the kernel's order; one that is there with several peers is there several times.
  std::vector<router::Ipv4Detail> ipv4_details(std::uint32_t index) const;

  bool changed() const { return !changes_.empty(); }
  // Gives out what changed and forgets it.
  Changes take_changes();
  void touch(std::uint32_t index) { changes_.touched.insert(index); }
  // True while two links claim one name. The kernel never has that: a message about one of them is under way
  // or lost, and a dump will tell.
  bool names_in_doubt() const { return !nameless_.empty(); }

 private:
  void see_link(const Link& link);
  void lose_link(std::uint32_t index);
  void see_address(const LinkAddress& address);
  void lose_address(const LinkAddress& address);
  void claim_name(const Link& link);
  void release_name(const Link& link);

  std::map<std::uint32_t, Link> links_;
  std::unordered_map<std::string, std::uint32_t> index_by_name_;
  std::set<std::uint32_t> nameless_;
  std::map<std::uint32_t, std::vector<LinkAddress>> addresses_;  // by link, also of links not yet heard of
  Changes changes_;
};

}  // namespace kernel
