// The arguments of a configuration notification: refused, and said so, when one that the handler needs is not
// there.
#pragma once

#include <cstdint>

#include "platform/store/tree/kvtree.h"

// True when argument n is present. Else prints "BGEN arg %d not present in %s, line %d" (ERR); `line` tells
// one check from another.
[[nodiscard]] bool mpls_vpn_mib_has_argument(const RequestArgs* args, unsigned n, const char* handler,
                                             int line);
// *text: the argument's text. False, after that print or "BGEN arg %d '%s' is NULL in %s, line %d" (ERR) with
// the argument's name, when there is none.
[[nodiscard]] bool mpls_vpn_mib_text_argument(const RequestArgs* args, unsigned n, const char* name,
                                              const char* handler, int line, const char** text);
// *number: the argument's number; as before.
[[nodiscard]] bool mpls_vpn_mib_number_argument(const RequestArgs* args, unsigned n, const char* handler,
                                                int line, std::uint32_t* number);

inline bool mpls_vpn_mib_is_set(const KvNotifyInfo* info) {
  return (info->whichevent & (kKvEventCreated | kKvEventSet)) != 0;
}
// Ask mpls_vpn_mib_is_set first: what was set counts as set, whatever else happened to it.
inline bool mpls_vpn_mib_is_deleted(const KvNotifyInfo* info) {
  return (info->whichevent & kKvEventDeleted) != 0;
}
