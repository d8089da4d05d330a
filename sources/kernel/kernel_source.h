// The live Linux kernel as the source of the router model: VRF devices, their interfaces, names, indexes,
// IPv4 and IPv6 addresses, operational states and descriptions (the alias), and the routes of the VRFs'
// tables, over rtnetlink.
//
// load() reads everything and puts it into the model; start() keeps it so from the event loop. What is lost
// to an overrun is found by reading everything again, which is also done at intervals, because the kernel
// does not tell of everything (the alias of a link that is down). Only differences reach the model. Routes
// are read from start() on, table by table, in bounded steps.
//
// Thread: the event manager's. The model must outlive the source, the source must go before the event
// manager. The network namespace is the one of the thread that calls load().
#pragma once

#include <memory>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/kernel/settings.h"
#include "sources/source.h"

class KernelSource : public Source {
 public:
  explicit KernelSource(router::Router* model, const KernelSourceSettings& settings = {});
  ~KernelSource() override;

  // Begins to listen, then reads all links and addresses and applies them as a difference; blocks for as long
  // as the kernel takes (not longer than 2 s without an answer). Failing, it leaves the model as it was and
  // says why in *error. kStatusTimedOut, or the system's error. May be called again.
  [[nodiscard]] Status load(std::string* error) override;
  // REQUIRES: load() succeeded.
  [[nodiscard]] Status start(EventManager* manager) override;
  std::string describe() const override { return "the kernel"; }

  KernelSourceCounters counters() const;
  // True when everything that was received has reached the model and no reading is under way.
  bool settled() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};
