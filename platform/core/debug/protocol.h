// Messages between the debug service and its clients, over platform/core/wire.
//
// Requests (the client chooses the request number) and what their answers, of the same type, carry:
//   list   -                        status, count, then name space, command name and 0 or 1 of each flag
//   set    command name, 0 or 1     status
//   watch  -                        status
//   clients  -                      status, count, then the summary of each client of this socket
// Notification to a watcher: print (request 0): prints dropped before this one (64 bits), command name, text.
// A print with an empty command name reports dropped prints alone.
#pragma once

#include <cstddef>
#include <cstdint>

namespace debug_detail {

inline constexpr std::uint16_t kTypeList = 1;
inline constexpr std::uint16_t kTypeSet = 2;
inline constexpr std::uint16_t kTypeWatch = 3;
inline constexpr std::uint16_t kTypePrint = 4;
inline constexpr std::uint16_t kTypeClients = 5;

inline constexpr std::size_t kMaxRequest = 4U << 10;       // octets
inline constexpr std::size_t kMaxMessage = 1U << 20;       // octets of an answer or print
inline constexpr std::size_t kMaxPrint = 4U << 10;         // octets of one print; longer ones are cut
inline constexpr std::size_t kWatcherOctets = 256U << 10;  // unsent to one watcher
inline constexpr std::uint64_t kMostPrints = 50'000;       // of the process in kPrintPeriod
inline constexpr std::uint64_t kPrintPeriod = 5;           // seconds
inline constexpr std::size_t kPendingPrints = 1024;        // on their way to the service's thread

}  // namespace debug_detail
