#include "platform/core/wire/peer.h"

#include <grp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/core/base/clock.h"

namespace wire {

namespace {

constexpr std::uint64_t kLifetime = 60 * kNanosecondsPerSecond;

constexpr unsigned kUsualOverflowId = 65534;

// The ids that the kernel reports for users and groups without an id in this process's user namespace.
struct OverflowIds {
  unsigned user = read("/proc/sys/kernel/overflowuid");
  unsigned group = read("/proc/sys/kernel/overflowgid");

 private:
  static unsigned read(const char* path) {
    unsigned id = 0;
    return std::ifstream(path) >> id ? id : kUsualOverflowId;
  }
};

const OverflowIds& overflow_ids() {
  static const OverflowIds ids;
  return ids;
}

// A group that a setting names. Its id is remembered for a minute, a missing group too: the name service may
// be on another host. It is then asked in the background, and what it said before counts until it answers, so
// that one that is slow or does not work delays no client and takes no role away.
class NamedGroup {
 public:
  NamedGroup(const char* variable, const char* fallback) : variable_(variable), fallback_(fallback) {}

  bool has(const Peer& peer) {
    const std::optional<gid_t> group = find();
    if (!group || *group == overflow_ids().group) return false;
    return peer.gid == *group || std::ranges::find(peer.groups, *group) != peer.groups.end();
  }
  void forget() {
    const std::lock_guard lock(mutex_);
    name_.clear();
  }

 private:
  std::optional<gid_t> find() {
    const char* set = std::getenv(variable_);
    const std::string name = set != nullptr && *set != '\0' ? set : fallback_;
    const std::lock_guard lock(mutex_);
    const std::uint64_t now = clock_monotonic();
    if (name != name_) {
      name_ = name;
      asked_at_ = now;
      group_.reset();
      learn(find_group(name));
    } else if (now - asked_at_ >= kLifetime && !asking_) {
      asked_at_ = now;
      asking_ = begin_asking(name);
    }
    return group_;
  }

  // False where no thread can be started: what is known is used until the next attempt.
  bool begin_asking(const std::string& name) {
    try {
      run_in_background([this, name] { ask(name); });
    } catch (const std::system_error&) {
      return false;
    }
    return true;
  }

  void ask(const std::string& name) {
    const FoundGroup found = find_group(name);
    const std::lock_guard lock(mutex_);
    asking_ = false;
    if (name == name_) learn(found);
  }

  void learn(const FoundGroup& found) {
    if (found.status == kStatusOk) group_ = found.group;
    if (found.status == kStatusNoSuchRow) group_.reset();
  }

  const char* variable_;
  const char* fallback_;
  std::mutex mutex_;  // servers of several threads
  std::string name_;  // empty: never asked
  std::uint64_t asked_at_ = 0;
  bool asking_ = false;
  std::optional<gid_t> group_;
};

struct NamedGroups {
  NamedGroup administrators{"MPLS_VPN_MIB_ADMIN_GROUP", "mpls_vpn_admin"};
  NamedGroup agents{"MPLS_VPN_MIB_AGENT_GROUP", "mpls_vpn_agent"};
};

// Never destroyed: the name service may answer while the process ends.
NamedGroups& named_groups() {
  static auto& all = *new NamedGroups;
  return all;
}

// POSIX has no error for a group that does not exist, but modules of the name service do.
Status group_status(int error) {
  const bool is_missing = error == 0 || error == ENOENT || error == ESRCH;
  return is_missing ? kStatusNoSuchRow : static_cast<Status>(error);
}

FoundGroup ask_name_service(const std::string& name) {
  std::vector<char> buffer(1U << 14);
  group entry{};
  group* found = nullptr;
  int error = 0;
  while ((error = getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found)) == ERANGE &&
         buffer.size() < 1U << 20) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) return {group_status(error), 0};
  return {kStatusOk, found->gr_gid};
}

void run_in_thread(std::function<void()> function) {
  std::thread(std::move(function)).detach();
}

// The supplementary groups of the peer; empty if the kernel does not report them.
std::vector<gid_t> peer_groups(int fd) {
  std::vector<gid_t> groups(64);
  for (int attempt = 0; attempt < 2; ++attempt) {
    auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
    const int result = getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size);
    if (result != 0 && errno != ERANGE) return {};
    groups.resize(size / sizeof(gid_t));  // on ERANGE the size that is needed
    if (result == 0) return groups;
  }
  return {};
}

}  // namespace

Peer read_peer(int fd) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return {};
  return {credentials.uid, credentials.gid, credentials.pid, peer_groups(fd)};
}

bool runs_as_overflow_user() {
  return geteuid() == overflow_ids().user;
}

bool is_own_user(uid_t user) {
  return user == geteuid() && !runs_as_overflow_user();
}

FindGroup find_group = &ask_name_service;
RunInBackground run_in_background = &run_in_thread;

void forget_groups() {
  named_groups().administrators.forget();
  named_groups().agents.forget();
}

Role peer_role(const Peer& peer) {
  if (peer.uid == 0 || is_own_user(peer.uid)) return Role::kConfigure;
  if (named_groups().administrators.has(peer)) return Role::kConfigure;
  return named_groups().agents.has(peer) ? Role::kAgent : Role::kRead;
}

const char* role_name(Role role) {
  switch (role) {
    case Role::kRead:
      return "read";
    case Role::kAgent:
      return "agent";
    case Role::kConfigure:
      return "configure";
  }
  return "";
}

}  // namespace wire
