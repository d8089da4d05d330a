// The loader of the routing table's modules: one record per module with its file, its handle and its two
// symbols, set by the first request. A daemon without the modules serves everything but routes, and each
// request tries again.
#include "mpls/vpn/mib/src/route/modules.h"

#include <dlfcn.h>

#include <string>
#include <vector>

#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/support/errmsg.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "platform/core/base/fault.h"
#include "platform/core/files/directories.h"

namespace {

struct RouteModule {
  const char* file;      // below the library directory
  const char* family;    // as prints show it: the two modules' prints differ in it and in the function alone
  const char* function;  // the loading one
  void* handle = nullptr;
  void* find_route = nullptr;
  void* total_active_routes = nullptr;
  std::string failure{};  // why it could not be loaded; empty while it is, and before the first attempt
};

RouteModule ipv4_module = {"mib/libipv4_forwardmib.dll", "ipv4", "mpls_vpn_mib_rib_ipv4_route_load_dll"};
RouteModule ipv6_module = {"mib/libipv6_forwardmib.dll", "ipv6", "mpls_vpn_mib_rib_ipv6_route_load_dll"};

// The loader's reason for its latest failure on this thread, without the path that it usually begins with.
std::string loader_failure(const std::string& path) {
  const char* text = dlerror();
  const std::string reason = text == nullptr ? "no reason is known" : text;
  return reason.starts_with(path) ? reason : path + ": " + reason;
}

std::string path_of(const RouteModule& module) {
  return library_directory() + "/" + module.file;
}

bool open_module(RouteModule* module) {
  if (module->handle != nullptr) return true;
  const std::string path = path_of(*module);
  Status rc = fault_check("dlopen");
  if (rc == kStatusOk) {
    module->handle = dlopen(path.c_str(), RTLD_LAZY);
    rc = kStatusNoRouteModule;
  }
  if (module->handle != nullptr) return true;
  module->failure = rc == kStatusNoRouteModule ? loader_failure(path) : path + ": " + err_text(rc);
  errmsg_post(&ERR_DLL_LOAD, module->file);
  mpls_vpn_trace(kTraceError, rc, "%s: cannot load %s", module->function, module->failure.c_str());
  return false;
}

bool find_symbol(RouteModule* module, const char* name, void** symbol) {
  if (*symbol != nullptr) return true;
  if (fault_check("dlsym") == kStatusOk) *symbol = dlsym(module->handle, name);
  if (*symbol != nullptr) return true;
  module->failure = path_of(*module) + ": no symbol " + name;
  mpls_vpn_trace(kTraceError, kStatusNoRouteModule, "%s: no symbol %s in %s", module->function, name,
                 module->file);
  return false;
}

bool find_symbols(RouteModule* module) {
  if (!find_symbol(module, kForwardmibFindRouteSymbol, &module->find_route)) {
    errmsg_post(&ERR_DLL_SYMBOL_ERROR, kForwardmibFindRouteSymbol, module->file);
    return false;
  }
  if (!find_symbol(module, kForwardmibTotalActiveRoutesSymbol, &module->total_active_routes)) {
    // Deliberate: file and symbol in this order; log filters match the message.
    errmsg_post(&ERR_DLL_SYMBOL_ERROR, module->file, kForwardmibTotalActiveRoutesSymbol);
    return false;
  }
  return true;
}

void unload(RouteModule* module) {
  if (module->handle != nullptr && dlclose(module->handle) != 0) {
    mpls_vpn_trace(kTraceError, kStatusInvalid, "cannot unload %s", module->file);
  }
  module->handle = nullptr;
  module->find_route = nullptr;
  module->total_active_routes = nullptr;
}

// A module that lacks a symbol is closed again, so that the next request finds the one that replaced it.
bool load(RouteModule* module) {
  if (!open_module(module)) return false;
  if (!find_symbols(module)) {
    unload(module);
    return false;
  }
  module->failure.clear();
  mpls_vpn_debug(RIB, "%s: Successfully load %s RIB dll", module->function, module->family);
  return true;
}

std::uint32_t active_routes(RouteModule* module, const char* function, std::uint32_t table_id) {
  mpls_vpn_debug(RIB, "Entering %s with table_id = 0x%x", function, table_id);
  if (!load(module)) {
    mpls_vpn_debug(RIB, "%s: Load %s RIB dll failed", function, module->family);
    return 0;
  }
  return reinterpret_cast<ForwardmibTotalActiveRoutes>(module->total_active_routes)(table_id);
}

}  // namespace

bool mpls_vpn_mib_rib_ipv4_route_load_dll() {
  return load(&ipv4_module);
}
bool mpls_vpn_mib_rib_ipv6_route_load_dll() {
  return load(&ipv6_module);
}

ForwardmibFindIpv4Route mpls_vpn_mib_rib_ipv4_find_route() {
  return reinterpret_cast<ForwardmibFindIpv4Route>(ipv4_module.find_route);
}
ForwardmibFindIpv6Route mpls_vpn_mib_rib_ipv6_find_route() {
  return reinterpret_cast<ForwardmibFindIpv6Route>(ipv6_module.find_route);
}

std::uint32_t mpls_vpn_mib_ipv4_unicast_active_routes(std::uint32_t table_id) {
  return active_routes(&ipv4_module, __func__, table_id);
}
std::uint32_t mpls_vpn_mib_ipv6_unicast_active_routes(std::uint32_t table_id) {
  return active_routes(&ipv6_module, __func__, table_id);
}

std::vector<std::string> mpls_vpn_mib_route_module_failures() {
  std::vector<std::string> failures;
  for (const RouteModule* module : {&ipv4_module, &ipv6_module}) {
    if (!module->failure.empty()) failures.push_back(module->failure);
  }
  return failures;
}

void mpls_vpn_mib_route_modules_end() {
  for (RouteModule* module : {&ipv4_module, &ipv6_module}) {
    unload(module);
    module->failure.clear();
  }
}
