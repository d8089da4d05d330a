// For tests: a queue in a file, which outlives the process.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/files/temporary_directory.h"
#include "platform/store/queue/notification_queue.h"
#include "platform/store/queue/queue_file.h"

inline constexpr std::size_t kMegabyte = 1U << 20;
inline constexpr std::size_t kLimit = 4;  // so the window is 2

class StoredQueue : public ::testing::Test {
 protected:
  StoredQueue() { Restart(); }
  ~StoredQueue() override { fault_disarm_all(); }

  std::string File() const { return directory.path() + "/queue"; }
  // The process is killed and another one begins.
  void Restart(std::size_t limit = kLimit) {
    queue = std::make_unique<kvtree::NotificationQueue>("a test", limit);
    ASSERT_EQ(queue->store_in(File()), kStatusOk);
  }
  void Push(const std::string& text) {
    queue->push(std::make_shared<const wire::Octets>(text.begin(), text.end()));
  }
  // "sequence-lost:content" of all, acknowledged as they are sent. The sequence is without the part that
  // each process begins anew.
  std::vector<std::string> TakeAll() {
    std::vector<std::string> taken;
    queue->rewind();
    while (const kvtree::QueuedNotification* next = queue->next()) {
      EXPECT_GT(next->sequence, last_taken);
      last_taken = next->sequence;
      taken.push_back(std::to_string(next->sequence % kvtree::kSequencesOfAProcess) + "-" +
                      std::to_string(next->lost_before) + ":" +
                      std::string(next->content->begin(), next->content->end()));
      queue->acknowledge(next->sequence);
    }
    return taken;
  }
  static std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string Read() const { return ReadFile(File()); }
  void Write(const std::string& octets) const { std::ofstream(File(), std::ios::binary) << octets; }

  ManualClock clock{1000};
  TemporaryDirectory directory;
  std::unique_ptr<kvtree::NotificationQueue> queue;
  std::uint64_t last_taken = 0;
};
