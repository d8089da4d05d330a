#include "platform/router/interface_states/interface_states.h"

#include <string>

#include "platform/core/base/log.h"
#include "platform/core/text/numbers.h"
#include "platform/core/text/words.h"
#include "platform/router/interface_states/records.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/key_text.h"
#include "platform/store/tree/kvtree.h"

namespace interface_states {

namespace {

constexpr std::uint32_t kNameItem = 3;  // a key, as in the lists of VRFs

struct Provided {
  const router::Router* model = nullptr;
  KvConnection* connection = nullptr;
};
Provided provided_model;

std::string addresses_of(const router::Interface& interface) {
  std::string text;
  for (const router::Address& address : interface.addresses)
    text += (text.empty() ? "" : " ") + router::format_address(address);
  return text;
}

Status encode(const router::Interface* interface, KvReply* reply) {
  if (interface == nullptr) return kStatusNoSuchRow;
  auto name = std::string(interface->name);
  std::string vrf(interface->vrf);
  std::string description(interface->description);
  std::string addresses = addresses_of(*interface);
  const InterfaceState state{interface->handle,  interface->index,        name.data(),     vrf.data(),
                             description.data(), interface->up ? 1U : 0U, addresses.data()};
  reply->kind = kKvKindRecord;
  return parcel_encode(&kInterfaceStateParcel, &state, &reply->data, &reply->length);
}

Status get_by_name(std::string_view key, KvReply* reply) {
  std::string name;
  if (const Status status = kvtree::decode_key(key, &name)) return status;
  return encode(provided_model.model->find_interface_by_name(name), reply);
}

Status get_state(const KvRequest* request, KvReply* reply) {
  std::string_view path = kvtree_request_path(request);
  const std::string_view read = text::take_until(&path, '/');
  const router::Router& model = *provided_model.model;
  if (read == kName) return get_by_name(path, reply);
  if (read != kNext && read != kIndex) return kStatusUnknownPath;
  const std::optional<std::uint32_t> key = text::parse_number(path);
  if (!key) return kStatusBadKey;
  return encode(read == kNext ? model.interface_after(*key) : model.find_interface_by_index(*key), reply);
}

Status list_names(const KvRequest* request, KvListReply* reply) {
  std::string_view path = kvtree_request_path(request);
  if (text::take_until(&path, '/') != kName) return kStatusUnknownPath;
  std::string after;
  if (const Status status = kvtree::decode_key(path, &after)) return status;
  if (const Status status = kvtree_list_create(&reply->list)) return status;
  const router::Router& model = *provided_model.model;
  for (const auto* each = model.interface_after_name(after);
       each != nullptr && reply->count < reply->max_items; each = model.interface_after_name(each->name)) {
    const auto name = std::string(each->name);
    if (const Status status = kvtree_list_add(reply->list, name.c_str(), kNameItem, 0)) return status;
    ++reply->count;
  }
  return kStatusOk;
}

Status following(const KvReply* row, std::string* path) {
  InterfaceState state{};
  if (const Status status = parcel_decode(&kInterfaceStateParcel, row->data, row->length, &state))
    return status;
  *path = std::string(kNext) + "/" + std::to_string(state.handle);
  return parcel_free_indirections(&kInterfaceStateParcel, &state);
}

constexpr KvWalkRule kWalkRules[] = {{kNext, following}};

Status provide(EventManager* manager) {
  if (const Status status = kvtree_bind(&provided_model.connection, kProviderPath, kKvBindProvider))
    return status;
  KvProviderFunctions functions;
  if (const Status status = kvtree_init_prov_functions(&functions)) return status;
  functions.get = get_state;
  functions.list = list_names;
  functions.walk_rules = kWalkRules;
  functions.walk_rule_count = std::size(kWalkRules);
  return kvtree_register_prov2(provided_model.connection, "", manager, &functions, 0, 0);
}

}  // namespace

}  // namespace interface_states

Status interface_states_start(const router::Router* model, EventManager* manager) {
  interface_states::Provided& provided = interface_states::provided_model;
  if (provided.model != nullptr) return kStatusExists;
  provided.model = model;
  const Status status = interface_states::provide(manager);
  if (status != kStatusOk) interface_states_stop();
  return status;
}

void interface_states_stop() {
  interface_states::Provided& provided = interface_states::provided_model;
  if (provided.connection != nullptr) {
    if (const Status status = kvtree_unbind(provided.connection))
      log_error("kvtree", "%s is still provided: %s", interface_states::kProviderPath, err_text(status));
  }
  provided = {};
}
