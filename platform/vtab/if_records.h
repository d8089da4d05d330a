// The interface records, by index and by name.
//
// A node never moves while its interface exists, whatever becomes of its name and index: the map's node is
// taken out and put back under the new key. A record that a client is accessing when its interface is removed
// is set aside until the access ends.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>

#include "platform/router/router.h"
#include "platform/vtab/vtab.h"

namespace vtab {

struct IfNode : VtabIfRecord {
  bool in_access = false;
};

class IfRecords {
 public:
  IfNode* find(std::string_view name) const;
  const IfNode* first() const;
  const IfNode* after(std::uint32_t index) const;

  void add(const router::Interface& interface);
  // REQUIRES: `old_index` is the index under which the interface was added or last changed.
  void change(std::uint32_t old_index, const router::Interface& now);
  void remove(std::uint32_t index);
  void end_access(IfNode* node);
  void clear();

 private:
  using Map = std::map<std::uint32_t, IfNode>;
  Map by_index_;
  std::unordered_map<std::string_view, IfNode*> by_name_;  // the keys are the records' own names
  std::map<const IfNode*, Map::node_type> removed_in_access_;
};

}  // namespace vtab
