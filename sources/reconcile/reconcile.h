// Changes the router model to what a source wants, with the smallest set of calls and in an order that
// observers can rely on: a VRF exists before an interface joins it, and has no members when it is deleted.
//
// A VRF is the same while its name and id are, an interface while its index is: one with a new name is
// renamed and keeps its handle. Unchanged objects cause no notification.
//
// Main thread. Routes are not part of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"

namespace reconcile {

struct WantedVrf {
  router::Vrf vrf;       // id 0: one that is created; the policy chooses the id
  std::string replaces;  // the deleted VRF without whose deletion it is not created; empty for none
};

// Objects that appear in none of the lists are left unchanged.
struct WantedRouter {
  std::vector<std::string> references;            // VRF names that the source references
  std::vector<std::string> ended_references;      // and those that it references no longer
  std::vector<std::uint32_t> removed_interfaces;  // by index; those that are wanted, too, are made anew
  std::vector<std::string> deleted_vrfs;          // likewise
  std::vector<WantedVrf> vrfs;                    // in the order of creation
  std::vector<router::Interface> interfaces;  // in the order of changes and additions; handles are ignored
};

struct Changes {
  std::size_t vrfs_created = 0;
  std::size_t vrfs_changed = 0;
  std::size_t vrfs_deleted = 0;
  std::size_t interfaces_added = 0;
  std::size_t interfaces_changed = 0;
  std::size_t interfaces_moved = 0;
  std::size_t interfaces_removed = 0;
};

enum class Operation {
  kReferenceVrf,
  kEndReference,
  kCreateVrf,
  kChangeVrf,
  kDeleteVrf,
  kAddInterface,
  kChangeInterface,
  kMoveInterface,
  kRemoveInterface,
};

// A change that the model did not make.
struct Refusal {
  Operation operation;
  std::string name;             // of the VRF or interface
  std::uint32_t index = 0;      // of the interface
  std::string undeleted_vrf{};  // that the interface cannot leave
  Status status = kStatusOk;

  std::string text() const;  // "cannot create VRF red: File exists"
};

// What sources do differently.
class Policy {
 public:
  virtual ~Policy() = default;
  // kStatusOk continues with the changes that do not depend on the refused one; any other status ends the
  // run.
  [[nodiscard]] virtual Status on_refusal(const Refusal& refusal) = 0;
  // The id of a VRF that is about to be created without one.
  virtual std::uint32_t choose_id(const router::Vrf& vrf) { return vrf.id; }
  // All VRFs have been created, changed or deleted. Interfaces follow.
  virtual void on_vrfs_done(const Changes& /*changes*/) {}
  // Whether an interface can be in a VRF that does not exist; otherwise it is in "default" meanwhile.
  virtual bool allows_missing_vrfs() const { return true; }
};

// The name of an interface while its own name is in use by another one.
std::string temporary_name(std::uint32_t index);

// Fault point "reconcile", before each change.
[[nodiscard]] Status run(const WantedRouter& wanted, router::Router* model, Policy* policy, Changes* changes);

}  // namespace reconcile
