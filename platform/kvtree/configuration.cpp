// The configuration: nodes below /cfg/ that clients set and delete, and that outlive the process.
//
// A change is written to the database before it is made in the tree and told to the subscribers, so nothing
// that the daemon acted on is forgotten by a restart. What was kept is in the tree before the first
// subscriber registers, and so reaches it by the replay. Nodes that the process itself sets (kvtree_set) are
// not kept.
#include <algorithm>

#include "platform/base/fault.h"
#include "platform/base/log.h"
#include "platform/kvtree/protocol.h"
#include "platform/kvtree/server.h"
#include "platform/kvtree/value_codec.h"

namespace kvtree {

namespace {

using wire::Octets;
using wire::Reader;
using wire::Writer;

constexpr std::string_view kConfiguration = "/cfg/";

Status check_change(const wire::Connection* from, std::string_view path) {
  if (from == nullptr || !from->may_change()) return kStatusAccess;
  if (const Status status = check_path(path)) return status;
  const bool below =
      path.starts_with(kConfiguration) && path.size() > kConfiguration.size() && !path.ends_with('/');
  return below ? kStatusOk : kStatusUnknownPath;
}

Status write_node(std::string_view path, const KvValue* value) {
  NodeStore* kept = store().kept.get();
  if (kept == nullptr) return kStatusOk;
  return value == nullptr ? kept->erase(path) : kept->put(path, *value);
}

// Sets the node, or deletes it without a value.
Status change_node(std::string_view path, const KvValue* value) {
  const auto found = store().nodes.find(path);
  const std::shared_ptr<const KvValue> before = found == store().nodes.end() ? nullptr : found->second;
  if (value == nullptr && before == nullptr) return kStatusNoSuchRow;
  if (const Status status = write_node(path, value)) return status;
  const Status status = value == nullptr ? kvtree_delete(path) : kvtree_set(path, *value);
  if (status == kStatusOk) return kStatusOk;
  if (const Status undone = write_node(path, before.get())) {
    log_line("configuration: %.*s was kept but not changed: %s", static_cast<int>(path.size()), path.data(),
             err_text(undone));
  }
  return status;
}

}  // namespace

bool answer_set(wire::Connection* from, Reader* request, Octets* answer) {
  const std::string_view path = request->text();
  KvValue value;
  if (!read_value(request, &value) || !request->finished()) return false;
  Status status = check_change(from, path);
  if (status == kStatusOk) status = change_node(path, &value);
  Writer(answer).u32(status);
  return true;
}

bool answer_delete(wire::Connection* from, Reader* request, Octets* answer) {
  const std::string_view path = request->text();
  if (!request->finished()) return false;
  Status status = check_change(from, path);
  if (status == kStatusOk) status = change_node(path, nullptr);
  Writer(answer).u32(status);
  return true;
}

bool answer_nodes(wire::Connection*, Reader* request, Octets* answer) {
  const std::uint32_t maximum = std::min(request->u32(), kKvMaxListItems);
  const std::string_view path = request->text();
  const std::string_view after = request->text();
  const std::string_view owner = request->text();
  if (!request->finished() || !owner.empty()) return false;
  Writer writer(answer);
  if (const Status status = check_path(path)) {
    writer.u32(status);
    return true;
  }
  writer.u32(kStatusOk);
  const std::size_t count_place = writer.size();
  writer.u32(0);
  std::uint32_t count = 0;
  const auto& nodes = store().nodes;
  auto node = after < path ? nodes.lower_bound(path) : nodes.upper_bound(after);
  for (; node != nodes.end() && node->first.starts_with(path) && count < maximum; ++node) {
    const std::size_t start = writer.size();
    writer.text(node->first);
    writer.text({});
    const bool carried = write_value(&writer, *node->second);
    if (!carried || writer.size() - count_place > kMaxAnswer / 2) writer.truncate(start);
    if (!carried) continue;
    if (writer.size() == start) break;  // no room: the client asks again from here
    ++count;
  }
  writer.patch_u32(count_place, count);
  return true;
}

}  // namespace kvtree

Status kvtree_keep_configuration(const std::string& directory) {
  if (const Status status = fault_check("kvtree_keep_configuration")) return status;
  std::unique_ptr<kvtree::NodeStore> kept;
  if (const Status status = kvtree::NodeStore::open(directory, &kept)) return status;
  Status failure = kStatusOk;
  const Status read = kept->for_each([&](std::string_view path, KvValue value) {
    if (failure == kStatusOk) failure = kvtree_set(path, std::move(value));
  });
  if (read != kStatusOk) return read;
  if (failure != kStatusOk) return failure;
  kvtree::store().kept = std::move(kept);
  return kStatusOk;
}
