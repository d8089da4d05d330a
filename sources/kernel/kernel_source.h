// The live Linux kernel as the source of the router model: VRF devices, their interfaces, names, indexes,
// IPv4 and IPv6 addresses, operational states and descriptions (the alias), and the routes of the VRFs'
// tables, over rtnetlink.
//
// load() reads everything into the model; start() follows changes from the event loop. After an overrun
// everything is read again. The same happens at intervals, because the kernel does not announce every change
// (the alias of a link that is down). Only differences reach the model. start() begins to read routes, table
// by table, in bounded steps.
//
// Thread: the event manager's. The model must outlive the source, the source must be destroyed before the
// event manager. The network namespace is the one of the thread that calls load().
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

  // Begins to listen, then reads all links and addresses and applies the difference. Blocks while the kernel
  // answers, but not longer than 2 s without an answer. A failure leaves the model unchanged and sets *error:
  // kStatusTimedOut, or the system's error. May be called again.
  [[nodiscard]] Status load(std::string* error) override;
  // REQUIRES: load() succeeded.
  [[nodiscard]] Status start(EventManager* manager) override;
  std::string describe() const override { return "the kernel"; }
  std::vector<process_status::SourceFact> facts() const override;
  std::optional<std::uint64_t> corrections() const override { return counters().routes.corrections; }
  std::vector<process_status::CorrectionFact> corrections_by_table() const override;
  std::optional<std::uint64_t> malformed() const override {
    return counters().malformed + counters().routes.malformed;
  }

  KernelSourceCounters counters() const;
  // True when everything that was received is in the model and nothing is being read.
  bool settled() const;
  bool has_read_routes(router::RouteTableId table) const override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};
