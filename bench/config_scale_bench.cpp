// The configuration of 10,000 dual-stack VRFs, from the routing suite and from a router file: when all of it
// is effective, and how long the event loop and a client's requests are delayed meanwhile.
//
//   config_scale_bench [--brief]
//
// The daemon runs in-process; a simulated shell prints the suite's configuration. Everything is set, one VRF
// is changed, everything is removed. Each source is measured in a process of its own. A thread reads the
// scalars over the socket, one request after the other.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "bench/daemon_in_process.h"
#include "bench/in_child.h"
#include "bench/measure.h"
#include "platform/config/owners.h"
#include "platform/core/base/fault.h"
#include "platform/core/chkpt/chkpt.h"
#include "platform/core/wire/wire.h"
#include "platform/store/client/client.h"
#include "platform/store/commits/application.h"
#include "platform/store/configuration/configuration.h"
#include "platform/store/server/store.h"
#include "sources/file/file_source.h"
#include "sources/frr/fake_suite_test_support.h"
#include "sources/frr/frr_source.h"
#include "sources/large_configuration_test_support.h"

namespace {

constexpr double kIterationBound = 0.050;  // seconds
constexpr double kPatience = 300;          // seconds

struct Phase {
  double visible = 0;            // seconds until the values are effective
  double quiet = 0;              // ... and delivered, and in the rows of the database
  double longest_iteration = 0;  // seconds
  double longest_cpu = 0;        // of an iteration, seconds of this thread
  double answer_median = 0;      // seconds
  double answer_p99 = 0;
  double longest_answer = 0;
  double resident = 0;  // octets, afterwards
};
struct Phases {
  Phase set, change, removal;
};

// Reads the scalars until it is destroyed.
class Bystander {
 public:
  ~Bystander() {
    if (thread_.joinable()) thread_.join();
  }
  void start(const std::string& socket) {
    thread_ = std::thread([this, socket] {
      kvtree::Client client(socket, std::chrono::seconds(20));
      DaemonInProcess::check(client.connect(), "connect");
      while (asking_) {
        const auto start = Clock::now();
        DaemonInProcess::check(client.get("/oper/mpls_vpn/gl/scalars").status, "get");
        answers_.push_back(seconds_since(start));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      ended_ = true;
    });
  }
  void stop() { asking_ = false; }
  bool ended() const { return ended_; }
  void report(Phase* phase) {
    std::sort(answers_.begin(), answers_.end());
    if (answers_.empty()) return;
    phase->answer_median = answers_[answers_.size() / 2];
    phase->answer_p99 = answers_[answers_.size() * 99 / 100];
    phase->longest_answer = answers_.back();
  }

 private:
  std::thread thread_;
  std::vector<double> answers_;
  std::atomic<bool> asking_{true};
  std::atomic<bool> ended_{false};
};

class Bench {
 public:
  explicit Bench(unsigned vrfs) {
    for (unsigned vrf = 1; vrf <= vrfs; ++vrf) daemon_.add_vrf(vrf);
    DaemonInProcess::check(kvtree_keep_configuration(directory_.path()), "kvtree_keep_configuration");
    chkpt_gate_output();
    daemon_.register_provider();
  }
  ~Bench() { wire::set_output_gate(nullptr); }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  EventManager* manager() const { return daemon_.manager; }
  router::Router* router() { return &daemon_.router; }

  // `make` begins a change, after which the configuration has so many nodes.
  Phase measure(const std::function<void()>& make, std::size_t nodes) {
    Phase phase;
    Bystander bystander;
    bystander.start(socket_);
    longest_ = longest_cpu_ = 0;
    const auto start = Clock::now();
    make();
    iterate_until([nodes] { return count() == nodes; }, start);
    phase.visible = seconds_since(start);
    iterate_until([] { return is_quiet(); }, start);
    phase.quiet = seconds_since(start);
    phase.longest_iteration = longest_;
    phase.longest_cpu = longest_cpu_;
    bystander.stop();
    iterate_until([&] { return bystander.ended(); }, start);
    bystander.report(&phase);
    phase.resident = resident_octets();
    return phase;
  }

 private:
  static std::size_t count() {
    const auto& all = kvtree::store();
    return all.application != nullptr ? SIZE_MAX : all.configuration.size();
  }
  static bool is_quiet() {
    const auto& all = kvtree::store();
    const auto waits = [](const auto& registration) { return !registration->pending.empty(); };
    return !all.node_store->has_unfolded() && std::ranges::none_of(all.registrations, waits);
  }
  template <typename Condition>
  void iterate_until(const Condition& condition, Clock::time_point start) {
    while (!condition()) {
      if (seconds_since(start) > kPatience) throw std::runtime_error("no end");
      iterate();
    }
  }
  void iterate() {
    unsigned char buffer[1024];
    EventContext context{daemon_.manager, buffer, sizeof buffer, 0};
    if (event_wait_for(&context, 1'000'000) != 0) return;
    const auto start = Clock::now();
    const double start_cpu = processor_seconds();
    event_dispatch(&context);
    longest_ = std::max(longest_, seconds_since(start));
    longest_cpu_ = std::max(longest_cpu_, processor_seconds() - start_cpu);
  }

  TestRunDirectory directory_;
  const std::string socket_ = kvtree::Client::default_socket();  // other directories follow
  DaemonInProcess daemon_;
  double longest_ = 0;
  double longest_cpu_ = 0;
};

Phases measure_suite(unsigned vrfs) {
  Bench bench(vrfs);
  const FakeSuite suite;
  for (const frr::Program& program : frr::kPrograms) suite.Become(std::string(program.name), "absent");
  suite.Become("bgpd", "ok");
  FrrSource::Options options;
  options.shell = suite.shell();
  FrrSource source(bench.router(), options);
  std::string error;
  DaemonInProcess::check(source.load(&error), "load");
  const std::string all = suite_configuration(vrfs);
  std::string changed = all;
  changed.replace(changed.find("65000:1 64999:1"), 15, "65000:1");
  suite.Configure("bgpd", all);
  const std::size_t nodes = vrfs * kNodesOfSuitesVrf;
  const auto measure = [&](const std::function<void()>& make, std::size_t wanted) {
    return bench.measure(make, wanted);
  };
  Phases phases;
  phases.set = measure([&] { DaemonInProcess::check(source.start(bench.manager()), "start"); }, nodes);
  phases.change = measure([&] { suite.Configure("bgpd", changed); }, nodes - 1);
  phases.removal = measure([&] { suite.Configure("bgpd", ""); }, 0);
  return phases;
}

Phases measure_file(unsigned vrfs) {
  Bench bench(vrfs);
  const TestRunDirectory folder;
  const std::string path = folder.path() + "/router.yaml";
  const auto write = [&path](const std::string& text) {
    std::ofstream(path + ".new") << text;
    std::rename((path + ".new").c_str(), path.c_str());
  };
  write(router_file_text(vrfs, false));
  router::Router router;
  FileSource source(&router, path);
  std::string error;
  DaemonInProcess::check(source.load(&error), error.c_str());
  DaemonInProcess::check(source.start(bench.manager()), "start");
  const std::string all = router_file_text(vrfs);
  std::string changed = all;
  changed.replace(changed.find("65000:1, 64999:1"), 16, "65000:1");
  const std::size_t nodes = vrfs * kNodesOfFilesVrf;
  const auto measure = [&](const std::string& text, std::size_t wanted) {
    return bench.measure([&] { write(text); }, wanted);
  };
  Phases phases;
  phases.set = measure(all, nodes);
  phases.change = measure(changed, nodes - 4);
  phases.removal = measure(router_file_text(vrfs, false), 0);
  return phases;
}

void print(const char* source, const char* what, const Phase& phase) {
  std::printf("%-6s %-8s %9.2f %8.2f %9.1f %8.1f %9.2f %8.1f %8.1f %9.0f\n", source, what, phase.visible,
              phase.quiet, phase.longest_iteration * 1e3, phase.longest_cpu * 1e3, phase.answer_median * 1e3,
              phase.answer_p99 * 1e3, phase.longest_answer * 1e3, phase.resident / (1 << 20));
}

void print(const char* source, const Phases& phases) {
  print(source, "set", phases.set);
  print(source, "change", phases.change);
  print(source, "removal", phases.removal);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned vrfs = is_brief(argc, argv) ? 100 : 10000;
  std::printf("%-15s %9s %8s %9s %8s %9s %8s %8s %9s\n", "", "visible s", "quiet s", "loop ms", "CPU ms",
              "answer ms", "p99 ms", "max ms", "resident MB");
  const Phases suite = in_child([vrfs] { return measure_suite(vrfs); });
  print("suite", suite);
  const Phases file = in_child([vrfs] { return measure_file(vrfs); });
  print("file", file);
  double longest = 0;
  for (const Phases& each : {suite, file}) {
    for (const Phase& phase : {each.set, each.change, each.removal})
      longest = std::max(longest, phase.longest_iteration);
  }
  std::printf(
      "loop: longest iteration of the event loop (aim: at most %.0f ms: %s); answer: of a client's "
      "requests.\n",
      kIterationBound * 1e3, longest <= kIterationBound ? "met" : "not met");
  return 0;
}
