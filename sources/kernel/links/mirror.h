// The kernel's links and addresses as last announced, and the changes since they were last taken.
//
// The source's mirror follows the events. Each dump is read into another mirror, which then replaces the
// first. The index identifies a link: its name is an attribute, and a VRF that is renamed is the same link.
// Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/links/link_message.h"

namespace kernel {

// Links by index. One that was deleted and created again with the same index is in both sets.
struct Changes {
  std::set<std::uint32_t> removed;
  std::set<std::uint32_t> touched;  // link or addresses new or different
  bool empty() const { return removed.empty() && touched.empty(); }
};

class Mirror {
 public:
  void apply(const Event& event);
  // Adoption, all steps at once.
  void replace(Mirror dump);
  void merge(Mirror dump);

  const Link* find(std::uint32_t index) const;  // valid until the mirror changes
  const std::map<std::uint32_t, Link>& links() const { return links_; }
  // The usable addresses without repetitions: IPv4 in the kernel's order, so that its primary address is the
  // first; then IPv6 by scope (the widest first) and octets, so that the order is independent of their
  // history.
  std::vector<router::Address> addresses(std::uint32_t index) const;
  // Every IPv4 address, in the kernel's order. One with several peers is listed once per peer. Empty when no
  // address has a peer or is secondary: then addresses() says the same.
  std::vector<router::Ipv4Detail> ipv4_details(std::uint32_t index) const;

  bool changed() const { return !changes_.empty(); }
  // Returns the changes and clears them.
  Changes take_changes();
  void touch(std::uint32_t index) { changes_.touched.insert(index); }
  // True while two links claim the same name. In the kernel they cannot: a message about one of them is
  // queued or lost, and a dump resolves it.
  bool has_ambiguous_names() const { return !nameless_.empty(); }

 private:
  friend class Adoption;
  std::vector<LinkAddress> usable_addresses(std::uint32_t index) const;
  void update_link(const Link& link);
  void remove_link(std::uint32_t index);
  void update_address(const LinkAddress& address);
  void remove_address(const LinkAddress& address);
  void claim_name(const Link& link);
  void release_name(const Link& link);

  std::map<std::uint32_t, Link> links_;
  std::unordered_map<std::string, std::uint32_t> index_by_name_;
  std::set<std::uint32_t> nameless_;
  std::map<std::uint32_t, std::vector<LinkAddress>>
      addresses_;  // by link, also of links that are not yet known
  Changes changes_;
};

// Brings the content of a complete dump into a mirror, in steps. The mirror must outlive it, and must neither
// change nor be read before it is done.
class Adoption {
 public:
  // kReplaces takes the content of an undisturbed dump; differences count as changes. kMerges adds that of a
  // disturbed one: objects that are missing in it may exist, so they stay. `later` are the events since the
  // dump began.
  enum class Kind { kReplaces, kMerges };
  Adoption(Mirror* mirror, Mirror dump, Kind kind, std::deque<Event> later = {});

  // Visits up to `items` (> 0) objects, and fewer if reconcile::kStepTime has passed.
  void step(std::size_t items);
  bool is_done() const { return phase_ == phases().size(); }
  Kind kind() const { return kind_; }

 private:
  using Phase = bool (Adoption::*)();  // visits the next item; false without one
  const std::vector<Phase>& phases() const;
  // The next item of a map by index, which may have changed since the last one.
  template <typename Map>
  typename Map::const_iterator next_of(const Map& map);
  bool apply_later();
  bool find_removed();
  bool find_touched();
  bool exchange();
  bool merge_link();
  bool merge_addresses();
  bool free_link();
  bool free_name();
  bool free_addresses();

  Mirror* mirror_;
  Mirror dump_;  // after the exchange, what the mirror had
  Kind kind_;
  std::deque<Event> later_;
  std::size_t phase_ = 0;
  std::uint64_t next_ = 0;  // the lowest index that the phase has not visited
};

}  // namespace kernel
