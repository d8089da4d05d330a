// From the mirror to the router model: what must be called so that the model says what the kernel says.
//
// A VRF device becomes a VRF and is no interface; every other link becomes an interface, in its VRF or in
// "default". A VRF gets its id (see vrf_ids.h) when it is created, the lower ifIndex first, and keeps it as
// long as it exists. A VRF that is renamed is deleted and created, its interfaces leaving and joining: in the
// model a VRF is its name.
//
// Main thread only. The model must outlive the reconciler.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "platform/router/model/router.h"
#include "sources/kernel/links/mirror.h"
#include "sources/kernel/links/vrf_ids.h"

namespace kernel {

class Reconciler {
 public:
  // `id_file`: see vrf_ids.h.
  explicit Reconciler(router::Router* model, const std::string& id_file = {})
      : model_(model), ids_(id_file) {}
  Reconciler(const Reconciler&) = delete;
  Reconciler& operator=(const Reconciler&) = delete;

  // Brings the model up to date with the mirror, for the links of `changes` and all that depends on them.
  // What the model refuses is logged once and tried again at every call.
  void run(const Mirror& mirror, const Changes& changes);
  std::uint64_t refused() const { return refused_; }

 private:
  struct KnownVrf {
    std::string name;
    std::uint32_t table = 0;
  };
  using Indexes = std::set<std::uint32_t>;

  void add_dependants(const Mirror& mirror, Indexes* indexes) const;
  void remove_interfaces(const Mirror& mirror, const Changes& changes, const Indexes& indexes);
  void delete_vrfs(const Mirror& mirror, const Changes& changes, const Indexes& indexes);
  void delete_vrf(std::uint32_t index, const KnownVrf& vrf);
  void create_vrfs(const Mirror& mirror, const Indexes& indexes);
  void create_vrf(const Link& link);
  void describe_vrf(const KnownVrf& vrf, const Link& link);
  void free_names(const Mirror& mirror, const Indexes& indexes);
  void set_interfaces(const Mirror& mirror, const Indexes& indexes);
  void add_interface(const Mirror& mirror, const Link& link);
  void change_interface(const Mirror& mirror, const Link& link, std::uint32_t handle);

  router::Interface wanted_interface(const Mirror& mirror, const Link& link) const;
  std::string wanted_vrf(const Mirror& mirror, const Link& link) const;
  bool accepted(Status status, const char* operation, std::string_view name, std::uint32_t index);

  router::Router* model_;
  VrfIds ids_;
  std::map<std::uint32_t, KnownVrf> vrfs_;             // made by us, by link index
  std::map<std::uint32_t, std::uint32_t> interfaces_;  // handles of the interfaces made by us, by link index
  Indexes displaced_;       // interfaces that a step of this run moved out of the way
  Indexes refused_now_;     // links of which the model refused something, to be tried again
  Indexes refused_before_;  // the same of the previous run
  std::uint64_t refused_ = 0;
};

}  // namespace kernel
