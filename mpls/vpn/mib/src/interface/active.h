// Whether an interface counts as active for its VRF.
#pragma once

#include "platform/router/vtab/vtab.h"

// True when the interface has a non-zero primary IPv4 address while IPv4 is up on it, or else a first IPv6
// address that is not all zeros while IPv6 is up. Main thread.
bool interface_is_active(const VtabIfRecord* record);
// The same without prints.
bool interface_is_active_silently(const VtabIfRecord* record);
