// For tests: a file source that follows its file, with a reader that the test can hold up.
#pragma once

#include <atomic>
#include <fstream>
#include <memory>
#include <semaphore>
#include <string>

#include "sources/file/file_source_test_support.h"

inline constexpr char kRed[] = "vrfs: [{name: red, id: 10}]\n";
inline constexpr char kBlue[] = "vrfs: [{name: blue, id: 20}]\n";

// Reads files like the source itself, but waits for the test between the read and its delivery.
class SlowReader {
 public:
  router_file::BackgroundReader::Read Function() const {
    return [gate = gate_](const std::string& path) {
      router_file::Reading reading = router_file::read(path);
      if (gate->is_held.exchange(false)) {
        gate->has_read.release();
        gate->may_deliver.acquire();
      }
      return reading;
    };
  }
  void HoldNext() const { gate_->is_held = true; }
  void AwaitRead() const { gate_->has_read.acquire(); }
  void Deliver() const { gate_->may_deliver.release(); }

 private:
  struct Gate {
    std::atomic<bool> is_held = false;
    std::binary_semaphore has_read{0};
    std::binary_semaphore may_deliver{0};
  };
  std::shared_ptr<Gate> gate_ = std::make_shared<Gate>();
};

class WatchedRouter : public RouterOnDisk {
 protected:
  WatchedRouter() { source_ = std::make_unique<FileSource>(router_.get(), path_, slow_.Function()); }
  // The source reads kBlue and is about to deliver it.
  void ReadBlueSlowly() {
    slow_.HoldNext();
    Replace(kBlue);
    EXPECT_TRUE(event_run_pending(manager_, kEventBound));
    slow_.AwaitRead();
  }
  const SlowReader slow_;
  void Replace(const std::string& text) {
    std::ofstream(path_ + ".new") << text;
    std::filesystem::rename(path_ + ".new", path_);
  }
  void StartWith(const std::string& text) {
    LoadWell(text);
    Start();
  }
  bool Has(const char* vrf) const { return router_->find_vrf(vrf) != nullptr; }
  // Runs the loop until the VRF exists or an event takes too long.
  bool Appears(const char* vrf) {
    while (!Has(vrf) && event_run_pending(manager_, kEventBound)) {
    }
    return Has(vrf);
  }
  // Runs the loop until no read is in progress or an event takes too long.
  bool ReadEnds() {
    while (source_->is_reading() && event_run_pending(manager_, kEventBound)) {
    }
    return !source_->is_reading();
  }
};

class LargeRouter : public WatchedRouter {
 protected:
  static constexpr std::size_t kInterfaces = 9000;
  // A changed file is being applied when it returns.
  void BeginLargeChange() {
    StartWith(kRed);
    Replace("generate: {vrfs: 1000, interfaces_per_vrf: 9}\n");
    while (router_->vrf_count() < 10) ASSERT_TRUE(run_once(manager_));
  }
  void ExpectBlueAlone() {
    EXPECT_TRUE(Appears("blue"));
    EXPECT_TRUE(ReadEnds());
    EXPECT_EQ(router_->vrf_count(), 1U);
    EXPECT_EQ(router_->interface_count(), 0U);
  }
};
