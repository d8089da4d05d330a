#include "mpls/vpn/mib/src/provider/connection.h"

#include "mpls/vpn/mib/src/support/trace.h"
#include "platform/core/proc/proc.h"

KvConnection* prov_kvtree_conn_h = nullptr;

namespace {

bool data_store_found = false;

}  // namespace

Status mpls_vpn_mib_check_data_store() {
  if (data_store_found) return kStatusOk;
  if (proc_file_readable(kvtree_library_path()) != kStatusOk) return kStatusUnavailable;
  data_store_found = true;
  return kStatusOk;
}

Status mpls_vpn_mib_bind(KvConnection** connection, const char* path, std::uint32_t mode) {
  const Status rc = mpls_vpn_mib_check_data_store();
  return rc != kStatusOk ? rc : kvtree_bind(connection, path, mode);
}

void mpls_vpn_mib_unbind(KvConnection** connection, const char* function) {
  Status rc = mpls_vpn_mib_check_data_store();
  if (rc == kStatusOk) rc = kvtree_unbind(*connection);
  mpls_vpn_checked(function, "kvtree_unbind failed", rc);
  *connection = nullptr;
}

void mpls_vpn_mib_forget_data_store() {
  data_store_found = false;
}
