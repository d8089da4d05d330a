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
#include <vector>

#include "sources/file/commands/router_commands.h"
#include "sources/file/commands/router_json.h"
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

// The answer so far, as text or as an object of JSON.
struct Answer {
  bool is_json = false;
  std::string text{};
  RouterJson document{};
};

// Items of one kind, the first kShownMost of them.
class Lines {
 public:
  struct Kind {
    const char *name, *key;
  };
  Lines(Answer* answer, Kind kind) : answer_(answer), kind_(kind) {
    if (answer->is_json) answer->document.emplace(kind.key, RouterJson::array());
  }

  template <typename MakeText, typename MakeJson>
  void next(MakeText make_text, MakeJson make_json) {
    if (++count_ > kShownMost) return;
    if (answer_->is_json) {
      answer_->document[kind_.key].push_back(make_json());
    } else {
      add(make_text());
    }
  }
  // Of that many in all, the rest is only counted.
  bool is_full(std::size_t all) {
    if (count_ < kShownMost) return false;
    count_ = std::max(count_, all);
    return true;
  }
  void end() {
    if (count_ <= kShownMost) return;
    const std::size_t rest = count_ - kShownMost;
    if (answer_->is_json) {
      RouterJson& more = answer_->document["notListed"][kind_.key];
      more = rest + (more.is_null() ? 0 : more.get<std::size_t>());
    } else {
      add("... and " + std::to_string(rest) + " more " + kind_.name);
    }
  }

 private:
  void add(const std::string& line) {
    if (!answer_->text.empty()) answer_->text += '\n';
    answer_->text += line;
  }

  Answer* answer_;
  Kind kind_;
  std::size_t count_ = 0;
};
constexpr Lines::Kind kVrfs = {"VRFs", "vrfs"};
constexpr Lines::Kind kReferences = {"VRFs that are only named", "references"};
constexpr Lines::Kind kInterfaces = {"interfaces", "interfaces"};
constexpr Lines::Kind kRoutes = {"routes", "routes"};

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

void add_interface(const Router& model, const Interface& interface, Lines* lines) {
  lines->next([&] { return interface_line(model, interface); },
              [&] { return interface_json(model, interface); });
}

NextItem all_vrfs(const Router& model) {
  return [&model, last = std::string()](Lines* lines) mutable {
    const Vrf* const vrf = model.vrf_after(last);
    if (vrf == nullptr || lines->is_full(model.vrf_count())) return false;
    last = vrf->name;
    if (last != router::kDefaultVrf)
      lines->next([vrf] { return vrf_line(*vrf); }, [vrf] { return vrf_json(*vrf); });
    return true;
  };
}

NextItem names_without_a_vrf(const Router& model) {
  return [&model, last = std::string()](Lines* lines) mutable {
    const std::string* const name = model.reference_after(last);
    if (name == nullptr) return false;
    last = *name;
    if (model.find_vrf(last) == nullptr)
      lines->next([&] { return "vrf " + last + " referenced"; }, [&] { return RouterJson(last); });
    return true;
  };
}

NextItem all_interfaces(const Router& model) {
  return [&model, last = std::uint32_t{0}](Lines* lines) mutable {
    const Interface* const interface = model.interface_after(last);
    if (interface == nullptr || lines->is_full(model.interface_count())) return false;
    last = interface->handle;
    add_interface(model, *interface, lines);
    return true;
  };
}

// The model has no list of them.
NextItem interfaces_of(const Router& model, const std::string& vrf) {
  return [&model, vrf, last = std::uint32_t{0}](Lines* lines) mutable {
    const Interface* const interface = model.interface_after(last);
    if (interface == nullptr) return false;
    last = interface->handle;
    if (interface->vrf == vrf) add_interface(model, *interface, lines);
    return true;
  };
}

NextItem routes_of(const Router& model, router::RouteTableId table) {
  return [&model, table, route = router::Route{}, begins = true](Lines* lines) mutable {
    const router::RouteStore& store = model.routes();
    if (lines->is_full(store.count(table))) return false;
    const bool is_there = std::exchange(begins, false) ? store.find_first(table, &route)
                                                       : store.find_next(table, route.key, &route);
    if (is_there)
      lines->next([&] { return route_line(table, route, model); },
                  [&] { return route_json(table, route, model); });
    return is_there;
  };
}

NextItem interface_named(const Router& model, const std::string& name) {
  return [&model, name](Lines* lines) {
    const Interface* const interface = model.find_interface_by_name(name);
    if (interface != nullptr) add_interface(model, *interface, lines);
    return false;
  };
}

NextItem vrf_named(const Router& model, const std::string& name) {
  return [&model, name](Lines* lines) {
    if (const Vrf* const vrf = model.find_vrf(name))
      lines->next([vrf] { return vrf_line(*vrf); }, [vrf] { return vrf_json(*vrf); });
    return false;
  };
}

NextItem reference_named(const std::string& name) {
  return [name](Lines* lines) {
    lines->next([&] { return "vrf " + name + " referenced"; }, [&] { return RouterJson(name); });
    return false;
  };
}

// The answer so far and the lists that follow.
class Show {
 public:
  Show(const Router& model, bool is_json) : answer_{.is_json = is_json} {
    answer_.text = counted(model.vrf_count(), "VRF") + ", " + counted(model.interface_count(), "interface");
    add(kVrfs, all_vrfs(model));
    add(kReferences, names_without_a_vrf(model));
    add(kInterfaces, all_interfaces(model));
  }
  Show(const Router& model, const std::string& name, bool is_json) : answer_{.is_json = is_json} {
    if (const Vrf* const vrf = model.find_vrf(name)) {
      add(kVrfs, vrf_named(model, name));
      add(kInterfaces, interfaces_of(model, name));
      add(kRoutes, routes_of(model, {router::Family::kIpv4, vrf->ipv4_table}));
      add(kRoutes, routes_of(model, {router::Family::kIpv6, vrf->ipv6_table}));
    } else if (model.is_referenced(name)) {
      add(kReferences, reference_named(name));
    }
    add(kInterfaces, interface_named(model, name));
    is_found_ = model.is_referenced(name) || model.find_vrf(name) != nullptr ||
                model.find_interface_by_name(name) != nullptr;
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
  bool is_found() const { return is_found_; }
  std::string text() const {
    if (!answer_.is_json) return answer_.text;
    return answer_.document.dump(-1, ' ', false, RouterJson::error_handler_t::replace);
  }

 private:
  static constexpr std::size_t kItemsPerLook = 64;  // at the clock
  struct List {
    Lines lines;
    NextItem next;
  };
  void add(Lines::Kind kind, NextItem next) { lists_.push_back({Lines(&answer_, kind), std::move(next)}); }

  Answer answer_;
  bool is_found_ = true;
  std::deque<List> lists_;
};

struct Request {
  bool is_json = false;
  std::vector<std::string> names;
};

Request read_request(const RouterCommandContext& context) {
  Request request{.names = context.arguments};
  request.is_json = std::erase(request.names, "--json") > 0;
  return request;
}

std::shared_ptr<Show> begin_show(const RouterCommandContext& context) {
  const Request request = read_request(context);
  if (request.names.empty()) return std::make_shared<Show>(*context.model, request.is_json);
  return std::make_shared<Show>(*context.model, request.names[0], request.is_json);
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
  if (read_request(context).names.size() > 1) {
    *context.text = "usage: router show [NAME] [--json]";
    return kStatusInvalid;
  }
  const std::shared_ptr<Show> show = find_show(context);
  if (!show->step(context.steps)) {
    context.steps->state = show;
    return kStatusUnfinished;
  }
  *context.text = show->text();
  if (show->is_found()) return kStatusOk;
  *context.text = "no VRF or interface is named \"" + read_request(context).names[0] + "\"";
  return kStatusNoSuchRow;
}
