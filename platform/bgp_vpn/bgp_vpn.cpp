// The BGP VPN library: route distinguishers from the router model, their change callback, and the AS number
// format.
//
// Text is made from the model when it is asked for, in the format in force; nothing is cached. The library
// observes the model for changed RDs and posts one call a change on the manager of the registration, with the
// texts of the time of the change. A generation number lets posted calls of an ended registration fall flat.
#include "platform/bgp_vpn/bgp_vpn.h"

#include <cstring>
#include <utility>

#include "platform/base/fault.h"

namespace {

class Library : public router::Observer {
 public:
  void attach(router::Router* model);
  void vrf_changed(const router::Vrf& before, const router::Vrf& now) override;
  std::string rd_text(const router::Vrf& vrf) const { return bgp_util_format_rd(vrf.rd, format); }
  void change_format(BgpAsnFormat wanted);
  void end_notifications();

  router::Router* model = nullptr;
  BgpAsnFormat format = BgpAsnFormat::kAsplain;
  EventManager* format_manager = nullptr;
  EventManager* callback_manager = nullptr;
  BgpVpnRdCallback callback = nullptr;
  std::uint64_t generation = 0;

 private:
  void post_rd(const router::Vrf& vrf);
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

void Library::post_rd(const router::Vrf& vrf) {
  if (callback == nullptr) return;
  event_post(callback_manager, [this, posted = generation, name = vrf.name, rd = rd_text(vrf)] {
    if (posted != generation) return;
    callback(rd.empty() ? 0 : 1, name.c_str(), rd.empty() ? nullptr : rd.c_str());
  });
}

void Library::vrf_changed(const router::Vrf& before, const router::Vrf& now) {
  if (before.rd != now.rd) post_rd(now);
}

void Library::change_format(BgpAsnFormat wanted) {
  const BgpAsnFormat before = std::exchange(format, wanted);
  if (model == nullptr) return;
  model->for_each_vrf([&](const router::Vrf& vrf) {
    if (bgp_util_format_rd(vrf.rd, before) != rd_text(vrf)) post_rd(vrf);
  });
}

void Library::end_notifications() {
  callback = nullptr;
  callback_manager = nullptr;
  format_manager = nullptr;
  ++generation;
}

}  // namespace

void bgp_vpn_attach(router::Router* model) {
  library().attach(model);
}

void bgp_util_asn_format_set(BgpAsnFormat format) {
  Library& lib = library();
  if (lib.format_manager == nullptr) return lib.change_format(format);
  event_post(lib.format_manager, [format, posted = lib.generation] {
    if (posted == library().generation) library().change_format(format);
  });
}

BgpAsnFormat bgp_util_asn_format_get() {
  return library().format;
}

Status bgp_util_asn_format_init_notify(EventManager* manager) {
  if (Status status = fault_check("bgp_util_asn_format_init_notify")) return status;
  if (manager == nullptr) return kStatusInvalid;
  library().format_manager = manager;
  return kStatusOk;
}

Status bgp_vpn_rd_get(const char* vrf_name, char* text, std::size_t size) {
  if (Status status = fault_check("bgp_vpn_rd_get")) return status;
  if (vrf_name == nullptr || text == nullptr) return kStatusInvalid;
  if (library().model == nullptr) return kStatusUnavailable;
  const router::Vrf* vrf = library().model->find_vrf(vrf_name);
  if (vrf == nullptr || vrf->rd.empty()) return kStatusNoSuchRow;
  const std::string rd = library().rd_text(*vrf);
  if (rd.size() >= size) return kStatusInvalid;
  std::memcpy(text, rd.c_str(), rd.size() + 1);
  return kStatusOk;
}

Status bgp_vpn_rd_register_cb(EventManager* manager, BgpVpnRdCallback callback) {
  if (Status status = fault_check("bgp_vpn_rd_register_cb")) return status;
  if (manager == nullptr || callback == nullptr) return kStatusInvalid;
  if (library().callback != nullptr) return kStatusExists;
  library().callback_manager = manager;
  library().callback = callback;
  return kStatusOk;
}

void bgp_vpn_rd_unregister_cb() {
  library().end_notifications();
}
