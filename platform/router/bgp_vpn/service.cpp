// The library observes the model and, while there is a callback, the configuration. Changes of the model
// are reported through the change feed, so that a VRF's record and memberships are delivered before its
// RD; changes of the configuration arrive on the manager of the registration. A change of the AS number
// format is posted after the notifications of the affected route targets (asn_format.cpp). Posted calls
// carry a generation number, and those of an ended registration do nothing.
#include "platform/router/bgp_vpn/bgp_vpn.h"

#include <cstring>
#include <map>
#include <memory>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/router/bgp_vpn/asn_format.h"
#include "platform/router/bgp_vpn/configured_rd.h"
#include "platform/router/feed/feed.h"
#include "platform/store/server/followed_nodes.h"

namespace {

class Library : public router::Observer {
 public:
  void attach(router::Router* model);
  void vrf_created(const router::Vrf& vrf) override;
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  std::string model_rd(const std::string& vrf) const;
  Status follow(EventManager* manager, BgpVpnRdCallback wanted);
  Status follow_format(EventManager* manager);
  void end_notifications();

  router::Router* model = nullptr;
  BgpAsnFormat format = BgpAsnFormat::kAsplain;  // effective
  BgpVpnRdCallback callback = nullptr;

 private:
  std::map<std::string, std::string> all_rds() const;
  void configuration_changed(const std::string& vrf, const std::string& before);
  void append_change(const std::string& vrf, const std::string& rd);
  void report_change(const std::string& vrf, const std::string& rd) const;
  void report(const std::string& vrf, const std::string& text) const;
  void format_configured();
  void change_format(BgpAsnFormat next);

  BgpAsnFormat wanted_format_ = BgpAsnFormat::kAsplain;  // effective after everything posted so far
  feed::Receiver receiver_;                              // of the callback
  EventManager* format_manager_ = nullptr;               // null: the format is not followed
  std::uint64_t generation_ = 0;
  FollowedNodes format_node_;
  bgp_vpn::ConfiguredRds configured_;
};

Library& library() {
  static Library the_library;
  return the_library;
}

void Library::attach(router::Router* next) {
  if (model != nullptr) model->stop_observing(this);
  model = next;
  if (model != nullptr) model->observe(router::ObserverRank::kOther, this);
}

std::string Library::model_rd(const std::string& vrf) const {
  const router::Vrf* found = model == nullptr ? nullptr : model->find_vrf(vrf);
  return found == nullptr ? std::string() : found->rd;
}

// The effective RD of every VRF that has one, as of the last notification.
std::map<std::string, std::string> Library::all_rds() const {
  std::map<std::string, std::string> all = configured_.all();
  if (model == nullptr) return all;
  model->for_each_vrf([&](const router::Vrf& vrf) {
    if (!vrf.rd.empty()) all.emplace(vrf.name, vrf.rd);
  });
  return all;
}

void Library::report(const std::string& vrf, const std::string& text) const {
  callback(text.empty() ? 0 : 1, vrf.c_str(), text.empty() ? nullptr : text.c_str());
}

void Library::append_change(const std::string& vrf, const std::string& rd) {
  if (callback == nullptr) return;
  feed::append(model == nullptr ? 0 : model->changes(), feed::Phase::kFollowUp, &receiver_,
               [this, vrf, rd] { report_change(vrf, rd); });
}

// Another RD may have been configured since the change.
void Library::report_change(const std::string& vrf, const std::string& rd) const {
  const std::string configured = configured_.known(vrf);
  report(vrf, bgp_util_format_rd(configured.empty() ? rd : configured, format));
}

void Library::configuration_changed(const std::string& vrf, const std::string& before) {
  const std::string from_model = model_rd(vrf);
  const std::string now = configured_.known(vrf);
  const std::string& rd = now.empty() ? from_model : now;
  if (rd != (before.empty() ? from_model : before)) report(vrf, bgp_util_format_rd(rd, format));
}

void Library::vrf_created(const router::Vrf& vrf) {
  const std::string& configured = configured_.known(vrf.name);
  const std::string& rd = configured.empty() ? vrf.rd : configured;
  if (!rd.empty()) append_change(vrf.name, rd);
}

// A configured RD overrides that of the model.
void Library::vrf_changed(const router::Vrf& before, const router::Vrf& now) {
  if (before.rd != now.rd && configured_.known(now.name).empty()) append_change(now.name, now.rd);
}

void Library::change_format(BgpAsnFormat next) {
  bgp_vpn::set_route_target_format(next);
  const BgpAsnFormat before = std::exchange(format, next);
  if (callback == nullptr) return;
  for (const auto& [vrf, rd] : all_rds()) {
    if (bgp_util_format_rd(rd, before) != bgp_util_format_rd(rd, format)) append_change(vrf, rd);
  }
}

// Pending changes are applied in order, so each one starts from the format of the one before.
void Library::format_configured() {
  const BgpAsnFormat wanted = bgp_vpn::configured_format();
  if (wanted == wanted_format_) return;
  const auto use_for_targets = [this, posted = generation_](BgpAsnFormat used) {
    if (posted == generation_) bgp_vpn::set_route_target_format(used);
  };
  if (const Status status =
          bgp_vpn::replay_route_targets(format_manager_, wanted_format_, wanted, use_for_targets)) {
    log_error("bgp_vpn", "the format of AS numbers stays as it was: %s", err_text(status));
    return;
  }
  wanted_format_ = wanted;
  event_post(format_manager_, [this, wanted, posted = generation_] {
    if (posted == generation_) change_format(wanted);
  });
}

// The replay of what exists is not a change.
Status Library::follow_format(EventManager* manager) {
  if (format_manager_ != nullptr) return kStatusExists;
  const auto take = [this](const KvNotification* notification) {
    const std::string path =
        std::string(vrf_config::kBgpCommonScope).append(kvtree_notify_path(notification));
    if (format_manager_ != nullptr && path == vrf_config::as_format({}).path) format_configured();
  };
  if (const Status status = format_node_.follow(vrf_config::kBgpCommonScope, manager, take)) return status;
  format_manager_ = manager;
  wanted_format_ = bgp_vpn::configured_format();
  change_format(wanted_format_);
  return kStatusOk;
}

Status Library::follow(EventManager* manager, BgpVpnRdCallback wanted) {
  const Status status = configured_.start(manager, [this](const std::string& vrf, const std::string& before) {
    configuration_changed(vrf, before);
  });
  if (status != kStatusOk) return status;
  receiver_.manager = manager;
  callback = wanted;
  for (const auto& [vrf, rd] : all_rds()) report(vrf, bgp_util_format_rd(rd, format));
  return kStatusOk;
}

void Library::end_notifications() {
  configured_.stop();
  format_node_.stop();
  callback = nullptr;
  feed::drop(&receiver_);
  format_manager_ = nullptr;
  ++generation_;
  wanted_format_ = BgpAsnFormat::kAsplain;
  change_format(wanted_format_);
}

}  // namespace

void bgp_vpn_attach(router::Router* model) {
  library().attach(model);
}

BgpAsnFormat bgp_util_asn_format_get() {
  return library().format;
}

Status bgp_util_asn_format_init_notify(EventManager* manager) {
  if (Status status = fault_check("bgp_util_asn_format_init_notify")) return status;
  if (manager == nullptr) return kStatusInvalid;
  return library().follow_format(manager);
}

Status bgp_vpn_rd_get(const char* vrf_name, char* text, std::size_t size) {
  if (Status status = fault_check("bgp_vpn_rd_get")) return status;
  if (vrf_name == nullptr || text == nullptr) return kStatusInvalid;
  if (library().model == nullptr) return kStatusUnavailable;
  std::string found = bgp_vpn::configured_rd(vrf_name);
  if (found.empty()) found = library().model_rd(vrf_name);
  if (found.empty()) return kStatusNoSuchRow;
  const std::string rd = bgp_util_format_rd(found, library().format);
  if (rd.size() >= size) return kStatusInvalid;
  std::memcpy(text, rd.c_str(), rd.size() + 1);
  return kStatusOk;
}

Status bgp_vpn_rd_register_cb(EventManager* manager, BgpVpnRdCallback callback) {
  if (Status status = fault_check("bgp_vpn_rd_register_cb")) return status;
  if (manager == nullptr || callback == nullptr) return kStatusInvalid;
  if (library().callback != nullptr) return kStatusExists;
  return library().follow(manager, callback);
}

void bgp_vpn_rd_unregister_cb() {
  library().end_notifications();
}
