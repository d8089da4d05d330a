// What the router itself says of its VRFs (the alias of a kernel's VRF device) as their description in the
// configuration, where nobody configures another: the owner "kernel" has the lowest precedence.
//
// Main thread.
#pragma once

#include <map>
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

  // Makes the model's descriptions all that the owner holds. The data store's status; *error says why.
  [[nodiscard]] Status load(std::string* error) override;
  // From here changes of the model follow, those of a turn of the loop as one commit. The manager must
  // outlive it.
  [[nodiscard]] Status start(EventManager* manager) override;
  std::string describe() const override { return "the descriptions of VRF devices"; }
  // Lets go of everything: for a process whose router says nothing of the kind.
  [[nodiscard]] static Status release(std::string* error);

  void vrf_created(const router::Vrf& vrf) override { changed(vrf.name); }
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override {
    if (before.description != now.description) changed(now.name);
  }
  void vrf_deleted(const router::Vrf& vrf) override { changed(vrf.name); }

 private:
  void changed(const std::string& vrf);
  void commit();

  router::Router* model_;
  EventManager* manager_ = nullptr;
  EventTimerId timer_ = 0;
  std::set<std::string> changed_;
  std::map<std::string, std::string> held_;  // by VRF
};
