// The listening Unix socket of an event manager.
//
// The file of the socket outlives a process that was killed. If the file exists, the manager connects to it:
// with no answer the socket is stale and is replaced, otherwise the name is in use. Check and replacement
// happen under the lock of a file in the run directory; otherwise two processes that start together could
// each take the other's new socket for a stale one. Only this user and root can open the file. The kernel
// releases the lock when the process ends.
//
// Closing removes the file only if it is still the one that this manager created.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"
#include "platform/core/evm/manager.h"
#include "platform/core/files/directories.h"
#include "platform/core/files/lock_file.h"
#include "platform/core/files/private_files.h"

namespace {

constexpr int kBacklog = 512;
// A dispatch accepts the whole backlog: a connection that waits would miss more iterations
// during a flood. It ends after the connection that exceeds this time.
constexpr int kAcceptBatch = kBacklog;
constexpr std::uint64_t kAcceptTime = 2 * kNanosecondsPerMillisecond;
constexpr std::chrono::seconds kLockPatience{5};

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&&) = delete;
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

bool make_address(const std::string& path, sockaddr_un* address) {
  std::memset(address, 0, sizeof *address);
  address->sun_family = AF_UNIX;
  if (path.size() >= sizeof address->sun_path) return false;
  std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
  return true;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

int new_socket() {
  return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

// Returns errno after it has logged that the file cannot be used, and why.
int report(const std::string& file, int error, const std::string& reason) {
  log_error("evm", "%s: %s", file.c_str(), reason.c_str());
  return error;
}

// 0 for a process that cannot be seen from here.
pid_t server_of(int connected) {
  ucred server{};
  socklen_t size = sizeof server;
  return getsockopt(connected, SOL_SOCKET, SO_PEERCRED, &server, &size) == 0 ? server.pid : 0;
}

int report_server(int connected, const char* file) {
  return report(file, EADDRINUSE,
                describe_process(server_of(connected)) + " listens on it: end it, then start again");
}

// Returns 0 if the name is free, possibly after the removal of a stale socket; otherwise errno.
int clear_name(const sockaddr_un& address) {
  struct stat status {};
  if (lstat(address.sun_path, &status) != 0) return errno == ENOENT ? 0 : errno;
  if (!S_ISSOCK(status.st_mode)) return report(address.sun_path, ENOTSOCK, "it is not a socket: remove it");
  const Descriptor probe(new_socket());
  if (probe.get() < 0) return errno;
  if (connect(probe.get(), generic(address), sizeof address) == 0)
    return report_server(probe.get(), address.sun_path);
  if (errno == EAGAIN)
    return report(address.sun_path, EADDRINUSE, "a busy process listens on it: end it, then start again");
  if (errno != ECONNREFUSED) return errno;
  return unlink(address.sun_path) == 0 ? 0 : errno;
}

// The file inherits the socket's mode (less the umask), so that it is never accessible to more users than
// intended.
int bind_and_listen(int fd, const sockaddr_un& address) {
  if (fchmod(fd, kSocketMode) != 0) return errno;
  if (bind(fd, generic(address), sizeof address) != 0) return errno;
  if (chmod(address.sun_path, kSocketMode) == 0 && listen(fd, kBacklog) == 0) return 0;
  const int error = errno;
  unlink(address.sun_path);
  return error;
}

int remember_file(EventListener* listener) {
  struct stat status {};
  if (lstat(listener->path.c_str(), &status) != 0) return errno;
  listener->device = status.st_dev;
  listener->inode = status.st_ino;
  return 0;
}

void remove_own_file(const EventListener& listener) {
  struct stat status {};
  if (lstat(listener.path.c_str(), &status) == 0 && status.st_dev == listener.device &&
      status.st_ino == listener.inode) {
    unlink(listener.path.c_str());
  }
}

// Another process has the lock for the moment in which it creates its socket, unless it is stopped.
int lock_run_directory(int fd) {
  pid_t holder = 0;
  const Status status = lock_file(fd, kLockPatience, &holder);
  if (status == kStatusTimedOut) {
    log_error("evm", "%s/lock: %s has had the lock for %lld s: end it, then start again",
              run_directory().c_str(), describe_process(holder).c_str(),
              static_cast<long long>(kLockPatience.count()));
  }
  return static_cast<int>(status);
}

bool is_file_of(int fd, const std::string& path) {
  struct stat opened {};
  struct stat named {};
  return fstat(fd, &opened) == 0 && lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

// A process that ends removes the file. The lock of a removed file excludes no process: the new file is
// locked. Returns 0 with the locked descriptor, or errno.
int open_lock(const std::string& path, Descriptor* lock) {
  do {
    *lock = Descriptor(open_private_file(path, O_RDWR));
    if (lock->get() < 0) return report(path, errno, std::strerror(errno));
    if (const int error = lock_run_directory(lock->get())) return error;
  } while (!is_file_of(lock->get(), path));
  return 0;
}

// The file's lock is for processes.
std::mutex& threads_of_lock() {
  static std::mutex mutex;
  return mutex;
}

std::string lock_path() {
  return run_directory() + "/lock";
}

// The room for a path in an address includes the terminating octet.
int report_long_path(const std::string& path) {
  return report(path, ENAMETOOLONG,
                "the path of a socket has at most " + std::to_string(sizeof sockaddr_un::sun_path - 1) +
                    " octets: set MPLS_VPN_MIB_RUN_DIR to a shorter run directory");
}

// Without free descriptors the waiting connection would wake the loop forever: it is accepted with the spare
// descriptor and closed.
void refuse_connection(EventListener* listener) {
  log_warning("evm", "%s: a connection was turned away: %s", listener->path.c_str(), std::strerror(errno));
  if (listener->spare_fd >= 0) close(listener->spare_fd);
  const int fd = accept4(listener->fd, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd >= 0) close(fd);
  listener->spare_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

}  // namespace

int event_listener_open(const std::string& manager_name, EventListener* listener) {
  if (const Status status = prepare_directory(run_directory(), kRunDirectoryMode))
    return static_cast<int>(status);
  const std::lock_guard one_thread(threads_of_lock());
  Descriptor lock;
  if (const int error = open_lock(lock_path(), &lock)) return error;
  const std::string path = event_manager_socket(manager_name);
  sockaddr_un address;
  if (!make_address(path, &address)) return report_long_path(path);
  if (const int error = clear_name(address)) return error;
  Descriptor fd(new_socket());
  if (fd.get() < 0) return errno;
  if (const int error = bind_and_listen(fd.get(), address)) return error;
  listener->path = path;
  listener->fd = fd.release();
  listener->spare_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  return remember_file(listener);
}

void event_listener_close(EventListener* listener) {
  if (listener->spare_fd >= 0) close(listener->spare_fd);
  if (listener->fd < 0) return;
  remove_own_file(*listener);
  close(listener->fd);
}

void event_manager_remove_socket(const EventManager* manager) {
  remove_own_file(manager->listener);
}

void event_run_directory_unlock() {
  const std::lock_guard one_thread(threads_of_lock());
  const Descriptor lock(open(lock_path().c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  pid_t holder = 0;
  if (lock.get() < 0 || lock_file(lock.get(), std::chrono::seconds(0), &holder) != kStatusOk) return;
  if (is_file_of(lock.get(), lock_path())) unlink(lock_path().c_str());
}

std::optional<pid_t> event_manager_server(const char* name) {
  sockaddr_un address;
  if (!make_address(event_manager_socket(name), &address)) return std::nullopt;
  const Descriptor probe(new_socket());
  if (probe.get() < 0) return std::nullopt;
  if (connect(probe.get(), generic(address), sizeof address) == 0) return server_of(probe.get());
  return errno == EAGAIN ? std::optional<pid_t>(0) : std::nullopt;
}

void event_listener_accept(EventManager* manager) {
  const std::uint64_t end = clock_monotonic() + kAcceptTime;
  for (int i = 0; i < kAcceptBatch && (i == 0 || clock_monotonic() < end); ++i) {
    const int fd = accept4(manager->listener.fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EMFILE || errno == ENFILE) refuse_connection(&manager->listener);
      return;
    }
    if (manager->acceptor) {
      manager->acceptor(fd);
    } else {
      close(fd);
    }
  }
}
