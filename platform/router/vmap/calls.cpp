// The membership service's client operations: connections, member databases, registration, and the service's
// own end of a connection.
//
// A connection is a pair of connected sockets: the client watches one end with its event manager, the service
// closes the other to hang up. No data is sent through it; events are delivered by the change feed. When the
// service has closed a connection, the client's end stays open until the client unbinds or binds again.
//
// The service owns the clients, a client owns its databases; callers borrow the handles. Everything belongs
// to the main thread.
#include "platform/router/vmap/vmap.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

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

// Closes the service's end and ends what was registered.
void close_connection(VmapClient* client) {
  vmap::end_registration(client);
  close_end(&client->service_end);
}

void release_client_side(VmapClient* client) {
  client->databases.clear();
  close_end(&client->client_end);
}

}  // namespace

// A library callback may end its client, so clients are found again by number.
void vmap::close_all_connections() {
  std::vector<std::uint64_t> ids;
  for (const auto& client : service().clients) {
    if (is_connected(*client)) ids.push_back(client->id);
  }
  for (const std::uint64_t id : ids) {
    for (const auto& client : service().clients) {
      if (client->id != id) continue;
      close_connection(client.get());
      client->callback(client.get());
      break;
    }
  }
}

void vmap_attach(router::Router* model) {
  if (model == nullptr) vmap::close_all_connections();
  service().attach(model);
}

Status vmap_c_lib_init(const char* client_name, EventManager* manager, VmapLibraryCallback callback,
                       VmapClient** client) {
  if (Status status = fault_check("vmap_c_lib_init")) return status;
  if (client_name == nullptr || manager == nullptr || callback == nullptr || client == nullptr) {
    return kStatusInvalid;
  }
  auto made = std::make_unique<VmapClient>();
  made->id = ++service().last_client;
  made->name = client_name;
  made->receiver.manager = manager;
  made->callback = callback;
  *client = made.get();
  service().clients.push_back(std::move(made));
  return kStatusOk;
}

void vmap_c_lib_end(VmapClient* client) {
  auto& clients = service().clients;
  const auto found =
      std::find_if(clients.begin(), clients.end(), [client](const auto& one) { return one.get() == client; });
  if (found == clients.end()) return;
  const std::unique_ptr<VmapClient> ended = std::move(*found);
  clients.erase(found);
  close_connection(ended.get());
  release_client_side(ended.get());
  feed::recover(&ended->receiver);
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
  close_connection(client);
  release_client_side(client);
  return kStatusOk;
}

Status vmap_c_mdb_init(VmapClient* client, std::uint32_t type, VmapMemberDatabase** database) {
  if (Status status = fault_check("vmap_c_mdb_init")) return status;
  if (client == nullptr || database == nullptr) return kStatusInvalid;
  if (!is_connected(*client)) return kStatusNotConnected;
  auto made = std::make_unique<VmapMemberDatabase>();
  made->client = client;
  made->type = type;
  *database = made.get();
  client->databases.push_back(std::move(made));
  return kStatusOk;
}

void vmap_c_mdb_free(VmapMemberDatabase* database) {
  if (database == nullptr) return;
  VmapClient* const client = database->client;
  if (client->registered == database) vmap::end_registration(client);
  std::erase_if(client->databases, [database](const auto& one) { return one.get() == database; });
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
  VmapClient* const client = database->client;
  if (!is_connected(*client)) return kStatusNotConnected;
  if (client->registered != nullptr) return kStatusExists;
  client->registered = database;
  client->receiver.batch = database->batch;
  ++client->registration;
  *fd = client->client_end;
  const std::uint64_t id = client->id;
  const std::uint64_t registration = client->registration;
  *num_results = vmap::replay(client);
  return vmap::is_registered(id, registration) ? kStatusOk : kStatusNotConnected;
}

void vmap_on_rename(bool (*must_leave)(const char* vrf_name, const char* if_name)) {
  service().must_leave_on_rename = must_leave;
}

bool vmap_is_subscribers_name(const char* if_name) {
  return std::strstr(if_name, ".ip") != nullptr || std::strstr(if_name, ".pppoe") != nullptr;
}
