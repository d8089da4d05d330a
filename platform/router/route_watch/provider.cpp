// Answers with the records of watched VRFs.
#include <algorithm>
#include <vector>

#include "platform/core/text/words.h"
#include "platform/router/route_watch/records.h"
#include "platform/router/route_watch/service.h"
#include "platform/store/tree/key_text.h"

namespace route_watch {
namespace {

const Service*& provided_service() {
  static const Service* service = nullptr;
  return service;
}

std::vector<WatchedTableRecord> tables_of(const WatchedVrf& vrf) {
  std::vector<WatchedTableRecord> records;
  for (std::size_t family = 0; family < kFamilies; ++family) {
    const WatchedTable& table = vrf.table(family);
    const bool is_unread = table.unread_since != 0;
    if (!table.is_configured() && !is_unread) continue;
    records.push_back({static_cast<std::uint32_t>(family + 1),
                       WatchedVrf::routes_of(provided_service()->model(), vrf.name(), family), table.low,
                       table.hold, table.is_low ? 1U : 0U, table.changed, table.mid, table.maximum,
                       is_unread ? 1U : 0U, seconds_unread(table)});
  }
  return records;
}

Status encode(const WatchedVrf& vrf, KvReply* reply) {
  std::vector<WatchedTableRecord> tables = tables_of(vrf);
  std::vector<std::string> texts;
  std::vector<WatchedPrefixRecord> prefixes;
  const auto listed = static_cast<std::size_t>(std::min<std::uint64_t>(vrf.waiting_count(), kMostPrefixes));
  texts.reserve(vrf.prefix_count() + listed);
  vrf.for_each_prefix([&](const router::Address& prefix, const WatchedPrefix& watched) {
    texts.push_back(router::format_address(prefix));
    const bool is_unread = vrf.table(prefix.family == router::Family::kIpv4 ? 0 : 1).unread_since != 0;
    prefixes.push_back(
        {texts.back().data(), watched.is_present ? 1U : 0U, watched.changed, 1, is_unread ? 1U : 0U});
  });
  vrf.for_each_waiting(listed, [&](const router::Address& prefix) {
    texts.push_back(router::format_address(prefix));
    prefixes.push_back({texts.back().data(), 0, 0, 0, 0});
  });
  std::string name = vrf.name();
  const WatchedVrfRecord record{name.data(),
                                {tables.size(), tables.data()},
                                {prefixes.size(), prefixes.data()},
                                static_cast<std::uint32_t>(vrf.waiting_count())};
  reply->kind = kKvKindRecord;
  return parcel_encode(&kWatchedVrfParcel, &record, &reply->data, &reply->length);
}

// The absent key is before all names.
Status get_vrf(const KvRequest* request, KvReply* reply) {
  std::string_view path = kvtree_request_path(request);
  if (text::take_until(&path, '/') != kVrfNext) return kStatusUnknownPath;
  std::string name;
  if (kvtree::decode_key(path, &name) != kStatusOk) return kStatusBadKey;
  const WatchedVrf* vrf = provided_service()->after(name);
  return vrf == nullptr ? kStatusNoSuchRow : encode(*vrf, reply);
}

Status following(const KvReply* row, std::string* path) {
  WatchedVrfRecord record{};
  if (const Status status = parcel_decode(&kWatchedVrfParcel, row->data, row->length, &record)) return status;
  *path = std::string(kVrfNext) + "/" + kvtree_encode_text(record.vrf);
  return parcel_free_indirections(&kWatchedVrfParcel, &record);
}

constexpr KvWalkRule kWalkRules[] = {{kVrfNext, following}};

}  // namespace

Status provide(Service* service, EventManager* manager, KvConnection** connection) {
  provided_service() = service;
  if (const Status status = kvtree_bind(connection, kProviderPath, kKvBindProvider)) return status;
  KvProviderFunctions functions;
  if (const Status status = kvtree_init_prov_functions(&functions)) return status;
  functions.get = get_vrf;
  functions.walk_rules = kWalkRules;
  functions.walk_rule_count = std::size(kWalkRules);
  return kvtree_register_prov2(*connection, "", manager, &functions, 0, 0);
}

}  // namespace route_watch
