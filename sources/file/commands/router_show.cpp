// The command "show" of the action "router". An answer is bounded: of a large router the first VRFs and
// interfaces are shown and the rest is counted; one VRF's interfaces and routes are bounded in the same way.
//
// An answer is made in steps. Each list continues after the name, handle or key that it visited last, which
// may be deleted meanwhile; what is added or removed meanwhile may be shown, and counted, or not.
#include <algorithm>
#include <any>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

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

  template <typename Make>
  void next(Make make) {
    if (++count_ <= kShownMost) add(make());
  }
  // Of that many in all, the rest is only counted.
  bool is_full(std::size_t all) {
    if (count_ < kShownMost) return false;
    count_ = std::max(count_, all);
    return true;
  }
  void end() {
    if (count_ > kShownMost) add("... and " + std::to_string(count_ - kShownMost) + " more " + kind_);
  }

 private:
  void add(const std::string& line) {
    if (!text_->empty()) *text_ += '\n';
    *text_ += line;
  }

  std::string* text_;
  const char* kind_;
  std::size_t count_ = 0;
};

// The next item of a list; false at its end.
using NextItem = std::function<bool(Lines*)>;

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

NextItem all_vrfs(const Router& model) {
  return [&model, last = std::string()](Lines* lines) mutable {
    const Vrf* const vrf = model.vrf_after(last);
    if (vrf == nullptr || lines->is_full(model.vrf_count())) return false;
    last = vrf->name;
    if (last != router::kDefaultVrf) lines->next([vrf] { return vrf_line(*vrf); });
    return true;
  };
}

NextItem names_without_a_vrf(const Router& model) {
  return [&model, last = std::string()](Lines* lines) mutable {
    const std::string* const name = model.reference_after(last);
    if (name == nullptr) return false;
    last = *name;
    if (model.find_vrf(last) == nullptr) lines->next([&] { return "vrf " + last + " referenced"; });
    return true;
  };
}

NextItem all_interfaces(const Router& model) {
  return [&model, last = std::uint32_t{0}](Lines* lines) mutable {
    const Interface* const interface = model.interface_after(last);
    if (interface == nullptr || lines->is_full(model.interface_count())) return false;
    last = interface->handle;
    lines->next([&] { return interface_line(model, *interface); });
    return true;
  };
}

// The model has no list of them.
NextItem interfaces_of(const Router& model, const std::string& vrf) {
  return [&model, vrf, last = std::uint32_t{0}](Lines* lines) mutable {
    const Interface* const interface = model.interface_after(last);
    if (interface == nullptr) return false;
    last = interface->handle;
    if (interface->vrf == vrf) lines->next([&] { return interface_line(model, *interface); });
    return true;
  };
}

NextItem routes_of(const Router& model, router::RouteTableId table) {
  return [&model, table, route = router::Route{}, begins = true](Lines* lines) mutable {
    const router::RouteStore& store = model.routes();
    if (lines->is_full(store.count(table))) return false;
    const bool is_there = std::exchange(begins, false) ? store.find_first(table, &route)
                                                       : store.find_next(table, route.key, &route);
    if (is_there) lines->next([&] { return route_line(table, route, model); });
    return is_there;
  };
}

NextItem interface_named(const Router& model, const std::string& name) {
  return [&model, name](Lines* lines) {
    const Interface* const interface = model.find_interface_by_name(name);
    if (interface != nullptr) lines->next([&] { return interface_line(model, *interface); });
    return false;
  };
}

// The answer so far and the lists that follow.
class Show {
 public:
  explicit Show(const Router& model) {
    text_ = counted(model.vrf_count(), "VRF") + ", " + counted(model.interface_count(), "interface");
    add("VRFs", all_vrfs(model));
    add("VRFs that are only named", names_without_a_vrf(model));
    add("interfaces", all_interfaces(model));
  }
  Show(const Router& model, const std::string& name) {
    if (const Vrf* const vrf = model.find_vrf(name)) {
      text_ = vrf_line(*vrf);
      add("interfaces", interfaces_of(model, name));
      add("routes", routes_of(model, {router::Family::kIpv4, vrf->ipv4_table}));
      add("routes", routes_of(model, {router::Family::kIpv6, vrf->ipv6_table}));
    } else if (model.is_referenced(name)) {
      text_ = "vrf " + name + " referenced";
    }
    add("interfaces", interface_named(model, name));
  }
  Show(const Show&) = delete;
  Show& operator=(const Show&) = delete;

  // False if the step is over before the end.
  bool step(const KvSteps* steps) {
    for (std::size_t items = 1; !lists_.empty(); ++items) {
      List& list = lists_.front();
      if (!list.next(&list.lines)) {
        list.lines.end();
        lists_.pop_front();
      }
      if (steps != nullptr && items % kItemsPerLook == 0 && steps->is_over()) return lists_.empty();
    }
    return true;
  }
  const std::string& text() const { return text_; }

 private:
  static constexpr std::size_t kItemsPerLook = 64;  // at the clock
  struct List {
    Lines lines;
    NextItem next;
  };
  void add(const char* kind, NextItem next) { lists_.push_back({Lines(&text_, kind), std::move(next)}); }

  std::string text_;
  std::deque<List> lists_;
};

std::shared_ptr<Show> begin_show(const RouterCommandContext& context) {
  if (context.arguments.empty()) return std::make_shared<Show>(*context.model);
  return std::make_shared<Show>(*context.model, context.arguments[0]);
}

// Of a former step, or a new one.
std::shared_ptr<Show> find_show(const RouterCommandContext& context) {
  using Stored = std::shared_ptr<Show>;
  const Stored* const stored =
      context.steps == nullptr ? nullptr : std::any_cast<Stored>(&context.steps->state);
  return stored == nullptr ? begin_show(context) : *stored;
}

}  // namespace

Status router_show(const RouterCommandContext& context) {
  const std::shared_ptr<Show> show = find_show(context);
  if (!show->step(context.steps)) {
    context.steps->state = show;
    return kStatusUnfinished;
  }
  *context.text = show->text();
  if (!context.text->empty()) return kStatusOk;
  *context.text = "no VRF or interface is named \"" + context.arguments[0] + "\"";
  return kStatusNoSuchRow;
}
