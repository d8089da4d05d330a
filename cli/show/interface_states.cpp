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

// The interface's handle.
std::uint32_t take(const Session& session, const std::string& path, const kvtree::Octets& octets,
                   const InterfaceSink& sink) {
  const Record<InterfaceState> state(session, path, kInterfaceStateParcel, octets);
  sink(*state);
  return state->handle;
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
  const std::string path = path_of(interface_states::kIndex, index);
  const kvtree::GetResult result = client.get(path);
  if (result.status == kStatusUnknownPath || result.status == kStatusNoSuchRow) return false;
  if (result.status) throw request_failure(session, result.status);
  take(session, path, result.record, sink);
  return true;
}

}  // namespace cli
