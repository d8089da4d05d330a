// The route store: the routing tables of the router model as the MIB's rows.
//
// A table is named by its address family and its table number, and exists while a VRF of the model has it
// (Router opens and closes tables; two VRFs may share one). A row is one path: several paths of one prefix
// are several rows. Rows are ordered by destination, prefix length and next hop, all unsigned in network
// order, which is the order of inetCidrRouteTable's and mplsL3VpnVrfRteTable's indexes (RFC 4292, RFC 4382
// section 4.1). Two paths of one prefix with the same next hop (another priority, another interface) are one
// row to the MIB: the store has one of them and the sources decide which.
//
// There are no iterators: a reader remembers the key of the row it read last and asks for the next one, so
// every change in between is safe. Reads and changes cost O(log n); counts cost nothing. A row takes about 48
// octets (IPv4) or 84 (IPv6); routes with equal rare attributes (metrics 2 to 5, a next-hop AS, labels) share
// one copy of them.
//
// Main thread only. Router::flush_route_changes() notifies observers of the tables that changed, not of each
// route.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/address.h"

namespace router {

inline constexpr std::uint32_t kLabelMax = 0xfffff;  // RFC 3032 section 2.1
inline constexpr std::size_t kLabelStackMax = 16;
inline constexpr std::int32_t kMetricUnused = -1;

// inetCidrRouteType (RFC 4292).
enum class RouteType : std::uint8_t { kOther = 1, kReject = 2, kLocal = 3, kRemote = 4, kBlackhole = 5 };

// IANAipRouteProtocol: the values that the sources use. Any other value up to 255 may be cast.
enum class RouteProtocol : std::uint8_t {
  kOther = 1,
  kLocal = 2,    // connected
  kNetmgmt = 3,  // static
  kIcmp = 4,
  kRip = 8,
  kIsIs = 9,
  kOspf = 13,
  kBgp = 14,
  kEigrp = 16,
};

using RouteAddress = inet::Octets;

struct RouteKey {
  RouteAddress destination{};  // no bit set beyond the prefix length
  std::uint8_t prefix_length = 0;
  RouteAddress next_hop{};  // all zero when there is none; always so for RouteType::kLocal
  auto operator<=>(const RouteKey&) const = default;
};

struct RouteTableId {
  Family family;
  std::uint32_t table;  // never 0
  auto operator<=>(const RouteTableId&) const = default;
};

struct Route {
  RouteKey key;
  std::uint32_t interface_index = 0;  // 0 when there is none
  RouteType type = RouteType::kRemote;
  RouteProtocol protocol = RouteProtocol::kOther;
  std::uint8_t row_status = 1;  // RowStatus; active
  std::array<std::int32_t, 5> metrics{kMetricUnused, kMetricUnused, kMetricUnused, kMetricUnused,
                                      kMetricUnused};
  std::uint32_t next_hop_as = 0;
  std::vector<std::uint32_t> labels;  // pushed on packets, outermost first; empty for none
  // Seconds of clock_monotonic() at the last change of anything above. The store sets it; put() ignores it.
  std::uint32_t changed = 0;
  // The number by which the source knows what the row is made from. Not a part of the row: a row that only
  // changes its number retains its age.
  std::uint32_t origin = 0;
};

// A row as a source that compares it with the router's routes sees it.
struct RouteMark {
  RouteKey key;
  std::uint32_t origin = 0;
  bool current = false;  // put() or keep() since begin_refresh()
};

// Seconds since the route's last change.
std::uint32_t route_age(const Route& route);

enum class RouteChange : std::uint8_t { kNone, kAdded, kReplaced };

inline constexpr std::size_t kCountedProtocols = 21;  // those that the MIB names

// What is counted of a table. A row that changes counts as one that was removed and one that was added.
struct RouteCounts {
  // Rows by IANAipRouteProtocol; those beyond the array are counted as kOther.
  std::array<std::uint32_t, kCountedProtocols> by_protocol{};
  std::uint32_t protocols_seen = 0;  // bit n: the table has, or had, rows of protocol n
  std::uint64_t added = 0;           // since the table was opened
  std::uint64_t removed = 0;
};

enum class RouteRetention : std::uint8_t { kRetained, kOtherOrigin, kAbsent };

class RouteStore {
 public:
  RouteStore();
  ~RouteStore();
  RouteStore(const RouteStore&) = delete;
  RouteStore& operator=(const RouteStore&) = delete;

  // Inserts or replaces by key. An unchanged row retains its age (kNone). kStatusNoSuchRow for a table that
  // is not open, kStatusInvalid for a route that is invalid for its family (lengths, bits beyond the prefix
  // length, a local route with a next hop, metrics below -1, labels out of range or too many). Fault point
  // "route_store_put".
  [[nodiscard]] Status put(RouteTableId table, const Route& route, RouteChange* change = nullptr);
  // kStatusNoSuchRow when there is no such table or row. Fault point "route_store_erase".
  [[nodiscard]] Status erase(RouteTableId table, const RouteKey& key);

  // Re-reads a whole table: begin_refresh(), put() or keep() every current route, then end_refresh() until
  // it returns false. Rows that were not put since begin_refresh() are removed; the others retain their age.
  // Each end_refresh() visits at most `limit` rows (> 0), so that other work runs in between; rows put
  // meanwhile remain. A second begin_refresh() abandons the first. Ignored for a table that is not open.
  void begin_refresh(RouteTableId table);
  [[nodiscard]] bool end_refresh(RouteTableId table, std::size_t limit, std::size_t* erased = nullptr);

  // As put() of every row of one prefix, unchanged, if the first has this origin; the next hop of `prefix` is
  // zero. Returns kAbsent if the prefix has no rows.
  [[nodiscard]] RouteRetention keep(RouteTableId table, const RouteKey& prefix, std::uint32_t origin);
  // Reverts put() and keep() since begin_refresh() for the rows of one prefix.
  void unkeep(RouteTableId table, const RouteKey& prefix);
  // Calls `visit` for the rows of one prefix. The table must not change meanwhile.
  void visit_prefix(RouteTableId table, const RouteKey& prefix,
                    const std::function<void(const RouteMark&)>& visit) const;
  // The same for at most `limit` rows (> 0) from `first` on; false when they were the last ones.
  [[nodiscard]] bool visit_from(RouteTableId table, const RouteKey& first, std::size_t limit,
                                const std::function<void(const RouteMark&)>& visit) const;

  // False when there is no such row. *route is written on success only.
  [[nodiscard]] bool find(RouteTableId table, const RouteKey& key, Route* route) const;
  // The first row whose key is greater than `key`, which need not be a row's.
  [[nodiscard]] bool find_next(RouteTableId table, const RouteKey& key, Route* route) const;
  [[nodiscard]] bool find_first(RouteTableId table, Route* route) const;
  // The first row with labels among those of one prefix, in the order of next hops.
  [[nodiscard]] bool find_labelled(RouteTableId table, const RouteAddress& destination,
                                   std::uint8_t prefix_length, Route* route) const;
  std::size_t count(RouteTableId table) const;  // 0 for a table that is not open
  // O(1). Zero for a table that is not open.
  RouteCounts counts(RouteTableId table) const;
  std::size_t total() const;  // over all tables
  bool is_open(RouteTableId table) const;

  // Closing a table removes its rows for every reader at once; freeing the memory of a million
  // rows takes a tenth of a second. With a hook, the store calls the hook and the owner of the event loop
  // frees the rows by calling release_some() (at most `rows` rows, > 0) until it returns false. Without a
  // hook (null) the store frees them at once.
  void defer_releases(std::function<void()> hook);
  [[nodiscard]] bool release_some(std::size_t rows);

  // For the model: each open() is matched by one close(), and the last close() removes the rows. Table 0 is
  // ignored.
  void open(RouteTableId table);
  void close(RouteTableId table);
  // Calls `visit` once for every open table whose rows changed since the last call.
  void take_changed(const std::function<void(RouteTableId)>& visit);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace router
