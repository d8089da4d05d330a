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

Exporter::Exporter(router::Router* model, EventManager* manager, const MetricsSettings& settings,
                   std::string version,
                   std::function<std::vector<process_status::CorrectionFact>()> corrections)
    : routes_(model),
      facts_{model, &routes_, std::move(version), std::move(corrections), settings.with_interfaces},
      endpoint_(manager, "metrics", settings.place, page_of(&facts_)) {}

}  // namespace daemon_metrics
