// The state of one client of a server.
#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/core/wire/wire.h"

namespace wire {

inline std::uint32_t saturated(std::uint64_t number) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(number, UINT32_MAX));
}

// Numbers beyond 32 bits are the largest one.
struct ClientSummary {
  std::uint32_t id;
  std::uint32_t user;
  std::uint32_t process;
  const char* role;   // constant
  std::uint32_t age;  // seconds
  std::uint32_t requests;
  std::uint32_t requests_per_second;  // of the last second
  std::uint32_t loop_milliseconds;    // that its requests took
  std::uint32_t queued;               // octets that it has not read yet
};

ClientSummary summarize(const Connection& client);

}  // namespace wire
