// Derives the wanted router from the mirror and applies it to the model.
//
// A VRF device becomes a VRF; every other link becomes an interface, in its VRF or in "default". A VRF gets
// its id (vrf_ids.h) when it is created, the lower ifIndex first, and keeps it while it exists. A VRF that is
// renamed, or gets another table, is deleted and created again; its interfaces leave and join. The same
// applies to an index that was deleted and used again.
//
// Changes that the model refuses are logged once and retried in every run. Main thread only. The model must
// outlive the reconciler.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/links/mirror.h"
#include "sources/kernel/links/vrf_ids.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {

class Reconciler : private reconcile::Policy {
 public:
  // `id_file`: see vrf_ids.h.
  explicit Reconciler(router::Router* model, const std::string& id_file = {})
      : model_(model), ids_(id_file) {}
  Reconciler(const Reconciler&) = delete;
  Reconciler& operator=(const Reconciler&) = delete;

  // Updates the model for the links of `changes` and everything that depends on them, as the mirror is now,
  // in steps that visit up to `items` (> 0) VRFs and interfaces, and fewer if reconcile::kStepTime has
  // passed. The mirror must not change while it is read. REQUIRES: begin() when it is done, step() when it is
  // not.
  void begin(const Mirror& mirror, Changes changes);
  void step(std::size_t items);
  bool is_reading() const { return mirror_ != nullptr; }
  bool is_done() const { return !is_reading() && !run_ && deleted_vrfs_.empty() && created_vrfs_.empty(); }
  // All steps at once.
  void run(const Mirror& mirror, Changes changes);
  std::uint64_t refused() const { return refused_; }

 private:
  struct KnownVrf {
    std::string name;
    std::uint32_t table = 0;
  };
  using Indexes = std::set<std::uint32_t>;
  using IndexesByName = std::map<std::string, std::uint32_t, std::less<>>;

  Status on_refusal(const reconcile::Refusal& refusal) override;
  std::uint32_t choose_id(const router::Vrf& vrf) override;
  void on_vrfs_done(const reconcile::Changes& changes) override;
  bool allows_missing_vrfs() const override { return false; }

  // Reading the mirror: the phases in their order, each a visit of its next item. False without one.
  using Phase = bool (Reconciler::*)();
  static const std::vector<Phase>& phases();
  void begin_phase();
  void read_some(std::size_t items);
  void end_reading();
  template <typename Visit>
  bool visit_index(Visit visit);
  bool add_removed();
  bool add_refused();
  bool find_master();
  bool add_port();
  bool want_vrf();
  bool find_member();
  bool find_displaced();
  bool add_displaced();
  bool want_interface();
  bool want_added();
  bool forget_index();
  void want_vrf(std::uint32_t index);
  void want_new_vrf(const Link& link, const std::string& replaces);
  void want_interface(std::uint32_t index);
  std::uint32_t link_of(const reconcile::Refusal& refusal);
  void remember_some(std::size_t items);

  router::Router* model_;
  VrfIds ids_;
  const Mirror* mirror_ = nullptr;        // while it is read
  Changes changes_;                       // of the mirror, for this run
  Indexes indexes_;                       // the links that the run is about
  Indexes masters_;                       // of these, VRF devices that are or were
  Indexes displaced_;                     // links that others displace from their VRF or name
  reconcile::WantedRouter wanted_;        // what has been read
  std::vector<router::Interface> added_;  // likewise, those that do not exist yet
  std::size_t phase_ = 0;
  Indexes::const_iterator next_index_;
  std::map<std::uint32_t, Link>::const_iterator next_link_;
  std::size_t next_added_ = 0;
  std::uint32_t last_handle_ = 0;           // of the interface of the model that was visited last
  std::map<std::uint32_t, KnownVrf> vrfs_;  // in the model, by link index
  IndexesByName deleted_vrfs_;              // of this run, without refused ones
  IndexesByName created_vrfs_;              // likewise
  IndexesByName created_tables_;            // the tables of VRFs that this run creates
  std::unique_ptr<reconcile::Run> run_;
  Indexes refused_now_;     // links with a refused change, which is retried
  Indexes refused_before_;  // the same of the previous run
  std::uint64_t refused_ = 0;
};

}  // namespace kernel
