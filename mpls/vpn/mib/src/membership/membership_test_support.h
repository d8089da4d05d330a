// For tests of the membership service's event handlers.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mpls/vpn/mib/src/interface/database_internal.h"
#include "mpls/vpn/mib/src/membership/membership.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"

class Membership : public DaemonTest {
 protected:
  std::uint32_t Nodes() const { return wavl_size(mpls_vpn_mib_if_tree(), kIfByHandle); }
  // The lines that begin with one of these texts, in their order.
  std::vector<std::string> PrintsOf(const std::vector<std::string>& beginnings) const {
    std::vector<std::string> lines;
    for (const std::string& line : Prints()) {
      for (const std::string& beginning : beginnings) {
        if (line.starts_with(beginning)) lines.push_back(line);
      }
    }
    return lines;
  }
  std::uint32_t LastChanged(const char* vrf) { return AttributesOf(vrf)->conf_last_changed_time; }
  IfNode* NodeOf(const char* vrf, std::string_view interface) {
    return mpls_vpn_mib_get_if(true, vrf, IndexOf(interface));
  }
  void VrfCreated(const char* name, std::uint32_t id, std::uint32_t flags) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) FAIL();
    mpls_vpn_mib_vrf_created(name, id, flags);
  }
  void VrfDeleted(const char* name, std::uint32_t id) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) FAIL();
    mpls_vpn_mib_vrf_deleted(name, id);
  }
};
