// The routing table's events: a VRF's number of routes crossed its mid or maximum threshold.
#pragma once

#include "platform/store/tree/kvtree.h"

// Store the number of routes of an encoded rib_prov_midthresh_exceed or rib_prov_maxthresh in the VRF's
// attribute block and raise the notification. An item that is not a record, or that does not decode, is
// reported; an event of a table that no VRF has is dropped. The path's arguments are not used. Main thread.
void mpls_vpn_mib_mid_thresh_exceeded_notify(const KvNotifyInfo* info, const RequestArgs* args);
void mpls_vpn_mib_high_thresh_exceeded_notify(const KvNotifyInfo* info, const RequestArgs* args);
