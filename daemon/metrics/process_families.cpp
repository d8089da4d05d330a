#include "daemon/metrics/process_families.h"

#include <cstddef>

#include "mpls/vpn/mib/src/traps/info.h"
#include "platform/store/history/history.h"
#include "platform/store/server/request_durations.h"
#include "platform/store/status/facts.h"

namespace daemon_metrics {

using metrics::Samples;

void add_sources_up(const Facts& /*facts*/, Samples* samples) {
  for (const process_status::SourceFact& source : process_status::source_facts())
    samples->add({{"source", source.name}}, source.is_up ? 1 : 0);
}

void add_source_answers(const Facts& /*facts*/, Samples* samples) {
  for (const process_status::SourceFact& source : process_status::source_facts()) {
    if (source.last_answer != 0) samples->add({{"source", source.name}}, source.last_answer);
  }
}

void add_notifications(const Facts& /*facts*/, Samples* samples) {
  const NotificationFigures figures = notification_figures();
  for (std::size_t type = 0; type < figures.counts.size(); ++type)
    samples->add({{"type", mpls_vpn_mib_trap_info[type].notification}}, figures.counts[type]);
}

void add_waiting_notifications(const Facts& /*facts*/, Samples* samples) {
  samples->add({}, notification_figures().waiting);
}

void add_request_durations(const Facts& /*facts*/, Samples* samples) {
  for (const kvtree::RequestDurations::Kind& kind : kvtree::request_durations())
    kind.durations.add_to(samples, {"request", kind.name});
}

void add_corrections(const Facts& facts, Samples* samples) {
  for (const process_status::CorrectionFact& each : facts.corrections()) {
    if (each.family.empty()) {
      samples->add({{"table", each.table}}, each.count);
    } else {
      samples->add({{"table", each.table}, {"afi", each.family}}, each.count);
    }
  }
}

}  // namespace daemon_metrics
