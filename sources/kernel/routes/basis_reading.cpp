// The reading of what routes depend on: next-hop objects, and at the start and after a loss links and their
// addresses.
//
// They are read as a whole, and then compared with what is known in steps. What is announced meanwhile
// changes both. A reading that was disturbed is repeated; the kDoubtsMax-th consecutive one is adopted.
#include <sys/epoll.h>

#include <algorithm>
#include <utility>

#include "platform/core/base/clock.h"
#include "sources/kernel/routes/route_follower.h"
#include "sources/reconcile/reconcile.h"

namespace kernel {
namespace {

constexpr std::size_t kObjectsPerSlice = 64;
constexpr int kSlicesOfObjects = 40;

}  // namespace

// Objects and links are not compared before they all have been read.
unsigned RouteFollower::dump_batch() const {
  return std::max(1U, settings_.batch / 16);
}

void RouteFollower::begin_basis() {
  reading_began_ = clock_monotonic();
  basis_has_links_ = std::exchange(links_dirty_, false);
  objects_dirty_ = false;
  basis_disturbed_ = false;
  links_seen_ = {};
  objects_seen_ = {};
  std::vector<DumpRequest> requests{request_next_hops()};
  if (basis_has_links_) requests = {request_next_hops(), request_links(), request_addresses()};
  Status status = basis_dump_.begin(std::move(requests));
  if (status == kStatusOk) {
    status =
        event_fd_add(manager_, basis_dump_.fd(), EPOLLIN, [this](int, std::uint32_t) { continue_basis(); });
  }
  if (status != kStatusOk) {
    basis_dump_.close();
    basis_failed(status);
    return;
  }
  phase_ = Phase::kBasis;
}

bool RouteFollower::read_basis(const nlmsghdr* message) {
  scratch_.clear();
  link_events_.clear();
  const bool good = parse_link_message(message, &link_events_) && parse_route_message(message, &scratch_);
  for (const RouteEvent& event : scratch_) {
    if (const auto* seen = std::get_if<NextHopSeen>(&event)) objects_seen_.update(seen->object);
  }
  for (const Event& event : link_events_) {
    if (const auto* link = std::get_if<LinkSeen>(&event)) links_seen_.seen(*link);
    if (const auto* address = std::get_if<AddressSeen>(&event)) links_seen_.address_seen(address->address);
  }
  return good;
}

void RouteFollower::continue_basis() {
  const Dump::Progress progress =
      basis_dump_.step(dump_batch(), [this](const nlmsghdr* message) { return read_basis(message); });
  if (progress == Dump::Progress::kMore || progress == Dump::Progress::kWaiting) return;
  close_dumps();
  if (progress == Dump::Progress::kFailed) {
    basis_failed(basis_dump_.error());
    basis_has_links_ = false;
    return become_idle();
  }
  phase_ = Phase::kBasisEnd;
  end_basis();
}

// What was announced before the dump was read is applied before the two are compared.
void RouteFollower::end_basis() {
  if (!drain_events()) return step_soon();
  count_malformed(basis_dump_.malformed(), "while reading links, addresses and next-hop objects");
  const bool in_doubt = basis_dump_.is_partial() || basis_disturbed_;
  compares_ = !in_doubt || ++basis_doubts_ == kDoubtsMax;
  if (compares_) {
    adopt_basis(in_doubt);
  } else {
    repeat_basis();
  }
  basis_has_links_ = false;
  phase_ = Phase::kObjects;
  compare_objects();
}

// Routes with objects that are not known have no rows: they do not wait for long.
void RouteFollower::repeat_basis() {
  links_dirty_ = links_dirty_ || basis_has_links_;
  objects_dirty_ = true;
  basis_not_before_ = clock_monotonic() + (objects_known_ ? rest() : settings_.retry);
}

void RouteFollower::adopt_basis(bool in_doubt) {
  basis_doubts_ = 0;
  basis_problem_.clear();
  if (tables_.empty()) problem_.clear();  // there is nothing else to read
  if (basis_has_links_) links_ = std::exchange(links_seen_, {});
  corrects_ = objects_known_ && !in_doubt;
  objects_known_ = true;
  comparison_ = {};
}

// A router may have a hundred thousand objects. What is announced between the steps changes both.
void RouteFollower::compare_objects() {
  const std::uint64_t start = clock_monotonic();
  bool more = true;
  for (int slice = 0; more && slice < kSlicesOfObjects; ++slice) {
    more = compares_ ? compare_some_objects() : objects_seen_.release_some(kObjectsPerSlice);
    if (clock_monotonic() - start >= reconcile::kStepTime) break;
  }
  if (more) return step_soon();
  become_idle();
}

bool RouteFollower::compare_some_objects() {
  compares_ = objects_.adopt_some(objects_seen_, kObjectsPerSlice, &comparison_);
  take_affected(std::exchange(comparison_.affected, {}));
  if (!compares_ && corrects_) count_object_corrections(comparison_.differences);
  return true;
}

void RouteFollower::basis_failed(Status status) {
  ++counters_.failures;
  log_failure("reading next-hop objects", status, &basis_problem_);
  links_dirty_ = links_dirty_ || std::exchange(basis_has_links_, false);
  objects_dirty_ = true;
  basis_not_before_ = clock_monotonic() + settings_.retry;
  wake(0);  // tables are read without the objects
}

}  // namespace kernel
