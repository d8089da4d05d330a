// Provider answers per second: in-process, and over the socket against a bare ping-pong of the same sizes
// over the same kind of socket. Client and server share one CPU, before other programs if that is
// permitted; the two run alternately, and the result is the median ratio.
//
//   provider_bench [--brief]
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
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
  PingPong(std::size_t request, std::size_t answer) : request_(request, 'q'), answer_(answer, 'a') {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("socketpair");
    child_ = fork();
    if (child_ == 0) {
      close(ends[0]);  // or it would never see the end of its input
      serve(ends[1], request, answer);
    }
    close(ends[1]);
    fd_ = ends[0];
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
  const unsigned rounds = brief ? 500 : 20000;
  const int turns = brief ? 1 : 9;
  pin_to_one_cpu();
  const TestRunDirectory directory;  // the serving process inherits the environment
  int ends[2];
  if (pipe(ends) != 0) return 1;
  const std::string socket_file = event_manager_socket("/dev/mpls/vpn/main");
  const pid_t server = fork();
  if (server == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    serve_daemon(ends[1], rounds);
  }
  Shared shared;
  if (read(ends[0], &shared, sizeof shared) != static_cast<ssize_t>(sizeof shared)) return 1;
  kvtree::Client client(socket_file);
  DaemonInProcess::check(client.connect(), "connect");
  constexpr std::size_t kFraming = 24;  // header and status of a message
  PingPong ping_pong(sizeof kPath - 1 + kFraming, shared.answer_size + kFraming);
  std::vector<double> rates;
  std::vector<double> floors;
  std::vector<double> ratios;
  for (int turn = 0; turn < turns; ++turn) {
    rates.push_back(socket_rate(&client, rounds));
    floors.push_back(ping_pong.rate(rounds));
    ratios.push_back(rates.back() / floors.back());
  }
  kill(server, SIGTERM);
  waitpid(server, nullptr, 0);
  std::printf("next reads of the interface table, %u interfaces, %zu octets an answer, one CPU\n",
              kInterfaces, shared.answer_size);
  std::printf("  in-process                 %10.0f answers/s\n", shared.in_process);
  std::printf("  over the socket            %10.0f answers/s\n", median(rates));
  std::printf("  bare ping-pong             %10.0f rounds/s\n", median(floors));
  std::printf("  ratio socket to ping-pong  %10.2f   (aim: at least 0.85)\n", median(ratios));
  return 0;
}
