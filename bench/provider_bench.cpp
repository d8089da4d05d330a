// Provider answers per second: in-process, and over the socket against a bare ping-pong of the same sizes
// over the same kind of socket. One ping-pong has no time limit; the client of the other one limits its waits
// as every blocking client of this system does, because a server that hangs must not hang it: the kernel then
// sets and cancels a timer for each answer. Client and server share one CPU, before other programs if that is
// permitted. The three run alternately, and the results are the medians of the ratios of many short
// measurements: an interruption by the machine spoils one of them only.
//
//   provider_bench [--brief]
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/daemon_in_process.h"
#include "bench/measure.h"
#include "platform/core/base/clock.h"
#include "platform/core/files/directories.h"
#include "platform/store/client/client.h"

namespace {

constexpr unsigned kVrfs = 1000;
constexpr unsigned kInterfaces = 10000;
constexpr char kPath[] = "/oper/mpls_vpn/gl/interface-next/vrf00500/5001";

void pin_to_one_cpu() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  int last = 0;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(static_cast<std::size_t>(cpu), &allowed)) last = cpu;
  }
  CPU_ZERO(&allowed);
  CPU_SET(static_cast<std::size_t>(last), &allowed);
  sched_setaffinity(0, sizeof allowed, &allowed);
  precede_other_programs();
}

double in_process_rate(unsigned rounds, std::size_t* answer_size) {
  const auto start = Clock::now();
  for (unsigned i = 0; i < rounds; ++i) {
    KvReply reply{};
    DaemonInProcess::check(kvtree_get(kPath, false, &reply), "kvtree_get");
    *answer_size = reply.length;
    std::free(reply.data);
  }
  return rounds / seconds_since(start);
}

void read_whole(int fd, char* to, std::size_t size) {
  while (size > 0) {
    const ssize_t got = read(fd, to, size);
    if (got <= 0) _exit(0);
    to += got;
    size -= static_cast<std::size_t>(got);
  }
}

// A child that answers every `request` octets with `answer` octets, and a rate of such rounds.
class PingPong {
 public:
  PingPong(std::size_t request, std::size_t answer, std::chrono::seconds limit)
      : request_(request, 'q'), answer_(answer, 'a') {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("socketpair");
    child_ = fork();
    if (child_ == 0) {
      close(ends[0]);  // or it would never see the end of its input
      serve(ends[1], request, answer);
    }
    close(ends[1]);
    fd_ = ends[0];
    const timeval bound{limit.count(), 0};  // none is "forever"
    if (setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound) != 0 ||
        setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound) != 0) {
      throw std::runtime_error("setsockopt");
    }
  }
  ~PingPong() {
    close(fd_);
    waitpid(child_, nullptr, 0);
  }
  PingPong(const PingPong&) = delete;
  PingPong& operator=(const PingPong&) = delete;

  double rate(unsigned rounds) {
    const auto start = Clock::now();
    for (unsigned i = 0; i < rounds; ++i) {
      if (write(fd_, request_.data(), request_.size()) < 0) throw std::runtime_error("write");
      read_whole(fd_, answer_.data(), answer_.size());
    }
    return rounds / seconds_since(start);
  }

 private:
  [[noreturn]] static void serve(int fd, std::size_t request, std::size_t answer) {
    std::vector<char> in(request);
    const std::vector<char> out(answer, 'a');
    for (;;) {
      read_whole(fd, in.data(), in.size());
      if (write(fd, out.data(), out.size()) < 0) _exit(0);
    }
  }

  std::vector<char> request_;
  std::vector<char> answer_;
  int fd_ = -1;
  pid_t child_ = -1;
};

double socket_rate(kvtree::Client* client, unsigned rounds) {
  const auto start = Clock::now();
  for (unsigned i = 0; i < rounds; ++i) DaemonInProcess::check(client->get(kPath).status, "get");
  return rounds / seconds_since(start);
}

// What the answers are compared with, and the medians of it.
class Floor {
 public:
  Floor(const char* name, std::size_t request, std::size_t answer, std::chrono::seconds limit)
      : name_(name), ping_pong_(request, answer, limit) {}
  void compare(double rate, unsigned rounds) {
    rates_.push_back(ping_pong_.rate(rounds));
    ratios_.push_back(rate / rates_.back());
  }
  void print() const {
    std::printf("  %-38s %10.0f rounds/s, ratio %.2f\n", name_, median(rates_), median(ratios_));
  }

 private:
  const char* name_;
  PingPong ping_pong_;
  std::vector<double> rates_;
  std::vector<double> ratios_;
};

struct Shared {
  double in_process = 0;
  std::size_t answer_size = 0;
};

// The serving process: fills the daemon, reports its in-process rate, then serves as the daemon does until it
// is ended.
[[noreturn]] void serve_daemon(int report, unsigned rounds) {
  DaemonInProcess daemon;
  for (unsigned vrf = 0; vrf < kVrfs; ++vrf) daemon.add_vrf(vrf);
  for (unsigned i = 0; i < kInterfaces; ++i) daemon.add_interface(i, i / 10);
  daemon.register_provider();
  Shared shared;
  shared.in_process = in_process_rate(rounds, &shared.answer_size);
  if (write(report, &shared, sizeof shared) != static_cast<ssize_t>(sizeof shared)) _exit(1);
  char buffer[1024];
  EventContext context{daemon.manager, buffer, sizeof buffer, 0};
  for (;;) {
    if (event_wait(&context) == 0) event_dispatch(&context);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool brief = is_brief(argc, argv);
  const unsigned rounds_in_process = brief ? 500 : 20000;
  const unsigned rounds = brief ? 500 : 1000;
  const int turns = brief ? 1 : 200;
  pin_to_one_cpu();
  const TestRunDirectory directory;  // the serving process inherits the environment
  int ends[2];
  if (pipe(ends) != 0) return 1;
  const std::string socket_file = event_manager_socket("/dev/mpls/vpn/main");
  const pid_t server = fork();
  if (server == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    serve_daemon(ends[1], rounds_in_process);
  }
  Shared shared;
  if (read(ends[0], &shared, sizeof shared) != static_cast<ssize_t>(sizeof shared)) return 1;
  kvtree::Client client(socket_file);
  DaemonInProcess::check(client.connect(), "connect");
  constexpr std::size_t kFraming = 24;  // header and status of a message
  const std::size_t request = sizeof kPath - 1 + kFraming;
  const std::size_t answer = shared.answer_size + kFraming;
  Floor bare("bare ping-pong", request, answer, std::chrono::seconds(0));
  Floor limited("the same with the client's time limit", request, answer, std::chrono::seconds(1));
  std::vector<double> rates;
  for (int turn = 0; turn < turns; ++turn) {
    rates.push_back(socket_rate(&client, rounds));
    bare.compare(rates.back(), rounds);
    limited.compare(rates.back(), rounds);
  }
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  std::printf("next reads of the interface table, %u interfaces, %zu octets an answer, one CPU\n",
              kInterfaces, shared.answer_size);
  std::printf("  %-38s %10.0f answers/s\n", "in-process", shared.in_process);
  std::printf("  %-38s %10.0f answers/s   (aim of the ratios: at least 0.85)\n", "over the socket",
              median(rates));
  bare.print();
  limited.print();
  return 0;
}
