// Makes the descriptions that the router itself has for its VRFs (the alias of a VRF device) their
// description in the configuration. The owner "kernel" has the lowest precedence, so a configured description
// overrides them. Once started, it does not wait for its commits.
//
// Main thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/source.h"

class VrfDescriptions : public Source, public router::Observer {
 public:
  // The model must outlive it.
  explicit VrfDescriptions(router::Router* model) : model_(model) {}
  ~VrfDescriptions() override;

  // Replaces what the owner sets by the model's descriptions. The data store's status.
  [[nodiscard]] Status load(std::string* error) override;
  // Follows changes of the model; those of one iteration of the loop are one commit. The manager must outlive
  // it.
  [[nodiscard]] Status start(EventManager* manager) override;
  std::string describe() const override { return "the descriptions of VRF devices"; }
  // For a router without such descriptions: removes what the owner sets.
  [[nodiscard]] static Status remove_configured(std::string* error);

  void vrf_created(const router::Vrf& vrf) override { changed(vrf.name); }
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override {
    if (before.description != now.description) changed(now.name);
  }
  void vrf_deleted(const router::Vrf& vrf) override { changed(vrf.name); }

 private:
  using Texts = std::map<std::string, std::string>;  // by VRF

  void changed(const std::string& vrf);
  void commit_later(std::uint64_t pause);  // nanoseconds
  void commit();
  void end_commit(Status status, const std::string& error, const Texts& committed);
  std::string text_of(const std::string& name) const;

  router::Router* model_;
  EventManager* manager_ = nullptr;
  EventTimerId timer_ = 0;
  std::set<std::string> changed_;
  Texts stored_;
  bool is_committing_ = false;
  Status failure_ = kStatusOk;  // of the last commit, logged
  std::shared_ptr<VrfDescriptions*> self_ = std::make_shared<VrfDescriptions*>(this);
};
