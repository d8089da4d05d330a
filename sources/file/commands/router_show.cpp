// The command "show" of the action "router". An answer is bounded: of a large router the first VRFs and
// interfaces are shown and the rest is counted; one VRF's interfaces and routes are bounded in the same way.
#include <string>

#include "sources/file/commands/router_commands.h"
#include "sources/file/reader/route_reader.h"

namespace {

constexpr std::size_t kShownMost = 1000;  // lines of one kind

using router::Interface;
using router::Router;
using router::Vrf;

std::string counted(std::size_t count, const char* thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string vrf_line(const Vrf& vrf) {
  std::string line = "vrf " + vrf.name + " id " + std::to_string(vrf.id);
  const auto table = [&](const char* family, std::uint32_t number) {
    if (number != 0) line += std::string(" ") + family + " " + std::to_string(number);
  };
  table("ipv4-table", vrf.ipv4_table);
  table("ipv6-table", vrf.ipv6_table);
  table("ipv4-multicast-table", vrf.ipv4_multicast_table);
  table("ipv6-multicast-table", vrf.ipv6_multicast_table);
  if (!vrf.rd.empty()) line += " rd " + vrf.rd;
  if ((vrf.flags & router::kVrfFlagBig) != 0) line += " big";
  if (!vrf.description.empty()) line += " description \"" + vrf.description + "\"";
  return line;
}

std::string interface_line(const Router& model, const Interface& interface) {
  std::string line = "interface " + interface.name + " index " + std::to_string(interface.index) +
                     (interface.up ? " up" : " down") + " vrf " + interface.vrf;
  if (model.find_vrf(interface.vrf) == nullptr) line += " (no such VRF)";
  for (const router::Address& address : interface.addresses) line += " " + router::format_address(address);
  if (!interface.description.empty()) line += " description \"" + interface.description + "\"";
  return line;
}

// Lines of one kind, the first kShownMost of them.
class Lines {
 public:
  Lines(std::string* text, const char* kind) : text_(text), kind_(kind) {}
  ~Lines() {
    if (count_ > kShownMost) add("... and " + std::to_string(count_ - kShownMost) + " more " + kind_);
  }
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  template <typename Make>
  void next(Make make) {
    if (++count_ <= kShownMost) add(make());
  }
  bool has_room() const { return count_ < kShownMost; }
  void skip(std::size_t lines) { count_ += lines; }

 private:
  void add(const std::string& line) {
    if (!text_->empty()) *text_ += '\n';
    *text_ += line;
  }

  std::string* text_;
  const char* kind_;
  std::size_t count_ = 0;
};

void show_interfaces(const Router& model, const std::string* vrf, std::string* text) {
  Lines lines(text, "interfaces");
  model.for_each_interface([&](const Interface& interface) {
    if (vrf == nullptr || interface.vrf == *vrf) lines.next([&] { return interface_line(model, interface); });
  });
}

std::string route_line(router::RouteTableId table, const router::Route& route, const Router& model) {
  router::Address address{table.family, route.key.prefix_length, route.key.destination};
  std::string line = "route " + router::format_address(address);
  if (route.key.next_hop != router::RouteAddress{}) {
    address.octets = route.key.next_hop;
    const std::string hop = router::format_address(address);
    line += " via " + hop.substr(0, hop.find('/'));
  }
  const Interface* interface = model.find_interface_by_index(route.interface_index);
  if (interface != nullptr) line += " interface " + interface->name;
  line += " " + std::string(router_file::route_type_word(route.type)) + " " +
          router_file::route_protocol_word(route.protocol);
  if (route.metrics[0] != router::kMetricUnused) line += " metric " + std::to_string(route.metrics[0]);
  for (const std::uint32_t label : route.labels) line += " label " + std::to_string(label);
  return line + " age " + std::to_string(router::route_age(route));
}

void show_routes(const Router& model, router::RouteTableId table, std::string* text) {
  Lines lines(text, "routes");
  router::Route route;
  const router::RouteStore& store = model.routes();
  std::size_t rest = store.count(table);
  for (bool more = store.find_first(table, &route); more && lines.has_room();
       more = store.find_next(table, route.key, &route)) {
    lines.next([&] { return route_line(table, route, model); });
    --rest;
  }
  lines.skip(rest);
}

void show_vrfs(const Router& model, std::string* text) {
  Lines lines(text, "VRFs");
  model.for_each_vrf([&](const Vrf& vrf) {
    if (vrf.name != router::kDefaultVrf) lines.next([&] { return vrf_line(vrf); });
  });
}

void show_references(const Router& model, std::string* text) {
  Lines lines(text, "VRFs that are only named");
  model.for_each_reference([&](const std::string& name) {
    if (model.find_vrf(name) == nullptr) lines.next([&] { return "vrf " + name + " referenced"; });
  });
}

void show_everything(const Router& model, std::string* text) {
  *text = counted(model.vrf_count(), "VRF") + ", " + counted(model.interface_count(), "interface");
  show_vrfs(model, text);
  show_references(model, text);
  show_interfaces(model, nullptr, text);
}

}  // namespace

Status router_show(const RouterCommandContext& context) {
  const Router& model = *context.model;
  if (context.arguments.empty()) {
    show_everything(model, context.text);
    return kStatusOk;
  }
  const std::string& name = context.arguments[0];
  const Vrf* vrf = model.find_vrf(name);
  const Interface* interface = model.find_interface_by_name(name);
  if (vrf != nullptr) {
    *context.text = vrf_line(*vrf);
    show_interfaces(model, &vrf->name, context.text);
    show_routes(model, {router::Family::kIpv4, vrf->ipv4_table}, context.text);
    show_routes(model, {router::Family::kIpv6, vrf->ipv6_table}, context.text);
  }
  if (vrf == nullptr && model.is_referenced(name)) *context.text = "vrf " + name + " referenced";
  if (interface != nullptr) {
    if (!context.text->empty()) *context.text += '\n';
    *context.text += interface_line(model, *interface);
  }
  if (!context.text->empty()) return kStatusOk;
  *context.text = "there is no VRF and no interface \"" + name + "\"";
  return kStatusNoSuchRow;
}
