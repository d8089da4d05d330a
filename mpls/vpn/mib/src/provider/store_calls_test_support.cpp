// The calls of the data store that the daemon makes, recorded with their arguments.
#include <initializer_list>
#include <sstream>

#include "mpls/vpn/mib/src/provider/provider_test_support.h"

// --wrap in the build file puts these in the place of the data store's, which does not use every argument.
Status real_bind(KvConnection** connection, const char* path,
                 std::uint32_t mode) __asm__("__real__Z11kvtree_bindPP12KvConnectionPKcj");
Status noted_bind(KvConnection** connection, const char* path,
                  std::uint32_t mode) __asm__("__wrap__Z11kvtree_bindPP12KvConnectionPKcj");
Status real_unbind(KvConnection* connection) __asm__("__real__Z13kvtree_unbindP12KvConnection");
Status noted_unbind(KvConnection* connection) __asm__("__wrap__Z13kvtree_unbindP12KvConnection");
Status
real_provide(KvConnection* connection, const char* path, EventManager* manager, const KvProviderFunctions* functions, std::uint32_t first, std::uint32_t second) __asm__(
    "__real__Z21kvtree_register_prov2P12KvConnectionPKcP12EventManagerPK19KvProviderFunctionsjj");
Status
noted_provide(KvConnection* connection, const char* path, EventManager* manager, const KvProviderFunctions* functions, std::uint32_t first, std::uint32_t second) __asm__(
    "__wrap__Z21kvtree_register_prov2P12KvConnectionPKcP12EventManagerPK19KvProviderFunctionsjj");
Status
real_subscribe(KvConnection* connection, const char* path, std::uint32_t events, KvNotificationEntry entry, EventManager* manager, std::uint32_t first, std::uint32_t second, std::uint32_t third, KvRegistration** registration) __asm__(
    "__real__Z28kvtree_register_notificationP12KvConnectionPKcjPFvPK14KvNotificationEP12EventManagerjjjPP14"
    "KvRegistration");
Status
noted_subscribe(KvConnection* connection, const char* path, std::uint32_t events, KvNotificationEntry entry, EventManager* manager, std::uint32_t first, std::uint32_t second, std::uint32_t third, KvRegistration** registration) __asm__(
    "__wrap__Z28kvtree_register_notificationP12KvConnectionPKcjPFvPK14KvNotificationEP12EventManagerjjjPP14"
    "KvRegistration");

std::vector<std::string> store_calls;

namespace {

void note(const char* call, const std::string& path, std::initializer_list<std::uint32_t> numbers) {
  std::ostringstream line;
  line << call << " \"" << path << '"';
  for (const std::uint32_t number : numbers) line << ' ' << number;
  store_calls.push_back(line.str());
}

}  // namespace

Status noted_bind(KvConnection** connection, const char* path, std::uint32_t mode) {
  note("bind", path, {mode});
  return real_bind(connection, path, mode);
}

Status noted_unbind(KvConnection* connection) {
  note("unbind", "", {});
  return real_unbind(connection);
}

Status noted_provide(KvConnection* connection, const char* path, EventManager* manager,
                     const KvProviderFunctions* functions, std::uint32_t first, std::uint32_t second) {
  note("provide", path, {first, second});
  return real_provide(connection, path, manager, functions, first, second);
}

Status noted_subscribe(KvConnection* connection, const char* path, std::uint32_t events,
                       KvNotificationEntry entry, EventManager* manager, std::uint32_t first,
                       std::uint32_t second, std::uint32_t third, KvRegistration** registration) {
  note("subscribe", path, {events, first, second, third});
  return real_subscribe(connection, path, events, entry, manager, first, second, third, registration);
}
