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
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"

namespace reconcile {

struct WantedVrf {
  router::Vrf vrf;       // id 0: one that is created; the policy chooses the id
  std::string replaces;  // the deleted VRF without whose deletion it is not created; empty for none
};

// Objects that appear in none of the lists are left unchanged, unless the router is complete: then what is in
// neither `references`, `vrfs` nor `interfaces` is removed.
struct WantedRouter {
  bool is_complete = false;
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

inline constexpr std::uint64_t kStepTime = 1'000'000;  // nanoseconds

// The changes, in steps: a router of 100,000 interfaces takes a second, during which the loop has to serve
// others. Each step looks at the model as it is then, so the model may be changed between the steps. A run
// that is destroyed early leaves what it has changed; another one continues from there.
class Run {
 public:
  // The model and the policy must outlive the run.
  Run(WantedRouter wanted, router::Router* model, Policy* policy);

  // Visits up to `items` (> 0) of the wanted objects, each of them several times in a run, and fewer if
  // kStepTime has passed. None while the change feed is long, unless `items` is SIZE_MAX: its clients follow,
  // and an interface that is renamed waits for few notifications. The status with which the policy ended the
  // run, which then is done. Fault point "reconcile", before each change.
  [[nodiscard]] Status step(std::size_t items);
  bool is_done() const { return is_done_; }
  const Changes& changes() const { return changes_; }

 private:
  // A part of the run: the number of its items when it begins, and what is done with each. A walk over the
  // model begins with one and adds an item for each object that it finds.
  struct Phase {
    std::size_t (Run::*begin)();
    Status (Run::*visit)(std::size_t item);
  };
  static const std::vector<Phase>& phases();
  template <auto kList>
  std::size_t count() {
    return (wanted_.*kList).size();
  }
  std::size_t count_one() { return 1; }
  void begin_phase();

  std::size_t count_walk() { return wanted_.is_complete ? 1 : 0; }
  std::size_t count_walk_of_members();

  Status index_interface(std::size_t item);
  Status index_vrf(std::size_t item);
  Status index_reference(std::size_t item);
  Status find_ended_reference(std::size_t item);
  Status find_removed_interface(std::size_t item);
  Status find_deleted_vrf(std::size_t item);
  Status add_reference(std::size_t item);
  Status remove_interface(std::size_t item);
  Status index_deleted_vrf(std::size_t item);
  Status find_leaving(std::size_t item);
  std::size_t count_leaving() { return leaving_.size(); }
  Status leave_vrf(std::size_t item);
  Status delete_vrf(std::size_t item);
  Status place_vrf(std::size_t item);
  Status create_vrf(const WantedVrf& wanted);
  Status end_vrfs(std::size_t item);
  Status end_reference(std::size_t item);
  Status free_name(std::size_t item);
  Status place_interface(std::size_t item);
  Status move_interface(const router::Interface& changed);
  Status free_interface(std::size_t item);

  bool leaves(const router::Interface& member) const;
  const router::Interface* wanted_interface(std::uint32_t index) const;
  SharedText vrf_of(const router::Interface& wanted) const;

  // Makes one change. A refused one is reported: *made says whether the change was made.
  template <typename Change>
  Status make(Refusal refusal, std::size_t* counter, Change change, bool* made = nullptr);

  WantedRouter wanted_;
  router::Router* model_;
  Policy* policy_;
  Changes changes_;
  std::unordered_map<std::uint32_t, const router::Interface*> interfaces_;  // wanted
  std::unordered_map<std::string_view, std::uint32_t> vrfs_;                // wanted: their ids
  std::unordered_set<std::string_view> references_;                         // wanted
  std::unordered_set<std::string_view> deleted_vrfs_;
  std::string last_name_;               // of a walk: what it has found last
  std::uint32_t last_handle_ = 0;       // likewise
  std::set<std::string> undeleted_;     // VRFs whose deletion is refused, or impossible with a member
  std::vector<std::uint32_t> leaving_;  // members of deleted VRFs, by index
  std::size_t phase_ = 0;
  std::size_t item_ = 0;   // the next one of the phase
  std::size_t items_ = 0;  // of the phase
  bool is_done_ = false;
};

// All steps at once.
[[nodiscard]] Status run(WantedRouter wanted, router::Router* model, Policy* policy, Changes* changes);

}  // namespace reconcile
