// A table is a B-tree of rows that hold addresses as words in host order, 32 octets for
// IPv4 and 56 for IPv6, so that comparing is a matter of integers and a million routes fit in a few tens of
// megabytes.
//
// A row holds its key, so the tree hands rows out as constants; what does not belong to the key is mutable
// and changes in place.
//
// A refresh is a generation of eight bits: begin_refresh() increments it, put() stamps rows with it,
// end_refresh() removes the rows of any other generation. A row whose stamp is exactly 256 abandoned
// refreshes old survives one refresh too many.
#include "platform/router/model/routes/route_table.h"

#include <absl/container/btree_set.h>

#include <algorithm>
#include <optional>

#include "platform/core/base/clock.h"
#include "platform/router/model/address.h"

namespace router {
namespace {

template <std::size_t kWords>
using Words = std::array<std::uint32_t, kWords>;

template <std::size_t kWords>
Words<kWords> words_of(const RouteAddress& address) {
  Words<kWords> words{};
  for (std::size_t at = 0; at < 4 * kWords; ++at) words[at / 4] = words[at / 4] << 8 | address[at];
  return words;
}

template <std::size_t kWords>
RouteAddress address_of(const Words<kWords>& words) {
  RouteAddress address{};
  for (std::size_t at = 0; at < 4 * kWords; ++at) {
    address[at] = static_cast<std::uint8_t>(words[at / 4] >> (24 - 8 * (at % 4)));
  }
  return address;
}

template <std::size_t kWords>
struct Row {
  Words<kWords> destination;
  Words<kWords> next_hop;
  mutable std::uint32_t interface_index;
  mutable std::uint32_t changed;  // seconds
  mutable std::int32_t metric1;
  mutable std::uint32_t attributes;  // number of the set
  mutable std::uint32_t origin;
  std::uint8_t prefix_length;
  mutable std::uint8_t type_and_status;  // RouteType and RowStatus, four bits each
  mutable std::uint8_t protocol;
  mutable std::uint8_t generation;
};
static_assert(sizeof(Row<1>) == 32 && sizeof(Row<4>) == 56);

// Below, at or above 0. std::array would call memcmp().
template <std::size_t kWords>
int compare(const Words<kWords>& left, const Words<kWords>& right) {
  for (std::size_t at = 0; at < kWords; ++at) {
    if (left[at] != right[at]) return left[at] < right[at] ? -1 : 1;
  }
  return 0;
}

struct RowLess {
  template <std::size_t kWords>
  bool operator()(const Row<kWords>& left, const Row<kWords>& right) const {
    if (const int order = compare<kWords>(left.destination, right.destination)) return order < 0;
    if (left.prefix_length != right.prefix_length) return left.prefix_length < right.prefix_length;
    return compare<kWords>(left.next_hop, right.next_hop) < 0;
  }
};

std::uint32_t seconds_now() {
  return static_cast<std::uint32_t>(clock_monotonic() / kNanosecondsPerSecond);
}

template <std::size_t kWords>
Row<kWords> row_of(const RouteKey& key) {
  Row<kWords> row{};
  row.destination = words_of<kWords>(key.destination);
  row.prefix_length = key.prefix_length;
  row.next_hop = words_of<kWords>(key.next_hop);
  return row;
}

template <std::size_t kWords>
Row<kWords> row_of(const Route& route) {
  Row<kWords> row = row_of<kWords>(route.key);
  row.interface_index = route.interface_index;
  row.metric1 = route.metrics[0];
  row.type_and_status = static_cast<std::uint8_t>(static_cast<unsigned>(route.type) << 4 | route.row_status);
  row.protocol = static_cast<std::uint8_t>(route.protocol);
  row.origin = route.origin;
  return row;
}

// Everything but key, time, generation and origin.
template <std::size_t kWords>
bool same_details(const Row<kWords>& left, const Row<kWords>& right) {
  return left.interface_index == right.interface_index && left.metric1 == right.metric1 &&
         left.attributes == right.attributes && left.type_and_status == right.type_and_status &&
         left.protocol == right.protocol;
}

template <std::size_t kWords>
bool same_prefix(const Row<kWords>& left, const Row<kWords>& right) {
  return compare<kWords>(left.destination, right.destination) == 0 &&
         left.prefix_length == right.prefix_length;
}

std::size_t counted_protocol(std::uint8_t protocol) {
  return protocol < kCountedProtocols ? protocol : static_cast<std::size_t>(RouteProtocol::kOther);
}

void count_added(RouteCounts* counts, std::uint8_t protocol) {
  const std::size_t counted = counted_protocol(protocol);
  ++counts->by_protocol[counted];
  counts->protocols_seen |= 1U << counted;
  ++counts->added;
}

void count_removed(RouteCounts* counts, std::uint8_t protocol) {
  --counts->by_protocol[counted_protocol(protocol)];
  ++counts->removed;
}

RouteAttributes attributes_of(const Route& route) {
  RouteAttributes attributes;
  std::copy(route.metrics.begin() + 1, route.metrics.end(), attributes.further_metrics.begin());
  attributes.next_hop_as = route.next_hop_as;
  attributes.labels = route.labels;
  return attributes;
}

template <std::size_t kWords>
class Table final : public RouteTable {
 public:
  explicit Table(RouteAttributeSets* sets) : sets_(sets) {}
  ~Table() override {
    while (release_some(rows_.size())) {
    }
  }

  RouteChange put(const Route& route) override {
    Row<kWords> row = row_of<kWords>(route);
    row.attributes = sets_->hold(attributes_of(route));
    row.changed = seconds_now();
    row.generation = generation_;
    const std::size_t count = rows_.size();
    const auto present = rows_.insert(rows_.end(), row);  // readings are in the order of rows
    if (rows_.size() == count) return replace(*present, row);
    count_added(&counts_, row.protocol);
    return RouteChange::kAdded;
  }

  bool erase(const RouteKey& key) override {
    const auto found = rows_.find(row_of<kWords>(key));
    if (found == rows_.end()) return false;
    count_removed(&counts_, found->protocol);
    sets_->release(found->attributes);
    rows_.erase(found);
    return true;
  }

  bool release_some(std::size_t limit) override {
    auto end = rows_.begin();
    for (std::size_t visited = 0; end != rows_.end() && visited < limit; ++visited, ++end) {
      sets_->release(end->attributes);
    }
    rows_.erase(rows_.begin(), end);
    return !rows_.empty();
  }

  void begin_refresh() override {
    ++generation_;
    swept_.reset();
  }

  bool end_refresh(std::size_t limit, std::size_t* erased) override {
    auto row = swept_ ? rows_.upper_bound(*swept_) : rows_.begin();
    for (std::size_t visited = 0; row != rows_.end() && visited < limit; ++visited) {
      swept_ = *row;
      if (row->generation == generation_) {
        ++row;
        continue;
      }
      count_removed(&counts_, row->protocol);
      sets_->release(row->attributes);
      row = rows_.erase(row);
      if (erased != nullptr) ++*erased;
    }
    const bool is_done = row == rows_.end();
    if (is_done) swept_.reset();
    return !is_done;
  }

  RouteRetention keep(const RouteKey& prefix, std::uint32_t origin) override {
    const Row<kWords> wanted = row_of<kWords>(prefix);
    if (rows_.empty() || RowLess()(*rows_.rbegin(), wanted)) return RouteRetention::kAbsent;
    auto row = rows_.lower_bound(wanted);
    if (!same_prefix(*row, wanted)) return RouteRetention::kAbsent;
    if (row->origin != origin) return RouteRetention::kOtherOrigin;
    for (; row != rows_.end() && same_prefix(*row, wanted); ++row) row->generation = generation_;
    return RouteRetention::kRetained;
  }

  void unkeep(const RouteKey& prefix) override {
    const Row<kWords> wanted = row_of<kWords>(prefix);
    for (auto row = rows_.lower_bound(wanted); row != rows_.end() && same_prefix(*row, wanted); ++row)
      row->generation = static_cast<std::uint8_t>(generation_ - 1);
  }

  void visit_prefix(const RouteKey& prefix, const RouteVisitor& visit) const override {
    const Row<kWords> wanted = row_of<kWords>(prefix);
    for (auto row = rows_.lower_bound(wanted); row != rows_.end() && same_prefix(*row, wanted); ++row) {
      visit(mark_of(*row));
    }
  }

  bool visit_from(const RouteKey& first, std::size_t limit, const RouteVisitor& visit) const override {
    auto row = rows_.lower_bound(row_of<kWords>(first));
    for (; row != rows_.end() && limit > 0; ++row, --limit) visit(mark_of(*row));
    return row != rows_.end();
  }

  bool find(const RouteKey& key, Route* route) const override {
    return give(rows_.find(row_of<kWords>(key)), route);
  }
  bool find_next(const RouteKey& key, Route* route) const override {
    return give(rows_.upper_bound(row_of<kWords>(key)), route);
  }
  bool find_first(Route* route) const override { return give(rows_.begin(), route); }
  std::size_t count() const override { return rows_.size(); }
  const RouteCounts& counts() const override { return counts_; }

  bool find_labelled(const RouteKey& prefix, Route* route) const override {
    const Row<kWords> wanted = row_of<kWords>(prefix);
    auto row = rows_.lower_bound(wanted);
    while (row != rows_.end() && same_prefix(*row, wanted)) {
      if (!(*sets_)[row->attributes].labels.empty()) return give(row, route);
      ++row;
    }
    return false;
  }

 private:
  using Rows = absl::btree_set<Row<kWords>, RowLess>;

  // `row` has its attributes; the attributes of the row that is not stored are released.
  RouteMark mark_of(const Row<kWords>& row) const {
    return {{address_of<kWords>(row.destination), row.prefix_length, address_of<kWords>(row.next_hop)},
            row.origin,
            row.generation == generation_};
  }

  RouteChange replace(const Row<kWords>& present, const Row<kWords>& row) {
    present.generation = generation_;
    present.origin = row.origin;
    if (same_details(present, row)) {
      sets_->release(row.attributes);
      return RouteChange::kNone;
    }
    count_removed(&counts_, present.protocol);
    count_added(&counts_, row.protocol);
    sets_->release(present.attributes);
    present.interface_index = row.interface_index;
    present.changed = row.changed;
    present.metric1 = row.metric1;
    present.attributes = row.attributes;
    present.type_and_status = row.type_and_status;
    present.protocol = row.protocol;
    return RouteChange::kReplaced;
  }

  bool give(typename Rows::const_iterator row, Route* route) const {
    if (row == rows_.end()) return false;
    const RouteAttributes& attributes = (*sets_)[row->attributes];
    route->key = {address_of<kWords>(row->destination), row->prefix_length,
                  address_of<kWords>(row->next_hop)};
    route->interface_index = row->interface_index;
    route->type = static_cast<RouteType>(row->type_and_status >> 4);
    route->protocol = static_cast<RouteProtocol>(row->protocol);
    route->row_status = row->type_and_status & 0xf;
    route->metrics[0] = row->metric1;
    std::copy(attributes.further_metrics.begin(), attributes.further_metrics.end(),
              route->metrics.begin() + 1);
    route->next_hop_as = attributes.next_hop_as;
    route->labels = attributes.labels;
    route->changed = row->changed;
    route->origin = row->origin;
    return true;
  }

  RouteAttributeSets* sets_;
  Rows rows_;
  RouteCounts counts_;
  std::optional<Row<kWords>> swept_;  // the last row that the running end_refresh() visited
  std::uint8_t generation_ = 0;
};

bool is_zero_from(const RouteAddress& address, std::size_t first) {
  return std::all_of(address.begin() + static_cast<std::ptrdiff_t>(first), address.end(),
                     [](std::uint8_t octet) { return octet == 0; });
}

bool valid_type(const Route& route) {
  if (route.type < RouteType::kOther || route.type > RouteType::kBlackhole) return false;
  return route.type != RouteType::kLocal || is_zero_from(route.key.next_hop, 0);
}

}  // namespace

bool valid_route_key(Family family, const RouteKey& key) {
  if (family != Family::kIpv4) return key.prefix_length <= 128;
  return key.prefix_length <= 32 && is_zero_from(key.destination, 4) && is_zero_from(key.next_hop, 4);
}

bool valid_route(Family family, const Route& route) {
  const auto bad_metric = [](std::int32_t metric) { return metric < kMetricUnused; };
  const auto bad_label = [](std::uint32_t label) { return label > kLabelMax; };
  return valid_route_key(family, route.key) &&
         !inet::has_host_bits(route.key.destination, route.key.prefix_length) && valid_type(route) &&
         route.row_status >= 1 && route.row_status <= 6 &&
         std::none_of(route.metrics.begin(), route.metrics.end(), bad_metric) &&
         route.labels.size() <= kLabelStackMax &&
         std::none_of(route.labels.begin(), route.labels.end(), bad_label);
}

std::unique_ptr<RouteTable> make_route_table(Family family, RouteAttributeSets* sets) {
  if (family == Family::kIpv4) return std::make_unique<Table<1>>(sets);
  return std::make_unique<Table<4>>(sets);
}

}  // namespace router
