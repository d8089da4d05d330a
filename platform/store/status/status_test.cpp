// The state of the process, as its readers get it.
#include "platform/store/status/status.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <fstream>
#include <span>

#include "platform/core/base/clock.h"
#include "platform/store/server/test_served_store.h"
#include "platform/store/status/records.h"

namespace {

using process_status::ClientStatus;
using process_status::DatabaseFact;
using process_status::DatabaseStatus;
using process_status::kProcessStatusParcel;
using process_status::ProcessStatus;
using process_status::RouteModuleFailure;
using process_status::SourceFact;
using process_status::SourceStatus;
using process_status::TrapsFact;

constexpr std::uint64_t kStart = 1'700'000'000 * kNanosecondsPerSecond;
const std::string kPath = std::string(process_status::kProviderPath) + process_status::kItemName;

class DecodedStatus {
 public:
  explicit DecodedStatus(std::span<const std::uint8_t> octets) {
    EXPECT_EQ(parcel_decode(&kProcessStatusParcel, octets.data(), octets.size(), &record_), kStatusOk);
  }
  ~DecodedStatus() { EXPECT_EQ(parcel_free_indirections(&kProcessStatusParcel, &record_), kStatusOk); }
  DecodedStatus(const DecodedStatus&) = delete;
  DecodedStatus& operator=(const DecodedStatus&) = delete;
  const ProcessStatus* operator->() const { return &record_; }
  std::span<const ClientStatus> clients() const { return elements<ClientStatus>(record_.clients); }
  template <typename T>
  static std::span<const T> elements(const ParcelArray& array) {
    return {static_cast<const T*>(array.elements), static_cast<std::size_t>(array.count)};
  }

 private:
  ProcessStatus record_{};
};

class ProcessStatusTest : public ServedStore {
 protected:
  ProcessStatusTest() {
    EXPECT_EQ(process_status_start(manager, {"1.2.3", "router file a.yaml"}), kStatusOk);
  }
  ~ProcessStatusTest() override {
    Stop();
    process_status_stop();
  }
  static DecodedStatus Read() {
    KvReply reply{};
    EXPECT_EQ(kvtree_get(kPath, false, &reply), kStatusOk);
    const std::unique_ptr<std::uint8_t, decltype(&std::free)> owned(reply.data, &std::free);
    return DecodedStatus({reply.data, reply.length});
  }
  DecodedStatus Ask() {
    const kvtree::GetResult result = client.get(kPath);
    EXPECT_EQ(result.status, kStatusOk);
    return DecodedStatus(result.record);
  }
};

TEST_F(ProcessStatusTest, StatesWhatRuns) {
  const DecodedStatus status = Read();
  EXPECT_STREQ(status->version, "1.2.3");
  EXPECT_STREQ(status->source, "router file a.yaml");
  EXPECT_EQ(status.clients().size(), 0U);
}

TEST_F(ProcessStatusTest, StatesTimeAndLongIterations) {
  process_status_stop();
  ManualClock clock(kStart);
  ASSERT_EQ(process_status_start(manager, {}), kStatusOk);
  for (const std::uint64_t milliseconds : {49, 75'000, 60}) {
    event_post(manager, [&] { clock.advance(milliseconds * kNanosecondsPerMillisecond); });
    event_run_pending(manager);
  }
  const DecodedStatus status = Read();
  EXPECT_EQ(status->uptime, 75U);
  EXPECT_EQ(status->long_iterations, 2U);
  EXPECT_EQ(status->longest_iteration, 75'000U);
  EXPECT_EQ(status->longest_iteration_time, kStart / kNanosecondsPerSecond + 75);
}

TEST_F(ProcessStatusTest, StatesEachSource) {
  process_status_stop();
  const std::vector<SourceFact> facts = {{"kernel", "6.1.0", true, 1'700'000'000, ""},
                                         {"bgpd", "", false, 0, "it does not run"}};
  ASSERT_EQ(process_status_start(manager, {.sources = [&facts] { return facts; }}), kStatusOk);
  const DecodedStatus status = Read();
  const auto sources = DecodedStatus::elements<SourceStatus>(status->sources);
  ASSERT_EQ(sources.size(), 2U);
  EXPECT_STREQ(sources[0].name, "kernel");
  EXPECT_STREQ(sources[0].version, "6.1.0");
  EXPECT_EQ(sources[0].is_up, 1U);
  EXPECT_EQ(sources[0].last_answer, 1'700'000'000U);
  EXPECT_STREQ(sources[1].problem, "it does not run");
  EXPECT_EQ(sources[1].is_up, 0U);
  EXPECT_EQ(sources[1].last_answer, 0U);
  EXPECT_EQ(process_status::source_facts().size(), 2U);
}

TEST_F(ProcessStatusTest, HasNoSourcesWhenItIsNotProvided) {
  EXPECT_TRUE(process_status::source_facts().empty());
  process_status_stop();
  EXPECT_TRUE(process_status::source_facts().empty());
}

TEST_F(ProcessStatusTest, StatesSizeAndFilesSetAsideOfEachDatabase) {
  process_status_stop();
  const std::string path = directory.path() + "/some.db";
  std::ofstream(path) << std::string(1024, 'x');
  std::ofstream(path + "-wal") << 'x';
  for (const char* number : {"1", "2", "4"}) std::ofstream(path + ".unusable." + number) << 'x';
  const auto databases = [&path] {
    return std::vector<DatabaseFact>{{"some", path, "the disk is full", {3, "quarantine_a"}}};
  };
  ASSERT_EQ(process_status_start(manager, {.databases = databases}), kStatusOk);
  const DecodedStatus status = Read();
  const auto shown = DecodedStatus::elements<DatabaseStatus>(status->databases);
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_STREQ(shown[0].path, path.c_str());
  EXPECT_STREQ(shown[0].problem, "the disk is full");
  EXPECT_EQ(shown[0].kibibytes, 2U);
  EXPECT_EQ(shown[0].set_aside, 2U);
  EXPECT_EQ(shown[0].quarantined, 3U);
  EXPECT_STREQ(shown[0].quarantine, "quarantine_a");
}

TEST_F(ProcessStatusTest, StatesTrapsAndRouteModules) {
  process_status_stop();
  ASSERT_EQ(process_status_start(
                manager, {.route_module_failures = [] { return std::vector<std::string>{"x.dll: missing"}; },
                          .traps =
                              [] {
                                return std::optional(TrapsFact{3, 4096, 2, 7, 5});
                              }}),
            kStatusOk);
  const DecodedStatus status = Read();
  const auto failures = DecodedStatus::elements<RouteModuleFailure>(status->route_module_failures);
  ASSERT_EQ(failures.size(), 1U);
  EXPECT_STREQ(failures[0].text, "x.dll: missing");
  EXPECT_EQ(status->has_traps, 1U);
  EXPECT_EQ(status->traps_waiting, 3U);
  EXPECT_EQ(status->traps_capacity, 4096U);
  EXPECT_EQ(status->traps_lost, 2U);
  EXPECT_EQ(status->traps_subscriber, 7U);
  EXPECT_EQ(status->traps_alone_for, 5U);
}

TEST_F(ProcessStatusTest, HasNoOtherItems) {
  KvReply reply{};
  EXPECT_EQ(kvtree_get("/oper/process/state", false, &reply), kStatusUnknownPath);
  EXPECT_EQ(kvtree_get("/oper/process/status/1", false, &reply), kStatusUnknownPath);
}

TEST_F(ProcessStatusTest, IsProvidedOnceUntilItIsStopped) {
  EXPECT_EQ(process_status_start(manager, {}), kStatusExists);
  process_status_stop();
  KvReply reply{};
  EXPECT_NE(kvtree_get(kPath, false, &reply), kStatusOk);
  EXPECT_EQ(process_status_start(manager, {}), kStatusOk);
}

TEST_F(ProcessStatusTest, ListsTheClientThatAsks) {
  StartAndConnect();
  ASSERT_EQ(client.get(kPath).status, kStatusOk);
  const DecodedStatus status = Ask();
  ASSERT_EQ(status.clients().size(), 1U);
  const ClientStatus& self = status.clients()[0];
  EXPECT_EQ(self.user, getuid());
  EXPECT_EQ(self.process, static_cast<std::uint32_t>(getpid()));
  EXPECT_STREQ(self.role, "configure");
  EXPECT_EQ(self.requests, 1U);  // before this one
  EXPECT_EQ(self.queued, 0U);
}

}  // namespace
