// The history of commits, read from the database, and its limits: see node_store.h.
#include <utility>
#include <vector>

#include "platform/core/base/log.h"
#include "platform/core/text/numbers.h"
#include "platform/store/configuration/node_store.h"

namespace kvtree {

namespace {

constexpr std::size_t kMaxKnownPlaces = 1000000;  // 8 MB

KvConfigCommit column_commit(sqlite::Statement& statement) {
  KvConfigCommit commit;
  commit.id = std::to_string(statement.integer(0));
  commit.time = static_cast<std::uint64_t>(statement.integer(1));
  commit.owner = statement.text(2);
  commit.comment = statement.text(3);
  commit.changes = static_cast<std::uint32_t>(statement.integer(4));
  commit.user = statement.text(5);
  return commit;
}

}  // namespace

// The number of the commit; kStatusNoSuchRow if the history does not have it. "007" is not an id.
Status NodeStore::find_commit(std::string_view id, std::int64_t* number) const {
  const auto parsed = text::parse_number<std::int64_t>(id);
  if (!parsed || std::to_string(*parsed) != id) return kStatusNoSuchRow;
  *number = *parsed;
  sqlite::Statement statement(database_.get(), "SELECT 1 FROM log WHERE id = ? AND changes > 0");
  statement.bind(1, *number);
  const int code = statement.step();
  if (code == SQLITE_ROW) return kStatusOk;
  return code == SQLITE_DONE ? kStatusNoSuchRow : fail("a commit cannot be found");
}

Status NodeStore::history(std::uint32_t maximum, std::string_view before,
                          std::vector<KvConfigCommit>* commits) {
  const std::lock_guard lock(mutex_);
  std::int64_t end = INT64_MAX;
  if (!before.empty()) {
    if (const Status status = find_commit(before, &end)) return status;
  }
  sqlite::Statement statement(database_.get(),
                              "SELECT id, time, owner, comment, changes, user FROM log WHERE changes > 0 "
                              "AND id < ? ORDER BY id DESC LIMIT ?");
  statement.bind(1, end);
  statement.bind(2, maximum);
  int code = SQLITE_ROW;
  while ((code = statement.step()) == SQLITE_ROW) commits->push_back(column_commit(statement));
  if (code == SQLITE_DONE) return kStatusOk;
  commits->clear();
  return fail("the history cannot be read");
}

Status NodeStore::changes(std::string_view id, const KvConfigPage& page,
                          std::vector<KvConfigCommitChange>* changes) {
  const std::lock_guard lock(mutex_);
  std::int64_t number = 0;
  if (const Status status = find_commit(id, &number)) return status;
  const ReadCommit* commit = nullptr;
  if (const Status status = find_places(number, &commit)) return status;
  if (read_page(number, *commit, page, changes)) return kStatusOk;
  changes->clear();
  return report_unreadable(number);
}

// Finding the places reads the whole commit once; the next page needs only its own octets.
Status NodeStore::find_places(std::int64_t id, const ReadCommit** commit) {
  auto known = read_commits_.find(id);
  if (known == read_commits_.end()) {
    ReadCommit read;
    const Status status = read_content(id, [&read](std::size_t owner, wire::OctetSpan octets) {
      read.owner = owner;
      return find_listed_changes(octets, &read.places);
    });
    if (status != kStatusOk) return status;
    if (known_places_ + read.places.size() > kMaxKnownPlaces) forget_places();
    known_places_ += read.places.size();
    known = read_commits_.emplace(id, std::move(read)).first;
  }
  *commit = &known->second;
  return kStatusOk;
}

void NodeStore::forget_places() {
  read_commits_.clear();
  known_places_ = 0;
}

bool NodeStore::read_page(std::int64_t id, const ReadCommit& commit, const KvConfigPage& page,
                          std::vector<KvConfigCommitChange>* changes) const {
  sqlite::Blob content(database_.get(), "content", "octets", id);
  wire::Octets octets;
  std::size_t size = 0;
  const auto take = [changes](const PlannedChange& change) { changes->push_back(to_public(change)); };
  for (std::size_t i = page.first; i < commit.places.size(); ++i) {
    if (changes->size() >= page.maximum || size >= page.octets) break;
    const ChangePlace& place = commit.places[i];
    if (content.read(place.start, place.size, &octets) != SQLITE_OK) return false;
    if (!read_commit(octets, commit.owner, take)) return false;
    size += place.size;
  }
  return true;
}

Status NodeStore::visit_content(std::int64_t id, const std::function<void(PlannedChange)>& visit) const {
  return read_content(
      id, [&visit](std::size_t owner, wire::OctetSpan octets) { return read_commit(octets, owner, visit); });
}

Status NodeStore::read_content(std::int64_t id, const ContentReader& read) const {
  sqlite::Statement statement(database_.get(),
                              "SELECT content.octets, owner, content.checksum = row_checksum(id, "
                              "content.octets) FROM content JOIN log USING (id) WHERE id = ?");
  statement.bind(1, id);
  const int code = statement.step();
  if (code != SQLITE_ROW && code != SQLITE_DONE) return fail("a commit cannot be read");
  const std::size_t owner = find_owner(statement.text(1));
  const bool is_sound = code == SQLITE_ROW && statement.integer(2) == 1;
  if (is_sound && owner != kNoOwner && read(owner, statement.blob(0))) return kStatusOk;
  return report_unreadable(id);
}

// Logged once for each commit, however often clients ask for it.
Status NodeStore::report_unreadable(std::int64_t id) const {
  if (unreadable_.insert(id).second)
    log_error("configuration", "the contents of commit %lld cannot be read", static_cast<long long>(id));
  return kStatusIo;
}

// --- Limits

bool NodeStore::Size::is_too_large() const {
  return commits > kMaxCommits || (octets > kMaxHistoryOctets && commits > 1);
}

// Removes the oldest commits beyond the limits. Commits of sources remove none of operators.
bool NodeStore::forget_oldest(Sizes* sizes) {
  return forget_beyond_limits(true, sizes) && forget_beyond_limits(false, sizes);
}

// A commit that is not folded is still needed; one that waits for its confirmation, only for that.
bool NodeStore::forget_beyond_limits(bool of_clients, Sizes* sizes) {
  while (sizes->of(of_clients).is_too_large()) {
    sqlite::Statement oldest(database_.get(),
                             "SELECT id, octets, folded, id IN (SELECT commit_id FROM confirmation) FROM log "
                             "WHERE changes > 0 AND (owner = ?1) = ?2 ORDER BY id LIMIT 1");
    oldest.bind_text(1, client_owner());
    oldest.bind(2, of_clients ? 1 : 0);
    const int code = oldest.step();
    if (code == SQLITE_DONE || (code == SQLITE_ROW && oldest.integer(2) == 0)) return true;
    if (code != SQLITE_ROW) return fail_write();
    const std::int64_t id = oldest.integer(0);
    const bool is_waiting = oldest.integer(3) != 0;
    Size& size = sizes->of(of_clients);
    --size.commits;
    size.octets -= static_cast<std::size_t>(oldest.integer(1));
    if (!(is_waiting ? hide(id) : forget(id)) || (of_clients && !forget_others_before(id, &sizes->others)))
      return false;
  }
  return true;
}

// So that the history has all commits of clients after each commit that it lists: a rollback needs them.
bool NodeStore::forget_others_before(std::int64_t id, Size* size) {
  std::vector<std::pair<std::int64_t, std::size_t>> others;
  sqlite::Statement statement(
      database_.get(),
      "SELECT id, octets FROM log WHERE changes > 0 AND folded = 1 AND owner <> ? AND id < ?");
  statement.bind_text(1, client_owner());
  statement.bind(2, id);
  int code = SQLITE_ROW;
  while ((code = statement.step()) == SQLITE_ROW)
    others.emplace_back(statement.integer(0), static_cast<std::size_t>(statement.integer(1)));
  if (code != SQLITE_DONE) return fail_write();
  statement.reset();
  for (const auto& [other, octets] : others) {
    if (!forget(other)) return false;
    --size->commits;
    size->octets -= octets;
  }
  return true;
}

}  // namespace kvtree
