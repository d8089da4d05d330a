// The interface records, by index and by name.
//
// A node never moves while its interface exists, whatever its name and index become: the map's node is
// extracted and inserted under the new key. The record of a removed interface can be found by its name until
// all its notifications are delivered.
//
// Name, VRF and index of a record are the interface's own at once. Its states and addresses, and the record
// that a look-up by name finds, are those that were delivered to the client: they change when the
// notification is delivered (notifications.cpp). So a name has a list of holders, in the order in which they
// took it; the first is the one that the client knows by it.
#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/inlined_vector.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/router/model/router.h"
#include "platform/router/vtab/vtab.h"

namespace vtab {

// An address of each family needs no block of its own.
using IfAddresses = absl::InlinedVector<router::Address, 2>;

// The state of each address family: up while the link is up and the interface has an address of the family.
struct IfState {
  std::uint32_t ipv4 = kVtabStateDown;
  std::uint32_t ipv6 = kVtabStateDown;
  IfAddresses addresses;
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

// The names of a record until the client knows the present one.
struct Renaming {
  std::string known_name;
  std::vector<std::string> former_names;
};

struct IfNode : VtabIfRecord {
  IfNode() : VtabIfRecord{} {}

  // The name under which the client knows it.
  const char* known_name() const { return renaming == nullptr ? if_name : renaming->known_name.c_str(); }

  IfAddresses addresses;
  std::unique_ptr<Renaming> renaming;
  std::uint32_t pending = 0;  // undelivered notifications
  bool is_removed = false;
};

// The records that have or had a name, in the order in which they took it.
class Holders {
 public:
  IfNode* first() const { return first_; }  // null without one
  void add(IfNode* node);
  void remove(const IfNode* node);

 private:
  IfNode* first_ = nullptr;
  std::unique_ptr<std::vector<IfNode*>> others_;  // hardly a name has any
};

class IfRecords {
 public:
  IfNode* find(std::string_view name) const;
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
  void take_name(IfNode* node, const std::string& name);
  void give_up_name(const IfNode* node, const std::string& name);
  // Reports the names by which the node is found.
  void report(const IfNode* node) const;

  using Map = std::map<std::uint32_t, IfNode>;
  Map by_index_;
  absl::btree_map<std::string, Holders, std::less<>> holders_;  // of a name; each has one
  std::map<const IfNode*, Map::node_type> removed_;
};

}  // namespace vtab
