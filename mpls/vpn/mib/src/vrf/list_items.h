// Shared by the lists of VRFs and of invalid VRFs. Not for other files.
#pragma once

#include <cstdint>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "platform/core/base/status.h"
#include "platform/store/tree/kvtree.h"

// One kind of answer.
struct VrfListKind {
  const char* function;
  bool is_datalist;
};

// Creates the reply's empty list or datalist. A failure is reported and returned.
Status create_vrf_list(const VrfListKind& kind, KvListReply* reply);

// These add one item. False, reported, when it could not be added.
bool add_vrf_list_item(const VrfListKind& kind, KvListReply* reply, const char* key);
// Encodes and releases the show record; a record without its name is not added. With is_xml the key is the
// encoded name.
bool add_vrf_datalist_item(const VrfListKind& kind, KvListReply* reply, const char* vrf_name,
                           mpls_vpn_vrf* show, bool is_xml);

// Counts an item that was added. True, reported, when the caller accepts no more.
bool count_vrf_list_item(KvListReply* reply);
