// The process at the other end of a Unix socket, and what it may do.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace wire {

// The credentials that the kernel noted when the peer connected. They do not change while the connection
// lasts.
struct Peer {
  uid_t uid = static_cast<uid_t>(-1);
  gid_t gid = static_cast<gid_t>(-1);
  pid_t pid = 0;
  std::vector<gid_t> groups;  // supplementary groups
};

// In the order of the rights. A role above kRead is trusted with reserved connections.
enum class Role : std::uint8_t {
  kRead,       // reads, and subscribes without a name
  kConfigure,  // may change everything: root, the process's own user, administrators
};

// Unknown ids without groups, which have no rights, unless the descriptor is a connected Unix socket.
Peer read_peer(int fd);

// Administrators are the members of the group "mpls_vpn_admin", or of the one that MPLS_VPN_MIB_ADMIN_GROUP
// names. This may ask the name service.
Role peer_role(const Peer& peer);

}  // namespace wire
