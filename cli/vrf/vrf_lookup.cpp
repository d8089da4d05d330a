// The list "vrf-detail-filter" with a name answers this VRF alone, or none. In the structured form names are
// encoded and only this list decodes them, so structured records are always read by it.
#include "cli/vrf/vrf_lookup.h"

#include <fmt/format.h>

#include "cli/output/names.h"
#include "cli/output/table.h"

namespace cli {

namespace {

std::string number_or_absent(std::uint32_t number) {
  return number == 0 ? "-" : std::to_string(number);
}

std::string filter_path(const std::string& name, const VrfRequest& request) {
  return fmt::format("{}/{}/{}", provider_path("vrf-detail-filter", name), number_or_absent(request.afi),
                     number_or_absent(request.safi));
}

std::optional<kvtree::Octets> find_record(const Session& session, kvtree::Client& client,
                                          const std::string& path) {
  kvtree::GetResult result = client.get(path);
  // The show record of a VRF that is being deleted has a status of its own.
  if (result.status == kStatusNoSuchRow || result.status == kStatusNoVrfRecord) return std::nullopt;
  if (result.status) throw request_failure(session, result.status);
  return std::move(result.record);
}

}  // namespace

bool has_filter(const VrfRequest& request) {
  return request.afi != 0 || request.safi != 0;
}

std::string filter_text(const VrfRequest& request) {
  const std::string afi = request.afi == 0 ? "" : afi_name(request.afi);
  const std::string safi = request.safi == 0 ? "" : safi_name(request.safi);
  return afi + (afi.empty() || safi.empty() ? "" : " ") + safi;
}

bool passes_filter(const Session& session, kvtree::Client& client, const std::string& name,
                   const VrfRequest& request) {
  if (!has_filter(request)) return true;
  const std::string path = filter_path(name, request);
  const kvtree::ListResult result = client.list(path, 1);
  if (result.status) throw request_failure(session, result.status);
  return !result.items.empty();
}

std::optional<kvtree::Octets> find_vrf_row(const Session& session, kvtree::Client& client,
                                           const std::string& name) {
  return find_record(session, client, provider_path("vrf", name));
}

std::optional<kvtree::Octets> find_show_record(const Session& session, kvtree::Client& client,
                                               const std::string& name, const VrfRequest& request) {
  if (!has_filter(request) && !request.structured) {
    return find_record(session, client, provider_path("vrf-detail", name));
  }
  const std::string path = filter_path(name, request);
  kvtree::ListResult result = client.datalist(path, 1, request.structured);
  if (result.status) throw request_failure(session, result.status);
  if (result.items.empty()) return std::nullopt;
  return std::move(result.items[0].record);
}

Failure not_in_family(const VrfRequest& request) {
  return {kExitFailed, fmt::format("VRF {} has no {} table", printable(request.name), filter_text(request))};
}

}  // namespace cli
