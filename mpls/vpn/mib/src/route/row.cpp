#include "mpls/vpn/mib/src/route/row.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "mpls/vpn/mib/src/support/report.h"
#include "platform/core/base/memory.h"

const char* route_text(const char* text) {
  return text == nullptr ? "" : text;
}

bool route_texts_fit(const char* dest, const char* next_hop, std::size_t size, const char* function) {
  if (std::strlen(route_text(dest)) <= 2 * size && std::strlen(route_text(next_hop)) <= 2 * size) {
    return true;
  }
  mpls_vpn_trace(kTraceRib, kStatusNoSuchRow, "%s: an address text is too long", function);
  return false;
}

bool route_read_address(const char* text, std::uint8_t* octets, const char* function) {
  if (std::strcmp(text, kNoAddressText) == 0) return true;
  const std::size_t digits = std::strlen(text);
  for (std::size_t i = 0; i < digits; i += 2) {
    unsigned value = 0;
    if (std::sscanf(text + i, "%02x", &value) != 1) {
      mpls_vpn_report_failure(ERR, kStatusInvalid, "Error in %s: sscanf", function);
      return false;
    }
    octets[i / 2] = static_cast<std::uint8_t>(value);
  }
  return true;
}

bool route_fit_length(bool exact, std::size_t size, std::uint32_t* prefix_length, std::uint8_t* next_hop) {
  if (*prefix_length <= 8 * size) return true;
  if (exact) return false;
  *prefix_length = static_cast<std::uint32_t>(8 * size);
  std::fill_n(next_hop, size, static_cast<std::uint8_t>(0xff));
  return true;
}

bool route_copy_octets(ParcelOctets* field, const std::uint8_t* octets, std::size_t length, const char* tag) {
  *field = {};
  if (length == 0) return true;
  field->octets = static_cast<std::uint8_t*>(calloc_tagged(length, 1, tag));
  if (field->octets == nullptr) return false;
  std::memcpy(field->octets, octets, length);
  field->length = length;
  return true;
}

Status route_refuse_unanswered(int module_errno, const char* function, const char* no_route) {
  if (module_errno != ENOMEM) {
    mpls_vpn_debug(RIB, "%s", no_route);
    mpls_vpn_trace(kTraceRib, kStatusNoSuchRow, "%s", no_route);
    return kStatusNoSuchRow;
  }
  mpls_vpn_report_failure(ERR, kStatusNoMemory, "Cannot allocate memory in function %s", function);
  return kStatusNoMemory;
}

Status route_refuse_unfilled(mpls_vpn_mib_route* row, const char* function) {
  mpls_vpn_report_failure(ERR, kStatusNoMemory, "Cannot allocate memory in function %s", function);
  std::free(row->dest.octets);
  std::free(row->nextHop.octets);
  *row = {};
  return kStatusNoMemory;
}

void route_set_xc_pointer(mpls_vpn_mib_route* row, const std::uint8_t* index, std::size_t length,
                          const char* function) {
  static constexpr std::uint8_t kNone = 0;
  const std::size_t size = length == 0 ? sizeof kNone : length;
  row->xcPointer = {};
  void* copy = calloc_tagged(size, 1, "XC Pointer");
  if (copy == nullptr) {
    mpls_vpn_error(function, "Could not allocate XC pointer", kStatusNoMemory);
    return;
  }
  std::memcpy(copy, length == 0 ? &kNone : index, size);
  row->xcPointer = {size, copy};
}
