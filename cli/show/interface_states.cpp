#include "cli/show/interface_states.h"

#include <fmt/format.h>

#include "cli/row_walk.h"

namespace cli {

namespace {

using interface_states::InterfaceState;
using interface_states::kInterfaceStateParcel;

std::string path_of(const char* read, std::uint32_t key) {
  return fmt::format("{}{}/{}", interface_states::kProviderPath, read, key);
}

std::string name_path(const std::string& name) {
  return fmt::format("{}{}/{}", interface_states::kProviderPath, interface_states::kName,
                     kvtree_encode_text(name));
}

// The interface's handle.
std::uint32_t take(const Session& session, const std::string& path, const kvtree::Octets& octets,
                   const InterfaceSink& sink) {
  const Record<InterfaceState> state(session, path, kInterfaceStateParcel, octets);
  sink(*state);
  return state->handle;
}

bool read_state(const Session& session, kvtree::Client& client, const std::string& path,
                const InterfaceSink& sink) {
  const kvtree::GetResult result = client.get(path);
  if (result.status == kStatusUnknownPath || result.status == kStatusNoSuchRow) return false;
  if (result.status) throw request_failure(session, result.status);
  take(session, path, result.record, sink);
  return true;
}

}  // namespace

void walk_interface_states(const Session& session, kvtree::Client& client, const InterfaceSink& sink) {
  for (std::uint32_t handle = 0;;) {
    const std::string path = path_of(interface_states::kNext, handle);
    const kvtree::WalkResult rows = client.walk(path, kRowBatch);
    if (rows.status == kStatusUnknownPath || rows.status == kStatusNoSuchRow) return;
    if (rows.status) throw request_failure(session, rows.status);
    for (const kvtree::Octets& octets : rows.rows) handle = take(session, path, octets, sink);
    if (rows.end || rows.rows.empty()) return;
  }
}

bool read_interface_state(const Session& session, kvtree::Client& client, std::uint32_t index,
                          const InterfaceSink& sink) {
  return read_state(session, client, path_of(interface_states::kIndex, index), sink);
}

bool read_interface_state(const Session& session, kvtree::Client& client, const std::string& name,
                          const InterfaceSink& sink) {
  return read_state(session, client, name_path(name), sink);
}

bool is_missing_interface(kvtree::Client& client, const std::string& name) {
  return client.get(name_path(name)).status == kStatusNoSuchRow;
}

// The list has what follows the name that it is asked for.
std::vector<std::string> names_of_interfaces(const Session& session, kvtree::Client& client,
                                             const std::string& beginning, std::uint32_t most) {
  const std::string path = name_path(beginning);
  std::vector<std::string> names;
  if (const kvtree::GetResult found = client.get(path); found.status == kStatusOk) names.push_back(beginning);
  const kvtree::ListResult following = client.list(path, most);
  if (following.status == kStatusUnknownPath || following.status == kStatusNoHandler) return names;
  if (following.status) throw request_failure(session, following.status);
  for (const kvtree::ListItem& item : following.items) {
    if (names.size() >= most || !item.key.starts_with(beginning)) break;
    names.push_back(item.key);
  }
  return names;
}

}  // namespace cli
