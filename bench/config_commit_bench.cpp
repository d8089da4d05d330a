// One commit of 10,000 descriptions and 10,000 route targets of as many VRFs: how fast its notifications
// reach the daemon, and how long a request waits meanwhile.
//
//   config_commit_bench [--brief]
//
// The daemon runs in-process, with its checkpoint flushed before answers leave, as in the whole program. A
// thread reads the scalars over the socket, one request after the other, from before the commit until its
// last notification. The results are its longest answer and the longest iteration of the event loop,
// including the commit. A source makes the commit (one call), then a client (over the socket). The floor is
// bare delivery: the same nodes, set one by one in the tree without owners, database and history. Each way is
// measured in a process of its own, alternating; figures are medians of the repetitions, ratios too.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/daemon_in_process.h"
#include "bench/in_child.h"
#include "bench/measure.h"
#include "platform/config/vrf_config.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/wire/wire.h"
#include "platform/store/client/client.h"
#include "platform/store/configuration/configuration.h"

namespace {

struct Result {
  double making = 0;             // seconds until the commit is made
  double delivering = 0;         // from its beginning until the last notification was handled
  double longest_iteration = 0;  // seconds
  double longest_cpu = 0;        // of an iteration, seconds of this thread
  double longest_answer = 0;     // seconds
  double octets_per_node = 0;
  double octets_per_repetition = 0;  // of growth per node, each time that all is deleted and set again
};

class Bench {
 public:
  explicit Bench(unsigned vrfs) {
    for (unsigned vrf = 0; vrf < vrfs; ++vrf) {
      daemon_.add_vrf(vrf);
      const std::string name = DaemonInProcess::vrf_name(vrf);
      nodes_.push_back(vrf_config::description(name, "customer " + std::to_string(vrf)));
      vrf_config::Target target;
      target.administrator = 65000;
      target.assigned = vrf;
      nodes_.push_back(
          vrf_config::route_target(name, vrf_config::Family::kIpv4, vrf_config::Direction::kImport, target));
    }
    DaemonInProcess::check(kvtree_keep_configuration(directory_.path()), "kvtree_keep_configuration");
    chkpt_gate_output();
    daemon_.register_provider();
  }
  ~Bench() { wire::set_output_gate(nullptr); }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  Result measure(const std::function<void(Bench*)>& make) {
    Result result;
    const double before = resident_octets();
    begin_asking();
    const auto start = Clock::now();
    const double start_cpu = processor_seconds();
    make(this);
    result.making = seconds_since(start);
    note_iteration(during_ ? result.making : 0, during_ ? processor_seconds() - start_cpu : 0);
    run();
    result.longest_iteration = longest_iteration_;
    result.longest_cpu = longest_cpu_;
    result.delivering = seconds_since(start);
    result.longest_answer = end_asking();
    result.octets_per_node = (resident_octets() - before) / static_cast<double>(nodes_.size());
    return result;
  }
  double growth_of_repetition() {
    // No client sends requests any more, so the loop empties its queue, rows to be folded included.
    const auto repeat = [this] {
      DaemonInProcess::check(kvtree_config_replace("file", {}, ""), "replace");
      daemon_.run_pending();
      as_source();
      daemon_.run_pending();
    };
    repeat();
    const double before = resident_octets();
    for (int i = 0; i < 3; ++i) repeat();
    return (resident_octets() - before) / 3 / static_cast<double>(nodes_.size());
  }

  void as_source() {
    during_ = true;
    DaemonInProcess::check(kvtree_config_replace("file", nodes_, "bench"), "replace");
  }
  // A client of its own thread; the loop runs until it has its answer.
  void as_client() {
    std::atomic<bool> done{false};
    std::thread client([&] {
      std::vector<KvConfigChange> changes;
      for (const KvConfigNode& node : nodes_) changes.push_back({node.path, node.value});
      kvtree::Client connection(kvtree::Client::default_socket(), std::chrono::seconds(20));
      DaemonInProcess::check(connection.connect(), "connect");
      DaemonInProcess::check(connection.commit(changes, "bench").status, "commit");
      done = true;
    });
    while (!done) iterate(std::chrono::milliseconds(1));
    client.join();
  }
  void bare() {
    during_ = true;
    for (const KvConfigNode& node : nodes_) DaemonInProcess::check(kvtree_set(node.path, node.value), "set");
  }

 private:
  bool iterate(std::chrono::nanoseconds wait) {
    unsigned char buffer[1024];
    EventContext context{daemon_.manager, buffer, sizeof buffer, 0};
    if (event_wait_for(&context, static_cast<std::uint64_t>(wait.count())) != 0) return false;
    const auto start = Clock::now();
    const double start_cpu = processor_seconds();
    event_dispatch(&context);
    note_iteration(seconds_since(start), processor_seconds() - start_cpu);
    return true;
  }
  void note_iteration(double seconds, double cpu) {
    longest_iteration_ = std::max(longest_iteration_, seconds);
    longest_cpu_ = std::max(longest_cpu_, cpu);
  }
  // Until everything that is posted has run, while the other thread continues to send requests: what is
  // posted here runs after all of it.
  void run() {
    bool finished = false;
    event_post(daemon_.manager, [&finished] { finished = true; });
    while (!finished) iterate(std::chrono::milliseconds(1));
  }
  void begin_asking() {
    asking_ = true;
    asker_ = std::thread([this] {
      kvtree::Client client(kvtree::Client::default_socket(), std::chrono::seconds(20));
      DaemonInProcess::check(client.connect(), "connect");
      while (asking_) {
        const auto start = Clock::now();
        DaemonInProcess::check(client.get("/oper/mpls_vpn/gl/scalars").status, "get");
        longest_answer_ = std::max(longest_answer_.load(), seconds_since(start));
        ++answers_;
      }
    });
    while (answers_ < 100) iterate(std::chrono::milliseconds(1));
    longest_iteration_ = longest_cpu_ = 0;
    longest_answer_ = 0;
  }
  double end_asking() {
    asking_ = false;
    std::atomic<bool> joined{false};
    std::thread joiner([&] {
      asker_.join();
      joined = true;
    });
    while (!joined) iterate(std::chrono::milliseconds(1));
    joiner.join();
    return longest_answer_;
  }

  TestRunDirectory directory_;
  DaemonInProcess daemon_;
  std::vector<KvConfigNode> nodes_;
  std::thread asker_;
  std::atomic<bool> asking_{false};
  std::atomic<double> longest_answer_{0};
  std::atomic<unsigned> answers_{0};
  double longest_iteration_ = 0;
  double longest_cpu_ = 0;
  bool during_ = false;  // the commit was made in one call of this thread
};

// What is compared runs before other programs, if that is permitted. A client's commit has three busy threads
// of its own, which must share the processors.
Result measure(unsigned vrfs, void (Bench::*make)()) {
  if (make != &Bench::as_client) precede_other_programs();
  Bench bench(vrfs);
  Result result = bench.measure([make](Bench* each) { (each->*make)(); });
  if (make == &Bench::as_source) result.octets_per_repetition = bench.growth_of_repetition();
  return result;
}

struct Way {
  const char* name;
  void (Bench::*make)();
  std::vector<Result> results = {};
};

double median_of(const Way& way, double Result::*figure) {
  std::vector<double> figures;
  for (const Result& result : way.results) figures.push_back(result.*figure);
  return median(std::move(figures));
}

double ratio_to(const Way& floor, const Way& way) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < way.results.size(); ++i)
    ratios.push_back(floor.results[i].delivering / way.results[i].delivering);
  return median(std::move(ratios));
}

void print(const Way& floor, const Way& way, unsigned nodes) {
  const auto milliseconds = [&way](double Result::*figure) { return 1e3 * median_of(way, figure); };
  std::printf("%-16s %10.0f %10.2f %14.1f %10.1f %12.1f %12.1f %12.0f %14.1f\n", way.name,
              nodes / median_of(way, &Result::delivering), ratio_to(floor, way),
              milliseconds(&Result::making), milliseconds(&Result::longest_iteration),
              milliseconds(&Result::longest_cpu), milliseconds(&Result::longest_answer),
              median_of(way, &Result::octets_per_node), median_of(way, &Result::octets_per_repetition));
}

}  // namespace

int main(int argc, char** argv) {
  const bool brief = is_brief(argc, argv);
  const unsigned vrfs = brief ? 500 : 10000;
  const unsigned repetitions = brief ? 1 : 9;
  std::vector<Way> ways = {
      {"bare delivery", &Bench::bare}, {"source", &Bench::as_source}, {"client", &Bench::as_client}};
  for (unsigned i = 0; i < repetitions; ++i) {
    for (Way& way : ways) way.results.push_back(in_child([&] { return measure(vrfs, way.make); }));
  }
  std::printf("%-16s %10s %10s %14s %10s %12s %12s %12s %14s\n", "", "notif./s", "to bare", "made after ms",
              "loop ms", "loop CPU ms", "answer ms", "octets/node", "growth/node");
  for (const Way& way : ways) print(ways.front(), way, 2 * vrfs);
  std::printf(
      "to bare: notifications per second against the same nodes set one by one without owners, database and "
      "history\n(aim of the source: at least 0.85). made: aim of the client: below 300 ms. loop, answer: "
      "longest iteration of the\nevent loop (with that of the commit) and longest answer of another client "
      "(aim: at most 20 ms).\ngrowth: resident memory a node, each time that all is deleted and set "
      "again.\n");
  return 0;
}
