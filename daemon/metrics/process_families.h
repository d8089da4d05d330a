// The families of the process: its sources and its notifications. Only for this folder.
#pragma once

#include "daemon/metrics/facts.h"
#include "platform/core/metrics/text_format.h"

namespace daemon_metrics {

void add_sources_up(const Facts& facts, metrics::Samples* samples);
void add_source_answers(const Facts& facts, metrics::Samples* samples);
void add_notifications(const Facts& facts, metrics::Samples* samples);
void add_waiting_notifications(const Facts& facts, metrics::Samples* samples);
void add_request_durations(const Facts& facts, metrics::Samples* samples);
void add_corrections(const Facts& facts, metrics::Samples* samples);

}  // namespace daemon_metrics
