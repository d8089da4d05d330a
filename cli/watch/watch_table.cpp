// "watch vrf", "watch interfaces", "watch routes": the daemon does not announce changes of its tables, so the
// table is read again and again and compared. The pause between two readings is at least three times as long
// as a reading, so that a watch of a large table uses the daemon for a quarter of the time at most.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include "cli/commands.h"
#include "cli/show/tables.h"
#include "cli/watch/difference_printer.h"
#include "cli/watch/known_rows.h"
#include "cli/watch/reconnection.h"
#include "cli/watch/watched_table.h"

namespace cli {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kMostRows = 2'000'000;
constexpr int kPauseOfReading = 3;

class TableWatch {
 public:
  TableWatch(const Session& session, const WatchRequest& request, const WatchedTable& table)
      : session_(session),
        request_(request),
        table_(table),
        printer_(session, table),
        most_(request.most_events == 0 ? UINT64_MAX : request.most_events) {}

  // The number of printed changes, when there are enough or the time is over.
  std::uint64_t run() {
    client_ = connect_to_daemon(session_);
    if (!request_.vrf.empty()) require_vrf(session_, *client_, request_.vrf);
    read();
    say_watching("");
    while (!is_over() && session_.out) {
      pause();
      if (!is_over()) read_again();
      session_.out.flush();
    }
    return printed_;
  }

 private:
  bool is_over() const { return printed_ >= most_ || time_.is_over(); }

  void say_watching(const char* again) const {
    const std::size_t rows = known_.size();
    say(session_,
        fmt::format("watching {}{}, now {} {}", table_.name, again, rows, rows == 1 ? "row" : "rows"));
  }

  void pause() const {
    const auto interval = std::chrono::duration<double>(request_.interval);
    time_.sleep(std::max(std::chrono::ceil<milliseconds>(interval), kPauseOfReading * took_));
  }

  // What differs after a reconnection is what changed meanwhile.
  void read_again() {
    Absence absence{};
    try {
      return read();
    } catch (const Failure& failure) {
      if (!is_daemon_away(failure)) throw;
      absence = absence_of(failure);
    }
    const auto connect_and_read = [this] {
      client_ = connect_to_daemon(session_);
      read();
    };
    if (reconnect(session_, time_, absence, connect_and_read)) say_watching(" again");
  }

  void read() {
    const auto began = Clock::now();
    const RowDifference differs = [this](const KnownRow* before, const KnownRow* now) {
      if (is_first_ || is_over()) return;
      printer_.print(before, now);
      ++printed_;
    };
    try {
      table_.read(session_, *client_, request_, [&](const std::string& key, const Texts& fields) {
        take({key, joined_fields(fields)}, differs);
        return !is_over();
      });
    } catch (const Failure&) {
      known_.abandon();
      throw;
    }
    if (is_over()) return known_.abandon();
    known_.end(differs);
    is_first_ = false;
    took_ = std::chrono::ceil<milliseconds>(Clock::now() - began);
  }

  void take(const KnownRow& row, const RowDifference& differs) {
    if (!known_.take(row, differs))
      throw Failure(kExitFailed, fmt::format("the daemon's {} are out of order; are daemon and command line "
                                             "of one version?",
                                             table_.name));
    if (known_.size() > kMostRows)
      throw Failure(kExitFailed, fmt::format("more than {} {}; watch those inside a prefix (--prefix)",
                                             kMostRows, table_.name));
  }

  const Session& session_;
  const WatchRequest& request_;
  const WatchedTable& table_;
  const DifferencePrinter printer_;
  const std::uint64_t most_;
  const WatchTime time_{request_.seconds};
  std::unique_ptr<kvtree::Client> client_;
  KnownRows known_;
  std::uint64_t printed_ = 0;
  bool is_first_ = true;
  milliseconds took_{0};  // the latest reading
};

}  // namespace

std::uint64_t watch_table(const Session& session, const WatchRequest& request, const WatchedTable& table) {
  return TableWatch(session, request, table).run();
}

}  // namespace cli
