// Notices that a file was written or replaced. Watches its folder with inotify, because editors write a new
// file and rename it over the old one, which a watch on the file itself would miss.
//
// A file counts as changed when a writer closes it or when it is moved into place, not while it is being
// written, and not when it is removed. Main thread.
#pragma once

#include <functional>
#include <string>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"

class FolderWatch {
 public:
  // `on_change` runs on the manager's loop, once for all changes that are read together.
  FolderWatch(const std::string& file, std::function<void()> on_change);
  ~FolderWatch();
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  // The manager must outlive the watch. The errno of the system call. Fault point "folder_watch_start".
  [[nodiscard]] Status start(EventManager* manager);

 private:
  void read_events();

  std::string folder_;
  std::string name_;
  std::function<void()> on_change_;
  EventManager* manager_ = nullptr;
  int fd_ = -1;
};
