// Clients' queries of the configuration: nodes and the history of commits.
//
// An answer that would be too long has the items that fit, at least one; the client continues after them.
#include <algorithm>
#include <memory>
#include <string>

#include "platform/store/codec/value_codec.h"
#include "platform/store/commits/config_view.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"
#include "platform/store/server/steps.h"

namespace kvtree {

namespace {

using wire::Reader;
using wire::Writer;

// A successful status, a count, and items up to a limit.
class ListAnswer {
 public:
  ListAnswer(wire::Octets* answer, std::uint32_t maximum) : writer_(answer), maximum_(maximum) {
    writer_.u32(kStatusOk);
    count_place_ = writer_.size();
    writer_.u32(0);
  }
  bool full() const { return count_ == maximum_ || writer_.size() - count_place_ > kMaxAnswer / 2; }
  // For one item; REQUIRES !full().
  Writer* begin() {
    start_ = writer_.size();
    return &writer_;
  }
  void keep() { writer_.patch_u32(count_place_, ++count_); }
  void drop() { writer_.truncate(start_); }

 private:
  Writer writer_;
  std::uint32_t maximum_;
  std::uint32_t count_ = 0;
  std::size_t count_place_ = 0;
  std::size_t start_ = 0;
};

// The owner of the node's value; empty if the process itself set it. The values are compared, because a node
// has the former owner's value while the next one's is the same: no notification announces that.
std::string_view owner_of(std::string_view path, const SharedValue& value) {
  const EffectiveValue effective = find_effective(path);
  const bool is_owned = effective.value != nullptr && *effective.value == *value;
  return is_owned ? owner_name(effective.owner) : std::string_view();
}

// Skips a value that the configuration cannot have (a record).
void add_node(ListAnswer* list, std::string_view path, std::string_view owner, const KvValue& value) {
  Writer* writer = list->begin();
  writer->text(path);
  writer->text(owner);
  if (write_value(writer, value)) {
    list->keep();
  } else {
    list->drop();
  }
}

// The nodes of an owner may be far apart: the clock is read once for so many nodes.
constexpr std::size_t kNodesPerReading = 64;

// Between the steps of an answer about the nodes of one owner.
struct OwnedNodes : AnswerInSteps {
  std::unique_ptr<ListAnswer> list;
  std::string last;  // the path of the node visited last
};

// Adds the nodes from the first path of the answer on, the one after `after` or `path`, until `add` returns
// false.
template <typename Map, typename Add>
void add_below(const ListAnswer& list, const Map& map, std::string_view path, std::string_view after,
               const Add& add) {
  const bool continues = after >= path;
  visit_view(map, continues ? after : path, continues, [&](const auto& viewed) {
    return viewed.path.starts_with(path) && !list.full() && add(viewed);
  });
}

void add_nodes(ListAnswer* list, std::string_view path, std::string_view after) {
  add_below(*list, store().nodes, path, after, [list](const Viewed<StoredNode>& viewed) {
    const bool is_changed = viewed.change != nullptr && viewed.change->is_effective;
    const SharedValue before = viewed.node == nullptr ? nullptr : viewed.node->value;
    const SharedValue& value = is_changed ? seen_value(viewed.change->after) : before;
    if (value != nullptr) add_node(list, viewed.path, owner_of(viewed.path, value), *value);
    return true;
  });
}

// kStatusUnfinished, with the last node's path, if the step was over before the last node.
Status add_owned(ListAnswer* list, std::string_view path, std::string_view after, std::size_t owner,
                 const KvSteps* steps, std::string* last) {
  std::size_t visited = 0;
  Status status = kStatusOk;
  add_below(*list, store().configuration, path, after, [&](const Viewed<OwnedNode>& viewed) {
    if (const SharedValue value = value_of(viewed, owner))
      add_node(list, viewed.path, owner_name(owner), *value);
    if (steps == nullptr || ++visited % kNodesPerReading != 0 || !steps->is_over()) return true;
    *last = viewed.path;
    status = kStatusUnfinished;
    return false;
  });
  return status;
}

void answer_owned(wire::Connection* from, wire::Octets* answer, std::uint32_t maximum, std::string_view path,
                  std::string_view after, std::size_t owner) {
  auto nodes = begin_step<OwnedNodes>(from);
  if (nodes->list == nullptr) {
    nodes->list = std::make_unique<ListAnswer>(&nodes->octets, maximum);
    nodes->last = after;
  }
  const std::string start = nodes->last;
  const Status status =
      add_owned(nodes->list.get(), path, start, owner, steps_for(from, nodes.get()), &nodes->last);
  if (is_postponed(status, from, &nodes)) return;
  answer->insert(answer->end(), nodes->octets.begin(), nodes->octets.end());
}

void add_commit(ListAnswer* list, const KvConfigCommit& commit) {
  Writer* writer = list->begin();
  writer->text(commit.id);
  writer->u64(commit.time);
  writer->text(commit.owner);
  writer->text(commit.comment);
  writer->u32(commit.changes);
  writer->text(commit.user);
  list->keep();
}

void add_change(ListAnswer* list, const KvConfigCommitChange& change) {
  Writer* writer = list->begin();
  writer->text(change.path);
  writer->text(change.owner_before);
  const bool before = write_optional_value(writer, change.before);
  writer->text(change.owner_after);
  if (before && write_optional_value(writer, change.after)) {
    list->keep();
  } else {
    list->drop();
  }
}

bool answer_failure(wire::Octets* answer, Status status) {
  Writer(answer).u32(status);
  return true;
}

}  // namespace

bool answer_nodes(wire::Connection* from, Reader* request, wire::Octets* answer) {
  const std::uint32_t maximum = std::min(request->u32(), kKvMaxListItems);
  const std::string_view path = request->text();
  const std::string_view after = request->text();
  const std::string_view owner = request->text();
  if (!request->finished()) return false;
  if (const Status status = check_path(path)) return answer_failure(answer, status);
  const std::size_t number = find_owner(owner);
  if (!owner.empty() && number == kNoOwner) return answer_failure(answer, kStatusInvalid);
  if (!owner.empty()) {
    answer_owned(from, answer, maximum, path, after, number);
    return true;
  }
  ListAnswer list(answer, maximum);
  add_nodes(&list, path, after);
  return true;
}

bool answer_history(wire::Connection*, Reader* request, wire::Octets* answer) {
  const std::uint32_t maximum = std::min(request->u32(), kKvMaxListItems);
  const std::string_view before = request->text();
  if (!request->finished()) return false;
  std::vector<KvConfigCommit> commits;
  if (const Status status = kvtree_config_history(maximum, before, &commits))
    return answer_failure(answer, status);
  ListAnswer list(answer, maximum);
  for (auto commit = commits.begin(); commit != commits.end() && !list.full(); ++commit)
    add_commit(&list, *commit);
  return true;
}

bool answer_commit_changes(wire::Connection*, Reader* request, wire::Octets* answer) {
  const std::string_view id = request->text();
  KvConfigPage page;
  page.first = request->u32();
  page.maximum = std::min(request->u32(), kKvMaxListItems);
  page.octets = kMaxAnswer / 2;
  if (!request->finished()) return false;
  std::vector<KvConfigCommitChange> changes;
  if (const Status status = kvtree_config_changes(id, &changes, page)) return answer_failure(answer, status);
  ListAnswer list(answer, page.maximum);
  for (auto change = changes.begin(); change != changes.end() && !list.full(); ++change)
    add_change(&list, *change);
  return true;
}

}  // namespace kvtree
