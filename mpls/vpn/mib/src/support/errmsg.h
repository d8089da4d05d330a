// Messages for the system log: from start-up, before trace buffers and debug flags exist, and from the loader
// of the routing table's modules. Any thread may post.
#pragma once

#include "platform/core/errmsg/errmsg.h"

extern const ErrmsgRecord ERR_TRACE_INIT;        // no arguments
extern const ErrmsgRecord ERR_INIT;              // two texts
extern const ErrmsgRecord ERR_DLL_SYMBOL_ERROR;  // symbol, module
extern const ErrmsgRecord ERR_DLL_LOAD;          // module

// Posts ERR_INIT: what failed, and why.
void mpls_vpn_errmsg_init(const char* what, const char* why);
