// kernel_model_dump [--reread-ms=N] [--route-reread-ms=N] [--receive-buffer=OCTETS] [--count-routes]
//                   [--vrf=NAME:TABLE]...
//
// Follows the live kernel with a router model. For each line of standard input it prints the model as one
// line of JSON, when every change that the kernel announced before is in the model; ends with the input. A
// test changes the kernel, writes a line, and compares the answer.
//
//   {"vrfs": [{"name", "id", "table", "description"}],
//    "interfaces": [{"name", "index", "vrf", "up", "description", "addresses": ["10.0.0.1/24"]}],
//    "routes": {"red": [{"prefix", "next_hop", "index", "type", "protocol", "metric", "labels": [100]}]},
//                                               with --count-routes their number instead of the list
//    "changes": ["moved d0 from default to red"],    notified by the model since the previous line
//    "losses", "dumps", "refused", "route_losses", "tables_read", "corrections", "malformed": counters of the
//                                               source}
//
// --vrf adds a VRF to the model, for kernels without VRF devices.
//
// One thread. RUN_DIRECTORY (MPLS_VPN_MIB_RUN_DIR) must exist: the event manager has its socket there.
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/core/base/clock.h"
#include "platform/core/evm/evm.h"
#include "platform/router/model/router.h"
#include "sources/kernel/kernel_source.h"

namespace {

using nlohmann::json;

// Longer than the settle time of the source.
constexpr std::uint64_t kPatience = 50 * kNanosecondsPerMillisecond;

class ChangeList : public router::Observer {
 public:
  void vrf_created(const router::Vrf& vrf) override { add("created " + vrf.name); }
  void vrf_changed(const router::Vrf&, const router::Vrf& now) override { add("described " + now.name); }
  void vrf_deleted(const router::Vrf& vrf) override { add("deleted " + vrf.name); }
  void interface_added(const router::Interface& now) override { add("added " + now.name + " in " + now.vrf); }
  void interface_changed(const router::Interface& before, const router::Interface& now) override {
    if (before.name != now.name) add("renamed " + before.name + " to " + now.name);
    if (before.up != now.up) add(now.name + (now.up ? " up" : " down"));
  }
  void interface_moved(const router::Interface& now, const std::string& from) override {
    add("moved " + now.name + " from " + from + " to " + now.vrf);
  }
  void interface_removed(const router::Interface& last) override {
    add("removed " + last.name + " in " + last.vrf);
  }
  std::vector<std::string> take() { return std::exchange(changes_, {}); }

 private:
  void add(std::string change) { changes_.push_back(std::move(change)); }
  std::vector<std::string> changes_;
};

struct Program {
  router::Router model;
  ChangeList changes;
  KernelSourceSettings settings;
  EventManager* manager = nullptr;
  KernelSource* source = nullptr;
  bool count_routes = false;
  std::uint32_t last_vrf_id = 1000;
  unsigned asked = 0;  // lines read and not yet answered
  bool ended = false;
};

json vrfs_of(const router::Router& model) {
  json list = json::array();
  model.for_each_vrf([&](const router::Vrf& vrf) {
    if (vrf.name != router::kDefaultVrf) {
      list.push_back(
          {{"name", vrf.name}, {"id", vrf.id}, {"table", vrf.ipv4_table}, {"description", vrf.description}});
    }
  });
  return list;
}

json interfaces_of(const router::Router& model) {
  json list = json::array();
  model.for_each_interface([&](const router::Interface& each) {
    json addresses = json::array();
    for (const router::Address& address : each.addresses) {
      addresses.push_back(router::format_address(address));
    }
    list.push_back({{"name", each.name},
                    {"index", each.index},
                    {"vrf", each.vrf},
                    {"up", each.up},
                    {"description", each.description},
                    {"addresses", addresses}});
  });
  return list;
}

std::string address_text(router::Family family, const router::RouteAddress& octets) {
  const std::string text = router::format_address({family, 0, octets});
  return text.substr(0, text.find('/'));
}

json route_of(router::Family family, const router::Route& row) {
  const router::RouteAddress none{};
  const std::string length = "/" + std::to_string(row.key.prefix_length);
  return {{"prefix", address_text(family, row.key.destination) + length},
          {"next_hop", row.key.next_hop == none ? "" : address_text(family, row.key.next_hop)},
          {"index", row.interface_index},
          {"type", static_cast<int>(row.type)},
          {"protocol", static_cast<int>(row.protocol)},
          {"metric", row.metrics[0]},
          {"labels", row.labels}};
}

void append_routes(const router::RouteStore& store, router::RouteTableId table, json* list) {
  router::Route row;
  for (bool more = store.find_first(table, &row); more; more = store.find_next(table, row.key, &row)) {
    list->push_back(route_of(table.family, row));
  }
}

json routes_of(const Program& program) {
  const router::RouteStore& store = program.model.routes();
  json all = json::object();
  program.model.for_each_vrf([&](const router::Vrf& vrf) {
    const router::RouteTableId ipv4{router::Family::kIpv4, vrf.ipv4_table};
    const router::RouteTableId ipv6{router::Family::kIpv6, vrf.ipv6_table};
    if (vrf.name == router::kDefaultVrf) return;
    if (program.count_routes) {
      all[vrf.name] = store.count(ipv4) + store.count(ipv6);
      return;
    }
    json list = json::array();
    append_routes(store, ipv4, &list);
    append_routes(store, ipv6, &list);
    all[vrf.name] = list;
  });
  return all;
}

void print_model(Program* program) {
  const KernelSourceCounters counters = program->source->counters();
  const json all = {{"vrfs", vrfs_of(program->model)},
                    {"interfaces", interfaces_of(program->model)},
                    {"routes", routes_of(*program)},
                    {"changes", program->changes.take()},
                    {"losses", counters.losses},
                    {"dumps", counters.dumps},
                    {"refused", counters.refused + counters.routes.refused},
                    {"route_losses", counters.routes.losses},
                    {"tables_read", counters.routes.tables_read},
                    {"corrections", counters.routes.corrections},
                    {"malformed", counters.malformed + counters.routes.malformed}};
  std::puts(all.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
  std::fflush(stdout);
}

void answer_when_settled(Program* program) {
  event_timer_start(program->manager, kPatience, [program] {
    if (!program->source->settled()) {
      answer_when_settled(program);
      return;
    }
    for (; program->asked > 0; --program->asked) {
      print_model(program);
    }
  });
}

void read_input(Program* program) {
  std::array<char, 256> text{};
  const ssize_t length = read(STDIN_FILENO, text.data(), text.size());
  if (length <= 0) {
    event_fd_remove(program->manager, STDIN_FILENO);  // an end of input stays readable
    program->ended = true;
    return;
  }
  const unsigned before = program->asked;
  for (ssize_t at = 0; at < length; ++at) {
    program->asked += text[static_cast<std::size_t>(at)] == '\n' ? 1 : 0;
  }
  if (before == 0 && program->asked > 0) {
    answer_when_settled(program);
  }
}

bool read_number(std::string_view argument, std::string_view option, std::uint64_t* number) {
  if (!argument.starts_with(option)) {
    return false;
  }
  const char* end = argument.data() + argument.size();
  const auto result = std::from_chars(argument.data() + option.size(), end, *number);
  return result.ec == std::errc{} && result.ptr == end;
}

bool add_vrf(std::string_view text, Program* program) {
  const std::size_t colon = text.find(':');
  std::uint64_t table = 0;
  if (colon == std::string_view::npos || !read_number(text.substr(colon), ":", &table)) return false;
  router::Vrf vrf;
  vrf.name = text.substr(0, colon);
  vrf.id = ++program->last_vrf_id;  // two may have one table
  vrf.ipv4_table = vrf.ipv6_table = static_cast<std::uint32_t>(table);
  return program->model.create_vrf(vrf) == kStatusOk;
}

bool read_arguments(int count, char** arguments, Program* program) {
  KernelSourceSettings* settings = &program->settings;
  for (int each = 1; each < count; ++each) {
    std::uint64_t number = 0;
    if (read_number(arguments[each], "--reread-ms=", &number)) {
      settings->reread = number * kNanosecondsPerMillisecond;
    } else if (read_number(arguments[each], "--route-reread-ms=", &number)) {
      settings->route_reread = number * kNanosecondsPerMillisecond;
    } else if (std::string_view(arguments[each]).starts_with("--vrf=")) {
      if (!add_vrf(std::string_view(arguments[each]).substr(6), program)) return false;
    } else if (read_number(arguments[each], "--receive-buffer=", &number)) {
      settings->receive_buffer = number;
    } else if (std::string_view(arguments[each]) == "--count-routes") {
      program->count_routes = true;
    } else {
      return false;
    }
  }
  return true;
}

int run(Program* program) {
  std::string error;
  if (program->source->load(&error) != kStatusOk) {
    std::fprintf(stderr, "load: %s\n", error.c_str());
    return 1;
  }
  Status status = program->source->start(program->manager);
  if (status == kStatusOk) {
    status = event_fd_add(program->manager, STDIN_FILENO, EPOLLIN,
                          [program](int, std::uint32_t) { read_input(program); });
  }
  if (status != kStatusOk) {
    std::fprintf(stderr, "start: %s\n", err_text(status));
    return 1;
  }
  while (!program->ended) {
    event_run_pending(program->manager, kNanosecondsPerSecond);
  }
  return 0;
}

}  // namespace

int main(int count, char** arguments) {
  Program program;
  if (!read_arguments(count, arguments, &program)) {
    std::fprintf(
        stderr,
        "usage: %s [--reread-ms=N] [--route-reread-ms=N] [--receive-buffer=OCTETS] [--count-routes]\n"
        "       [--vrf=NAME:TABLE]...\n",
        arguments[0]);
    return 2;
  }
  program.manager = event_manager_create("/dev/mpls/vpn/model-dump", 0);
  if (program.manager == nullptr) {
    std::perror("event manager");
    return 1;
  }
  program.model.observe(router::ObserverRank::kOther, &program.changes);
  int status = 1;
  {
    KernelSource source(&program.model, program.settings);
    program.source = &source;
    status = run(&program);
  }
  event_manager_destroy(program.manager);
  return status;
}
