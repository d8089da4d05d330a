// Registration with the data store.
//
// There are three entry points for requests (get, list, datalist) and one per subscription for notifications;
// each passes its input to the path matcher with its table of paths (path_table.cpp). The subscriptions are a
// table: path, events, entry point, and the fixed texts of its failures.
//
// Ownership: connections stay open for the life of the process; a connection whose registration failed is
// unbound. Main thread, before the event loop runs, so that only the replay calls handlers.
#include "mpls/vpn/mib/src/provider/provider.h"

#include <array>
#include <iterator>
#include <string>
#include <string_view>

#include "mpls/vpn/mib/src/configuration/vrf_handlers.h"
#include "mpls/vpn/mib/src/membership/connection.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/provider/connection.h"
#include "mpls/vpn/mib/src/provider/path_table.h"
#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "mpls/vpn/mib/src/traps/switches.h"
#include "mpls/vpn/mib/src/walk/columns.h"
#include "mpls/vpn/mib/src/walk/walk.h"
#include "platform/config/vrf_config.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/ifindex/ifindex.h"

namespace {

// --- Provider

Status provide_get(const KvRequest* request, KvReply* reply) {
  return kvtree_match_get(request, &mpls_vpn_mib_prov_paths, reply);
}

Status provide_list(const KvRequest* request, KvListReply* reply) {
  return kvtree_match_list(request, &mpls_vpn_mib_prov_paths, reply);
}

Status provide_datalist(const KvRequest* request, KvListReply* reply) {
  return kvtree_match_datalist(request, &mpls_vpn_mib_prov_paths, reply);
}

Status register_functions(EventManager* evm) {
  KvProviderFunctions functions;
  Status rc = mpls_vpn_checked("register_prov_server", "Failed to init prov functions",
                               kvtree_init_prov_functions(&functions));
  if (rc != kStatusOk) return rc;
  functions.get = provide_get;
  functions.list = provide_list;
  functions.datalist = provide_datalist;
  functions.walk_rules = mpls_vpn_mib_walk_rules;
  functions.walk_rule_count = mpls_vpn_mib_walk_rule_count;
  functions.column_rules = mpls_vpn_mib_column_rules;
  functions.column_rule_count = mpls_vpn_mib_column_rule_count;
  rc = kvtree_register_prov2(prov_kvtree_conn_h, "", evm, &functions, 0, 1);
  return mpls_vpn_checked("register_prov_server", "Failed in kvtree_register_prov2", rc);
}

Status register_prov_server(EventManager* evm) {
  Status rc = mpls_vpn_mib_bind(&prov_kvtree_conn_h, kMplsVpnPath, kKvBindProvider);
  if (rc == kStatusOk) {
    rc = register_functions(evm);
    if (rc != kStatusOk) mpls_vpn_mib_unbind(&prov_kvtree_conn_h, "register_prov_server");
  } else {
    mpls_vpn_trace(kTraceError, rc, "register_prov_server: kvtree_bind");
  }
  mpls_vpn_trace(kTraceProv, rc, "register_prov_server: %s", err_text(rc));
  return rc;
}

// --- Subscriptions

template <const KvPathTable& paths>
void notify_by(const KvNotification* notification) {
  kvtree_match_notify(notification, &paths);
}

// The item's name alone identifies it.
void notify_traps(const KvNotification* notification) {
  traps_notify(kvtree_notify_info(notification));
}

struct Subscription {
  std::string_view path;
  std::uint32_t events;
  KvNotificationEntry entry;  // null: notifications are dropped
  const char* function;       // the name under which its failures are printed
  const char* bind_failure;
  const char* summary;  // printed after either failure; may be null
};

constexpr std::uint32_t kAllEvents = kKvEventCreated | kKvEventSet | kKvEventDeleted;
constexpr std::uint32_t kSetEvents = kKvEventCreated | kKvEventSet;

constexpr Subscription kSubscriptions[] = {
    {vrf_config::kVrfScope, kAllEvents, notify_by<mpls_vpn_mib_vrf_paths>,
     "register_for_notification_on_vrf_changes", "kvtree_bind to the VRF path", nullptr},
    {vrf_config::kTrapScope, kAllEvents, notify_traps, "register_for_notification_on_traps_enable",
     "kvtree_bind to traps path error", nullptr},
    {vrf_config::kBgpScope, kAllEvents, notify_by<mpls_vpn_mib_bgp_paths>, "register_for_notification_on_bgp",
     "kvtree_bind to BGP path error", "Failed to register notifier on BGP"},
    {vrf_config::kRipScope, kAllEvents, notify_by<mpls_vpn_mib_rip_paths>, "register_for_notification_on_rip",
     "kvtree_bind to RIP path error", "Failed to register notifier on RIP"},
    {vrf_config::kOspfScope, kAllEvents, notify_by<mpls_vpn_mib_ospf_paths>,
     "register_for_notification_on_ospf", "kvtree_bind to ospf path error",
     "Failed to register notifier on ospf"},
    {vrf_config::kEigrpScope, kAllEvents, notify_by<mpls_vpn_mib_eigrp_paths>,
     "register_for_notification_on_eigrp", "kvtree_bind to EIGRP path error",
     "Failed to register notifier on EIGRP"},
    {vrf_config::kStaticScope, kAllEvents, notify_by<mpls_vpn_mib_static_paths>,
     "register_for_notification_on_static", "kvtree_bind to static path error",
     "Failed to register notifier on Static"},
    {"/oper/rib_threshold/", kSetEvents, notify_by<mpls_vpn_mib_threshold_paths>,
     "register_for_notification_on_rib", "kvtree_bind to the RIB path", "Failed to register notifier on RIB"},
};

struct Subscribed {
  KvConnection* connection;
  KvRegistration* registration;
};
std::array<Subscribed, std::size(kSubscriptions)> subscribed{};

Status register_notification(const Subscription& what, Subscribed* place, EventManager* evm) {
  Status rc = mpls_vpn_mib_check_data_store();
  if (rc == kStatusOk) {
    rc = kvtree_register_notification(place->connection, "", what.events, what.entry, evm, 0, 0, 4,
                                      &place->registration);
  }
  if (rc != kStatusOk) {
    mpls_vpn_error(what.function, "kvtree_register_notification failed", rc);
    mpls_vpn_mib_unbind(&place->connection, what.function);
  }
  return rc;
}

Status subscribe(const Subscription& what, Subscribed* place, EventManager* evm) {
  Status rc = mpls_vpn_mib_bind(&place->connection, std::string(what.path).c_str(), kKvBindConfiguration);
  if (rc != kStatusOk) {
    mpls_vpn_error(what.function, what.bind_failure, rc);
  } else {
    rc = register_notification(what, place, evm);
  }
  if (rc != kStatusOk && what.summary != nullptr) mpls_vpn_error("mpls_vpn_mib_prov_init", what.summary, rc);
  return rc;
}

Status subscribe_all(EventManager* evm) {
  for (std::size_t i = 0; i < std::size(kSubscriptions); ++i) {
    const Status rc = subscribe(kSubscriptions[i], &subscribed[i], evm);
    if (rc != kStatusOk) return rc;
  }
  return kStatusOk;
}

// --- The whole

Status connect_membership(EventManager* evm) {
  const Status rc = mpls_vpn_mib_vmap_register_for_notification(evm);
  if (rc != kStatusOk) mpls_vpn_trace(kTraceError, rc, "mpls_vpn_mib_prov_init: membership service");
  return rc;
}

using Registration = Status (*)(EventManager*);

Status register_all(EventManager* evm) {
  for (const Registration step : {register_prov_server, connect_membership, subscribe_all}) {
    const Status rc = step(evm);
    if (rc != kStatusOk) return rc;
  }
  return kStatusOk;
}

struct DescriptionSet {
  Status (*register_set)();
  const char* failure;
};

constexpr DescriptionSet kDescriptionSets[] = {
    {mpls_vpn_mib_parcel_register, "Failed to register mpls_vpn_mib.parcel Parcels"},
    {mpls_vpn_parcel_register, "Failed to register mpls_vpn.parcel Parcels"},
};

// A registry with other versions is reported only: records are encoded by the daemon's own descriptions.
Status register_descriptions() {
  for (const DescriptionSet& set : kDescriptionSets) {
    const Status rc = set.register_set();
    if (rc == kStatusDefinitionChanged) {
      mpls_vpn_error("mpls_vpn_mib_prov_init", "Parcel definition(s) changed from what is found in registry!",
                     rc);
    } else if (rc != kStatusOk) {
      mpls_vpn_error("mpls_vpn_mib_prov_init", set.failure, rc);
      return rc;
    }
  }
  return kStatusOk;
}

}  // namespace

Status mpls_vpn_mib_prov_init(EventManager* evm) {
  mpls_vpn_debug(PROV, "prov init");
  Status rc = mpls_vpn_checked(__func__, "ifindex_initialize_evm failed", ifindex_initialize_evm(evm));
  if (rc != kStatusOk) return rc;
  backend_scan_in_progress = 1;
  rc = register_all(evm);
  if (rc != kStatusOk) return rc;
  // Optional: start-up continues without it, and changed route distinguishers are then not noticed.
  mpls_vpn_checked(__func__, "Failed to register RD callback fn",
                   bgp_vpn_rd_register_cb(evm, mpls_vpn_mib_rd_notify));
  backend_scan_in_progress = 0;
  rc = register_descriptions();
  if (rc != kStatusOk) return rc;
  mpls_vpn_debug(PROV, "end prov init");
  mpls_vpn_trace(kTraceProv, kStatusOk, "end prov init");
  return kStatusOk;
}

void mpls_vpn_mib_prov_end() {
  bgp_vpn_rd_unregister_cb();
  for (Subscribed& one : subscribed) {
    if (one.connection != nullptr) mpls_vpn_mib_unbind(&one.connection, "mpls_vpn_mib_prov_end");
    one.registration = nullptr;
  }
  if (prov_kvtree_conn_h != nullptr) mpls_vpn_mib_unbind(&prov_kvtree_conn_h, "mpls_vpn_mib_prov_end");
  backend_scan_in_progress = 0;
  mpls_vpn_mib_forget_data_store();
}
