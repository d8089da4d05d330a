// For tests: a disk on which writes wait, at most for two seconds.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

// While it exists, SQLite's writes wait for release(). One at a time; no write may be going on when it ends.
class BlockedDisk {
 public:
  BlockedDisk() {
    the_disk() = this;
    sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
    for (const char* name : {"pwrite", "pwrite64"}) {
      if (vfs->xGetSystemCall(vfs, name) == nullptr) continue;
      EXPECT_EQ(vfs->xSetSystemCall(vfs, name, reinterpret_cast<sqlite3_syscall_ptr>(write_late)), SQLITE_OK);
      name_ = name;
    }
    EXPECT_NE(name_, nullptr);
  }
  ~BlockedDisk() {
    release();
    sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
    EXPECT_EQ(vfs->xSetSystemCall(vfs, name_, nullptr), SQLITE_OK);
  }
  BlockedDisk(const BlockedDisk&) = delete;
  BlockedDisk& operator=(const BlockedDisk&) = delete;

  void release() {
    const std::lock_guard lock(mutex_);
    released_ = true;
    changed_.notify_all();
  }
  // Waits until a write waits.
  void await_write() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kLimit, [this] { return reached_; }));
  }

 private:
  static constexpr std::chrono::seconds kLimit{2};
  static BlockedDisk*& the_disk() {
    static BlockedDisk* instance = nullptr;
    return instance;
  }
  static ssize_t write_late(int fd, const void* octets, std::size_t size, off_t place) {
    the_disk()->wait();
    return pwrite(fd, octets, size, place);
  }
  void wait() {
    std::unique_lock lock(mutex_);
    reached_ = true;
    changed_.notify_all();
    changed_.wait_for(lock, kLimit, [this] { return released_; });
  }

  const char* name_ = nullptr;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool released_ = false;
  bool reached_ = false;
};
