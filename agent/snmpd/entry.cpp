// The entry points of the module, which snmpd calls for "dlmod mpls_vpn_snmpd PATH" and when it unloads it.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "agent/snmpd/guard.h"
#include "agent/snmpd/module.h"
#include "agent/snmpd/netsnmp.h"
#include "agent/snmpd/settings.h"
#include "platform/core/base/log.h"

namespace {

std::unique_ptr<snmpd::Module> the_module;
bool is_loaded = false;
unsigned retry_alarm = 0;  // 0: none

// As warnings, which snmpd's service on Debian shows (-LOw), where it would hide notices: those of the module
// are few, and say that it serves the MIB, or does again.
void write_to_snmpd(LogSeverity severity, const char* line) {
  const auto shown = std::min(severity, LogSeverity::kWarning);
  snmp_log(static_cast<int>(shown), "mpls_vpn_snmpd: %s\n", line);
}

// "5.9" of "5.9.3": the releases with one such beginning have the same structures.
std::string_view series(std::string_view version) {
  return version.substr(0, version.find('.', version.find('.') + 1));
}

// The structures of net-snmp are part of its interface: with others every access would be to a wrong place.
bool is_compatible() {
  const char* const running = netsnmp_get_version();
  if (running != nullptr && series(running) == series(MPLS_NET_SNMP_VERSION)) return true;
  log_error(
      "",
      "built for net-snmp %s, but snmpd runs with %s: install the module that was built for it; the MIB "
      "is not served",
      MPLS_NET_SNMP_VERSION, running == nullptr ? "an unknown version" : running);
  return false;
}

// A module with other settings takes the place of the former one, whose requests are answered.
void apply_settings() {
  const snmpd::Settings settings = snmpd::current_settings();
  if (the_module != nullptr && the_module->settings() == settings) return;
  the_module.reset();
  the_module = std::make_unique<snmpd::Module>(settings);
}

void settle() {
  if (snmpd::guarded("mpls_vpn_snmpd_settings", "trying again", apply_settings) || retry_alarm != 0) return;
  retry_alarm = snmp_alarm_register(
      1, 0,
      [](unsigned, void*) {
        retry_alarm = 0;
        settle();
      },
      nullptr);
}

int take_configuration(int /*major*/, int /*minor*/, void* /*fixed*/, void* /*event*/) {
  settle();
  return SNMPERR_SUCCESS;
}

void arm_faults() {
  const char* const faults = std::getenv("MPLS_VPN_MIB_FAULTS");
  if (faults == nullptr) return;
  if (fault_arm_from_text(faults) == kStatusOk)
    log_warning("", "MPLS_VPN_MIB_FAULTS makes operations fail, for tests: %s", faults);
}

void load() {
  log_redirect(write_to_snmpd);
  if (is_loaded || !is_compatible()) return;  // snmpd reads its configuration again on SIGHUP
  arm_faults();
  is_loaded = true;
  snmpd::register_directives();
  snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, take_configuration, nullptr);
  settle();  // the module may be loaded without a configuration that follows
}

}  // namespace

extern "C" [[gnu::visibility("default")]] void init_mpls_vpn_snmpd() {
  snmpd::guarded("mpls_vpn_snmpd_load", "the MIB is not served: restart snmpd", load);
}

extern "C" [[gnu::visibility("default")]] void deinit_mpls_vpn_snmpd() {
  snmpd::guarded("mpls_vpn_snmpd_unload", "unloading all the same", [] { the_module.reset(); });
  if (!is_loaded) return;
  if (retry_alarm != 0) snmp_alarm_unregister(std::exchange(retry_alarm, 0));
  snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_POST_READ_CONFIG, take_configuration, nullptr,
                           0);
  snmpd::unregister_directives();
  is_loaded = false;
}
