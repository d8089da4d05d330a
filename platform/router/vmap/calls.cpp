// A connection is a pair of connected sockets: the client watches one end with its event manager, the
// service closes the other to hang up. No data is sent through it; events are delivered by the change
// feed. When the service has closed a connection, the client's end stays open until the client unbinds or
// binds again.
//
// The service owns the client, the client its database; callers borrow the handles.
#include "platform/router/vmap/vmap.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/router/vmap/service.h"

namespace {

using vmap::service;

bool is_connected(const VmapClient& client) {
  return client.service_end != -1;
}

void close_end(int* end) {
  if (*end != -1) close(*end);
  *end = -1;
}

// What is pending for the registration is dropped. A client that knows VRFs is lost until it registers again.
void end_registration(VmapClient* client) {
  if (!std::exchange(client->is_registered, false)) return;
  if (client->announced.vrfs.empty()) {
    feed::drop(&client->receiver);
  } else {
    feed::lose(&client->receiver);
  }
}

void end_service_side(VmapClient* client) {
  end_registration(client);
  close_end(&client->service_end);
}

void release_client_side(VmapClient* client) {
  client->database.reset();
  close_end(&client->client_end);
}

}  // namespace

void vmap::close_connection() {
  VmapClient* const client = service().client.get();
  if (client == nullptr || !is_connected(*client)) return;
  end_service_side(client);
  client->callback(client);
}

void vmap_attach(router::Router* model) {
  service().attach(model);
}

Status vmap_c_lib_init(const char* client_name, EventManager* manager, VmapLibraryCallback callback,
                       VmapClient** client) {
  if (Status status = fault_check("vmap_c_lib_init")) return status;
  if (client_name == nullptr || manager == nullptr || callback == nullptr || client == nullptr) {
    return kStatusInvalid;
  }
  if (service().client != nullptr) return kStatusExists;
  service().client = std::make_unique<VmapClient>();
  *client = service().client.get();
  (*client)->name = client_name;
  (*client)->receiver.manager = manager;
  (*client)->callback = callback;
  return kStatusOk;
}

void vmap_c_lib_end(VmapClient* client) {
  if (client == nullptr) return;
  end_service_side(client);
  release_client_side(client);
  feed::recover(&client->receiver);
  service().client.reset();
}

Status vmap_c_bind(VmapClient* client, int* fd) {
  if (Status status = fault_check("vmap_c_bind")) return status;
  if (Status status = fault_check("vmap_service")) return status;
  if (client == nullptr || fd == nullptr) return kStatusInvalid;
  if (!service().is_available()) return kStatusUnavailable;
  if (is_connected(*client)) return kStatusExists;
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
    return static_cast<Status>(errno);
  }
  release_client_side(client);  // of a connection that the service closed
  client->client_end = ends[0];
  client->service_end = ends[1];
  *fd = client->client_end;
  return kStatusOk;
}

Status vmap_c_unbind(VmapClient* client) {
  if (Status status = fault_check("vmap_c_unbind")) return status;
  if (client == nullptr) return kStatusInvalid;
  if (client->client_end == -1) return kStatusNotConnected;
  end_service_side(client);
  release_client_side(client);
  return kStatusOk;
}

Status vmap_c_mdb_init(VmapClient* client, std::uint32_t type, VmapMemberDatabase** database) {
  if (Status status = fault_check("vmap_c_mdb_init")) return status;
  if (client == nullptr || database == nullptr) return kStatusInvalid;
  if (!is_connected(*client)) return kStatusNotConnected;
  if (client->database != nullptr) return kStatusExists;
  client->database = std::make_unique<VmapMemberDatabase>();
  client->database->type = type;
  *database = client->database.get();
  return kStatusOk;
}

void vmap_c_mdb_free(VmapMemberDatabase* database) {
  if (database == nullptr) return;
  end_registration(service().client.get());
  service().client->database.reset();
}

Status vmap_c_mdb_add_intf_all(VmapMemberDatabase* database, VmapIntfCallback callback, std::uint32_t batch) {
  if (Status status = fault_check("vmap_c_mdb_add_intf_all")) return status;
  if (database == nullptr || callback == nullptr) return kStatusInvalid;
  database->intf_callback = callback;
  database->batch = batch == 0 ? feed::kDefaultBatch : batch;
  return kStatusOk;
}

Status vmap_c_mdb_add_vrf_all(VmapMemberDatabase* database, VmapVrfCallback callback) {
  if (Status status = fault_check("vmap_c_mdb_add_vrf_all")) return status;
  if (database == nullptr || callback == nullptr) return kStatusInvalid;
  database->vrf_callback = callback;
  return kStatusOk;
}

Status vmap_c_notif_reg(VmapMemberDatabase* database, int* fd, std::uint32_t* num_results) {
  if (Status status = fault_check("vmap_c_notif_reg")) return status;
  if (database == nullptr || fd == nullptr || num_results == nullptr) return kStatusInvalid;
  VmapClient* const client = service().client.get();
  if (!is_connected(*client)) return kStatusNotConnected;
  if (client->is_registered) return kStatusExists;
  client->is_registered = true;
  client->receiver.batch = database->batch;
  *fd = client->client_end;
  *num_results = vmap::replay();
  return kStatusOk;
}

void vmap_on_rename(bool (*must_leave)(const char* vrf_name, const char* if_name)) {
  service().must_leave_on_rename = must_leave;
}

bool vmap_is_subscribers_name(const char* if_name) {
  return std::strstr(if_name, ".ip") != nullptr || std::strstr(if_name, ".pppoe") != nullptr;
}
