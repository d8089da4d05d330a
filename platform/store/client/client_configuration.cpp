// A client's requests about the configuration: nodes, commits and their history; see client.h.
//
// A commit is sent as messages that the server collects, each within the size of a request, and one that
// executes it. The first message carries a flag that discards what an earlier commit left.
#include "platform/store/client/client_connection.h"
#include "platform/store/codec/value_codec.h"

namespace kvtree {

namespace {

constexpr std::size_t kStagedPerMessage = 24U << 10;  // octets; one more change always fits

bool read_node(wire::Reader* reader, Node* node) {
  node->path = reader->text();
  node->owner = reader->text();
  return read_value(reader, &node->value);
}

bool read_commit(wire::Reader* reader, KvConfigCommit* commit) {
  commit->id = reader->text();
  commit->time = reader->u64();
  commit->owner = reader->text();
  commit->comment = reader->text();
  commit->changes = reader->u32();
  commit->user = reader->text();
  return reader->ok();
}

bool read_change(wire::Reader* reader, KvConfigCommitChange* change) {
  change->path = reader->text();
  change->owner_before = reader->text();
  if (!read_optional_value(reader, &change->before)) return false;
  change->owner_after = reader->text();
  return read_optional_value(reader, &change->after);
}

// One message of changes from *next on; sets *next to the first change that is not in it.
Status stage_some(Client::Connection* connection, const std::vector<KvConfigChange>& changes,
                  std::size_t* next) {
  wire::Writer writer = connection->begin(kStage);
  writer.u8(*next == 0 ? kFlagFirst : std::uint8_t{0});
  const std::size_t count_place = writer.size();
  writer.u32(0);
  std::uint32_t count = 0;
  for (; *next < changes.size() && writer.size() < kStagedPerMessage; ++*next, ++count) {
    writer.text(changes[*next].path);
    if (!write_optional_value(&writer, changes[*next].value)) return kStatusInvalid;
  }
  writer.patch_u32(count_place, count);
  wire::Reader reader;
  if (const Status status = connection->ask(kStage, &reader)) return status;
  return reader.finished() ? kStatusOk : connection->fail(kStatusBadMessage);
}

}  // namespace

NodesResult Client::nodes(std::string_view path, std::uint32_t max_nodes, std::string_view after,
                          std::string_view owner) {
  NodesResult result;
  wire::Writer writer = connection_->begin(kNodes);
  writer.u32(max_nodes);
  writer.text(path);
  writer.text(after);
  writer.text(owner);
  result.status = connection_->ask_list(kNodes, &result.nodes, read_node);
  return result;
}

CommitResult Client::commit(const std::vector<KvConfigChange>& changes, std::string_view comment,
                            std::chrono::seconds confirmation) {
  CommitResult result;
  result.status = changes.size() > kMaxStagedChanges ? kStatusMessageTooLarge : kStatusOk;
  std::size_t next = 0;
  if (result.status != kStatusOk) return result;
  do {
    result.status = stage_some(connection_.get(), changes, &next);
  } while (result.status == kStatusOk && next < changes.size());
  if (result.status != kStatusOk) return result;
  wire::Writer writer = connection_->begin(kCommit);
  writer.u32(static_cast<std::uint32_t>(confirmation.count()));
  writer.text(comment);
  wire::Reader reader;
  result.status = connection_->exchange(kCommit, &reader);
  if (result.status != kStatusOk) return result;
  result.status = reader.u32();
  result.id = reader.text();
  result.user = reader.text();
  result.error = reader.text();
  if (!reader.finished()) {
    result = {};
    result.status = connection_->fail(kStatusBadMessage);
  }
  return result;
}

HistoryResult Client::history(std::uint32_t maximum, std::string_view before) {
  HistoryResult result;
  wire::Writer writer = connection_->begin(kHistory);
  writer.u32(maximum);
  writer.text(before);
  result.status = connection_->ask_list(kHistory, &result.commits, read_commit);
  return result;
}

CommitChangesResult Client::commit_changes(std::string_view id, std::uint32_t maximum, std::uint32_t first) {
  CommitChangesResult result;
  wire::Writer writer = connection_->begin(kCommitChanges);
  writer.text(id);
  writer.u32(first);
  writer.u32(maximum);
  result.status = connection_->ask_list(kCommitChanges, &result.changes, read_change);
  return result;
}

namespace {

// The request is begun.
ConfirmationResult ask_confirmation(Client::Connection* connection, std::uint16_t type) {
  ConfirmationResult result;
  wire::Reader reader;
  result.status = connection->ask(type, &reader);
  if (result.status != kStatusOk) return result;
  result.confirmation.id = reader.text();
  result.confirmation.user = reader.text();
  result.confirmation.deadline = reader.u64();
  if (!reader.finished()) result.status = connection->fail(kStatusBadMessage);
  return result;
}

}  // namespace

ConfirmationResult Client::confirmation() {
  static_cast<void>(connection_->begin(kConfirmation));
  return ask_confirmation(connection_.get(), kConfirmation);
}

ConfirmationResult Client::confirm(std::string_view id) {
  connection_->begin(kConfirm).text(id);
  return ask_confirmation(connection_.get(), kConfirm);
}

}  // namespace kvtree
