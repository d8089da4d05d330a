// Which managers snmpd lets see a subtree, by its configuration: the view-based access control of RFC 3415.
#pragma once

#include <string>
#include <vector>

#include "cli/doctor/snmp/snmpd_configuration.h"

namespace cli::doctor {

enum class Sight { kUnknown, kNone, kSome, kAll };  // in this order: the best decides

// What a line shows of the subtree.
struct SnmpdSight {
  const SnmpdGrant* grant;
  Sight sight;
  std::string obstacle{};  // what hides the rest, as text
  std::string fix{};       // shows the subtree, and nothing else to communities and users that exist
};

// One for each line that grants something. `sample` has objects of the subtree.
std::vector<SnmpdSight> judge_access(const SnmpdConfiguration& configuration, const Oid& subtree,
                                     const std::vector<Oid>& sample);

// Lets further managers see the subtree, for a configuration that grants too little, or to anyone.
std::string advise_manager(const SnmpdConfiguration& configuration, const Oid& subtree);

// The name of a view that the configuration does not have yet. A line that is added to a view shows its
// subtree to all who have that view.
std::string unused_view(const SnmpdConfiguration& configuration);

}  // namespace cli::doctor
