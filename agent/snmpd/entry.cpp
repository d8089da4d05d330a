// The entry points of the module, which snmpd calls for "dlmod mpls_vpn_snmpd PATH" and when it unloads it.
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "agent/snmpd/module.h"
#include "agent/snmpd/netsnmp.h"
#include "platform/core/base/log.h"

namespace {

std::unique_ptr<snmpd::Module> the_module;

void write_to_snmpd(LogSeverity severity, const char* line) {
  snmp_log(static_cast<int>(severity), "%s\n", line);
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
      "mpls_vpn_snmpd",
      "built for net-snmp %s, but snmpd runs with %s: install the module that was built for it; the MIB "
      "is not served",
      MPLS_NET_SNMP_VERSION, running == nullptr ? "an unknown version" : running);
  return false;
}

void start() {
  if (the_module != nullptr || !is_compatible()) return;  // snmpd reads its configuration again on SIGHUP
  the_module = std::make_unique<snmpd::Module>(kvtree::Client::default_socket());
}

}  // namespace

// An exception would end snmpd.
extern "C" [[gnu::visibility("default")]] void init_mpls_vpn_snmpd() {
  try {
    log_redirect(write_to_snmpd);
    start();
  } catch (const std::exception& failure) {
    log_error("mpls_vpn_snmpd", "cannot start: %s", failure.what());
  }
}

extern "C" [[gnu::visibility("default")]] void deinit_mpls_vpn_snmpd() {
  the_module.reset();
}
