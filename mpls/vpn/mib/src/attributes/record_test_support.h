// For tests of the record service.
#pragma once

#include <type_traits>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/base/memory.h"

class VrfRecords : public DaemonTest {
 protected:
  // Every text and a few numbers, as configuration would leave them.
  void FillAttributes(mpls_vpn_vrf_attr* attributes) {
    text_replace(&attributes->rd, "65000:1");
    text_replace(&attributes->description, "customer");
    for (unsigned family = 0; family < kMplsVpnFamilies; ++family) {
      text_replace(&attributes->import_route_policy[family], "in");
      text_replace(&attributes->export_route_policy[family], "out");
      text_replace(&attributes->flowspec_import_route_policy[family], "flow-in");
      text_replace(&attributes->flowspec_export_route_policy[family], "flow-out");
    }
    attributes->high_thresh = 1000;
    attributes->creation_time = 5;
  }
};
