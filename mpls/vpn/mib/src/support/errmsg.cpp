// Operators and log filters match these texts, so the misspelling and the trailing blank are part of them.
// The last member is the message's number in the facility's catalogue.
#include "mpls/vpn/mib/src/support/errmsg.h"

const ErrmsgRecord ERR_DLL_LOAD = {"MPLS_VPN_MIB", "OS", 3, "ERR_DLL_LOAD", "Cannot load DLL: %s ", 0};
const ErrmsgRecord ERR_DLL_SYMBOL_ERROR = {
    "MPLS_VPN_MIB", "OS", 3, "ERR_DLL_SYMBOL_ERROR", "Cannot find symbol %s in DLL %s", 1};
const ErrmsgRecord ERR_INIT = {"MPLS_VPN_MIB", "OS", 3, "ERR_INIT", "%s : %s", 2};
const ErrmsgRecord ERR_TRACE_INIT = {"MPLS_VPN_MIB",
                                     "OS",
                                     3,
                                     "ERR_TRACE_INIT",
                                     "mpls vpn mib event tracing subsytem initialization failed",
                                     3};

void mpls_vpn_errmsg_init(const char* what, const char* why) {
  errmsg_post(&ERR_INIT, what, why);
}
