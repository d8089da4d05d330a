// Requests for dumps: everything of one kind that the kernel has.
#pragma once

#include <array>
#include <cstdint>

#include "platform/router/model/route_store.h"

struct nlmsghdr;

namespace kernel {

struct DumpRequest {
  nlmsghdr* message() { return static_cast<nlmsghdr*>(static_cast<void*>(octets.data())); }

  alignas(4) std::array<std::uint8_t, 128> octets{};
  bool strict = false;    // the kernel must apply the filter in it
  bool may_lack = false;  // a kernel that lacks this kind of object has none: ENOENT, EOPNOTSUPP
};

DumpRequest request_links();
DumpRequest request_addresses();
// The routes of one table. The kernel answers ENOENT for a table that it does not have.
DumpRequest request_routes(router::RouteTableId table);
DumpRequest request_next_hops();

}  // namespace kernel
