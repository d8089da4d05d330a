// For tests: a file source with its router file in a folder of the test, on an event loop.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/kvtree.h"
#include "sources/file/file_source.h"

inline constexpr char kMainManager[] = "/dev/mpls/vpn/main";
inline constexpr std::uint64_t kEventBound = 5 * kNanosecondsPerSecond;  // for expected events

// One iteration of the loop, unlike event_run_pending().
inline bool run_once(EventManager* manager) {
  std::array<unsigned char, 1024> buffer{};
  EventContext context{manager, buffer.data(), buffer.size(), 0};
  if (event_wait_for(&context, kEventBound) != 0) return false;
  event_dispatch(&context);
  return true;
}

class RouterOnDisk : public ::testing::Test {
 protected:
  RouterOnDisk() {
    EXPECT_EQ(vrf_config::register_configuration(), kStatusOk);
    std::filesystem::create_directory(folder_ + "/etc");
  }
  ~RouterOnDisk() override {
    source_.reset();
    if (manager_ != nullptr) {
      kvtree_stop_serving(manager_);
      event_manager_destroy(manager_);
    }
    kvtree_reset();
  }

  void Write(const std::string& text) const { std::ofstream(path_) << text; }
  Status Load() { return source_->load(&error_); }
  Status Load(const std::string& text) {
    Write(text);
    return Load();
  }
  void LoadWell(const std::string& text) { ASSERT_EQ(Load(text), kStatusOk) << error_; }
  void Start() {
    manager_ = event_manager_create(kMainManager, 0);
    ASSERT_NE(manager_, nullptr);
    ASSERT_EQ(source_->start(manager_), kStatusOk);
  }
  // Runs the action as a user who may change, and one iteration of the loop after the other until it ends.
  Status Act(const std::vector<std::string>& words, std::string* text) {
    std::optional<Status> result;
    const KvActionEnd end = [&](Status status, const std::string& its_text) {
      result = status;
      *text = its_text;
    };
    const Status status = kvtree_run_action({true, end}, words, text);
    if (status != kStatusInProgress) return status;
    while (!result && run_once(manager_)) {
    }
    return result.value_or(kStatusTimedOut);
  }

  const TestRunDirectory directory_;
  const std::string& folder_ = directory_.path();
  const std::string path_ = folder_ + "/etc/router.yaml";
  std::unique_ptr<router::Router> router_ = std::make_unique<router::Router>();
  std::unique_ptr<FileSource> source_ = std::make_unique<FileSource>(router_.get(), path_);
  EventManager* manager_ = nullptr;
  std::string error_;
};
