// Readers see the item kinds: 3 for a name, 7 for a record. An encoded record or key is freed once its item
// is added: the data store copies both.
#include "mpls/vpn/mib/src/vrf/list_items.h"

#include <cstdlib>
#include <memory>

#include "mpls/vpn/mib/src/provider/request.h"
#include "mpls/vpn/mib/src/support/report.h"

namespace {

constexpr std::uint32_t kKindName = 3;
constexpr std::uint32_t kNoFlags = 0;

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

bool report_added(const VrfListKind& kind, Status rc) {
  const char* what = kind.is_datalist ? "Datalist item add failed" : "List item add failed";
  if (rc != kStatusOk) mpls_vpn_error(kind.function, what, rc);
  return rc == kStatusOk;
}

Status encode(const VrfListKind& kind, const mpls_vpn_vrf* show, std::uint8_t** data, std::size_t* length) {
  if (show->VRFName == nullptr) return kStatusNoMemory;  // reported where it could not be copied
  const Status rc = parcel_encode(&kShowVrfParcel, show, data, length);
  if (rc != kStatusOk) mpls_vpn_error(kind.function, "Parcel encode failed", rc);
  return rc;
}

Status encode_key(const VrfListKind& kind, const char* vrf_name, char** key) {
  const Status rc = kvtree_string_encode(vrf_name, key);
  if (rc != kStatusOk) {
    mpls_vpn_report_failure(ERR, rc, "String encode failed in %s for VRF %s; rc = %s", kind.function,
                            vrf_name, err_text(rc));
  }
  return rc;
}

}  // namespace

Status create_vrf_list(const VrfListKind& kind, KvListReply* reply) {
  reply->count = 0;
  const Status rc =
      kind.is_datalist ? kvtree_datalist_create(&reply->datalist) : kvtree_list_create(&reply->list);
  const char* what = kind.is_datalist ? "Datalist creation failed" : "List creation failed";
  if (rc != kStatusOk) mpls_vpn_error(kind.function, what, rc);
  return rc;
}

bool add_vrf_list_item(const VrfListKind& kind, KvListReply* reply, const char* key) {
  return report_added(kind, kvtree_list_add(reply->list, key, kKindName, kNoFlags));
}

bool add_vrf_datalist_item(const VrfListKind& kind, KvListReply* reply, const char* vrf_name,
                           mpls_vpn_vrf* show, bool is_xml) {
  std::uint8_t* data = nullptr;
  std::size_t length = 0;
  const Status rc = encode(kind, show, &data, &length);
  prov_release_parcel(show, &kShowVrfParcel, kind.function);
  if (rc != kStatusOk) return false;
  const std::unique_ptr<std::uint8_t, Free> owned_data(data);
  char* encoded = nullptr;
  const bool has_key = !is_xml || encode_key(kind, vrf_name, &encoded) == kStatusOk;
  const std::unique_ptr<char, Free> owned_key(encoded);
  if (!has_key) return false;
  return report_added(kind, kvtree_datalist_add(reply->datalist, is_xml ? encoded : vrf_name, kKvKindRecord,
                                                kNoFlags, data, length));
}

bool count_vrf_list_item(KvListReply* reply) {
  if (++reply->count < reply->max_items) return false;
  mpls_vpn_debug(PROV, "Reached max %d %d", static_cast<std::int32_t>(reply->count),
                 static_cast<std::int32_t>(reply->max_items));
  return true;
}
