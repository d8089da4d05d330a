// Commits: one after the other on a thread, so that the loop never waits for the disk. What changes while one
// is being written is in the next one, which begins when that one has ended.
//
// The first change posts the beginning of a commit; output requests it earlier. After a failure only a timer
// tries again, every second, because such failures usually last and each attempt costs the whole transaction.
#include <algorithm>
#include <memory>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/chkpt/store.h"

namespace chkpt {

namespace {

constexpr std::uint64_t kSlowCommit = kNanosecondsPerSecond;

// Of the process: the commits of a later store have higher numbers.
struct Progress {
  std::uint64_t begun = 0;
  std::uint64_t ended = 0;
  std::function<void(std::uint64_t)> on_commit;
  std::function<void()> on_recovery;
};

Progress& progress() {
  static Progress instance;
  return instance;
}

bool has_changes(const Store* store) {
  return !store->unwritten.empty() || !store->deleted.empty() || !store->preparations.empty();
}

Record* find_record(const RecordRef& ref) {
  const auto found = ref.table->records.by_id.find(ref.object_id);
  return found == ref.table->records.by_id.end() ? nullptr : &found->second;
}

// REQUIRES: the table is registered; it is until the store ends.
ChkptTable* find_table(const Store* store, const TableName& name) {
  return std::ranges::find_if(store->tables, [&name](const auto& table) { return table->name == name; })
      ->get();
}

void take_preparations(Store* store, Commit* commit) {
  for (const ChkptPrepare& prepare : std::exchange(store->preparations, {})) {
    if (auto write = prepare()) commit->before.push_back(std::move(write));
  }
}

// Sorted, so that neighbors in the file are written together.
void take_unwritten(Store* store, Commit* commit) {
  std::ranges::sort(store->unwritten, {}, &RecordRef::object_id);
  commit->writes.reserve(store->unwritten.size());
  for (const RecordRef& ref : std::exchange(store->unwritten, {})) {
    Record* record = find_record(ref);
    if (record == nullptr) continue;  // deleted since
    commit->writes.push_back({ref.object_id, ref.table->name, record->key, record->data});
    record->unwritten = false;
  }
}

std::shared_ptr<Commit> take_changes(Store* store) {
  auto commit = std::make_shared<Commit>();
  commit->number = ++progress().begun;
  take_preparations(store, commit.get());
  commit->deleted = std::exchange(store->deleted, {});
  take_unwritten(store, commit.get());
  return commit;
}

void return_changes(Store* store, const Commit& commit) {
  store->deleted.insert(store->deleted.end(), commit.deleted.begin(), commit.deleted.end());
  for (const RecordRow& each : commit.writes) {
    const RecordRef ref{find_table(store, each.table), each.object_id};
    Record* record = find_record(ref);
    if (record == nullptr) continue;  // deleted since
    if (!std::exchange(record->unwritten, true)) store->unwritten.push_back(ref);
  }
}

void try_again_later(Store* store);

void note_failure(Store* store, const Commit& commit) {
  return_changes(store, commit);
  if (commit.status != store->failure) {
    log_error("chkpt", "%s: %zu changes cannot be written and are retained: %s", store->database->name(),
              store->unwritten.size() + store->deleted.size(), err_text(commit.status));
  }
  store->failure = commit.status;
  try_again_later(store);
}

void note_success(Store* store) {
  if (std::exchange(store->failure, kStatusOk) == kStatusOk) return;
  log_notice("chkpt", "the retained changes are written");
  if (progress().on_recovery) progress().on_recovery();
}

void announce(std::uint64_t ended) {
  progress().ended = ended;
  if (progress().on_commit) progress().on_commit(ended);
}

void begin_commit(Store* store);

// All clients wait meanwhile, and a disk that hangs reports no error.
void warn_when_slow(Store* store) {
  store->slow = event_timer_start(store->manager, kSlowCommit, [store, name = store->database->name()] {
    store->slow = 0;
    log_warning("chkpt", "%s: the disk has not written a commit after a second: answers to clients wait",
                name);
  });
}

// Output does not wait for a commit that is tried again: the number of the next commit has ended, too.
void end_commit(Store* store, const Commit& commit) {
  store->is_committing = false;
  event_timer_cancel(store->manager, std::exchange(store->slow, 0));
  if (commit.status != kStatusOk) {
    note_failure(store, commit);
    ++progress().begun;
  } else {
    note_success(store);
  }
  const std::uint64_t ended = progress().begun;
  if (commit.status == kStatusOk && has_changes(store)) begin_commit(store);
  announce(ended);
}

void begin_commit(Store* store) {
  store->is_committing = true;
  const std::shared_ptr<Commit> commit = take_changes(store);
  warn_when_slow(store);
  store->worker.run(
      [database = store->database.get(), commit] { commit->status = write_commit(database, *commit); },
      [store, commit] { end_commit(store, *commit); });
}

void try_again_later(Store* store) {
  event_timer_cancel(store->manager, store->retry);
  store->retry = event_timer_start(store->manager, kNanosecondsPerSecond, [store] {
    store->retry = 0;
    begin_commit(store);
  });
}

void post_flush(Store* store) {
  if (store->flush_posted || store->failure != kStatusOk) return;
  store->flush_posted = true;
  event_post(store->manager, [store] {
    // The store may have ended meanwhile, or be another one.
    Store* const present = the_store().get();
    if (present == nullptr || present != store) return;
    present->flush_posted = false;
    static_cast<void>(chkpt_begin_flush());
  });
}

}  // namespace

void mark_unwritten(Store* store, const RecordRef& ref, Record* record) {
  if (std::exchange(record->unwritten, true)) return;
  store->unwritten.push_back(ref);
  post_flush(store);
}

void mark_deleted(Store* store, std::uint64_t object_id) {
  store->deleted.push_back(object_id);
  post_flush(store);
}

Status commit_at_once(Store* store) {
  if (!has_changes(store)) {
    store->failure = kStatusOk;
    return kStatusOk;
  }
  const std::shared_ptr<Commit> commit = take_changes(store);
  commit->status = write_commit(store->database.get(), *commit);
  end_commit(store, *commit);
  return commit->status;
}

}  // namespace chkpt

using chkpt::progress;
using chkpt::Store;
using chkpt::the_store;

Status chkpt_failure() {
  const Store* const store = the_store().get();
  return store == nullptr ? chkpt::opening_failure() : store->failure;
}

sqlite::Quarantine chkpt_quarantine() {
  const Store* const store = the_store().get();
  return store == nullptr ? sqlite::Quarantine{} : store->contents.quarantine;
}

std::uint64_t chkpt_begin_flush() {
  Store* const store = the_store().get();
  if (store == nullptr || store->failure != kStatusOk) return 0;
  const bool changed = chkpt::has_changes(store);
  if (store->is_committing) return progress().begun + (changed ? 1 : 0);
  if (!changed) return 0;
  chkpt::begin_commit(store);
  return progress().begun;
}

std::uint64_t chkpt_committed() {
  return progress().ended;
}

void chkpt_on_commit(std::function<void(std::uint64_t)> function) {
  progress().on_commit = std::move(function);
}

void chkpt_on_recovery(std::function<void()> function) {
  progress().on_recovery = std::move(function);
}

bool chkpt_before_commit(ChkptPrepare prepare) {
  Store* const store = the_store().get();
  if (store == nullptr) return false;
  store->preparations.push_back(std::move(prepare));
  chkpt::post_flush(store);
  return true;
}

Status chkpt_flush() {
  Store* const store = the_store().get();
  if (store == nullptr) return kStatusOk;
  if (store->failure != kStatusOk) return store->failure;  // the timer tries again
  store->worker.finish();
  return store->failure != kStatusOk ? store->failure : chkpt::commit_at_once(store);
}

void chkpt_end() {
  Store* const store = the_store().get();
  if (store == nullptr) return;
  store->worker.finish();
  if (const Status status = chkpt::commit_at_once(store)) {
    log_error("chkpt", "%s: %zu changes are lost: %s", store->database->name(),
              store->unwritten.size() + store->deleted.size(), err_text(status));
  }
  event_timer_cancel(store->manager, store->retry);
  the_store().reset();
}
