// For tests of answers in steps: a clock that advances while rows are read, and many VRFs.
#pragma once

#include <atomic>
#include <functional>
#include <thread>

#include "mpls/vpn/mib/src/route/route_test_support.h"
#include "platform/store/client/client.h"
#include "platform/store/tree/lists.h"

inline const std::string kSubtree = "/oper/mpls_vpn/gl/";
inline constexpr unsigned kVrfs = 200;
inline constexpr std::uint64_t kReading = 100'000;  // nanoseconds
// A slice of two milliseconds visits at most 20 VRFs when each costs a reading.
inline constexpr unsigned kFewestIterations = kVrfs / 20;

inline std::string VrfName(unsigned number) {
  return "vrf" + std::to_string(1000 + number);
}

struct Items {
  std::vector<std::string> keys;
  std::vector<std::vector<std::uint8_t>> records;
  bool operator==(const Items&) const = default;
};

class AnswersInSteps : public RouteTablesTest {
 protected:
  void SetUp() override {
    RouteTablesTest::SetUp();
    for (unsigned number = 0; number < kVrfs; ++number) AddVrfWithTables(VrfName(number), true, true);
    Connect();
    Provide();
    ASSERT_EQ(kvtree_serve(manager_), kStatusOk);
    LetReadingsTake(kReading);
  }
  void TearDown() override {
    LetReadingsTake(0);
    kvtree_stop_serving(manager_);
    RouteTablesTest::TearDown();
  }

  // Runs the event loop while a client asks. The number of iterations, before each of which the function is
  // called.
  unsigned Serve(
      const std::function<void(kvtree::Client&)>& ask,
      const std::function<void(unsigned)>& before = [](unsigned) {}) {
    std::atomic<bool> is_answered{false};
    std::thread asking([&] {
      kvtree::Client client(kvtree::Client::default_socket(), std::chrono::milliseconds(20000));
      EXPECT_EQ(client.connect(), kStatusOk);
      ask(client);
      is_answered = true;
    });
    unsigned iterations = 0;
    std::array<unsigned char, 1024> buffer;
    while (!is_answered) {
      EventContext context{manager_, buffer.data(), buffer.size(), 0};
      if (event_wait_for(&context, 0) != 0) {
        std::this_thread::yield();
        continue;
      }
      before(++iterations);
      event_dispatch(&context);
    }
    asking.join();
    return iterations;
  }
  // The items that a client gets, in at least so many iterations.
  Items Served(const std::string& path, bool is_datalist, unsigned fewest = kFewestIterations) {
    Items items;
    const unsigned iterations = Serve([&](kvtree::Client& client) {
      const kvtree::ListResult result =
          is_datalist ? client.datalist(kSubtree + path, 1000) : client.list(kSubtree + path, 1000);
      EXPECT_EQ(result.status, kStatusOk);
      for (const kvtree::ListItem& item : result.items) {
        items.keys.push_back(item.key);
        if (is_datalist) items.records.push_back(item.record);
      }
    });
    EXPECT_GE(iterations, fewest) << path;
    return items;
  }
  // Those of an answer made at once.
  static Items AtOnce(const std::string& path, bool is_datalist) {
    Items items;
    KvListReply reply{1000, 0, nullptr, nullptr};
    EXPECT_EQ((is_datalist ? kvtree_datalist : kvtree_list)(kSubtree + path, false, &reply), kStatusOk);
    if (is_datalist) {
      for (const KvDatalistItem& item : reply.datalist->items) {
        items.keys.push_back(item.key);
        items.records.emplace_back(item.value.begin(), item.value.end());
      }
    } else {
      for (const KvListItem& item : reply.list->items) items.keys.push_back(item.key);
    }
    kvtree_list_free(reply.list);
    kvtree_datalist_free(reply.datalist);
    return items;
  }
  // In steps and at once alike; the number of items.
  std::size_t Compare(const std::string& path, bool is_datalist) {
    SCOPED_TRACE(path);
    ClearPrints();
    const Items expected = AtOnce(path, is_datalist);
    const SaidLines prints = Prints();
    ClearPrints();
    const Items served = Served(path, is_datalist);
    EXPECT_EQ(served, expected);
    EXPECT_THAT(Prints(), testing::ElementsAreArray(prints));
    return served.keys.size();
  }
  // The first row from this path on, as text, or the failure's.
  std::string NextRoute(const std::string& path, unsigned fewest = kFewestIterations) {
    std::string text;
    const unsigned iterations = Serve([&](kvtree::Client& client) {
      const kvtree::GetResult result = client.get(kSubtree + path);
      text = err_text(result.status);
      if (result.status != kStatusOk) return;
      const Decoded<mpls_vpn_mib_route> row(
          kMibRouteParcel,
          {kKvKindRecord, const_cast<std::uint8_t*>(result.record.data()), result.record.size()});
      text = RouteText(*row.operator->());
    });
    EXPECT_GE(iterations, fewest) << path;
    return text;
  }
};

// --- Lists
