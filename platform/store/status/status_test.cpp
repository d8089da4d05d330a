// The state of the process, as its readers get it.
#include "platform/store/status/status.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <span>

#include "platform/core/base/clock.h"
#include "platform/store/server/test_served_store.h"
#include "platform/store/status/records.h"

namespace {

using process_status::ClientStatus;
using process_status::kProcessStatusParcel;
using process_status::ProcessStatus;

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
  std::span<const ClientStatus> clients() const {
    return {static_cast<const ClientStatus*>(record_.clients.elements), record_.clients.count};
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
