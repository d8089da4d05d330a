#include "tests/kill/small_daemon.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "platform/core/chkpt/chkpt.h"
#include "platform/core/evm/evm.h"
#include "platform/core/files/directories.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/kvtree.h"

namespace kill9 {

namespace {

constexpr std::uint32_t kTable = 100;

struct SmallDaemon {
  EventManager* manager = nullptr;
  ChkptTable* table = nullptr;
  KvConnection* provider = nullptr;
  std::string loaded;
};

SmallDaemon& daemon() {
  static SmallDaemon instance;
  return instance;
}

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "small daemon: %s\n", what);
  _exit(1);
}

void require_ok(Status status, const char* what) {
  require(status == kStatusOk, what);
}

std::uint64_t find_record(std::uint32_t key) {
  std::uint64_t object = 0;
  const Status status = chkpt_mapkey(daemon().table, &key, sizeof key, &object);
  require(status == kStatusOk || status == kStatusChkptKeyNotFound, "chkpt_mapkey");
  return object;
}

std::map<std::uint32_t, std::int64_t> read_records() {
  std::map<std::uint32_t, std::int64_t> records;
  ChkptIterator* iterator = nullptr;
  require_ok(chkpt_iterate_start(daemon().table, &iterator), "chkpt_iterate_start");
  for (std::uint64_t object = 1; object != 0;) {
    std::uint32_t key = 0;
    std::int64_t value = 0;
    std::size_t key_size = sizeof key;
    std::size_t size = sizeof value;
    require_ok(chkpt_iterate_next(iterator, &key, &key_size, &value, &size, &object), "chkpt_iterate_next");
    if (object != 0) records[key] = value;
  }
  require_ok(chkpt_iterate_end(iterator), "chkpt_iterate_end");
  return records;
}

void save(std::uint32_t key, std::int64_t value) {
  std::uint64_t object = find_record(key);
  if (object == 0) require_ok(chkpt_create(daemon().table, &key, sizeof key, &object), "chkpt_create");
  require_ok(chkpt_save(daemon().table, object, &value, sizeof value), "chkpt_save");
}

void follow_setting(const KvNotification* notification) {
  const KvNotifyInfo* info = kvtree_notify_info(notification);
  const auto key = static_cast<std::uint32_t>(std::strtoul(info->item_name, nullptr, 10));
  if (info->value != nullptr) return save(key, info->value->number);
  if (const std::uint64_t object = find_record(key))
    require_ok(chkpt_delete(daemon().table, object), "chkpt_delete");
}

Status report_loaded(const KvActionContext&, const std::vector<std::string>&, std::string* text, void*) {
  *text = daemon().loaded;
  return kStatusOk;
}

Status read_one(const KvActionContext&, const std::vector<std::string>& words, std::string* text, void*) {
  const auto records = read_records();
  const auto found = records.find(static_cast<std::uint32_t>(std::stoul(words.at(1))));
  *text = std::to_string(found == records.end() ? 0 : found->second);
  return kStatusOk;
}

Status save_one(const KvActionContext&, const std::vector<std::string>& words, std::string*, void*) {
  save(static_cast<std::uint32_t>(std::stoul(words.at(1))), std::stoll(words.at(2)));
  return kStatusOk;
}

Status raise_traps(const KvActionContext&, const std::vector<std::string>& words, std::string*, void*) {
  auto number = static_cast<std::uint32_t>(std::stoul(words.at(1)));
  for (unsigned long left = std::stoul(words.at(2)); left > 0; --left) {
    KvProviderNotification trap{};
    trap.item_name = "trap";
    trap.first = number++;
    require_ok(kvtree_prov_notify(daemon().provider, &trap), "kvtree_prov_notify");
  }
  return kStatusOk;
}

// As daemon/host.cpp: the configuration is there before the manager serves.
void open_store() {
  require_ok(kvtree_config_register_owners(kOwners), "owners");
  require_ok(kvtree_keep_configuration(state_directory()), "kvtree_keep_configuration");
  require_ok(kvtree_retain_notifications(kTraps, kTrapSubscriber, kTrapQueue, state_directory() + "/traps"),
             "kvtree_retain_notifications");
  chkpt_gate_output();
  daemon().manager = event_manager_create("/dev/mpls/vpn/main", 0);
  require(daemon().manager != nullptr, "event_manager_create");
  require_ok(kvtree_serve(daemon().manager), "kvtree_serve");
}

void open_checkpoint() {
  ChkptApplication application{};
  ChkptTableDescriptor descriptor{};
  chkpt_application_init(&application, 1235, "mpls_vpn");
  chkpt_table_init(&descriptor, 1, 1, sizeof(std::int64_t), 1, 0);
  bool had_contents = false;
  require_ok(chkpt_init(&application, daemon().manager), "chkpt_init");
  require_ok(chkpt_register(&descriptor, kTable, &daemon().table, &had_contents), "chkpt_register");
  for (const auto& [key, value] : read_records())
    daemon().loaded += std::to_string(key) + "=" + std::to_string(value) + " ";
}

void register_all() {
  require_ok(kvtree_bind(&daemon().provider, kTraps.c_str(), kKvBindProvider), "kvtree_bind");
  KvProviderFunctions functions;
  require_ok(kvtree_init_prov_functions(&functions), "kvtree_init_prov_functions");
  require_ok(kvtree_register_prov2(daemon().provider, "", daemon().manager, &functions, 0, 1),
             "kvtree_register_prov2");
  require_ok(kvtree_register_action("loaded", report_loaded, nullptr), "loaded");
  require_ok(kvtree_register_action("read", read_one, nullptr), "read");
  require_ok(kvtree_register_action("save", save_one, nullptr), "save");
  require_ok(kvtree_register_action("raise", raise_traps, nullptr), "raise");
  KvConnection* configuration = nullptr;
  KvRegistration* registration = nullptr;
  require_ok(kvtree_bind(&configuration, kSettings.c_str(), kKvBindConfiguration), "kvtree_bind");
  require_ok(kvtree_register_notification(configuration, "", kKvEventCreated | kKvEventSet | kKvEventDeleted,
                                          follow_setting, daemon().manager, 0, 0, 4, &registration),
             "kvtree_register_notification");
}

}  // namespace

void run_small_daemon() {
  open_store();
  open_checkpoint();
  register_all();
  std::array<unsigned char, 1024> buffer;
  EventContext context{daemon().manager, buffer.data(), buffer.size(), 0};
  for (;;) {
    if (event_wait(&context) == 0) event_dispatch(&context);
  }
}

}  // namespace kill9
