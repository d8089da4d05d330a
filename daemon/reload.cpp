// The settings in effect are those of the host: one that needs a restart remains as it is, so that each
// reload names it again until the daemon is restarted or the file has the former value.
#include "daemon/reload.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "platform/core/base/log.h"
#include "platform/core/files/directories.h"
#include "platform/core/proc/proc.h"
#include "platform/store/status/records.h"

namespace daemon_host {

namespace {

// Whether it is in effect; otherwise what it waits for was logged.
bool apply_metrics(const Settings& settings, Host* host) {
  host->settings.metrics = settings.metrics;
  host->metrics->apply(settings.metrics);
  return !host->metrics->is_waiting();
}

// Another source or routing suite needs another model, which the services cannot exchange.
struct AppliedSetting {
  std::string_view key;
  bool (*apply)(const Settings& settings, Host* host);
};
constexpr AppliedSetting kAppliedSettings[] = {{"metrics", apply_metrics}};

void require_restart(const std::string& key, const std::string& signal, Host* host) {
  log_warning("mpls_vpn_mib", "%s: the setting '%s' has changed; restart the daemon, then it takes effect",
              signal.c_str(), key.c_str());
  std::string& problem = host->settings_problem;
  problem += (problem.empty() ? process_status::kRestartForSettings : ", ") + key;
}

void apply_setting(const std::string& key, const Settings& settings, const std::string& signal, Host* host) {
  const auto* const applied = std::ranges::find(kAppliedSettings, key, &AppliedSetting::key);
  if (applied == std::end(kAppliedSettings)) return require_restart(key, signal, host);
  if (applied->apply(settings, host)) {
    log_notice("mpls_vpn_mib", "%s: the setting '%s' has changed and is in effect", signal.c_str(),
               key.c_str());
  } else {
    log_warning("mpls_vpn_mib", "%s: the setting '%s' has changed and is not in effect yet", signal.c_str(),
                key.c_str());
  }
}

// The defaults, which a missing directory means at a start, would end what a running daemon serves.
bool read_again(const Host& host, Settings* settings, std::string* error) {
  if (!read_settings(config_directory(), settings, error)) return false;
  const bool is_lost = host.settings.has_directory && !settings->has_directory;
  if (is_lost) *error = config_directory() + ": the configuration directory does not exist any more";
  return !is_lost;
}

void reload_settings(const std::string& signal, Host* host) {
  Settings settings;
  std::string error;
  host->settings_problem.clear();
  if (!read_again(*host, &settings, &error)) {
    log_error("mpls_vpn_mib", "%s (%s; the former settings remain)", error.c_str(), signal.c_str());
    host->settings_problem = error;
    return;
  }
  const std::vector<std::string> changed = changed_settings(host->settings, settings);
  if (changed.empty()) log_notice("mpls_vpn_mib", "%s: the settings have not changed", signal.c_str());
  for (const std::string& key : changed) apply_setting(key, settings, signal, host);
}

void end_source(Host* host) {
  if (--host->reloading > 0) return;
  if (const Status status = proc_ready())
    log_warning("mpls_vpn_mib", "the service manager does not know that the reload has ended: %s",
                err_text(status));
}

}  // namespace

void reload(Host* host, const std::string& signal) {
  proc_reloading();
  reload_settings(signal, host);
  host->reloading += host->sources.size();
  for (const auto& source : host->sources) source->reload([host] { end_source(host); });
}

}  // namespace daemon_host
