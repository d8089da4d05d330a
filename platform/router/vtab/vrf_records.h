// The VRF and table records, and the ways to look them up.
//
// A node is the record that clients see and what the service needs besides. It lives in one of two places:
// among the records that look-ups find, or, from its deletion until no client can use it any more, among the
// deleted ones. Nodes never move: a forward reference becomes a VRF, or a VRF a forward reference, in place.
//
// A VRF has at most one table of an address family and subsequent address family, so the table records are
// four fixed places in the node; a place whose table_id is 0 is empty, and a cursor into the node stays
// valid.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/router/model/router.h"
#include "platform/router/vtab/vtab.h"

namespace vtab {

struct VrfNode : VtabVrfRecord {
  std::array<VtabTableRecord, 4> tables{};  // by AFI, then SAFI

  VrfNode() : VtabVrfRecord{} {}
  ~VrfNode();  // frees the attribute block
  VrfNode(const VrfNode&) = delete;
  VrfNode& operator=(const VrfNode&) = delete;
};

class VrfRecords {
 public:
  VrfNode* find(std::string_view name);
  VrfNode* find_by_id(std::uint32_t id) const;           // null for 0
  VrfNode* find_by_table(std::uint32_t table_id) const;  // of several, the first in name order; null for 0
  VrfNode* first() const;
  VrfNode* after(std::string_view name);

  // Adds a forward reference. REQUIRES: there is no record of that name. Null when there is no memory for the
  // block.
  VrfNode* add(std::string_view name, std::size_t attribute_size);
  void complete(VrfNode* node, const router::Vrf& vrf);  // also for changed table ids
  void make_forward_reference(VrfNode* node);
  // Hides the record from the look-ups.
  void remove(VrfNode* node);
  // Frees a removed node that no client uses.
  void release(const VrfNode* node) { removed_.erase(node); }
  std::size_t removed_count() const { return removed_.size(); }

  // Gives every node a block of this size. Without memory it returns false, and no node has a block.
  bool allot_attributes(std::size_t attribute_size);

  // Called after a record has become complete or incomplete.
  void (*changed)(const char* vrf_name) = nullptr;

 private:
  struct ByTableThenName {
    using is_transparent = void;
    using Entry = std::pair<std::uint32_t, VrfNode*>;
    bool operator()(const Entry& left, const Entry& right) const {
      if (left.first != right.first) return left.first < right.first;
      return router::ShorterFirst()(left.second->vrf_name, right.second->vrf_name);
    }
    bool operator()(const Entry& left, std::uint32_t right) const { return left.first < right; }
    bool operator()(std::uint32_t left, const Entry& right) const { return left < right.first; }
  };

  using ByName = std::map<std::string, std::unique_ptr<VrfNode>, router::ShorterFirst>;

  // A walk asks for one record after the other, and several times for each: the record of the latest search
  // and the one after it are found without a search.
  ByName::iterator search(std::string_view name);
  void set_tables(VrfNode* node, const router::Vrf& vrf);

  ByName by_name_;
  std::optional<ByName::iterator> latest_;
  std::unordered_map<std::uint32_t, VrfNode*> by_id_;
  std::set<std::pair<std::uint32_t, VrfNode*>, ByTableThenName> by_table_;
  std::unordered_map<const VrfNode*, std::unique_ptr<VrfNode>> removed_;
};

// Copies a name, which is known to fit, and its terminator.
void set_name(std::span<char> slot, std::string_view name);

}  // namespace vtab
