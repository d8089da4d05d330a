// The changes of a commit in octets, as the database stores them. Only for the data store.
//
// A change is its path, then its owner's new value (or none), then a u8: 0 if neither the effective value nor
// the first owner changed; 1 if the owner became the first or stays it, and the previous first owner with its
// value follows; 2 if the next owner with its value follows, too; 4 more if the effective value did not
// change. Owners are u8 numbers that never change (configuration.h), or 0xff
// for none. Reading accepts octets from a damaged file.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/core/wire/wire.h"
#include "platform/store/configuration/config_tree.h"

namespace kvtree {

void write_commit(const CommitPlan& plan, wire::Octets* octets);
// Visits every change of the owner's commit in order; returns false for octets that are not a commit, after
// the changes before the error.
bool read_commit(wire::OctetSpan octets, std::size_t owner, const std::function<void(PlannedChange)>& visit);

// Where a change is in a commit's octets.
struct ChangePlace {
  std::uint32_t start = 0;
  std::uint32_t size = 0;
};
// Finds the changes of the history in the order of the subscribers' notifications, deletions first, without
// reading their values. Returns false for octets that are not a commit.
bool find_listed_changes(wire::OctetSpan octets, std::vector<ChangePlace>* places);

}  // namespace kvtree
