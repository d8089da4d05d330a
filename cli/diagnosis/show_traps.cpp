// "show traps": how many notifications of each type were raised, and the latest of them.
#include <fmt/format.h>
#include <fmt/ostream.h>

#include <span>
#include <string>

#include "cli/commands.h"
#include "cli/diagnosis/traps.h"
#include "cli/output/columns.h"
#include "cli/output/json_list.h"
#include "cli/output/record.h"
#include "cli/output/row_writer.h"
#include "cli/output/times.h"
#include "platform/store/history/records.h"

namespace cli {

namespace {

using notification_history::LatestNotifications;
using notification_history::NotificationCount;
using notification_history::PastNotification;

// The number of one type.
struct Raised {
  std::uint32_t type;
  std::uint32_t count;
};

Json name_of_type(const Raised& raised) {
  return trap_name(raised.type);
}
Json oid_of_type(const Raised& raised) {
  return trap_oid(raised.type);
}

constexpr Column<Raised> kRaisedColumns[] = {
    {"notification", name_of_type, {"NOTIFICATION"}},
    {"notificationOid", oid_of_type},
    {"trapType", member_json<&Raised::type>},
    {"count", member_json<&Raised::count>, number("RAISED")},
};

struct PastTrap {
  const PastNotification& past;
  const mpls_vpn_mib_trap& trap;
};

std::string time_of(const PastTrap& row) {
  return utc_text(row.past.time, row.past.milliseconds);
}
std::string name_of_trap(const PastTrap& row) {
  return trap_name(row.trap.trapType);
}
std::string vrf_of(const PastTrap& row) {
  return text_or_dash(row.trap.vrfName);
}
std::string details_of(const PastTrap& row) {
  return trap_details(row.trap);
}

constexpr Column<PastTrap> kPastTrapColumns[] = {
    {nullptr, nullptr, {"TIME"}, time_of},
    {nullptr, nullptr, {"NOTIFICATION"}, name_of_trap},
    {nullptr, nullptr, {"VRF"}, vrf_of},
    {nullptr, nullptr, {"DETAILS"}, details_of},
};

Json json_of(const PastTrap& row) {
  Json json = {{"number", row.past.number}, {"time", row.past.time}, {"timeText", time_of(row)}};
  json.update(trap_json(row.trap));
  return json;
}

class TrapAnswer {
 public:
  TrapAnswer(const Session& session, const std::string& path, const kvtree::Octets& octets)
      : session_(session),
        path_(path),
        record_(session, path, notification_history::kLatestNotificationsParcel, octets) {}

  std::uint32_t waiting() const { return record_->waiting; }
  // Calls `take` with each.
  template <typename Take>
  void for_each_count(Take take) const {
    std::uint32_t type = 0;
    for (const NotificationCount& each : items<NotificationCount>(record_->counts))
      take(Raised{type++, each.count});
  }
  template <typename Take>
  void for_each_trap(Take take) const {
    for (const PastNotification& past : items<PastNotification>(record_->notifications)) {
      const kvtree::Octets octets(past.record.octets, past.record.octets + past.record.length);
      const Record<mpls_vpn_mib_trap> trap(session_, path_, kMibTrapParcel, octets);
      take(PastTrap{past, *trap});
    }
  }

 private:
  template <typename Item>
  static std::span<const Item> items(const ParcelArray& array) {
    return {static_cast<const Item*>(array.elements), static_cast<std::size_t>(array.count)};
  }

  const Session& session_;
  const std::string& path_;
  const Record<LatestNotifications> record_;
};

void print_text(const Session& session, const TrapAnswer& answer) {
  RowWriter<Raised> counts(session, kRaisedColumns);
  answer.for_each_count([&](const Raised& each) { counts.add(each); });
  counts.end();
  fmt::print(session.out, "\nwaiting for snmpd: {}\n\n", answer.waiting());
  RowWriter<PastTrap> traps(session, kPastTrapColumns);
  answer.for_each_trap([&](const PastTrap& each) { traps.add(each); });
  traps.end();
}

void print_json(const Session& session, const TrapAnswer& answer) {
  Json raised = Json::array();
  answer.for_each_count(
      [&](const Raised& each) { raised.push_back(row_json<Raised>(kRaisedColumns, each)); });
  Json traps = Json::array();
  answer.for_each_trap([&](const PastTrap& each) { traps.push_back(json_of(each)); });
  session.out << json_line({{"raised", raised}, {"waiting", answer.waiting()}, {"traps", traps}}) << '\n';
}

}  // namespace

void show_traps(const Session& session, const TrapsRequest& request) {
  const std::string path = fmt::format("{}{}/{}", notification_history::kProviderPath,
                                       notification_history::kItemName, request.last);
  const kvtree::GetResult result = connect_to_daemon(session)->get(path);
  if (result.status) throw request_failure(session, result.status);
  const TrapAnswer answer(session, path, result.record);
  if (session.json) {
    print_json(session, answer);
  } else {
    print_text(session, answer);
  }
}

}  // namespace cli
