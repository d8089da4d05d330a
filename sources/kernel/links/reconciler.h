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
  // in steps that visit up to `items` (> 0) VRFs and interfaces. REQUIRES: begin() when it is done, step()
  // when it is not.
  void begin(const Mirror& mirror, const Changes& changes);
  void step(std::size_t items);
  bool is_done() const { return !run_; }
  // All steps at once.
  void run(const Mirror& mirror, const Changes& changes);
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

  void add_ports(const Mirror& mirror, Indexes* indexes) const;
  void add_displaced(const Mirror& mirror, const reconcile::WantedRouter& wanted, Indexes* indexes) const;
  reconcile::WantedRouter wanted_router(const Mirror& mirror, const Changes& changes, Indexes indexes);
  void want_vrf(const Mirror& mirror, const Changes& changes, std::uint32_t index,
                reconcile::WantedRouter* wanted);
  void want_new_vrf(const Link& link, const std::string& replaces, reconcile::WantedRouter* wanted);
  void want_interfaces(const Mirror& mirror, const Changes& changes, const Indexes& indexes,
                       reconcile::WantedRouter* wanted) const;
  std::uint32_t link_of(const reconcile::Refusal& refusal);
  void remember_vrfs();

  router::Router* model_;
  VrfIds ids_;
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
