// The interface records, by index and by name.
//
// A node never moves while its interface exists, whatever its name and index become. The record of a removed
// interface can be found by its name until all its notifications are delivered.
//
// Nodes are small, because a router has 100,000 interfaces: they share texts and addresses with the router
// model, and what few nodes have is in maps beside them.
//
// Name, VRF and index of a record are the interface's own at once. Its states and addresses, and the record
// that a look-up by name finds, are those that were delivered to the client: they change when the
// notification is delivered (notifications.cpp). So a name has a list of holders, in the order in which they
// took it; the first is the one that the client knows by it.
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/router/model/router.h"
#include "platform/router/vtab/vtab.h"

namespace vtab {

// The state of each address family: up while the link is up and the interface has an address of the family.
struct IfState {
  std::uint8_t ipv4 = kVtabStateDown;
  std::uint8_t ipv6 = kVtabStateDown;
  router::AddressList addresses;
};

IfState state_of(const router::Interface& interface);

// The change codes of the two families (vtab.h).
struct IfChange {
  std::uint32_t ipv4 = kVtabNoChange;
  std::uint32_t ipv6 = kVtabNoChange;
  bool is_one() const { return ipv4 != kVtabNoChange || ipv6 != kVtabNoChange; }
  bool has_up() const { return ipv4 == kVtabChangedUp || ipv6 == kVtabChangedUp; }
};

IfChange change_between(const IfState& before, const IfState& now);

struct IfNode : VtabIfRecord {
  bool is_removed = false;
  bool is_renamed = false;    // the client does not know its present name yet
  std::uint32_t pending = 0;  // undelivered notifications
  router::AddressList addresses;
};

// The names of such a record.
struct Renaming {
  SharedText known_name;
  std::vector<SharedText> former_names;
};

class IfRecords {
 public:
  IfNode* find(std::string_view name) const;
  // The name under which the client knows it.
  const SharedText& known_name(const IfNode& node) const;
  const IfNode* first() const;
  const IfNode* after(std::uint32_t index) const;

  // Down and without addresses.
  IfNode* add(const router::Interface& interface);
  // The former name remains until the client knows the new one. REQUIRES: `old_index` is the index under
  // which the interface was added or last changed.
  IfNode* change(std::uint32_t old_index, const router::Interface& now);
  // The client knows the interface by its present name.
  void know_name(IfNode* node);
  // Removes the interface from the walk; release() frees its node. The node of the index.
  IfNode* remove(std::uint32_t index);
  // Frees a removed node without pending notifications.
  void release(IfNode* node);

  // The families that are down in `state` are down in the record.
  void show_downs(IfNode* node, const IfState& state);
  void show(IfNode* node, IfState state);

  // Called when a name has another record, or its record shows another state.
  void (*changed)(const char* if_name) = nullptr;

 private:
  void take_name(IfNode* node, const SharedText& name);
  void give_up_name(const IfNode* node, const SharedText& name);
  std::unique_ptr<IfNode> take(std::uint32_t index);
  // Reports the names by which the node is found.
  void report(const IfNode* node) const;

  struct ByIndex {
    using is_transparent = void;
    static std::uint32_t index_of(std::uint32_t index) { return index; }
    static std::uint32_t index_of(const std::unique_ptr<IfNode>& node) { return node->if_index; }
    template <typename Left, typename Right>
    bool operator()(const Left& left, const Right& right) const {
      return index_of(left) < index_of(right);
    }
  };

  absl::btree_set<std::unique_ptr<IfNode>, ByIndex> by_index_;
  absl::btree_map<SharedText, IfNode*, std::less<>> first_holders_;  // of each name
  std::map<SharedText, std::vector<IfNode*>> other_holders_;         // of the names that have more
  std::map<const IfNode*, Renaming> renamings_;                      // of the renamed nodes
  std::map<const IfNode*, std::unique_ptr<IfNode>> removed_;
};

}  // namespace vtab
