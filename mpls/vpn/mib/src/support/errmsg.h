// Messages for the system log, for the time when trace buffers and debug flags are not at hand, and for the
// loadable modules of the routing table.
#pragma once

#include "platform/core/errmsg/errmsg.h"

extern const ErrmsgRecord ERR_TRACE_INIT;        // no arguments
extern const ErrmsgRecord ERR_INIT;              // two texts
extern const ErrmsgRecord ERR_DLL_SYMBOL_ERROR;  // symbol, module
extern const ErrmsgRecord ERR_DLL_LOAD;          // module

// Posts ERR_INIT: what failed, and why.
void mpls_vpn_errmsg_init(const char* what, const char* why);
