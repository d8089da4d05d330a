// The interface index by name, through a list of all indexes that is fetched at most once per process.
//
// When the daemon starts, every interface joins its VRF at once. The first index that the service returns
// makes this file fetch the whole list; the joins that follow read it. The list is discarded for good at the
// first look-up that does not find its name (a new interface), or that reaches an entry without a value (the
// service clears the entry of an interface that is removed, renamed or has another index). From then on every
// look-up asks the service.
//
// Main thread, outside the database mutex.
#include "mpls/vpn/mib/src/interface/cached_ifindex.h"

#include <cstring>

#include "mpls/vpn/mib/src/support/report.h"
#include "platform/router/ifindex/ifindex.h"
#include "platform/store/tree/kvtree.h"

namespace {

constexpr const char* kCachedLookup = "mpls_vpn_cached_ifname_to_index";

KvDatalist* index_list = nullptr;
bool may_fetch = true;

void drop_list() {
  kvtree_datalist_free(index_list);
  index_list = nullptr;
}

// Finds the name's entry as a reader from the start of the list would: false if an entry without a value is
// before it, or if there is none. Takes a binary search (kvtree_datalist_find), so that start-up is not
// quadratic.
bool find_entry(const char* if_name, std::uint32_t* if_index) {
  const char* name = nullptr;
  const void* value = nullptr;
  std::size_t length = 0;
  if (kvtree_datalist_find(index_list, if_name, &name, &value, &length) != kStatusOk) return false;
  if (name == nullptr || value == nullptr || length != sizeof *if_index) return false;
  std::memcpy(if_index, value, sizeof *if_index);
  return true;
}

// True with the index if the list has the name; otherwise the list is discarded.
bool find_in_list(const char* if_name, std::uint32_t* if_index) {
  const Status rc = kvtree_datalist_start(index_list);
  if (rc != kStatusOk) {
    mpls_vpn_error(kCachedLookup, "kvtree_datalist_start failed", rc);
    drop_list();
    return false;
  }
  if (find_entry(if_name, if_index)) return true;
  drop_list();
  return false;
}

void fetch_list_once() {
  if (!may_fetch) return;
  may_fetch = false;
  const Status rc = ifindex_get_index_list(&index_list);
  if (rc == kStatusOk) return;
  mpls_vpn_error(kCachedLookup, "ifindex_get_index_list failed", rc);
  index_list = nullptr;
}

}  // namespace

std::uint32_t mpls_vpn_cached_ifname_to_index(const char* if_name) {
  std::uint32_t if_index = 0;
  if (index_list != nullptr && find_in_list(if_name, &if_index)) return if_index;
  const Status rc = ifname_to_index(if_name, &if_index);
  if (rc != kStatusOk) {
    mpls_vpn_error(kCachedLookup, "ifname_to_index failed", rc);
    mpls_vpn_debug(VMAP, "Interface index error %s", err_text(rc));
    return 0;
  }
  fetch_list_once();
  return if_index;
}

void mpls_vpn_cached_ifindex_end() {
  if (index_list != nullptr) drop_list();
  may_fetch = true;
}
