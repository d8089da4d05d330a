#include "mpls/vpn/mib/src/configuration/notify_args.h"

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"

bool mpls_vpn_mib_has_argument(const RequestArgs* args, unsigned n, const char* handler, int line) {
  if (!kvtree_absent(args, n)) return true;
  mpls_vpn_debug(ERR, "BGEN arg %d not present in %s, line %d", static_cast<int>(n), handler, line);
  return false;
}

bool mpls_vpn_mib_text_argument(const RequestArgs* args, unsigned n, const char* name, const char* handler,
                                int line, const char** text) {
  if (!mpls_vpn_mib_has_argument(args, n, handler, line)) return false;
  *text = args->arg[n].text;
  if (*text != nullptr) return true;
  mpls_vpn_debug(ERR, "BGEN arg %d '%s' is NULL in %s, line %d", static_cast<int>(n), name, handler, line);
  return false;
}

bool mpls_vpn_mib_number_argument(const RequestArgs* args, unsigned n, const char* handler, int line,
                                  std::uint32_t* number) {
  if (!mpls_vpn_mib_has_argument(args, n, handler, line)) return false;
  *number = *args->arg[n].number;
  return true;
}
