// What clients ask and say about the configuration: nodes, commits of the owner "cli", the history.
#include <algorithm>
#include <optional>
#include <utility>

#include "platform/kvtree/config.h"
#include "platform/kvtree/protocol.h"
#include "platform/kvtree/server.h"
#include "platform/kvtree/value_codec.h"

namespace kvtree {

namespace {

using wire::Octets;
using wire::Reader;
using wire::Writer;

Status check_right(const wire::Connection* from) {
  return from != nullptr && from->may_change() ? kStatusOk : kStatusAccess;
}

Status commit_one(const wire::Connection* from, std::string_view path, std::optional<KvValue> value) {
  if (const Status status = check_right(from)) return status;
  return kvtree_config_commit(kConfigOwnerCli, {{std::string(path), std::move(value)}}, {});
}

}  // namespace

bool answer_set(wire::Connection* from, Reader* request, Octets* answer) {
  const std::string_view path = request->text();
  KvValue value;
  if (!read_value(request, &value) || !request->finished()) return false;
  Writer(answer).u32(commit_one(from, path, std::move(value)));
  return true;
}

bool answer_delete(wire::Connection* from, Reader* request, Octets* answer) {
  const std::string_view path = request->text();
  if (!request->finished()) return false;
  Writer(answer).u32(commit_one(from, path, std::nullopt));
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
