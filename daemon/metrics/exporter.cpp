#include "daemon/metrics/exporter.h"

#include <utility>

namespace daemon_metrics {

namespace {

// A row without samples takes up to 2 us, and a step of the loop makes up to two parts without any.
constexpr std::size_t kPartRows = 250;

http::Page page_of(const Facts* facts) {
  return {"/metrics", metrics::kContentType, [facts] {
            return [scrape = Scrape(facts)](std::string* text) mutable {
              return scrape.add_part({http::kPartSize, kPartRows}, text);
            };
          }};
}

}  // namespace

Exporter::Exporter(router::Router* model, EventManager* manager, std::string version,
                   std::function<std::vector<process_status::CorrectionFact>()> corrections)
    : routes_(model),
      facts_{model, &routes_, std::move(version), std::move(corrections), true},
      manager_(manager) {}

void Exporter::apply(const MetricsSettings& settings) {
  endpoint_.reset();  // first: both may have the same place
  facts_.with_interfaces = settings.with_interfaces;
  if (!settings.is_on) return;
  endpoint_ = std::make_unique<http::Endpoint>(manager_, "metrics", settings.place, page_of(&facts_));
}

process_status::MetricsFact Exporter::fact() const {
  if (endpoint_ == nullptr) return {};
  return {http::describe(endpoint_->place()), endpoint_->problem()};
}

}  // namespace daemon_metrics
