// The process at the other end of a Unix socket, and what it may do.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"

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

// Whether a peer with this id is certainly this process's user. The kernel reports its overflow id
// for every user without an id in this process's user namespace; overflow groups give no role either.
bool is_own_user(uid_t user);
bool runs_as_overflow_user();

// Administrators are the members of the group "mpls_vpn_admin", or of the one that MPLS_VPN_MIB_ADMIN_GROUP
// names; agents those of "mpls_vpn_agent" or MPLS_VPN_MIB_AGENT_GROUP. A member of both is an administrator.
// The name service is asked at the first call, then at most once a minute for each group in the background,
// and not for root and the own user. Any thread.
Role peer_role(const Peer& peer);

const char* role_name(Role role);  // for users

// A group's id from the name service: kStatusNoSuchRow if the group does not exist, another status if the
// name service fails. Tests replace it.
struct FoundGroup {
  Status status;
  gid_t group;
};
using FindGroup = FoundGroup (*)(const std::string& name);
extern FindGroup find_group;
// The next look-up asks the name service again. For tests.
void forget_groups();
// Calls a function that may take long. Tests replace it.
using RunInBackground = void (*)(std::function<void()> function);
extern RunInBackground run_in_background;

}  // namespace wire
