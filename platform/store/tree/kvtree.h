// Hierarchical, path-keyed data store, the providers' and subscribers' side. (client.h is the other side of
// the socket.)
//
// Paths are components separated by '/'. A key component is written in its kind's text form (below). A
// provider registers get, list and datalist functions for a subtree; a subscriber registers for the changes
// below a path and is notified of the existing nodes before the registering call returns. Both usually pass
// what they receive to the path matcher (kvtree_match_*), which finds the first matching pattern of a routing
// table, decodes the key components and calls the handler.
//
// Key components. `s` text: every octet but [A-Za-z0-9_.:-] as %XX; the text "-" as %2D; an empty component
// is the empty text. `n` unsigned decimal number. `i` interface name (as `s`). `ip4` dotted quad. `ad` IPv4
// or IPv6 address. `x` any text, not decoded. The component "-" is an absent key, and so is every key
// component after the end of the path (a path may end early only where the rest of the pattern consists of
// keys).
//
// Forms: an entry with the mode kKvModeNext is form 1, any other form 0; a structured (XML) request adds 2.
// In forms 2 and 3 text keys are handed over encoded, for the handler to decode with kvtree_string_decode.
//
// Main thread only. Every operation that can fail is a fault point of its own name.
#pragma once

#include <any>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/core/sqlite/quarantine.h"
#include "platform/store/tree/columns.h"

// --- What handlers receive -----------------------------------------------------------------------

inline constexpr std::size_t kKvMaxArguments = 16;
inline constexpr std::size_t kKvMaxPath = 1024;         // octets of a path
inline constexpr std::uint32_t kKvMaxListItems = 1024;  // items of one list, datalist or walk answer
// Answers that take longer are made in steps of this time, between which the event loop serves others.
inline constexpr std::uint64_t kKvStepTime = 1'000'000;  // nanoseconds
// A walk answer ends with its first step, with "more rows follow", once it has so many rows: a client
// continues at or just before the last row it has, and must get beyond it.
inline constexpr std::uint32_t kKvFewestRows = 16;

struct KvArgument {
  const char* text;             // s, i, x, ip4, ad: the terminated text; null for n
  const std::uint32_t* number;  // n, and ip4 as a number in host order; null for texts
};

// The argument block of one request or notification. Bit n of absent_mask: argument n is absent; set for
// every n from the number of the pattern's keys on.
struct RequestArgs {
  std::uint32_t absent_mask;
  std::uint32_t form;
  std::uint32_t count;  // key components in the pattern
  KvArgument arg[kKvMaxArguments];
};

inline bool kvtree_absent(const RequestArgs* args, unsigned n) {
  return (args->absent_mask >> n & 1U) != 0;
}

// What lets a handler answer in steps. Once the step's time is over and something is done, the handler may
// store what it needs to go on and return kStatusUnfinished. It is called again with the same reply and equal
// arguments, after other clients were served, and after changes of anything: `state` must not have pointers
// to what they could free. If the request ends before, `state` is destroyed.
struct KvSteps {
  std::uint64_t end = 0;  // clock_monotonic()
  std::any state;         // the handler's; empty in the first step

  bool is_over() const { return clock_monotonic() >= end; }
};

inline constexpr std::uint32_t kKvKindRecord = 7;  // an encoded record

struct KvReply {
  std::uint32_t kind;
  std::uint8_t* data;  // malloc'ed; the data store frees it
  std::size_t length;
  KvSteps* steps = nullptr;  // null: the answer has to be complete
};

// Lists hold keys, datalists keys and values. Item kinds are passed through to readers.
struct KvList;
struct KvDatalist;
[[nodiscard]] Status kvtree_list_create(KvList** list);
[[nodiscard]] Status kvtree_list_add(KvList* list, const char* key, std::uint32_t kind, std::uint32_t flags);
void kvtree_list_free(KvList* list);
[[nodiscard]] Status kvtree_datalist_create(KvDatalist** list);
[[nodiscard]] Status kvtree_datalist_add(KvDatalist* list, const char* key, std::uint32_t kind,
                                         std::uint32_t flags, const void* value, std::size_t length);
// Positions before the first item; kStatusInvalid for null.
[[nodiscard]] Status kvtree_datalist_start(KvDatalist* list);
// The next item, valid until the list is freed; kStatusEndOfList after the last. Out arguments may be null.
[[nodiscard]] Status kvtree_datalist_next(KvDatalist* list, const char** key, const void** value,
                                          std::size_t* length);
// The item where a reader that starts from the beginning and checks each item would stop: the first with this
// key, or the first without a value if that is earlier. The first call sorts the keys. kStatusEndOfList
// if there is neither.
[[nodiscard]] Status kvtree_datalist_find(KvDatalist* list, const char* wanted, const char** key,
                                          const void** value, std::size_t* length);
void kvtree_datalist_free(KvDatalist* list);

struct KvListReply {
  std::uint32_t max_items;   // the most items that the caller accepts
  std::uint32_t count;       // items placed
  KvList* list;              // set by list handlers; the data store frees it
  KvDatalist* datalist;      // set by datalist handlers
  KvSteps* steps = nullptr;  // null: the answer has to be complete. Between steps items may be taken out
};

// What a handler stored in the step before; null in the first step.
template <typename State, typename Reply>
State* kvtree_resumed(const Reply* reply) {
  return reply->steps == nullptr ? nullptr : std::any_cast<State>(&reply->steps->state);
}

enum class KvValueType : std::uint32_t { kNone = 0, kText = 1, kNumber = 2, kTuple = 3, kRecord = 7 };

struct KvValue {
  KvValueType type = KvValueType::kNone;
  std::string text;
  std::int64_t number = 0;
  std::vector<std::int64_t> tuple;
  std::vector<std::uint8_t> record;
  // Of an owner's value in the configuration (configuration.h): it suppresses those of the other owners.
  bool is_suppressed = false;
  bool operator==(const KvValue&) const = default;
};

inline constexpr std::uint32_t kKvEventCreated = 0x1;
inline constexpr std::uint32_t kKvEventSet = 0x2;
inline constexpr std::uint32_t kKvEventDeleted = 0x4;

struct KvNotifyInfo {
  const char* item_name;     // the last component of the path
  std::uint32_t whichevent;  // kKvEvent bits
  const KvValue* value;      // null for deletions
  std::uint32_t scan = 0;    // backend_scan_in_progress when the notification was handed over by the matcher
};

using KvGetHandler = Status (*)(KvReply*, const RequestArgs*);
using KvListHandler = Status (*)(KvListReply*, const RequestArgs*);
using KvNotifyHandler = void (*)(const KvNotifyInfo*, const RequestArgs*);

// --- Routing tables and the path matcher ---------------------------------------------------------

inline constexpr std::uint32_t kKvModeNext = 0x100;  // the entry is asked for the row after the key

struct KvHandlerEntry {
  std::uint32_t mode = 0;
  KvNotifyHandler notify = nullptr;
  KvGetHandler get = nullptr;
  KvListHandler list = nullptr;
  KvListHandler datalist = nullptr;
};

// One pattern: literal components as they are, key components as <s>, <n>, <i>, <ip4>, <ad>, <x>; for example
// "interface-next/<s>/<n>"; <*> is a key that no handler reads: any text, and no argument. Patterns are tried
// in table order; where two share their beginning, a matching literal is tried before a key, and a branch
// that fails later is abandoned for the next one.
struct KvPathRow {
  const char* pattern;
  KvHandlerEntry handlers;
};

struct KvPathTable {
  const KvPathRow* rows;
  std::size_t count;
};

// 1 while a subscriber is registering for what exists already; set by the daemon, shown to handlers in the
// matcher's notifications (KvNotifyInfo::scan).
extern std::uint32_t backend_scan_in_progress;

struct KvRequest;       // one get, list or datalist request, below the provider's bind point
struct KvNotification;  // one change, below the subscriber's bind point

// kStatusUnknownPath, kStatusBadKey (no pattern fits and one would have, had a key decoded),
// kStatusNoHandler, kStatusInvalid for a table with a malformed pattern (logged), or what the handler
// answers. A table is compiled when it is first used; it and its patterns must outlive its use.
[[nodiscard]] Status kvtree_match_get(const KvRequest* request, const KvPathTable* table, KvReply* reply);
[[nodiscard]] Status kvtree_match_list(const KvRequest* request, const KvPathTable* table,
                                       KvListReply* reply);
[[nodiscard]] Status kvtree_match_datalist(const KvRequest* request, const KvPathTable* table,
                                           KvListReply* reply);
// A notification that fits no pattern, or whose entry has no handler, is dropped.
void kvtree_match_notify(const KvNotification* notification, const KvPathTable* table);
// The notification as a handler without a table of paths needs it.
const KvNotifyInfo* kvtree_notify_info(const KvNotification* notification);
// The node's path below the subscriber's bind point, during the call.
std::string_view kvtree_notify_path(const KvNotification* notification);

// --- Binding, providers, subscriptions -----------------------------------------------------------

struct KvConnection;
struct KvRegistration;

inline constexpr std::uint32_t kKvBindConfiguration = 0;
inline constexpr std::uint32_t kKvBindProvider = 1;

// The file that holds the data store's code (MPLS_VPN_MIB_KVTREE_LIBRARY overrides it): callers check that it
// can be read before they use the store.
const char* kvtree_library_path();

[[nodiscard]] Status kvtree_bind(KvConnection** connection, const char* path, std::uint32_t mode);
// Ends the connection and every registration made on it.
[[nodiscard]] Status kvtree_unbind(KvConnection* connection);

using KvProviderGet = Status (*)(const KvRequest*, KvReply*);
using KvProviderList = Status (*)(const KvRequest*, KvListReply*);

// How a batched walk continues: forms the path (below the bind point) of the read that follows the row just
// read at `path`. kStatusEndOfList if no row can follow. The rule is in the table next to its path.
//
// Some "next" reads do not answer the row that follows: they may pass over rows, or repeat one. `redirect`,
// where a path has it, is shown each answer (`row` is null for "no such row") before it counts. True: the
// read at *path is to be made instead. After kKvMaxRedirects the answer counts whatever it is.
struct KvWalkRule {
  const char* first_component;  // "interface-next"
  Status (*following)(const KvReply* row, std::string* path);
  bool (*redirect)(std::string_view asked, const KvReply* row, std::string* path) = nullptr;
};
inline constexpr unsigned kKvMaxRedirects = 4;  // for one row

// A batch of rows with some of their columns (platform/store/tree/columns.h): what a client that needs few
// columns of many rows asks for in the place of records. The client names columns by numbers, which mean what
// provider and client agree on.
struct KvColumnBatch {
  std::span<const std::uint8_t> columns;
  std::uint32_t max_rows = 0;
  KvSteps* steps = nullptr;  // null: the answer has to be complete
  kvtree::ColumnPacker packer;
  std::vector<std::uint8_t> octets;  // the packed rows
  std::uint32_t rows = 0;            // their number
  bool end = false;                  // no row follows the last one

  bool is_full() const { return rows >= max_rows || octets.size() >= kvtree::kEnoughColumns; }
};

// How the rows at paths of this first component become columns. The rows are those of a walk, or, where the
// path has no walk rule, the single one that a get answers.
struct KvColumnRule {
  const char* first_component;
  // Appends one row. kStatusInvalid for an unknown column.
  Status (*pack)(const KvReply& row, KvColumnBatch* batch);
  // Where reading one row after the other is too slow: appends rows as the walk would, until the batch
  // is full, no row follows, or the step is over. kStatusNoSuchRow without any row; kStatusUnfinished as in
  // KvSteps (with rows, the batch may be answered instead).
  Status (*read)(const KvRequest* request, KvColumnBatch* batch) = nullptr;
};

// A request's path below the provider's bind point, during the call.
std::string_view kvtree_request_path(const KvRequest* request);

struct KvProviderFunctions {
  KvProviderGet get;
  KvProviderList list;
  KvProviderList datalist;
  const KvWalkRule* walk_rules;
  std::size_t walk_rule_count;
  const KvColumnRule* column_rules = nullptr;
  std::size_t column_rule_count = 0;
};

[[nodiscard]] Status kvtree_init_prov_functions(KvProviderFunctions* functions);  // clears the block
[[nodiscard]] Status kvtree_register_prov2(KvConnection* connection, const char* path, EventManager* manager,
                                           const KvProviderFunctions* functions, std::uint32_t first,
                                           std::uint32_t second);
using KvNotificationEntry = void (*)(const KvNotification*);
// Replays what exists below the path (event kKvEventCreated | kKvEventSet) before it returns. A null entry is
// a missing handler: the notifications are dropped. `events` has the kKvEvent bits wanted.
[[nodiscard]] Status kvtree_register_notification(KvConnection* connection, const char* path,
                                                  std::uint32_t events, KvNotificationEntry entry,
                                                  EventManager* manager, std::uint32_t first,
                                                  std::uint32_t second, std::uint32_t third,
                                                  KvRegistration** registration);

// --- Nodes ---------------------------------------------------------------------------------------

// Sets (creates) or deletes one node of the tree; subscribers are notified through their event manager, in
// order. kStatusInvalid for an invalid path. kvtree_delete: kStatusNoSuchRow for a missing node. The first
// set of a node carries kKvEventCreated | kKvEventSet, every other set kKvEventSet; a subscriber receives the
// bits that it registered for, and no notification if none is left.
[[nodiscard]] Status kvtree_set(std::string_view path, KvValue value);
[[nodiscard]] Status kvtree_delete(std::string_view path);
// Delivers the pending notifications of the subscribers whose path is this one or below it now, in order: for
// a change after which a subscriber could no longer find what an earlier notification refers to.
void kvtree_deliver(std::string_view path);

// A notification that a provider originates (a trap): sent to every client that watches a path of which the
// provider's bind path is below or equal.
struct KvProviderNotification {
  const char* item_name;
  std::uint32_t first;   // passed through
  std::uint32_t second;  // passed through; the kind of the data
  std::uint8_t reserved[12];
  const std::uint8_t* data;
  std::size_t length;
};
// kStatusInvalid for a null or non-provider connection or a missing item name. Does not wait for subscribers.
[[nodiscard]] Status kvtree_prov_notify(KvConnection* connection, const KvProviderNotification* notification);
// From now on the notifications of the providers below the path are retained for the subscriber of this name,
// in order, until it acknowledges them, even while it is not connected. Beyond `limit` the oldest are lost;
// the loss is logged and reported to the subscriber with the next one. kStatusExists if they are retained
// already, kStatusInvalid for an invalid path, no name or a limit below 2. In a file they outlive the
// process, if it can be used (KvRetained::problem).
[[nodiscard]] Status kvtree_retain_notifications(std::string_view path, std::string_view name,
                                                 std::size_t limit, const std::string& file = {});
// How many are retained for this subscriber and not acknowledged; 0 if none are retained.
std::size_t kvtree_waiting_notifications(std::string_view path, std::string_view name);
// While the result exists, `observer` is called with each notification of the providers below the path, in
// order, before it is delivered. It must not notify.
using KvNotificationObserver = std::function<void(const KvProviderNotification& notification)>;
[[nodiscard]] std::shared_ptr<const void> kvtree_observe_notifications(std::string_view path,
                                                                       KvNotificationObserver observer);
// How that queue is now; none if they are not retained.
struct KvRetained {
  std::size_t waiting;  // not acknowledged
  std::size_t limit;
  std::uint64_t lost;        // before those that wait
  std::uint64_t subscriber;  // the client that receives them, 0: none
  std::uint64_t alone_for;   // nanoseconds without one; 0 with one
  std::string problem;       // why their file cannot be used or written; empty if it can
};
std::optional<KvRetained> kvtree_retained_notifications(std::string_view path, std::string_view name);
// Sets the nodes that earlier processes stored in the directory's configuration.db, and from now on stores
// commits there (platform/store/configuration/configuration.h). Call before subscribers register and before
// the first commit (kStatusExists). kStatusIo (logged) if the database cannot be used; a database with
// unusable contents is renamed, which is not a failure.
[[nodiscard]] Status kvtree_keep_configuration(const std::string& directory);
// Why the last commit could not be written there; empty if it could, or if none was made.
std::string kvtree_configuration_problem();
// What could not be used of it, as it was when the database was opened; none before.
sqlite::Quarantine kvtree_configuration_quarantine();

// --- Key texts -----------------------------------------------------------------------------------

std::string kvtree_encode_text(std::string_view text);
// C forms for handlers: *out is malloc'ed; on failure it may still be set and must be freed.
[[nodiscard]] Status kvtree_string_encode(const char* text, char** out);
// kStatusBadKey for a malformed escape or an escaped NUL.
[[nodiscard]] Status kvtree_string_decode(const char* encoded, char** out);

// --- In-process requests and the server ----------------------------------------------------------

// Answers as the server does for a client's request on this (whole) path. The caller frees reply->data,
// lists.
[[nodiscard]] Status kvtree_get(std::string_view path, bool structured, KvReply* reply);
[[nodiscard]] Status kvtree_list(std::string_view path, bool structured, KvListReply* reply);
[[nodiscard]] Status kvtree_datalist(std::string_view path, bool structured, KvListReply* reply);
// Rows from `path` on, by the walk rule of its first component below the provider. *end is set if no row
// follows the last one. kStatusOk with the rows so far if a later read fails with kStatusNoSuchRow; any other
// failure, and every failure of the first read, is returned without rows. kStatusNoHandler without a rule,
// kStatusInvalid for a maximum of 0. At most kKvMaxListItems rows, and fewer when kKvStepTime has passed.
[[nodiscard]] Status kvtree_walk(std::string_view path, bool structured, std::uint32_t max_rows,
                                 std::vector<std::vector<std::uint8_t>>* rows, bool* end);

// The columns of the rows from `path` on, into the batch, whose columns and max_rows the caller has set (and
// whose packer has as many columns). Statuses as for kvtree_walk; kStatusNoHandler without a rule.
[[nodiscard]] Status kvtree_columns(std::string_view path, KvColumnBatch* batch);

// From now on the check runs before every request for a path with this beginning; a status other than
// kStatusOk is the answer. For providers that have no other way to report that they cannot answer. The check
// may remove itself. Null removes it.
void kvtree_guard(std::string_view path, Status (*check)());

// Serves clients on the manager's named socket. Limits: 64 clients, 64 KiB per request, 4 MiB per answer. The
// server stops reading a client with 256 answers or 1 MiB of answers unread until it takes them, and closes
// one with 16 MiB unread (answers and notifications). Answers are sent in the order of the requests.
// kStatusExists if the store is served already. Stop before the manager is destroyed.
[[nodiscard]] Status kvtree_serve(EventManager* manager);
void kvtree_stop_serving(EventManager* manager);
// Removes connections, registrations, providers, nodes, actions and compiled tables; serving continues. For
// tests that restart the daemon.
void kvtree_reset();
