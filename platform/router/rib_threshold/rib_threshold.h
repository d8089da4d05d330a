// Watches the number of routes of every VRF's unicast tables against the thresholds that are configured for
// them, and publishes what crosses as nodes of the data store:
//
//   /oper/rib_threshold/TABLE/mid-thresh-exc   an encoded rib_prov_midthresh_exceed (records.h)
//   /oper/rib_threshold/TABLE/max-thresh-exc   an encoded rib_prov_maxthresh
//
// TABLE is the record service's name of the table ("red.ipv4.unicast", as a text key): the two families of a
// VRF may have one table number, the number in the record.
//
// What crosses (RFC 4382 section 5, mplsL3VpnVrfRouteMidThreshExceeded and the two notifications of the
// maximum):
//
//   mid      exceeded when the number is above it; one event, and none again until the number was below it.
//            At the threshold itself nothing changes.
//   maximum  exceeded when the number reaches it: high threshold and maximum are one configured number, and
//            then reaching is enough. One event with ext_clear false; one with ext_clear true when the number
//            is below it again, and no table of the VRF is at its maximum any more.
//
// A threshold of 0 is none. A threshold that changes is judged at once; nothing is said unless that crosses
// it. One that is taken away while exceeded is cleared, with the maximum 0. Between two flushes of the
// router model the number may cross and come back: that is not seen.
//
// The nodes are true statements while they stand: a mid node goes when the number falls below; a maximum
// node says which way it crossed last. Both go with the table. A process that starts finds none: it judges
// what it has, so whoever registers hears of every table that is above, and of none that is not.
//
// A table that several VRFs share is watched for the first of them in name order, the one by which the record
// service knows it; the thresholds of the others say nothing. "default" is no VRF of the MIB and not watched.
// A VRF that is left without a table of its own while above its maximum (deleted, or its table is now watched
// for another VRF) is announced as cleared, with 0 routes, before its record loses the table: events lead to
// a VRF by the number of its table. What is queued for subscribers at that moment is delivered then, too.
//
// Cost: O(log VRFs) for a table whose routes changed, however many; no polling. Memory: one watch for every
// VRF with a threshold. An event that cannot be published is logged and tried again at the next change.
// Main thread only.
#pragma once

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"

// Subscribes to the thresholds in the configuration on this manager and judges what is there: the nodes of
// what is above stand when it returns. Both must stay until it is detached. kStatusExists when attached;
// kStatusInvalid for null; or what binding and subscribing answer, with nothing attached. Fault point
// "rib_threshold_attach".
[[nodiscard]] Status rib_threshold_attach(router::Router* model, EventManager* manager);
// Ends it and takes its nodes away. Nothing when it is not attached.
void rib_threshold_detach();
