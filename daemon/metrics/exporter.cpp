#include "daemon/metrics/exporter.h"

#include <utility>

namespace daemon_metrics {

namespace {

http::Page page_of(const Facts* facts) {
  return {"/metrics", metrics::kContentType, [facts] {
            return [scrape = Scrape(facts)](std::string* text) mutable {
              return scrape.add_part(http::kPartSize, text);
            };
          }};
}

}  // namespace

Exporter::Exporter(router::Router* model, EventManager* manager, const MetricsSettings& settings,
                   std::string version, std::function<std::optional<std::uint64_t>()> corrections)
    : routes_(model),
      facts_{model, &routes_, std::move(version), std::move(corrections), settings.with_interfaces},
      endpoint_(manager, "metrics", settings.place, page_of(&facts_)) {}

}  // namespace daemon_metrics
