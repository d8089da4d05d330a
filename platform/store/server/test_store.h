// For the data store's tests: an event manager in its own directory, a provider whose answers repeat the
// request, and a subscriber that records its notifications.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/tree/kvtree.h"

// "name(form) a=1 b=- ..." for one call.
inline std::string describe(const char* name, const RequestArgs* args) {
  std::string text = std::string(name) + "/" + std::to_string(args->form);
  for (unsigned i = 0; i < args->count; ++i) {
    text += ' ';
    if (kvtree_absent(args, i)) {
      text += "absent";
    } else if (args->arg[i].text != nullptr) {
      text += "'" + std::string(args->arg[i].text) + "'";
    } else {
      text += std::to_string(*args->arg[i].number);
    }
  }
  return text;
}

inline std::string text_of(const KvReply& reply) {
  return {reinterpret_cast<const char*>(reply.data), reply.length};
}

inline void put_text(KvReply* reply, const std::string& text) {
  reply->kind = kKvKindRecord;
  reply->length = text.size();
  reply->data = static_cast<std::uint8_t*>(std::malloc(text.size() + 1));
  std::memcpy(reply->data, text.c_str(), text.size() + 1);
}

// Rows "1" to kRowCount, at "rows-next/<n>": the first whose number is not smaller than the key.
inline constexpr std::uint32_t kRowCount = 2500;

struct TestProvider {
  static inline Status get_answer = kStatusOk;      // when not 0, what every get fails with
  static inline std::uint32_t failing_row = 0;      // when not 0, the row whose reading fails with kStatusIo
  static inline std::size_t row_size = 0;           // when not 0, the size that rows are filled up to
  static inline std::function<void()> reading_row;  // called for each row
  static inline std::uint32_t last_max_items = 0;
  static inline std::uint32_t items_to_list = 2;
  static inline std::size_t value_size = 3;
  static inline unsigned steps_of_datalist = 1;  // in each of which the items are added
  static inline unsigned steps_taken = 0;
  static inline std::vector<std::string> redirected_from;  // what the redirecting rules were asked about

  static void reset() {
    get_answer = kStatusOk;
    failing_row = 0;
    row_size = 0;
    reading_row = nullptr;
    last_max_items = 0;
    items_to_list = 2;
    value_size = 3;
    steps_of_datalist = 1;
    steps_taken = 0;
    redirected_from.clear();
  }

  static Status describe_get(KvReply* reply, const RequestArgs* args) {
    if (get_answer != kStatusOk) return get_answer;
    put_text(reply, describe("get", args));
    return kStatusOk;
  }
  static Status row_get(KvReply* reply, const RequestArgs* args) {
    if (get_answer != kStatusOk) return get_answer;
    const std::uint32_t row = kvtree_absent(args, 0) || *args->arg[0].number == 0 ? 1 : *args->arg[0].number;
    if (row > kRowCount) return kStatusNoSuchRow;
    if (row == failing_row) return kStatusIo;
    if (reading_row) reading_row();
    std::string text = std::to_string(row);
    if (text.size() < row_size) text.resize(row_size, ' ');
    put_text(reply, text);
    return kStatusOk;
  }
  static Status row_following(const KvReply* row, std::string* path) {
    const std::string text = text_of(*row);
    *path = "rows-next/" + std::to_string(std::stoul(text) + 1);
    return kStatusOk;
  }
  static Status short_following(const KvReply* row, std::string* path) {
    if (text_of(*row) == "3") return kStatusEndOfList;
    const Status status = row_following(row, path);
    path->replace(0, std::strlen("rows-next"), "short-next");
    return status;
  }
  // As rows-next without the row 3, and what is asked for beyond the end is the last row.
  static Status gap_following(const KvReply* row, std::string* path) {
    const Status status = row_following(row, path);
    path->replace(0, std::strlen("rows-next"), "gap-next");
    return status;
  }
  static bool gap_redirect(std::string_view asked, const KvReply* row, std::string* path) {
    redirected_from.emplace_back(asked);
    if (row == nullptr) *path = "gap-next/" + std::to_string(kRowCount);
    if (row != nullptr && text_of(*row) == "3") *path = "gap-next/4";
    return !path->empty();
  }
  static bool lost_redirect(std::string_view asked, const KvReply*, std::string* path) {
    redirected_from.emplace_back(asked);
    *path = asked == "lost-next/9" ? "lost-next/" + std::string(kKvMaxPath, '1') : "lost-next/7";
    return true;
  }
  static Status broken_following(const KvReply*, std::string*) { return kStatusBadEncoding; }

  static Status list(KvListReply* reply, const RequestArgs*) {
    last_max_items = reply->max_items;
    if (const Status status = kvtree_list_create(&reply->list)) return status;
    for (std::uint32_t i = 0; i < items_to_list; ++i) {
      if (kvtree_list_add(reply->list, ("vrf" + std::to_string(i)).c_str(), 3, 0) == kStatusOk)
        ++reply->count;
    }
    return kStatusOk;
  }
  static Status datalist(KvListReply* reply, const RequestArgs*) {
    last_max_items = reply->max_items;
    if (reply->datalist == nullptr) {
      if (const Status status = kvtree_datalist_create(&reply->datalist)) return status;
    }
    const std::string value(value_size, 'v');
    for (std::uint32_t i = 0; i < items_to_list; ++i) {
      const std::string key = "vrf" + std::to_string(i);
      if (kvtree_datalist_add(reply->datalist, key.c_str(), 7, 0, value.data(), value.size()) == kStatusOk) {
        ++reply->count;
      }
    }
    return ++steps_taken < steps_of_datalist ? kStatusUnfinished : kStatusOk;
  }

  static inline const KvPathRow rows[] = {
      {"scalars", {0, nullptr, describe_get, nullptr, nullptr}},
      {"interface/<s>/<n>", {0, nullptr, describe_get, nullptr, nullptr}},
      {"interface-next/<s>/<n>", {kKvModeNext, nullptr, describe_get, nullptr, nullptr}},
      {"vrf-detail/<s>", {0, nullptr, nullptr, list, datalist}},
      {"rows-next/<n>", {kKvModeNext, nullptr, row_get, nullptr, nullptr}},
      {"short-next/<n>", {kKvModeNext, nullptr, row_get, nullptr, nullptr}},
      {"broken-next/<n>", {kKvModeNext, nullptr, row_get, nullptr, nullptr}},
      {"gap-next/<n>", {kKvModeNext, nullptr, row_get, nullptr, nullptr}},
      {"lost-next/<n>", {kKvModeNext, nullptr, row_get, nullptr, nullptr}},
  };
  static inline const KvPathTable table{rows, std::size(rows)};
  static inline const KvWalkRule walk_rules[] = {{"rows-next", row_following},
                                                 {"short-next", short_following},
                                                 {"broken-next", broken_following},
                                                 {"gap-next", gap_following, gap_redirect},
                                                 {"lost-next", row_following, lost_redirect}};

  static Status get_entry(const KvRequest* request, KvReply* reply) {
    return kvtree_match_get(request, &table, reply);
  }
  static Status list_entry(const KvRequest* request, KvListReply* reply) {
    return kvtree_match_list(request, &table, reply);
  }
  static Status datalist_entry(const KvRequest* request, KvListReply* reply) {
    return kvtree_match_datalist(request, &table, reply);
  }
};

// Owners and counted scopes of the tests.
inline constexpr std::array<KvConfigOwner, 5> kTestOwners = {
    {{"user", 0}, {"script", 1}, {"peer", 2}, {"peer-derived", 4}, {"system", 3}}};
inline constexpr std::array<std::string_view, 2> kTestCountedScopes = {"/cfg/gl/counted/", "/cfg/items/of/"};

class StoreTest : public ::testing::Test {
 protected:
  StoreTest() {
    kvtree_reset();
    EXPECT_EQ(kvtree_config_register_owners(kTestOwners), kStatusOk);
    kvtree_config_register_counted_scopes(kTestCountedScopes);
    TestProvider::reset();
    received().clear();
    manager = event_manager_create("/dev/mpls/vpn/main", 0);
  }
  ~StoreTest() override {
    kvtree_reset();
    fault_disarm_all();
    event_manager_destroy(manager);
  }

  void Provide() {
    ASSERT_EQ(kvtree_bind(&provider, "/oper/mpls_vpn/gl/", kKvBindProvider), kStatusOk);
    KvProviderFunctions functions;
    ASSERT_EQ(kvtree_init_prov_functions(&functions), kStatusOk);
    functions = {TestProvider::get_entry, TestProvider::list_entry, TestProvider::datalist_entry,
                 TestProvider::walk_rules, std::size(TestProvider::walk_rules)};
    ASSERT_EQ(kvtree_register_prov2(provider, "", manager, &functions, 0, 1), kStatusOk);
  }
  KvConnection* Bind(const char* path) {
    KvConnection* connection = nullptr;
    EXPECT_EQ(kvtree_bind(&connection, path, kKvBindConfiguration), kStatusOk);
    return connection;
  }
  void Subscribe(const char* path, std::uint32_t events) {
    KvRegistration* registration = nullptr;
    EXPECT_EQ(kvtree_register_notification(Bind(path), "", events, note, manager, 0, 0, 4, &registration),
              kStatusOk);
    EXPECT_NE(registration, nullptr);
  }
  static Status SetText(const std::string& path, const std::string& text) {
    KvValue value;
    value.type = KvValueType::kText;
    value.text = text;
    return kvtree_set(path, value);
  }
  void Run() const { event_run_pending(manager); }

  // The notifications received: "item events value".
  static std::vector<std::string>& received() {
    static std::vector<std::string> all;
    return all;
  }
  static std::vector<std::string> TakeReceived() { return std::exchange(received(), {}); }
  static void note(const KvNotification* notification) {
    const KvNotifyInfo* info = kvtree_notify_info(notification);
    received().push_back(std::string(info->item_name) + " " + std::to_string(info->whichevent) + " " +
                         (info->value == nullptr ? "none" : info->value->text));
  }

  TestRunDirectory directory;
  EventManager* manager = nullptr;
  KvConnection* provider = nullptr;
};
