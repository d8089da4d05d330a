// Label switching database: which cross-connect (mplsXCTable, RFC 3813) forwards a route that leaves with
// labels.
//
// The database consists of the route store's labelled routes. The index of a cross-connect is composed of
// what identifies the route and of the label stack, so that it is stable, unique per route and changes with
// the labels. Numbers are in network order:
//
//   octet 0        1, the form of the index (a single octet of 0 would mean "none")
//   octets 1-4     table identifier
//   octets 5-8     destination
//   octet 9        prefix length
//   octets 10-13   next hop
//   octet 14       number of labels
//   from octet 15  the labels, outermost first, three octets each, at most three of them
//
// A request has no next hop: of several paths of one prefix, it gets the first with labels in the order of
// next hops. Main thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"

inline constexpr std::size_t kLfxIndexMax = 24;    // MplsIndexType (RFC 3813)
inline constexpr std::uint32_t kLfxIpv4Route = 3;  // request kind

struct LfxRequest {
  std::uint32_t kind;  // kLfxIpv4Route
  std::uint32_t table_id;
  std::uint32_t destination;  // network order
  std::uint32_t prefix_length;
};

void lfx_attach(router::Router* model);  // called once by the process; null detaches

// Writes the index to `buffer` and its length to *length. kStatusNoCrossConnect when there is no such
// route or it has no labels, kStatusInvalid for null arguments, another kind or a size under 24,
// kStatusNotConnected before lfx_attach. Fault point "lfx_c_lsr_xc_idx".
[[nodiscard]] Status lfx_c_lsr_xc_idx(std::uint8_t* buffer, std::size_t size, std::size_t* length,
                                      const LfxRequest* request);
