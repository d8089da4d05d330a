// Commits of clients, which arrive in several messages: kStage collects a client's changes, kCommit commits
// them for the owner of clients' commits; and their confirmations.
//
// Collected changes belong to the connection and end with it. Their number and size are limited, and only a
// peer that may change the configuration can collect any.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"
#include "platform/core/files/user_name.h"
#include "platform/store/codec/value_codec.h"
#include "platform/store/commits/commit_queue.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/confirmation/confirmations.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

bool read_changes(Reader* request, std::vector<KvConfigChange>* changes) {
  const std::uint32_t count = request->u32();
  for (std::uint32_t i = 0; i < count && request->ok(); ++i) {
    KvConfigChange change;
    change.path = request->text();
    if (!read_optional_value(request, &change.value)) return false;
    changes->push_back(std::move(change));
  }
  return request->finished();
}

bool may_change(const wire::Connection* from) {
  return from != nullptr && from->may_change();
}

// Whether all clients have staged too much, these changes included.
bool is_too_much_staged(std::size_t changes) {
  std::size_t octets = 0;
  for (const auto& [client, staged] : the_server()->staged) {
    changes += staged.changes.size();
    octets += staged.octets;
  }
  return changes > kMaxStagedChangesOfAll || octets > kMaxStagedOctetsOfAll;
}

// Changes of earlier commits that are not applied, not in the rows of the database, or that a subscriber has
// not received.
std::size_t count_unprocessed() {
  std::size_t most = store().node_store == nullptr ? 0 : store().node_store->count_unfolded();
  for (const auto& registration : store().registrations) most = std::max(most, registration->pending.size());
  if (store().commits != nullptr) most = std::max(most, store().commits->count_unapplied());
  return most;
}

// Takes the client's staged changes, unless its commit is refused.
Status take_staged(const wire::Connection* from, std::vector<KvConfigChange>* changes, std::string* error) {
  if (!may_change(from)) return kStatusAccess;
  auto& all = the_server()->staged;
  StagedCommit staged = std::exchange(all[from->id()], {});
  all.erase(from->id());
  if (const Status status = fault_check("kvtree_config_commit")) return status;
  if (count_unprocessed() >= kv_config_limits.unprocessed_changes) {
    *error = "the changes of earlier commits are still being processed; try again in a few seconds";
    return EBUSY;
  }
  *changes = std::move(staged.changes);
  return kStatusOk;
}

Status stage(wire::Connection* from, bool first, std::size_t octets, std::vector<KvConfigChange> changes) {
  if (!may_change(from)) return kStatusAccess;
  auto& all = the_server()->staged;
  StagedCommit& staged = all[from->id()];
  if (first) staged = {};
  staged.octets += octets;
  const bool is_too_large =
      staged.changes.size() + changes.size() > kMaxStagedChanges || staged.octets > kMaxStagedOctets;
  if (is_too_large || is_too_much_staged(changes.size())) {
    all.erase(from->id());
    return is_too_large ? kStatusMessageTooLarge : EBUSY;
  }
  staged.changes.insert(staged.changes.end(), std::make_move_iterator(changes.begin()),
                        std::make_move_iterator(changes.end()));
  return kStatusOk;
}

void write_commit_answer(wire::Octets* answer, Status status, const std::string& id, const std::string& user,
                         const std::string& error) {
  Writer writer(answer);
  writer.u32(status);
  writer.text(id);
  writer.text(user);
  writer.text(error);
}

void write_confirmation_answer(wire::Octets* answer, Status status, const KvConfigConfirmation& waiting) {
  Writer writer(answer);
  writer.u32(status);
  if (status != kStatusOk) return;
  writer.text(waiting.id);
  writer.text(waiting.user);
  writer.u64(waiting.deadline);
}

// An empty id means the commit that waits, whichever it is.
void confirm(const std::string& named, uid_t user, wire::Octets* answer) {
  const KvConfigConfirmation waiting = kvtree_config_confirmation();
  const bool is_meant = !waiting.id.empty() && (named.empty() || named == waiting.id);
  std::string reason;
  const std::string name = user_name(user);
  const Status status = is_meant ? store().node_store->end_confirmation(name, &reason) : kStatusNoSuchRow;
  if (status == kStatusOk) {
    log_notice("configuration", "commit %s by %s is confirmed by %s", waiting.id.c_str(),
               waiting.user.c_str(), name.c_str());
  }
  write_confirmation_answer(answer, status, waiting);
}

}  // namespace

bool answer_stage(wire::Connection* from, Reader* request, wire::Octets* answer) {
  const std::size_t octets = request->left();
  const std::uint8_t flags = request->u8();
  std::vector<KvConfigChange> changes;
  if ((flags & ~kFlagFirst) != 0 || !read_changes(request, &changes)) return false;
  Writer(answer).u32(stage(from, (flags & kFlagFirst) != 0, octets, std::move(changes)));
  return true;
}

// The answer of an accepted commit follows the notifications that it posts to its subscribers: a client that
// receives it sees the change in the subscribers' state, and a process that dies afterwards has lost nothing
// of that state.
bool answer_commit(wire::Connection* from, Reader* request, wire::Octets* answer) {
  const std::uint32_t confirmation = request->u32();
  const std::string comment(request->text());
  if (!request->finished() || confirmation > kLongestConfirmation) return false;
  const auto changes = std::make_shared<std::vector<KvConfigChange>>();
  std::string refusal;
  if (const Status status = take_staged(from, changes.get(), &refusal)) {
    write_commit_answer(answer, status, {}, {}, refusal);
    return true;
  }
  const auto author = std::make_shared<CommitAuthor>(CommitAuthor{from->peer().uid});
  EventManager* const manager = the_server()->manager;
  const auto done = [=, later = the_server()->answer_later(*from)](Status status, const std::string& id,
                                                                   const std::string& error) {
    if (confirmation > 0 && !id.empty()) await_confirmation(manager);
    wire::Octets payload;
    write_commit_answer(&payload, status, id, author->name, error);
    event_post(manager, [later, payload] { later.send(payload); });
  };
  commit_queue(manager).add({.owner = std::string(client_owner()),
                             .comment = comment,
                             .changes = changes,
                             .author = author,
                             .confirmation = confirmation * kNanosecondsPerSecond},
                            done);
  return true;
}

// On the thread of the commits: a confirmation precedes or follows the commit that undoes what it confirms,
// and it may take the name service some time to find the user.
bool answer_confirm(wire::Connection* from, Reader* request, wire::Octets* answer) {
  const std::string named(request->text());
  if (!request->finished()) return false;
  if (store().node_store == nullptr) {
    write_confirmation_answer(answer, kStatusNoSuchRow, {});
    return true;
  }
  const auto payload = std::make_shared<wire::Octets>();
  commit_queue(the_server()->manager)
      .worker()
      .run([=, user = from->peer().uid] { confirm(named, user, payload.get()); },
           [payload, later = the_server()->answer_later(*from)] { later.send(*payload); });
  return true;
}

bool answer_confirmation(wire::Connection*, Reader* request, wire::Octets* answer) {
  if (!request->finished()) return false;
  write_confirmation_answer(answer, kStatusOk, kvtree_config_confirmation());
  return true;
}

}  // namespace kvtree
