// The peer of a Unix socket: the kernel reports its credentials as of its connect.
#include <grp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>

#include "platform/core/wire/wire.h"

namespace wire {

namespace {

const char* administrators_group() {
  const char* name = std::getenv("MPLS_VPN_MIB_ADMIN_GROUP");
  return name != nullptr && *name != '\0' ? name : "mpls_vpn_admin";
}

std::optional<gid_t> administrators_gid() {
  std::vector<char> buffer(1U << 14);
  group entry{};
  group* found = nullptr;
  while (getgrnam_r(administrators_group(), &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
         buffer.size() < 1U << 20) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) return std::nullopt;
  return found->gr_gid;
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

bool peer_may_change(int fd) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return false;
  if (credentials.uid == 0 || credentials.uid == geteuid()) return true;
  const std::optional<gid_t> administrators = administrators_gid();
  if (!administrators) return false;
  if (credentials.gid == *administrators) return true;
  const std::vector<gid_t> groups = peer_groups(fd);
  return std::find(groups.begin(), groups.end(), *administrators) != groups.end();
}

}  // namespace wire
