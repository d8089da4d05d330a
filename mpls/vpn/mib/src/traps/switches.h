// The switches of the notifications (RFC 4382, section 6), and the interval of the re-issue timer.
#pragma once

#include "platform/store/tree/kvtree.h"

// An item below "/cfg/gl/snmp/enable/traps/l3vpnmib/" was added, set or deleted. A switch is on while its
// item exists, whatever the item's value. The value of "notif-reissue-time" is seconds (signed 32 bits);
// anything but a positive number stops the re-issuing. An unknown item is printed under ERR and traced. Main
// thread only.
void traps_notify(const KvNotifyInfo* info);
