// The process towards its service manager: readiness and state by sd_notify(3), and two questions to the
// system.
#include "platform/core/proc/proc.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"

namespace {

constexpr std::size_t kMaxThreadName = 15;  // of the kernel, without the terminating octet

}  // namespace

Status proc_ready() {
  if (Status s = fault_check("proc_ready")) return s;
  const int sent = sd_notify(0, "READY=1");
  return sent < 0 ? static_cast<Status>(-sent) : kStatusOk;
}

// In one message: the service manager compares the time with that of its request.
void proc_reloading() {
  const std::uint64_t microseconds = clock_monotonic() / 1000;
  sd_notify(0, ("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds)).c_str());
}

void proc_status(const std::string& text) {
  sd_notify(0, ("STATUS=" + text).c_str());
}

void proc_stopping(const std::string& text) {
  sd_notify(0, ("STOPPING=1\nSTATUS=" + text).c_str());
}

std::uint64_t proc_watchdog_interval() {
  std::uint64_t microseconds = 0;
  return sd_watchdog_enabled(0, &microseconds) > 0 ? microseconds * 1000 / 2 : 0;
}

void proc_watchdog() {
  sd_notify(0, "WATCHDOG=1");
}

void proc_name_thread(const char* name) {
  if (name == nullptr) return;
  // The only possible error is a name that is too long.
  pthread_setname_np(pthread_self(), std::string(name).substr(0, kMaxThreadName).c_str());
}

Status proc_file_readable(const char* path) {
  if (Status s = fault_check("proc_file_readable")) return s;
  if (path == nullptr) return kStatusInvalid;
  struct stat status {};
  if (stat(path, &status) != 0) return static_cast<Status>(errno);
  if (S_ISDIR(status.st_mode)) return EISDIR;
  return faccessat(AT_FDCWD, path, R_OK, AT_EACCESS) == 0 ? kStatusOk : static_cast<Status>(errno);
}
