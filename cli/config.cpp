// "config": the trap switches in the daemon's configuration. An item that is there switches its trap on,
// whatever its value; notif-reissue-time has seconds.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <charconv>
#include <optional>

#include "cli/commands.h"
#include "cli/json_list.h"
#include "cli/notifications.h"
#include "cli/table.h"

namespace cli {

namespace {

constexpr std::uint32_t kMaxNodes = 1024;
constexpr std::int64_t kLongestReissue = INT32_MAX;  // what the daemon keeps it in

Failure usage(const std::string& what) {
  return {kExitUsage, what + "; the items of traps are " + trap_items()};
}

void check_item(const std::string& item) {
  if (!is_trap_switch(item) && item != kReissueTime) throw usage("there is no item \"" + item + "\"");
}

std::optional<std::int64_t> to_seconds(const std::string& text) {
  std::int64_t seconds = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, seconds);
  const bool whole = error == std::errc() && rest == end && seconds >= 0 && seconds <= kLongestReissue;
  return whole ? std::optional(seconds) : std::nullopt;
}

void check_change(const Session& session, const std::string& item, Status status) {
  if (status == kStatusAccess) {
    throw Failure(kExitFailed, "changing the configuration is for root and the administrators' group");
  }
  if (status == kStatusNoSuchRow) throw Failure(kExitFailed, "traps " + item + " is not set");
  if (status) throw request_failure(session, "config traps " + item, status);
}

std::string value_text(const kvtree::Node& node) {
  return node.is_number ? std::to_string(node.number) : node.text;
}

Json value_json(const kvtree::Node& node) {
  return node.is_number ? Json(node.number) : Json(node.text);
}

void show(const Session& session, const std::string& item) {
  const kvtree::NodesResult result = connect_to_daemon(session)->nodes(kTrapSwitches, kMaxNodes);
  if (result.status) throw request_failure(session, "config show traps", result.status);
  JsonList list(session.out);
  Table table(session.out, {{"ITEM"}, {"VALUE"}});
  for (const kvtree::Node& node : result.nodes) {
    const std::string name = node.path.substr(sizeof kTrapSwitches - 1);
    if (!item.empty() && name != item) continue;
    if (session.json) {
      list.add({{"item", name}, {"value", value_json(node)}});
    } else {
      table.add({name, value_text(node)});
    }
  }
  session.json ? list.end() : table.flush();
}

void set(const Session& session, const std::string& item, const std::string& value) {
  const std::string path = kTrapSwitches + item;
  std::int64_t number = 1;
  if (item == kReissueTime) {
    const std::optional<std::int64_t> seconds = to_seconds(value);
    if (!seconds) throw Failure(kExitUsage, fmt::format("{} takes seconds, 0 to {}", item, kLongestReissue));
    number = *seconds;
  } else if (!value.empty()) {
    throw Failure(kExitUsage, item + " is a switch and takes no value: set turns it on, delete turns it off");
  }
  check_change(session, item, connect_to_daemon(session)->set_number(path, number));
}

}  // namespace

void config(const Session& session, const ConfigRequest& request) {
  const bool shows = request.verb == ConfigVerb::kShow;
  if (request.subject != "traps")
    throw Failure(kExitUsage, "there is no configuration of \"" + request.subject + "\"");
  if (!shows || !request.item.empty()) check_item(request.item);
  if (request.verb == ConfigVerb::kSet) {
    set(session, request.item, request.value);
  } else if (request.verb == ConfigVerb::kDelete) {
    check_change(session, request.item, connect_to_daemon(session)->remove(kTrapSwitches + request.item));
  } else {
    show(session, request.item);
  }
}

}  // namespace cli
