#include "mpls/vpn/mib/src/support/name.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "platform/core/base/fault.h"
#include "platform/core/base/memory.h"

namespace {

bool is_printable(std::uint8_t octet) {
  return octet >= 0x20 && octet != 0x7f;
}

// Writes the octets as text. REQUIRES: room for `length` octets and a terminator. Control characters (NUL
// among them) have no printable form; octets above 127 are taken as UTF-8 and passed on.
Status print_octets(const OctetString* octets, char* text) {
  if (const Status rc = fault_check("octet_string_print")) return rc;
  const std::uint8_t* end = octets->octets + octets->length;
  if (!std::all_of(octets->octets, end, is_printable)) return kStatusInvalid;
  std::memcpy(text, octets->octets, static_cast<std::size_t>(octets->length));
  text[octets->length] = '\0';
  return kStatusOk;
}

// The octet as a signed number, in 32 bits.
std::uint32_t sign_extended(std::uint8_t octet) {
  return octet < 0x80 ? octet : 0xffffff00U | octet;
}

bool has_octets(const OctetString* octets) {
  return octets != nullptr && octets->octets != nullptr && octets->length > 0;
}

}  // namespace

std::uint32_t mpls_vpn_name_compare(const char* left, const char* right) {
  if (left == nullptr || right == nullptr) return mpls_vpn_order(left != nullptr, right != nullptr);
  const std::size_t left_length = std::strlen(left);
  const std::size_t right_length = std::strlen(right);
  if (left_length != right_length) return mpls_vpn_order(left_length, right_length);
  return mpls_vpn_order(std::strcmp(left, right), 0);
}

std::int32_t mpls_vpn_text_index(const char* text, const char* const* table, std::int32_t rows) {
  if (text == nullptr) return -1;
  for (std::int32_t row = 0; row < rows; ++row) {
    if (std::strcmp(text, table[row]) == 0) return row;
  }
  return -1;
}

void mpls_vpn_octets_to_text(const OctetString* octets, char* buffer, std::int32_t size) {
  if (buffer == nullptr) {
    if (debug_enabled(l3vpnmib_debug_flags)) {
      debug_printf(l3vpnmib_debug_flags, "OctetString 2 ASCII called with NULL buffer");
    }
    return;
  }
  if (size < 1) return;
  const std::int32_t copied = has_octets(octets) ? std::min(octets->length, size - 1) : 0;
  if (copied > 0) std::memcpy(buffer, octets->octets, static_cast<std::size_t>(copied));
  buffer[copied] = '\0';
}

Status mpls_vpn_octets_to_new_text(const OctetString* octets, char** text) {
  if (text == nullptr) return kStatusInvalid;
  *text = nullptr;
  if (octets == nullptr || octets->length < 0 || (octets->octets == nullptr && octets->length > 0)) {
    return kStatusInvalid;
  }
  const std::size_t size = static_cast<std::size_t>(octets->length) + 1;
  auto* copy = static_cast<char*>(calloc_tagged(1, size, "mpls_vpn_MTOS"));
  if (copy == nullptr) return kStatusNoMemory;
  if (octets->length > 0 && print_octets(octets, copy) != kStatusOk) {
    std::free(copy);
    return kStatusInvalid;
  }
  *text = copy;
  return kStatusOk;
}

Status mpls_vpn_text_to_oid(const char* text, ObjectIdentifier* identifier) {
  if (text == nullptr || identifier == nullptr) return kStatusInvalid;
  *identifier = {};
  const std::size_t length = std::strlen(text);
  if (length == 0) return kStatusOk;
  auto* sub_identifiers =
      static_cast<std::uint32_t*>(calloc_tagged(length + 1, sizeof(std::uint32_t), "mpls_vpn_MOIDFTxt"));
  if (sub_identifiers == nullptr) return kStatusNoMemory;
  sub_identifiers[0] = static_cast<std::uint32_t>(length);
  for (std::size_t i = 0; i < length; ++i) {
    sub_identifiers[i + 1] = sign_extended(static_cast<std::uint8_t>(text[i]));
  }
  *identifier = {static_cast<std::uint32_t>(length + 1), sub_identifiers};
  return kStatusOk;
}
