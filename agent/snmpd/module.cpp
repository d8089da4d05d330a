#include "agent/snmpd/module.h"

#include <sys/time.h>

#include <algorithm>
#include <cstdlib>

#include "agent/snmpd/guard.h"
#include "agent/snmpd/variable.h"
#include "agent/tables/l3vpn_tables.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace snmpd {
namespace {

constexpr char kName[] = "mpls_vpn_snmpd";
constexpr agent::AccessAdvice kAccess = {
    "let snmpd's group do so: install snmpd_module.conf for the daemon's service",
    "name snmpd's group in MPLS_VPN_MIB_AGENT_GROUP: install snmpd_module.conf for the daemon's service"};
constexpr char kFirstRecord[] = "/oper/mpls_vpn/gl/scalars";
constexpr std::uint64_t kRegisterAgain = 2 * kNanosecondsPerSecond;
constexpr std::int64_t kUpTimeTolerance = 2 * std::int64_t{kNanosecondsPerSecond};
constexpr std::uint64_t kNanosecondsPerTick = kNanosecondsPerSecond / 100;

timeval time_until(std::uint64_t when, std::uint64_t now) {
  // At least a millisecond: an alarm of 0 would never end.
  const std::uint64_t microseconds = std::max<std::uint64_t>(when > now ? (when - now) / 1000 + 1 : 0, 1000);
  timeval value{};
  value.tv_sec = static_cast<time_t>(microseconds / 1'000'000);
  value.tv_usec = static_cast<suseconds_t>(microseconds % 1'000'000);
  return value;
}

// True when another agent has registered the subtree as this module would. snmpd logs each attempt that it
// refuses.
bool is_taken(const LongName& root) {
  const netsnmp_subtree* each = netsnmp_subtree_find(root.data(), root.size(), nullptr, "");
  for (; each != nullptr; each = each->children) {
    const bool is_same = snmp_oid_compare(each->name_a, each->namelen, root.data(), root.size()) == 0;
    if (is_same && each->priority == DEFAULT_MIB_PRIORITY) return true;
  }
  return false;
}

}  // namespace

void WatchedDescriptor::watch(int fd) {
  if (fd == fd_) return;
  if (fd_ >= 0) unregister_readfd(fd_);
  fd_ = fd;
  if (fd_ >= 0 && register_readfd(fd_, function_, argument_) != 0)
    log_error("", "snmpd watches no further descriptor");
}

// sysUpTime.0 is left to snmpd, which puts its own first (RFC 3416 section 4.2.6).
agent::TrapSink::Sent SnmpdSink::send(const agent::TrapNotification& notification, std::uint32_t*) {
  netsnmp_variable_list* variables = nullptr;
  const LongName trap_oid{agent::kSnmpTrapOid};
  const LongName identifier(notification.identifier.view());
  snmp_varlist_add_variable(&variables, trap_oid.data(), trap_oid.size(), ASN_OBJECT_ID, identifier.data(),
                            identifier.size() * sizeof(netsnmp_oid));
  for (const agent::TrapVariable& variable : notification.variables) {
    const LongName name(variable.name.view());
    const std::uint8_t type = value_type(variable.type);
    const long value = number_value(type, variable.number);
    snmp_varlist_add_variable(&variables, name.data(), name.size(), type, &value, sizeof value);
  }
  send_v2trap(variables);
  snmp_free_varbind(variables);
  return Sent::kDone;
}

Module::Module(const Settings& settings)
    : settings_(settings),
      daemon_(settings.daemon_socket, {}, kAccess),
      mib_(tables::l3vpn_tables(), daemon_, settings.row_age_ns),
      requests_(mib_),
      traps_(settings.daemon_socket, {}, sink_, kAccess),
      rows_readable_(
          [](int, void* argument) {
            auto* const module = static_cast<Module*>(argument);
            module->run("mpls_vpn_snmpd_rows", [module] { module->daemon_.handle_readable(); });
          },
          this),
      traps_readable_(
          [](int, void* argument) {
            auto* const module = static_cast<Module*>(argument);
            module->run("mpls_vpn_snmpd_traps", [module] { module->traps_.handle_readable(); });
          },
          this) {
  // From snmpd's loop: its configuration, and with it where notifications are sent, is not complete yet.
  register_subtree();
  alarm_at_ = UINT64_MAX;
  start_alarm();
}

Module::~Module() {
  if (alarm_ != 0) snmp_alarm_unregister(alarm_);
  guarded("mpls_vpn_snmpd_last_traps", "notifications may be sent twice", [this] { traps_.finish(); });
  guarded("mpls_vpn_snmpd_last_requests", "requests may stay unanswered", [this] { requests_.abandon(); });
  unregister_subtree();
}

// At once, before the daemon has answered: requests are then answered genErr, after which managers ask again.
// Without a registration they would conclude that there are no VRFs.
void Module::register_subtree() {
  register_at_ = clock_monotonic() + kRegisterAgain;
  const LongName root{tables::kL3vpnObjects};
  if (is_taken(root)) return refuse();
  netsnmp_handler_registration* const registration = netsnmp_create_handler_registration(
      kName, handle, root.data(), root.size(), HANDLER_CAN_RONLY | HANDLER_CAN_GETBULK);
  if (registration == nullptr) return;
  registration->handler->myvoid = this;
  if (netsnmp_register_handler(registration) == MIB_REGISTERED_OK) {
    registration_ = registration;
    sink_.set_ready(true);
    announced_refusal_ = false;
    return;
  }
  refuse();
}

void Module::refuse() {
  if (announced_refusal_) return;
  announced_refusal_ = true;
  log_error("",
            "another agent serves 1.3.6.1.2.1.10.166.11.1, so this module does not; stop that agent "
            "(mpls_vpn_snmp), or remove the line \"dlmod mpls_vpn_snmpd\" from snmpd.conf");
}

void Module::unregister_subtree() {
  if (registration_ != nullptr) netsnmp_unregister_handler(registration_);
  registration_ = nullptr;
  sink_.set_ready(false);
}

int Module::handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                   netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  auto* const module = static_cast<Module*>(handler->myvoid);
  module->queries_.note_query();
  const bool is_handled = guarded("mpls_vpn_snmpd_request", "answering genErr", [&] {
    module->set_up_time();
    module->requests_.answer(handler, registration, info, requests);
  });
  if (!is_handled) module->fail(info, requests);
  module->start_alarm();
  module->rows_readable_.watch(module->daemon_.fd());
  return SNMP_ERR_NOERROR;
}

// A batch may count as under way that was never asked for: the answers that follow would be taken for others.
// The connections are opened again from snmpd's loop, because requests may be in the middle of their answers.
void Module::fail(netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  Requests::fail_all(info, requests);
  must_start_over_ = true;
  retry_at_ = clock_monotonic();
}

// After an exception the connections may have lost a message: they are opened again.
template <typename Function>
void Module::run(const char* where, const Function& function) {
  const bool is_done = !must_start_over_ && guarded(where, "connecting again", [&] {
    function();
    step();
  });
  must_start_over_ = !is_done && !guarded("mpls_vpn_snmpd_start_over", "trying again", [this] {
    traps_.start_over();  // first: the notification after a lost one must not be acknowledged
    daemon_.start_over();
  });
  retry_at_ = must_start_over_ ? clock_monotonic() + kNanosecondsPerSecond : UINT64_MAX;
  rows_readable_.watch(daemon_.fd());
  traps_readable_.watch(traps_.fd());
  start_alarm();
}

// Constant, so that time stamps are, until the wall clock is set.
void Module::set_up_time() {
  const std::uint64_t up_time = netsnmp_get_agent_uptime() * kNanosecondsPerTick;
  const auto zero = static_cast<std::int64_t>(clock_stamp()) - static_cast<std::int64_t>(up_time);
  if (up_time_zero_ && std::abs(zero - *up_time_zero_) <= kUpTimeTolerance) return;
  up_time_zero_ = zero;
  mib_.set_up_time_zero(zero);
}

void Module::step() {
  if (registration_ == nullptr && clock_monotonic() >= register_at_) register_subtree();
  daemon_.step();
  daemon_.probe(kFirstRecord);
  traps_.step();
  queries_.step(registration_ != nullptr && daemon_.had_data());
  if (requests_.waits()) requests_.resume();
  if (announced_service_ || registration_ == nullptr || !daemon_.had_data()) return;
  announced_service_ = true;
  log_notice("", "serves MPLS-L3VPN-STD-MIB from the daemon at %s", settings_.daemon_socket.c_str());
}

void Module::start_alarm() {
  std::uint64_t due =
      std::min({daemon_.deadline(), traps_.deadline(), requests_.deadline(), queries_.deadline(), retry_at_});
  if (registration_ == nullptr) due = std::min(due, register_at_);
  if (alarm_ != 0 && due >= alarm_at_) return;  // the alarm in place finds what is due then
  if (alarm_ != 0) snmp_alarm_unregister(alarm_);
  alarm_ = 0;
  if (due == UINT64_MAX) return;
  alarm_at_ = due;
  alarm_ = snmp_alarm_register_hr(
      time_until(due, clock_monotonic()), 0,
      [](unsigned, void* argument) {
        auto* const module = static_cast<Module*>(argument);
        module->alarm_ = 0;
        module->run("mpls_vpn_snmpd_alarm", [] {});
      },
      this);
}

}  // namespace snmpd
