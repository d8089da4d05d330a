#include "platform/core/wire/peer.h"

#include <grp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <optional>

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

Peer read_peer(int fd) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return {};
  return {credentials.uid, credentials.gid, credentials.pid, peer_groups(fd)};
}

Role peer_role(const Peer& peer) {
  if (peer.uid == 0 || peer.uid == geteuid()) return Role::kConfigure;
  const std::optional<gid_t> administrators = administrators_gid();
  if (!administrators) return Role::kRead;
  const bool is_member = peer.gid == *administrators || std::find(peer.groups.begin(), peer.groups.end(),
                                                                  *administrators) != peer.groups.end();
  return is_member ? Role::kConfigure : Role::kRead;
}

}  // namespace wire
