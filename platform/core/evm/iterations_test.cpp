// Long iterations of the event loop are counted.
#include "platform/core/evm/test_manager.h"

namespace {

constexpr std::uint64_t kStart = 1'700'000'000 * kNanosecondsPerSecond;

class Iterations : public EventManagerTest {
 protected:
  // An iteration with a timer for each of these times.
  void IterateFor(std::initializer_list<std::uint64_t> times) {
    for (const std::uint64_t time : times)
      event_timer_start(manager, 0, [this, time] { clock.advance(time); });
    Iterate();
  }
  ManualClock clock{kStart};
};

TEST_F(Iterations, OnesFromFiftyMillisecondsAreLong) {
  IterateFor({kLongIteration - 1});
  EXPECT_EQ(event_statistics(manager).long_iterations, 0U);
  EXPECT_EQ(event_statistics(manager).longest, 0U);
  IterateFor({kLongIteration});
  EXPECT_EQ(event_statistics(manager).long_iterations, 1U);
}

TEST_F(Iterations, EverythingOfOneIterationIsAddedUp) {
  event_post(manager, [this] { clock.advance(kLongIteration / 2); });
  IterateFor({kLongIteration / 2});
  EXPECT_EQ(event_statistics(manager).longest, kLongIteration);
}

TEST_F(Iterations, TheLongestIsRememberedWithItsTime) {
  for (const std::uint64_t factor : {2U, 3U, 2U}) IterateFor({factor * kLongIteration});
  const EventStatistics statistics = event_statistics(manager);
  EXPECT_EQ(statistics.long_iterations, 3U);
  EXPECT_EQ(statistics.longest, 3 * kLongIteration);
  EXPECT_EQ(statistics.longest_stamp, kStart + 5 * kLongIteration);
}

TEST_F(Iterations, TimeBetweenIterationsDoesNotCount) {
  IterateFor({1});
  clock.advance(2 * kLongIteration);
  IterateFor({1});
  EXPECT_EQ(event_statistics(manager).long_iterations, 0U);
}

TEST_F(Iterations, NestedIterationIsPartOfTheOuterOne) {
  event_post(manager, [this] {
    event_post(manager, [this] { clock.advance(kLongIteration); });
    event_run_pending(manager);
  });
  Iterate();
  EXPECT_EQ(event_statistics(manager).long_iterations, 1U);
}

TEST_F(Iterations, TimeAfterADeferredFunctionThatStatesItsEndCounts) {
  const auto end_here = [this] { event_ends_at(manager, clock_monotonic()); };
  event_defer(manager, [this, end_here] {
    clock.advance(kLongIteration);
    end_here();
  });
  Iterate();
  EXPECT_EQ(event_statistics(manager).long_iterations, 1U);
  event_defer(manager, end_here);
  event_defer(manager, [this] { clock.advance(kLongIteration); });
  Iterate();
  EXPECT_EQ(event_statistics(manager).long_iterations, 2U);
  event_post(manager, [this, end_here] {
    event_defer(manager, end_here);
    event_run_pending(manager);
    clock.advance(kLongIteration);
  });
  Iterate();
  EXPECT_EQ(event_statistics(manager).long_iterations, 3U);
}

}  // namespace
