// The arguments of a configuration notification. A handler reports and refuses missing ones.
#pragma once

#include <cstdint>

#include "platform/store/tree/kvtree.h"

// True when argument n is present. Else prints "BGEN arg %d not present in %s, line %d" (ERR); `line`
// identifies the check.
[[nodiscard]] bool mpls_vpn_mib_has_argument(const RequestArgs* args, unsigned n, const char* handler,
                                             int line);
// Stores the argument's text in *text. False without one, after that print or, with the argument's name,
// "BGEN arg %d '%s' is NULL in %s, line %d" (ERR).
[[nodiscard]] bool mpls_vpn_mib_text_argument(const RequestArgs* args, unsigned n, const char* name,
                                              const char* handler, int line, const char** text);
// Stores the argument's number in *number; failures as above.
[[nodiscard]] bool mpls_vpn_mib_number_argument(const RequestArgs* args, unsigned n, const char* handler,
                                                int line, std::uint32_t* number);

inline bool mpls_vpn_mib_is_set(const KvNotifyInfo* info) {
  return (info->whichevent & (kKvEventCreated | kKvEventSet)) != 0;
}
// Call mpls_vpn_mib_is_set first: an event that sets and deletes counts as a set.
inline bool mpls_vpn_mib_is_deleted(const KvNotifyInfo* info) {
  return (info->whichevent & kKvEventDeleted) != 0;
}
