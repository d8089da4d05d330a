// The process at the other end of a Unix socket, and what it may do.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
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

// A role above kRead is trusted with reserved connections. docs/access.md states what each may do.
enum class Role : std::uint8_t {
  kRead,       // reads, and subscribes without a name
  kAgent,      // reads tables, and subscribes by name; nothing else
  kConfigure,  // may change everything: root, the process's own user, administrators
};

// Unknown ids without groups, which have no rights, unless the descriptor is a connected Unix socket.
Peer read_peer(int fd);

// Administrators are the members of the group "mpls_vpn_admin", or of the one that MPLS_VPN_MIB_ADMIN_GROUP
// names; agents those of "mpls_vpn_agent" or MPLS_VPN_MIB_AGENT_GROUP. A member of both is an administrator.
// The name service is asked at most once a minute for each group, and not for root and the own user. Any
// thread.
Role peer_role(const Peer& peer);

const char* role_name(Role role);  // for users

// Asks the name service for a group's id; none if the group does not exist. Tests replace it.
using FindGroup = std::optional<gid_t> (*)(const std::string& name);
extern FindGroup find_group;

}  // namespace wire
