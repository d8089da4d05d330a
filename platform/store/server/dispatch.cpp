// Dispatch: the handler that a table of paths has for a request or a notification.
//
// A table is compiled once in the life of the process, and found again by the address of its rows.
#include <deque>

#include "platform/core/base/fault.h"
#include "platform/store/server/store.h"
#include "platform/store/tree/matcher.h"

std::uint32_t backend_scan_in_progress = 0;

namespace kvtree {

namespace {

struct KnownTable {
  const KvPathRow* rows;
  CompiledTable compiled;
};

// One for each provider and subscription of the process: few.
std::deque<KnownTable>& known_tables() {
  static std::deque<KnownTable> tables;
  return tables;
}

const CompiledTable& compiled_table(const KvPathTable& table) {
  for (const KnownTable& known : known_tables()) {
    if (known.rows == table.rows) return known.compiled;
  }
  return known_tables().emplace_back(KnownTable{table.rows, compile_table(table)}).compiled;
}

// The handler entry that fits, with the arguments in *match.
Status find_entry(const KvPathTable& table, std::string_view path, bool structured, PathMatch* match,
                  const KvHandlerEntry** entry) {
  const CompiledTable& compiled = compiled_table(table);
  if (!compiled.valid) return kStatusInvalid;
  if (const Status status = match_path(compiled, path, structured, match)) return status;
  *entry = &table.rows[match->row].handlers;
  match->args.form = ((*entry)->mode & kKvModeNext) != 0 ? 1 : 0;
  if (structured) match->args.form += 2;
  return kStatusOk;
}

template <typename Handler, typename Reply>
Status call_handler(const char* fault_point, const KvRequest* request, const KvPathTable* table, Reply* reply,
                    Handler KvHandlerEntry::*handler) {
  if (const Status status = fault_check(fault_point)) return status;
  PathMatch match;
  const KvHandlerEntry* entry = nullptr;
  if (const Status status = find_entry(*table, request->path, request->structured, &match, &entry))
    return status;
  if (entry->*handler == nullptr) return kStatusNoHandler;
  return (entry->*handler)(reply, &match.args);
}

}  // namespace

void forget_compiled_tables() {
  known_tables().clear();
}

}  // namespace kvtree

Status kvtree_match_get(const KvRequest* request, const KvPathTable* table, KvReply* reply) {
  return kvtree::call_handler("kvtree_match_get", request, table, reply, &KvHandlerEntry::get);
}

Status kvtree_match_list(const KvRequest* request, const KvPathTable* table, KvListReply* reply) {
  return kvtree::call_handler("kvtree_match_list", request, table, reply, &KvHandlerEntry::list);
}

Status kvtree_match_datalist(const KvRequest* request, const KvPathTable* table, KvListReply* reply) {
  return kvtree::call_handler("kvtree_match_datalist", request, table, reply, &KvHandlerEntry::datalist);
}

void kvtree_match_notify(const KvNotification* notification, const KvPathTable* table) {
  kvtree::PathMatch match;
  const KvHandlerEntry* entry = nullptr;
  if (kvtree::find_entry(*table, notification->path, false, &match, &entry) != kStatusOk) return;
  if (entry->notify == nullptr) return;
  KvNotifyInfo info = notification->info;
  info.scan = backend_scan_in_progress;
  entry->notify(&info, &match.args);
}

const KvNotifyInfo* kvtree_notify_info(const KvNotification* notification) {
  return &notification->info;
}

std::string_view kvtree_notify_path(const KvNotification* notification) {
  return notification->path;
}
