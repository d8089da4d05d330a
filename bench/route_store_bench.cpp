// The route store: resident octets per route, and the time of a get-next in a small and in a large table,
// against std::map (memory) and a sorted vector (get-next) of the same rows in the same run.
//
// Every figure is measured in a process of its own, so that tables do not share memory. Get-next is the
// walk of an SNMP manager: each read asks for the row after the key of the one before.
//
//   route_store_bench [--brief]
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <stdexcept>
#include <vector>

#include "bench/in_child.h"
#include "bench/measure.h"
#include "platform/router/model/route_store.h"
#include "platform/router/model/router.h"

namespace {

using router::Family;
using router::Route;
using router::RouteKey;

struct Figures {
  double octets = 0;      // resident, per row
  double walk_ns = 0;     // a get-next of a walk in order
  double clear_ms = 0;    // dropping the table
  double release_ms = 0;  // the longest step of giving its memory back
  std::size_t rows = 0;
};

// Memory that is freed but not returned to the system is not counted.
double trimmed_octets() {
  malloc_trim(0);
  return resident_octets();
}

// Made-up rows in a random order without repetition: the number's bits, mixed, are the destination.
Route route_of(Family family, std::uint32_t number) {
  Route route;
  const std::uint32_t mixed = number * 2654435761U;  // odd, so it is a permutation
  for (unsigned at = 0; at < 4; ++at)
    route.key.destination[at] = static_cast<std::uint8_t>(mixed >> (24 - 8 * at));
  if (family == Family::kIpv6) route.key.destination[15] = 1;
  route.key.prefix_length = family == Family::kIpv4 ? 32 : 128;
  route.key.next_hop = {192, 0, 2, 1};
  route.interface_index = number;
  route.metrics[0] = 20;
  route.protocol = router::RouteProtocol::kBgp;
  return route;
}

Figures of_store(Family family, std::uint32_t count, unsigned walks, bool in_order) {
  const router::RouteTableId table{family, 10};
  const double before = trimmed_octets();
  router::RouteStore store;
  store.open(table);
  std::vector<std::uint32_t> numbers;
  for (std::uint32_t number = 0; number < count; ++number) numbers.push_back(number);
  if (in_order) {
    std::sort(numbers.begin(), numbers.end(), [](std::uint32_t left, std::uint32_t right) {
      return left * 2654435761U < right * 2654435761U;
    });
  }
  for (const std::uint32_t number : numbers) {
    if (store.put(table, route_of(family, number)) != kStatusOk) throw std::runtime_error("put");
  }
  std::vector<std::uint32_t>().swap(numbers);
  Figures figures;
  figures.octets = (trimmed_octets() - before) / count;
  Route route;
  const auto start = Clock::now();
  for (unsigned walk = 0; walk < walks; ++walk) {
    for (bool more = store.find_first(table, &route); more;
         more = store.find_next(table, route.key, &route)) {
      ++figures.rows;
    }
  }
  figures.walk_ns = seconds_since(start) * 1e9 / static_cast<double>(figures.rows);
  store.defer_releases([] {});
  const auto clearing = Clock::now();
  store.close(table);
  figures.clear_ms = seconds_since(clearing) * 1e3;
  for (bool more = true; more;) {
    const auto step = Clock::now();
    more = store.release_some(2000);
    figures.release_ms = std::max(figures.release_ms, seconds_since(step) * 1e3);
  }
  return figures;
}

// What a plain program would keep: all fields of a row, without the labels.
struct PlainRow {
  RouteKey key;
  std::uint32_t interface_index, changed, next_hop_as;
  std::int32_t metrics[5];
  std::uint8_t type, protocol, row_status;
};

PlainRow plain_of(Family family, std::uint32_t number) {
  const Route route = route_of(family, number);
  PlainRow row{};
  row.key = route.key;
  row.interface_index = route.interface_index;
  return row;
}

bool key_before(const RouteKey& key, const PlainRow& row) {
  return key < row.key;
}

Figures of_vector(Family family, std::uint32_t count, unsigned walks, bool) {
  std::vector<PlainRow> rows;
  rows.reserve(count);
  for (std::uint32_t number = 0; number < count; ++number) rows.push_back(plain_of(family, number));
  std::sort(rows.begin(), rows.end(),
            [](const auto& left, const auto& right) { return left.key < right.key; });
  Figures figures;
  const auto start = Clock::now();
  for (unsigned walk = 0; walk < walks; ++walk) {
    PlainRow copy = rows.front();
    for (auto row = rows.begin(); row != rows.end();
         row = std::upper_bound(rows.begin(), rows.end(), copy.key, key_before)) {
      copy = *row;
      ++figures.rows;
    }
  }
  figures.walk_ns = seconds_since(start) * 1e9 / static_cast<double>(figures.rows);
  return figures;
}

Figures of_map(Family family, std::uint32_t count, unsigned, bool) {
  const double before = trimmed_octets();
  std::map<RouteKey, PlainRow> rows;
  for (std::uint32_t number = 0; number < count; ++number) {
    const PlainRow row = plain_of(family, number);
    rows.emplace(row.key, row);
  }
  Figures figures;
  figures.octets = (trimmed_octets() - before) / count;
  figures.rows = rows.size();
  return figures;
}

using Measure = Figures (*)(Family, std::uint32_t, unsigned, bool);

Figures in_a_process(Measure measure, Family family, std::uint32_t count, unsigned walks,
                     bool in_order = false) {
  return in_child([&] { return measure(family, count, walks, in_order); });
}

void report(Family family, std::uint32_t large) {
  constexpr std::uint32_t kSmall = 1000;
  const Figures small = in_a_process(of_store, family, kSmall, large / kSmall);
  const Figures shuffled = in_a_process(of_store, family, large, 1);
  const Figures ordered = in_a_process(of_store, family, large, 1, true);
  const Figures small_floor = in_a_process(of_vector, family, kSmall, large / kSmall);
  const Figures large_floor = in_a_process(of_vector, family, large, 1);
  const Figures map = in_a_process(of_map, family, large, 1);
  const double ratio = shuffled.walk_ns / small.walk_ns;
  std::printf("%s, %u routes\n", family == Family::kIpv4 ? "IPv4" : "IPv6", large);
  std::printf("  resident octets a route    %8.1f   (aim: at most 100; put in order %.1f; std::map %.1f)\n",
              shuffled.octets, ordered.octets, map.octets);
  std::printf("  get-next in %7u rows    %8.0f ns\n", kSmall, small.walk_ns);
  std::printf("  get-next in %7u rows    %8.0f ns\n", large, shuffled.walk_ns);
  std::printf("  ratio large to small       %8.2f   (sorted vector %.2f: %.0f ns to %.0f ns)\n", ratio,
              large_floor.walk_ns / small_floor.walk_ns, small_floor.walk_ns, large_floor.walk_ns);
  std::printf("  dropping the table         %8.3f ms, then steps of 2000 rows, the longest %.2f ms\n",
              shuffled.clear_ms, shuffled.release_ms);
}

}  // namespace

int main(int argc, char** argv) {
  const bool brief = is_brief(argc, argv);
  const std::uint32_t large = brief ? 20'000 : 1'000'000;
  report(Family::kIpv4, large);
  report(Family::kIpv6, large);
  return 0;
}
