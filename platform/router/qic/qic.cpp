#include "platform/router/qic/qic.h"

#include <cstring>
#include <utility>

#include "platform/core/base/fault.h"

struct QicControlServer {};

namespace {

struct Service {
  router::Router* model = nullptr;
  QicControlServer server;
  bool is_bound = false;
  QicBinding last_binding;
};

Service& service() {
  static Service the_service;
  return the_service;
}

}  // namespace

void qic_attach(router::Router* model) {
  service().model = model;
}

Status qic_control_server_bind(std::uint32_t request_type, std::uint32_t version, QicControlServer** server) {
  if (Status status = fault_check("qic_control_server_bind")) return status;
  if (server == nullptr) return kStatusInvalid;
  if (service().model == nullptr) return kStatusUnavailable;
  service().is_bound = true;
  service().last_binding = {request_type, version};
  *server = &service().server;
  return kStatusOk;
}

Status qic_control_server_unbind(QicControlServer* server) {
  if (Status status = fault_check("qic_control_server_unbind")) return status;
  if (server == nullptr || !std::exchange(service().is_bound, false)) return kStatusInvalid;
  return kStatusOk;
}

Status qic_s_interface_name(QicControlServer* server, std::uint32_t interface_handle, char* name,
                            std::size_t size) {
  if (Status status = fault_check("qic_s_interface_name")) return status;
  if (server == nullptr || name == nullptr) return kStatusInvalid;
  if (service().model == nullptr) return kStatusUnavailable;
  const router::Interface* interface = service().model->find_interface(interface_handle);
  if (interface == nullptr) return kStatusNoSuchRow;
  if (interface->name.size() >= size) return kStatusInvalid;
  std::memcpy(name, interface->name.c_str(), interface->name.size() + 1);
  return kStatusOk;
}

QicBinding qic_last_binding() {
  return service().last_binding;
}
