// The daemon inside a benchmark: its databases, provider and services on a router model that the benchmark
// fills, served on the main manager's socket in a temporary run directory. One a process.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/provider/provider.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "mpls/vpn/mib/src/vrf/database.h"
#include "platform/config/owners.h"
#include "platform/core/base/memory.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router.h"
#include "platform/router/services/services.h"
#include "platform/store/tree/kvtree.h"

class DaemonInProcess {
 public:
  // The run directory is the environment's (a TestRunDirectory of the caller).
  DaemonInProcess() {
    heap_join_freed_blocks_at_once();
    heap_reuse_freed_buffers();
    manager = event_manager_create("/dev/mpls/vpn/main", 0x70000004);
    check(manager == nullptr ? kStatusIo : kStatusOk, "event_manager_create");
    check(vrf_config::register_configuration(), "register_configuration");
    router_services_attach(&router);
    check(mpls_vpn_trace_init(), "mpls_vpn_trace_init");
    check(mpls_vpn_mib_vrf_dbase_init(), "mpls_vpn_mib_vrf_dbase_init");
    check(mpls_vpn_mib_if_dbase_init(), "mpls_vpn_mib_if_dbase_init");
    check(mpls_vpn_mib_chkpt_init(manager), "mpls_vpn_mib_chkpt_init");
    check(mpls_vpn_mib_vtab_init(manager), "mpls_vpn_mib_vtab_init");
  }

  // What the router has is in the databases afterwards; requests are answered.
  void register_provider() {
    check(mpls_vpn_mib_prov_init(manager), "mpls_vpn_mib_prov_init");
    check(kvtree_serve(manager), "kvtree_serve");
    run_pending();
  }

  void run_pending() {
    while (event_run_pending(manager)) {
    }
  }

  void add_vrf(unsigned number) {
    router::Vrf vrf;
    vrf.name = vrf_name(number);
    vrf.id = number + 100;
    vrf.ipv4_table = vrf.ipv6_table = vrf.id;
    check(router.create_vrf(vrf), "create_vrf");
  }

  // Interface number n (from 0), index n + 1, up, with an IPv4 address and, if wanted, an IPv6 address.
  void add_interface(unsigned number, unsigned vrf, bool has_ipv6 = false) {
    router::Interface interface;
    interface.name = "ge" + std::to_string(number);
    interface.index = number + 1;
    interface.vrf = vrf_name(vrf);
    interface.up = true;
    router::Address address;
    address.prefix_length = 30;
    for (int i = 0; i < 4; ++i) {
      address.octets[static_cast<std::size_t>(i)] =
          static_cast<std::uint8_t>((0x0a000001U + number) >> (24 - 8 * i));
    }
    interface.addresses.push_back(address);
    if (has_ipv6) interface.addresses.push_back(with_prefix_of_documentation(address));
    check(router.add_interface(interface), "add_interface");
  }

  // 2001:db8::, and the address's octets.
  static router::Address with_prefix_of_documentation(const router::Address& address) {
    router::Address result{router::Family::kIpv6, 64, {0x20, 0x01, 0x0d, 0xb8}};
    std::copy_n(address.octets.begin(), 4, result.octets.end() - 4);
    return result;
  }

  static std::string vrf_name(unsigned number) {
    std::string digits = std::to_string(number);
    return "vrf" + std::string(5 - std::min<std::size_t>(5, digits.size()), '0') + digits;
  }

  static void check(Status status, const char* what) {
    if (status != kStatusOk) throw std::runtime_error(std::string(what) + ": " + err_text(status));
  }

  router::Router router;
  EventManager* manager = nullptr;
};
