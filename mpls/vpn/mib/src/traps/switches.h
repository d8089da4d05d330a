// The switches of the notifications of MPLS-L3VPN-STD-MIB (RFC 4382, section 6), and the time of the re-issue
// timer.
#pragma once

#include "platform/store/tree/kvtree.h"

// An item below "/cfg/gl/snmp/enable/traps/l3vpnmib/" was added, set or deleted. The presence of a switch's
// item turns it on, whatever its value; the value of "notif-reissue-time" is seconds (signed 32 bits), and
// anything but a positive number ends the re-issuing. An unknown item is printed under ERR and traced. Main
// thread only.
void traps_notify(const KvNotifyInfo* info);
