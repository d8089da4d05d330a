// Processor time that one request costs the event loop, in process and without the socket: 10,000 dual-stack
// VRFs and 100,000 interfaces, some more interfaces in VRFs that do not exist, routes in the last VRF only.
//
//   request_cost_bench [--brief]

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "bench/daemon_in_process.h"
#include "bench/measure.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"

namespace {

struct Size {
  unsigned vrfs;
  unsigned interfaces;
  unsigned invalid_interfaces;
  unsigned rounds;
};

struct Request {
  const char* name;
  std::function<void()> ask;
};

constexpr char kSubtree[] = "/oper/mpls_vpn/gl/";

void get(const std::string& path) {
  KvReply reply{};
  const Status status = kvtree_get(kSubtree + path, false, &reply);
  std::free(reply.data);
  if (status != kStatusNoSuchRow) DaemonInProcess::check(status, path.c_str());
}

void list(const std::string& path, Status (*ask)(std::string_view, bool, KvListReply*)) {
  KvListReply reply{kKvMaxListItems, 0, nullptr, nullptr};
  const Status status = ask(kSubtree + path, false, &reply);
  kvtree_list_free(reply.list);
  kvtree_datalist_free(reply.datalist);
  DaemonInProcess::check(status, path.c_str());
}

void walk(const std::string& path) {
  std::vector<std::vector<std::uint8_t>> rows;
  bool end = false;
  const Status status = kvtree_walk(kSubtree + path, false, kKvMaxListItems, &rows, &end);
  if (status != kStatusNoSuchRow) DaemonInProcess::check(status, path.c_str());
}

void add_route(DaemonInProcess* daemon, unsigned vrf) {
  router::Route route;
  route.key.destination = {10, 0, 0, 0};
  route.key.prefix_length = 8;
  const router::RouteTableId table = {router::Family::kIpv4, vrf + 100};
  DaemonInProcess::check(daemon->router.routes().put(table, route), "put");
}

void fill(DaemonInProcess* daemon, const Size& size) {
  for (unsigned vrf = 0; vrf < size.vrfs; ++vrf) daemon->add_vrf(vrf);
  for (unsigned i = 0; i < size.interfaces; ++i) daemon->add_interface(i, i % size.vrfs);
  for (unsigned i = 0; i < size.invalid_interfaces; ++i) {
    daemon->add_interface(size.interfaces + i, size.vrfs + i);  // orders after every VRF
  }
  add_route(daemon, size.vrfs - 1);
}

void report(const Request& request, unsigned rounds) {
  std::vector<double> seconds;
  for (unsigned i = 0; i < rounds; ++i) {
    const double start = processor_seconds();
    request.ask();
    seconds.push_back(processor_seconds() - start);
  }
  std::printf("  %-58s %10.3f ms\n", request.name, 1e3 * median(seconds));
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const Size size = is_brief(argc, argv) ? Size{100, 1000, 50, 1} : Size{10000, 100000, 10000, 15};
  const TestRunDirectory directory;
  DaemonInProcess daemon;
  fill(&daemon, size);
  daemon.register_provider();
  const std::string last = DaemonInProcess::vrf_name(size.vrfs - 1);
  const std::vector<Request> requests = {
      {"get scalars", [] { get("scalars"); }},
      {"get vrf-next", [] { get("vrf-next/vrf00000"); }},
      {"get interface-next", [] { get("interface-next/vrf00000/0"); }},
      {"get interface-next over interfaces of invalid VRFs",
       [&] { get("interface-next/" + last + "/2000000000"); }},
      {"get rt-next, no route targets", [] { get("rt-next/vrf00000/0/0"); }},
      {"get route-next over VRFs without routes", [] { get("route-next/vrf00000/1/0/1/0/0"); }},
      {"list vrf-detail, 1024 names", [] { list("vrf-detail", kvtree_list); }},
      {"datalist vrf-detail, 1024 records", [] { list("vrf-detail", kvtree_datalist); }},
      {"datalist vrf-detail-filter/-/2/2, no VRF matches",
       [] { list("vrf-detail-filter/-/2/2", kvtree_datalist); }},
      {"list vrf-detail-filter/-/2/2, no VRF matches", [] { list("vrf-detail-filter/-/2/2", kvtree_list); }},
      {"datalist vrf-invalid-detail", [] { list("vrf-invalid-detail", kvtree_datalist); }},
      {"list vrf-invalid-detail", [] { list("vrf-invalid-detail", kvtree_list); }},
      {"walk interface-next, 1024 rows", [] { walk("interface-next/vrf00000/0"); }},
      {"walk vrf-next, 1024 rows", [] { walk("vrf-next/vrf00000"); }},
      {"walk route-next over VRFs without routes", [] { walk("route-next/vrf00000/1/0/1/0/0"); }},
  };
  std::printf("processor time of one request, %u VRFs, %u interfaces, median of %u\n", size.vrfs,
              size.interfaces, size.rounds);
  for (const Request& request : requests) report(request, size.rounds);
  return 0;
}
