#include "cli/diagnosis/vpn_changes.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <span>

#include "cli/output/json_list.h"
#include "cli/output/record.h"
#include "cli/output/table.h"
#include "cli/output/times.h"
#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"
#include "platform/router/vpn_events/records.h"
#include "platform/store/configuration/configuration.h"

namespace cli {

namespace {

using vpn_events::Item;
using vpn_events::VpnChange;
using vpn_events::VpnChanges;

// The words that configure the item.
std::string item_name(const VpnChange& change) {
  switch (Item{change.item}) {
    case Item::kRouteDistinguisher:
      return "rd";
    case Item::kImportTarget:
      return "rt import";
    case Item::kExportTarget:
      return "rt export";
  }
  return fmt::format("item {}", change.item);
}

// Empty for the RD of a VRF, which belongs to no family.
std::string family_name(const VpnChange& change) {
  if (change.family == 0) return {};
  const char* word = vrf_config::family_word(vrf_config::Family{change.family});
  return *word == '\0' ? std::to_string(change.family) : word;
}

std::string origin(const char* owner) {
  return std::string(vrf_config::origin(text_or_empty(owner)));
}

std::string value_and_origin(const char* value, const char* owner) {
  const std::string text = text_or_empty(value);
  return text.empty() ? "none" : fmt::format("{} ({})", printable(text), origin(owner));
}

void print_line(const Session& session, const VpnChange& change) {
  const std::string family = family_name(change);
  fmt::print(session.out, "{} {} {}{} {} -> {}\n", now_text(), item_name(change),
             printable(text_or_empty(change.vrf)), family.empty() ? "" : " " + family,
             value_and_origin(change.old_value, change.old_owner),
             value_and_origin(change.new_value, change.new_owner));
}

void print_json(const Session& session, const VpnChange& change, std::uint64_t lost_before) {
  const std::string old_origin = origin(change.old_owner);
  const std::string new_origin = origin(change.new_owner);
  Json json = now_json();
  json.update({{"change", item_name(change)},
               {"vrfName", text_or_empty(change.vrf)},
               {"family", text_or_null(family_name(change))},
               {"oldValue", text_or_null(text_or_empty(change.old_value))},
               {"oldOrigin", text_or_null(old_origin)},
               {"newValue", text_or_null(text_or_empty(change.new_value))},
               {"newOrigin", text_or_null(new_origin)},
               {"origin", new_origin.empty() ? old_origin : new_origin},
               {"lostBefore", lost_before}});
  session.out << json_line(json) << '\n';
}

}  // namespace

std::uint64_t VpnChangePrinter::print(const kvtree::NotificationResult& notification, std::uint64_t most) {
  const Record<VpnChanges> record(session_, notification.path + notification.item_name,
                                  vpn_events::kVpnChangesParcel, notification.record);
  const auto size = static_cast<std::size_t>(record->changes.count);
  const std::span changes(static_cast<const VpnChange*>(record->changes.elements), size);
  std::uint32_t lost = record->first - next_.value_or(record->first);
  next_ = record->first + static_cast<std::uint32_t>(size);
  if (lost != 0 && !session_.json) fmt::print(session_.out, "... {} changes missed\n", lost);
  std::uint64_t printed = 0;
  for (const VpnChange& change : changes) {
    if (printed == most) break;
    if (!vrf_.empty() && vrf_ != text_or_empty(change.vrf)) continue;
    ++printed;
    session_.json ? print_json(session_, change, std::exchange(lost, 0)) : print_line(session_, change);
  }
  return printed;
}

}  // namespace cli
