// The changes of a commit in octets, as the database keeps them. Not for other folders.
//
// A change is its path, then what its owner holds from then on (a value or none), then a u8: 0 when nothing
// in force changed; 1 when that came into force, and the owner before with its value follows; 2 when the
// owner after with its value follows, too. Owners are u8 numbers that never change (kOwnerNumbers), or 0xff
// for nobody. Reading is for octets that a damaged file may have.
#pragma once

#include <functional>

#include "platform/kvtree/config_tree.h"
#include "platform/wire/wire.h"

namespace kvtree {

void write_commit(const CommitPlan& plan, wire::Octets* octets);
// Every change of the owner's commit in order; false for octets that are no commit, with the changes up to
// there visited.
bool read_commit(wire::OctetSpan octets, std::size_t owner, const std::function<void(PlannedChange)>& visit);

}  // namespace kvtree
