// The name order of the databases. The other value helpers are for code that is loaded into the daemon's
// process and speaks an SNMP agent's types; the daemon itself calls none of them: the index of a text in a
// table, and conversions of octet strings and object identifiers (RFC 2578 section 7.7). Any thread.
#pragma once

#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/core/wavl/wavl.h"

// The order of two numbers: kWavlLess, kWavlEqual or kWavlGreater.
template <typename Number>
std::uint32_t mpls_vpn_order(Number left, Number right) {
  if (left == right) return kWavlEqual;
  return left < right ? kWavlLess : kWavlGreater;
}

// The key order of every name-keyed tree: a shorter name orders before a longer one whatever their octets,
// names of equal length by octets (strcmp). This is the index order of the MIB's tables, where a name is
// written after its length. A null name orders before any other; two null names are equal.
std::uint32_t mpls_vpn_name_compare(const char* left, const char* right);

// Index of the first of `rows` texts equal to `text`, or -1 (also for rows < 1, and for a null text).
std::int32_t mpls_vpn_text_index(const char* text, const char* const* table, std::int32_t rows);

// An agent's octet string: not terminated, may hold any octet.
struct OctetString {
  std::int32_t length;  // octets; below 1 for none
  const std::uint8_t* octets;
};

// An agent's object identifier.
struct ObjectIdentifier {
  std::uint32_t count;             // sub-identifiers
  std::uint32_t* sub_identifiers;  // owned: the C heap's, null for count 0
};

// Writes at most size - 1 octets and a terminator; the empty text for a null or empty octet string. A null
// buffer is reported (flag l3vpnmib_debug_flags) and a size below 1 has no room for the terminator: nothing
// is written then.
void mpls_vpn_octets_to_text(const OctetString* octets, char* buffer, std::int32_t size);

// Stores a terminated heap copy in *text, which the caller frees. On failure *text is null: kStatusInvalid
// for a missing argument or for octets that are not printable text, kStatusNoMemory. Fault point
// "octet_string_print".
[[nodiscard]] Status mpls_vpn_octets_to_new_text(const OctetString* octets, char** text);

// The length-prefixed index form of a text: "ab" is 2.97.98; the empty text is the empty identifier.
// Characters are taken as signed octets, so those above 127 become sub-identifiers above 0xffffff7f. The
// caller frees identifier->sub_identifiers. kStatusInvalid for a missing argument, kStatusNoMemory.
[[nodiscard]] Status mpls_vpn_text_to_oid(const char* text, ObjectIdentifier* identifier);
