#include "sources/file/folder_watch.h"

#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"

namespace {

constexpr std::uint32_t kMask = IN_CLOSE_WRITE | IN_MOVED_TO | IN_ONLYDIR;

// The result of one batch of events.
struct Verdict {
  bool changed = false;
  bool folder_removed = false;
};

void judge(const inotify_event& event, const char* name, const std::string& file, Verdict* verdict) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) verdict->changed = true;
  if ((event.mask & IN_IGNORED) != 0) verdict->folder_removed = true;
  if (event.len != 0 && file == name) verdict->changed = true;
}

void judge_all(const char* data, std::size_t length, const std::string& file, Verdict* verdict) {
  for (std::size_t at = 0; at + sizeof(inotify_event) <= length;) {
    inotify_event event;
    std::memcpy(&event, data + at, sizeof event);
    judge(event, data + at + sizeof event, file, verdict);
    at += sizeof event + event.len;
  }
}

}  // namespace

FolderWatch::FolderWatch(const std::string& file, std::function<void()> on_change)
    : on_change_(std::move(on_change)) {
  const std::filesystem::path path = std::filesystem::absolute(file);
  folder_ = path.parent_path().string();
  name_ = path.filename().string();
}

FolderWatch::~FolderWatch() {
  if (fd_ < 0) return;
  event_fd_remove(manager_, fd_);
  close(fd_);
}

Status FolderWatch::start(EventManager* manager) {
  if (const Status status = fault_check("folder_watch_start")) return status;
  if (fd_ >= 0) return kStatusExists;
  const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return static_cast<Status>(errno);
  Status status = inotify_add_watch(fd, folder_.c_str(), kMask) < 0 ? static_cast<Status>(errno) : kStatusOk;
  if (status == kStatusOk) {
    status = event_fd_add(manager, fd, EPOLLIN, [this](int, std::uint32_t) { read_events(); });
  }
  if (status) {
    close(fd);
    return status;
  }
  manager_ = manager;
  fd_ = fd;
  return kStatusOk;
}

// The next iteration of the loop reads what does not fit.
void FolderWatch::read_events() {
  alignas(inotify_event) char buffer[16 * 1024];
  Verdict verdict;
  const ssize_t length = read(fd_, buffer, sizeof buffer);
  if (length > 0) judge_all(buffer, static_cast<std::size_t>(length), name_, &verdict);
  if (verdict.folder_removed)
    log_warning("", "%s was removed: changes of %s are not noticed any more until a restart", folder_.c_str(),
                name_.c_str());
  if (verdict.changed) on_change_();
}
