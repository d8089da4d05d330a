// Names are read from the router model. The service owns the control servers; callers borrow them.
#include "platform/router/qic/qic.h"

#include <cstring>
#include <memory>
#include <vector>

#include "platform/core/base/fault.h"

struct QicControlServer {};

namespace {

struct Service {
  router::Router* model = nullptr;
  std::vector<std::unique_ptr<QicControlServer>> servers;
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
  auto bound = std::make_unique<QicControlServer>();
  service().last_binding = {request_type, version};
  *server = bound.get();
  service().servers.push_back(std::move(bound));
  return kStatusOk;
}

Status qic_control_server_unbind(QicControlServer* server) {
  if (Status status = fault_check("qic_control_server_unbind")) return status;
  const auto is_it = [server](const auto& bound) { return bound.get() == server; };
  return std::erase_if(service().servers, is_it) == 1 ? kStatusOk : kStatusInvalid;
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
