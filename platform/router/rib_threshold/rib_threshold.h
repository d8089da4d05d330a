// Watches the number of routes of every VRF's unicast tables against the thresholds that are configured for
// them, and publishes what crosses as nodes of the data store:
//
//   /oper/rib_threshold/TABLE/mid-thresh-exc   an encoded rib_prov_midthresh_exceed (records.h)
//   /oper/rib_threshold/TABLE/max-thresh-exc   an encoded rib_prov_maxthresh
//
// TABLE is the record service's name of the table ("red.ipv4.unicast", as a text key): the two families of a
// VRF may have one table number, the number in the record.
//
// Crossings (RFC 4382 section 5, mplsL3VpnVrfRouteMidThreshExceeded and the two notifications of the
// maximum):
//
//   mid      is exceeded when the number rises above it: one event, and no other until the number was below
//            it. At the threshold itself nothing changes.
//   maximum  is exceeded when the number reaches it, because high threshold and maximum are one configured
//            number. One event with ext_clear false; one with ext_clear true when the number is below it
//            again and no other table of the VRF is at its maximum.
//
// A threshold of 0 disables it. A changed threshold is evaluated at once and reported only if it is crossed.
// Removing an exceeded threshold clears it, with the maximum 0. A crossing that is undone between two flushes
// of the router model is not reported.
//
// The nodes reflect the current state: a mid node is removed when the number falls below the threshold; a
// maximum node has the last crossing, either way. Both are removed with the table. A process that starts
// finds no nodes and evaluates every table, so a subscriber is notified of each table that is above a
// threshold and of no other.
//
// A table that several VRFs share is watched for the first of them in name order, the one by which the record
// service finds it; the thresholds of the others have no effect. "default" is not a VRF of the MIB and not
// watched. A VRF that loses its last own table while above its maximum (it is deleted, or its table is now
// watched for another VRF) is reported as cleared, with 0 routes, while its record still has the table:
// subscribers find the VRF of an event by the number of the table. For the same reason all queued events are
// delivered at that moment.
//
// Cost: O(log VRFs) for a table whose routes changed, however many; no polling. Memory: one watch for every
// VRF with a threshold. An event that cannot be published is logged and retried at the next change.
// Main thread only.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

// Subscribes to the configured thresholds on this manager and evaluates every table: when it returns, the
// nodes of exceeded thresholds are published. Model and manager must live until rib_threshold_detach.
// kStatusExists when attached; kStatusInvalid for null; or the status of binding or subscribing, with nothing
// attached. Fault point "rib_threshold_attach".
[[nodiscard]] Status rib_threshold_attach(router::Router* model, EventManager* manager);
// Ends it and takes its nodes away. Nothing when it is not attached.
void rib_threshold_detach();
