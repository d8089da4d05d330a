// The kernel's routes of one table, and their rows in the route store.
//
// A prefix with one route and a row needs nothing but its rows: their origin is the number of the route's
// content. Other prefixes (several routes, a route without a row) are listed. Announcements are collected and
// applied by commit(), so that several changes of a prefix are one change of its rows. What the kernel did
// without an announcement (RouteHistory) is applied to a prefix when it is next used, and by walk() to all.
//
// A reading of the table compares every route of the kernel with what the announcements made of the table.
//
// Main thread only. The model and the basis must outlive it.
#pragma once

#include <absl/container/btree_set.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <unordered_set>
#include <utility>
#include <vector>

#include "platform/router/model/router.h"
#include "sources/kernel/route_state/link_states.h"
#include "sources/kernel/route_state/route_list.h"
#include "sources/kernel/route_state/route_rows.h"
#include "sources/kernel/routes/route_contents.h"

namespace kernel {

// What the routes of a table depend on, possibly more than that.
struct RouteUsage {
  absl::btree_set<std::uint32_t> interfaces;
  std::unordered_set<std::uint32_t> objects;  // named by routes; not the members of groups
};

class TableRoutes {
 public:
  struct Prefix {
    router::RouteAddress destination{};
    std::uint8_t length = 0;
    auto operator<=>(const Prefix&) const = default;
    router::RouteKey key() const { return {destination, length, {}}; }  // before those of its rows
  };
  struct Counters {
    std::uint64_t refused = 0;     // rows that the store refused
    std::uint64_t unresolved = 0;  // routes with an unknown next-hop object
    std::uint64_t corrections = 0;
  };
  enum class Reading {
    kFirst,   // the table is not known
    kVerify,  // ... or is known, and a difference is a correction
  };

  struct Basis {  // what the meaning of a route depends on
    const NextHopObjects* objects;
    const RouteHistory* history;
    const LinkStates* links;
  };

  TableRoutes(router::Router* model, const Basis& basis, router::RouteTableId table);

  router::RouteTableId id() const { return table_; }

  // Announcements; only routes that are shown. False as announce() in route_list.h. `moment`: when it was
  // made.
  bool add(KernelRoute route, std::uint16_t flags, RouteHistory::Moment moment);
  void remove(KernelRoute route);
  // Whether the route is one of its prefix, with the announcements.
  bool lists(KernelRoute route) const;
  // Applies the announcements to the rows.
  void commit();
  // Call after lost announcements: the rows may be wrong until the next reading, and a reading that runs
  // counts as the first.
  void forget_announcements();

  // Something that the routes depend on changed: visits every prefix.
  void begin_walk();
  bool is_walking() const { return walk_.is_running; }
  // Visits up to `prefixes` (> 0).
  void walk(std::size_t prefixes);

  // A reading: begin, compare() for the routes of each prefix in the kernel's order, end_some() until it is
  // false. A prefix that is announced meanwhile is left as it is.
  // `continues`: what the one before has read counts as read.
  void begin_reading(Reading reading, bool continues);
  // `additions_only`: routes may be missing in `routes`.
  void compare(const Prefix& prefix, std::span<KernelRoute> routes, bool additions_only);
  bool end_some(std::size_t prefixes);
  void abandon_reading() { reading_.reset(); }
  // Prefixes that were announced meanwhile, or addresses of several of them.
  std::size_t announced_meanwhile() const { return reading_ ? reading_->touched.size() : 0; }

  // For a table that is closed: frees memory in steps; false when nothing is left.
  [[nodiscard]] bool release_some(std::size_t count);

  // Since take_changed() rows changed.
  bool take_changed() { return std::exchange(changed_, false); }
  // Since take_deferred() the store refused rows that it may accept later.
  bool take_deferred() { return std::exchange(deferred_, false); }
  Counters take_counters() { return std::exchange(counters_, {}); }
  const RouteUsage& usage() const { return usage_; }
  bool has_preferred_source(std::uint32_t address) const { return contents_.has_preferred_source(address); }

 private:
  using Ids = std::vector<RouteContents::Id>;
  struct Listed {
    Ids ids;
    std::uint32_t reading = 0;  // the number of the last one that had the prefix
  };
  // Over the rows, then over the listed prefixes.
  struct Walk {
    bool is_running = false;
    bool in_list = false;
    Prefix next{};
  };
  struct CurrentReading {
    Reading kind = Reading::kFirst;
    absl::btree_set<router::RouteAddress> touched;  // destinations that were announced meanwhile
    // Prefixes with routes for a prefix of sources. The kernel shows these before routes to longer prefixes,
    // and the others after them.
    std::map<Prefix, RouteList> apart;
    bool additions_only = false;
    bool correction_logged = false;
    Walk sweep{.is_running = true};
  };
  using Wanted =
      std::function<bool(const Prefix& prefix, const router::RouteMark* row, const Listed* listed)>;

  // The rows of the route that was added last: the next one often differs in its prefix only.
  struct Sample {
    RouteContents::Id id = 0;
    RouteHistory::Moment moment = 0;
    std::vector<router::Route> rows{};
  };

  Ids ids_of(const Prefix& prefix) const;
  bool any_stale(const Ids& ids);
  bool is_read(const Prefix& prefix) const;
  void mark_unread(const Prefix& prefix);
  RouteList routes_of(const Ids& ids) const;
  RouteList* pending(const Prefix& prefix);
  void replace(const Prefix& prefix, const Ids& before, const RouteList& routes);
  void add_read(const Prefix& prefix, const KernelRoute& route, RouteContents::Id id);
  std::vector<router::Route> rows_of(const Prefix& prefix, const RouteList& routes, const Ids& ids);
  bool store(const Prefix& prefix, bool is_new, const std::vector<router::Route>& rows);
  // The rows are in the order of their keys.
  bool erase_others(const Prefix& prefix, const std::vector<router::Route>& rows);
  void refuse(Status status);
  void note_usage(const KernelRoute& content);
  void rebuild_usage();
  void normalize(KernelRoute* route) const;
  void interpret(KernelRoute* route) const;
  router::RouteRetention keep(const Prefix& prefix, const RouteList& routes);
  bool set_apart(const Prefix& prefix, RouteList* routes);
  void compare_apart(std::size_t prefixes);
  void count_correction(const Prefix& prefix);
  bool compare_single(const Prefix& prefix, const KernelRoute& route);
  void compare_all(const Prefix& prefix, RouteList routes, bool additions_only);
  void remove_unread(const Prefix& prefix);
  std::vector<Prefix> step(Walk* walk, std::size_t prefixes, const Wanted& wanted) const;
  std::vector<Prefix> step_rows(Walk* walk, std::size_t prefixes, const Wanted& wanted) const;
  std::vector<Prefix> step_list(Walk* walk, std::size_t prefixes, const Wanted& wanted) const;

  router::Router* model_;
  Basis basis_;
  const router::RouteTableId table_;
  RouteContents contents_;
  std::map<Prefix, Listed> listed_;
  std::map<Prefix, RouteList> pending_;
  Sample sample_;
  RouteUsage usage_;
  Walk walk_;
  bool walk_again_ = false;
  std::unique_ptr<CurrentReading> reading_;
  std::uint32_t readings_ = 0;
  Counters counters_;
  bool changed_ = false;
  bool deferred_ = false;
  bool refusal_logged_ = false;
};

// The prefix of a route, which is removed from it, as is the table.
TableRoutes::Prefix take_prefix(KernelRoute* route);

}  // namespace kernel
