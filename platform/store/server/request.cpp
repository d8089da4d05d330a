// Requests from within the process, and actions. The server answers its clients through the same functions.
#include <algorithm>
#include <cstdlib>
#include <ranges>
#include <span>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/store.h"
#include "platform/store/tree/actions.h"

namespace kvtree {

namespace {

Status ask_guard(std::string_view path) {
  const auto& guards = store().guards;
  const auto guard = std::find_if(guards.begin(), guards.end(),
                                  [&](const auto& each) { return path.starts_with(each.first); });
  return guard == guards.end() ? kStatusOk : guard->second();
}

// The provider of a request's path, which is checked here once.
Status resolve(std::string_view path, const Provider** provider, std::string_view* relative) {
  if (const Status status = check_path(path)) return status;
  *provider = find_provider(path, relative);
  return *provider == nullptr ? kStatusUnknownPath : ask_guard(path);
}

template <typename Function, typename Reply>
Status ask_provider(const char* fault_point, std::string_view path, bool structured, Reply* reply,
                    Function KvProviderFunctions::*function) {
  if (const Status status = fault_check(fault_point)) return status;
  const Provider* provider = nullptr;
  std::string_view relative;
  if (const Status status = resolve(path, &provider, &relative)) return status;
  const Function call = provider->functions.*function;
  if (call == nullptr) return kStatusNoHandler;
  const KvRequest request{relative, structured};
  return call(&request, reply);
}

const KvWalkRule* find_rule(const KvProviderFunctions& functions, std::string_view relative) {
  const std::string_view first = relative.substr(0, relative.find('/'));
  for (std::size_t i = 0; i < functions.walk_rule_count; ++i) {
    if (first == functions.walk_rules[i].first_component) return &functions.walk_rules[i];
  }
  return nullptr;
}

// A reply whose data is freed.
struct OwnedReply : KvReply {
  OwnedReply() : KvReply{} {}
  ~OwnedReply() { std::free(data); }
  void clear() {
    std::free(data);
    static_cast<KvReply&>(*this) = {};
  }
  OwnedReply(const OwnedReply&) = delete;
  OwnedReply& operator=(const OwnedReply&) = delete;
};

struct RowReader {
  KvProviderGet get;
  const KvWalkRule& rule;
  bool structured;
};

// Reads the row at walk->next, or where the rule redirects to; walk->next is then the row's path.
Status read_row(const RowReader& reader, RowWalk* walk, OwnedReply* reply) {
  for (;; ++walk->redirects) {
    reply->steps = walk->steps;
    const KvRequest request{walk->next, reader.structured};
    const Status status = reader.get(&request, reply);
    if (status == kStatusUnfinished) return status;
    if (walk->steps != nullptr) walk->steps->state.reset();
    if (status != kStatusOk && status != kStatusNoSuchRow) return status;
    std::string instead;
    const KvReply* row = status == kStatusOk ? reply : nullptr;
    if (reader.rule.redirect == nullptr || walk->redirects == kKvMaxRedirects ||
        !reader.rule.redirect(walk->next, row, &instead)) {
      walk->redirects = 0;
      return status;
    }
    if (instead.size() > kKvMaxPath) return kStatusMessageTooLarge;
    reply->clear();
    walk->next = std::move(instead);
  }
}

// The walk ends where it has rows and there are no more.
Status end_before(Status status, const RowWalk& walk, bool* end) {
  *end = status == kStatusNoSuchRow && walk.rows > 0;
  return *end ? kStatusOk : status;
}

Status end_after(Status following, bool* end) {
  *end = following == kStatusEndOfList;
  return *end ? kStatusOk : following;
}

// The time is over, and the walk can be answered or continued later.
bool must_pause(const RowWalk& walk, std::uint64_t step_end) {
  return (walk.rows >= kKvFewestRows || walk.steps != nullptr) && clock_monotonic() >= step_end;
}

const KvColumnRule* find_column_rule(const KvProviderFunctions& functions, std::string_view relative) {
  const std::string_view first = relative.substr(0, relative.find('/'));
  const std::span rules(functions.column_rules, functions.column_rule_count);
  const auto rule =
      std::ranges::find_if(rules, [&](const KvColumnRule& each) { return first == each.first_component; });
  return rule == rules.end() ? nullptr : &*rule;
}

struct ColumnSink {
  const KvColumnRule& rule;
  KvColumnBatch* batch;
  Status status = kStatusOk;
};

bool pack_row(void* argument, const KvReply& row) {
  auto* const sink = static_cast<ColumnSink*>(argument);
  if (sink->batch->is_full()) return false;
  sink->status = sink->rule.pack(row, sink->batch);
  if (sink->status == kStatusOk) ++sink->batch->rows;
  return sink->status == kStatusOk;
}

Status pack_walk(ColumnReading* reading, const KvColumnRule& rule, std::string_view path) {
  ColumnSink sink{rule, &reading->batch};
  const Status status =
      walk_rows(&reading->walk, path, false, reading->batch.max_rows, pack_row, &sink, &reading->batch.end);
  return sink.status != kStatusOk ? sink.status : status;
}

Status pack_single(ColumnReading* reading, const KvColumnRule& rule, std::string_view path) {
  OwnedReply reply;
  reply.steps = reading->batch.steps;
  if (const Status status = kvtree_get(path, false, &reply)) return status;
  reading->batch.end = true;
  reading->batch.rows = 1;
  return rule.pack(reply, &reading->batch);
}

bool keep_row(void* argument, const KvReply& row) {
  static_cast<std::vector<std::vector<std::uint8_t>>*>(argument)->emplace_back(row.data,
                                                                               row.data + row.length);
  return true;
}

}  // namespace

Status walk_rows(RowWalk* walk, std::string_view path, bool structured, std::uint32_t max_rows, RowSink sink,
                 void* argument, bool* end) {
  *end = false;
  if (const Status status = fault_check("kvtree_walk")) return status;
  if (max_rows == 0) return kStatusInvalid;
  const Provider* provider = nullptr;
  std::string_view relative;
  if (const Status status = resolve(path, &provider, &relative)) return status;
  const KvWalkRule* rule = find_rule(provider->functions, relative);
  if (rule == nullptr || provider->functions.get == nullptr) return kStatusNoHandler;
  const RowReader reader{provider->functions.get, *rule, structured};
  if (!std::exchange(walk->has_begun, true)) walk->next = relative;
  const std::uint64_t step_end = walk->steps != nullptr ? walk->steps->end : clock_monotonic() + kKvStepTime;
  const std::uint32_t most = std::min(max_rows, kKvMaxListItems);
  do {
    OwnedReply reply;
    const Status status = read_row(reader, walk, &reply);
    if (status != kStatusOk) return end_before(status, *walk, end);
    if (!sink(argument, reply)) return walk->rows == 0 ? kStatusMessageTooLarge : kStatusOk;
    ++walk->rows;
    const Status following = rule->following(&reply, &walk->next);
    if (following != kStatusOk) return end_after(following, end);
    if (walk->next.size() > kKvMaxPath) return kStatusMessageTooLarge;
  } while (walk->rows < most && !must_pause(*walk, step_end));
  return walk->rows < most && walk->rows < kKvFewestRows ? kStatusUnfinished : kStatusOk;
}

Status read_columns(ColumnReading* reading, std::string_view path) {
  KvColumnBatch* const batch = &reading->batch;
  if (batch->max_rows == 0) return kStatusInvalid;
  const Provider* provider = nullptr;
  std::string_view relative;
  if (const Status status = resolve(path, &provider, &relative)) return status;
  const KvColumnRule* const rule = find_column_rule(provider->functions, relative);
  if (rule == nullptr) return kStatusNoHandler;
  if (batch->octets.empty() && batch->rows == 0) batch->packer = ColumnPacker(batch->columns.size());
  if (rule->read == nullptr) {
    const bool walks = find_rule(provider->functions, relative) != nullptr;
    return walks ? pack_walk(reading, *rule, path) : pack_single(reading, *rule, path);
  }
  const KvRequest request{relative, false};
  const Status status = rule->read(&request, batch);
  return status == kStatusUnfinished && batch->rows >= kKvFewestRows ? kStatusOk : status;
}

}  // namespace kvtree

std::string_view kvtree_request_path(const KvRequest* request) {
  return request->path;
}

Status kvtree_columns(std::string_view path, KvColumnBatch* batch) {
  kvtree::ColumnReading reading{{}, std::move(*batch)};
  const Status status = kvtree::read_columns(&reading, path);
  *batch = std::move(reading.batch);
  return status;
}

Status kvtree_get(std::string_view path, bool structured, KvReply* reply) {
  return kvtree::ask_provider("kvtree_get", path, structured, reply, &KvProviderFunctions::get);
}

Status kvtree_list(std::string_view path, bool structured, KvListReply* reply) {
  return kvtree::ask_provider("kvtree_list", path, structured, reply, &KvProviderFunctions::list);
}

Status kvtree_datalist(std::string_view path, bool structured, KvListReply* reply) {
  return kvtree::ask_provider("kvtree_datalist", path, structured, reply, &KvProviderFunctions::datalist);
}

Status kvtree_walk(std::string_view path, bool structured, std::uint32_t max_rows,
                   std::vector<std::vector<std::uint8_t>>* rows, bool* end) {
  rows->clear();
  kvtree::RowWalk walk;
  const Status status = kvtree::walk_rows(&walk, path, structured, max_rows, kvtree::keep_row, rows, end);
  if (status != kStatusOk) rows->clear();
  return status;
}

void kvtree_guard(std::string_view path, Status (*check)()) {
  auto& guards = kvtree::store().guards;
  if (check == nullptr) {
    guards.erase(std::string(path));
  } else {
    guards.insert_or_assign(std::string(path), check);
  }
}

Status kvtree_register_action(const char* name, KvAction action, void* argument) {
  if (const Status status = fault_check("kvtree_register_action")) return status;
  if (name == nullptr || *name == '\0' || action == nullptr) return kStatusInvalid;
  const bool added = kvtree::store().actions.emplace(name, kvtree::Action{action, argument}).second;
  return added ? kStatusOk : kStatusExists;
}

void kvtree_unregister_action(const char* name) {
  if (name != nullptr) kvtree::store().actions.erase(name);
}

Status kvtree_run_action(const KvActionContext& context, const std::vector<std::string>& words,
                         std::string* text) {
  if (const Status status = fault_check("kvtree_run_action")) return status;
  if (words.empty()) return kStatusInvalid;
  const auto found = kvtree::store().actions.find(words[0]);
  if (found == kvtree::store().actions.end()) return kStatusUnknownPath;
  const kvtree::Action action = found->second;  // the action may unregister itself
  return action.function(context, words, text, action.argument);
}
