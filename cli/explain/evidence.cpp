#include "cli/explain/evidence.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>

#include "cli/doctor/check.h"
#include "cli/output/names.h"
#include "cli/show/route_lookup.h"
#include "cli/show/tables.h"
#include "cli/system/program.h"
#include "cli/vrf/vrf_lookup.h"
#include "mpls/vpn/mib/src/records/mib_constants.h"

namespace cli::explain {

namespace {

constexpr char kIpv4[] = "ipv4";
constexpr char kIpv6[] = "ipv6";
constexpr std::int32_t kUp = 1;  // mplsL3VpnVrfOperStatus
constexpr char kBgpProgram[] = "bgpd";

template <typename T>
std::unique_ptr<T> owned(T value) {
  return std::make_unique<T>(std::move(value));
}

std::optional<VrfFacts> read_vrf(const Session& session, const std::string& name) {
  const auto client = connect_to_daemon(session);
  const std::optional<kvtree::Octets> octets = find_vrf_row(session, *client, name);
  if (!octets) return std::nullopt;
  const Record<mpls_vpn_mib_vrf> row(session, provider_path("vrf", name), kMibVrfParcel, *octets);
  return VrfFacts{text_or_empty(row->rd), row->operStatus == kUp, row->currNumRoutes};
}

inet::Prefix prefix_of(const mpls_vpn_mib_route& row) {
  inet::Prefix prefix{{static_cast<inet::Family>(row.destType), {}}, row.mask};
  std::ranges::copy(octets_of(row.dest).first(inet::octets_of(prefix.address.family)),
                    prefix.address.octets.begin());
  return prefix;
}

// Of the type of a row.
const char* discarding_row(std::int32_t type) {
  const std::string name = name_of(mib::kRouteType, type);
  if (name == "blackhole") return "drops packets (blackhole)";
  return name == "reject" ? "rejects packets (reject)" : nullptr;
}

std::vector<MibRoute> read_mib_routes(const Session& session, const std::string& vrf, const Prefix& prefix) {
  const auto client = connect_to_daemon(session);
  std::vector<MibRoute> routes;
  const auto add = [&routes](const mpls_vpn_mib_route& row) {
    const auto octets = octets_of(row.nextHop);
    const bool has_hop = std::ranges::any_of(octets, [](std::uint8_t octet) { return octet != 0; });
    routes.push_back({prefix_of(row), has_hop ? address_text(octets) : "",
                      name_of(mib::kRouteProtocol, row.proto), discarding_row(row.type)});
  };
  find_routes(session, *client, vrf, prefix, {add});
  return routes;
}

void keep_longest(std::vector<kernel::KernelRoute>* routes) {
  std::uint8_t longest = 0;
  for (const kernel::KernelRoute& route : *routes) longest = std::max(longest, route.prefix_length);
  std::erase_if(*routes, [=](const auto& route) { return route.prefix_length != longest; });
}

bool is_selected(const std::vector<RibEntry>& entries, bool of_bgp) {
  return std::ranges::any_of(entries, [of_bgp](const RibEntry& entry) {
    return entry.is_selected && (entry.protocol == "bgp") == of_bgp;
  });
}

}  // namespace

void Evidence::narrow_to(const inet::Prefix& found) {
  route_ = Prefix{found};
  of_route_ = {};
}

const char* Evidence::family_name() const {
  return prefix().address.family == inet::Family::kIpv4 ? kIpv4 : kIpv6;
}

std::string Evidence::prefix_name() const {
  return is_of_address() ? inet::address_text(prefix().address) : inet::prefix_text(prefix());
}

std::string Evidence::of_family(const char* command) const {
  const char* const words = prefix().address.family == inet::Family::kIpv4 ? "ip" : "ipv6";
  return fmt::format(fmt::runtime(command), words, request.vrf + " " + prefix_name());
}

std::string Evidence::of_bgp_vrf() const {
  return fmt::format("show bgp vrf {} {} unicast {}", request.vrf, family_name(), prefix_name());
}

std::string Evidence::configure(const doctor::SuiteFamily& family, const std::string& line) const {
  return fmt::format("{} -c 'configure terminal' -c {} -c 'address-family {}' -c '{}'", facts.suite.words(),
                     shell_word(family.instance), family.family, line);
}

template <typename Ask>
auto Evidence::patiently(Ask ask) {
  if (timeout_) throw Failure(*timeout_);
  const auto begun = std::chrono::steady_clock::now();
  try {
    return ask();
  } catch (const Failure& failure) {
    if (std::chrono::steady_clock::now() - begun >= facts.suite.patience()) timeout_ = failure;
    throw;
  }
}

Json Evidence::ask_json(const std::string& command) {
  return patiently([&] { return facts.suite.ask_json(command + " json"); });
}

void Evidence::require_device() {
  if (device() == nullptr) throw doctor::NotPossible("the kernel has no device of this VRF");
}

void Evidence::require_bgp() {
  require_device();
  const bool runs =
      runs_bgp_.get([this] { return patiently([this] { return owned(facts.suite.runs(kBgpProgram)); }); });
  if (!runs) throw Failure(kExitFailed, "bgpd does not run");
}

const doctor::SuiteConfiguration& Evidence::configuration() {
  return *patiently([this] { return &facts.suite_configuration(); });
}

const VrfFacts* Evidence::vrf() {
  const auto& found = vrf_.get([this] { return owned(read_vrf(facts.session, request.vrf)); });
  return found ? &*found : nullptr;
}

const std::vector<Target>& Evidence::targets() {
  const auto from_suite = [this] {
    require_device();
    return owned(targets_of(configuration()));
  };
  return targets_.get([&] {
    try {
      return from_suite();
    } catch (const Failure&) {
    } catch (const doctor::NotPossible&) {
    }
    return owned(mib_targets());
  });
}

const std::vector<Target>& Evidence::mib_targets() {
  return mib_targets_.get([this] { return owned(read_targets(facts.session)); });
}

const doctor::Vrf* Evidence::device() {
  const auto found = std::ranges::find(facts.vrfs(), request.vrf, &doctor::Vrf::name);
  return found == facts.vrfs().end() ? nullptr : &*found;
}

bool Evidence::is_configured() {
  return configuration().vrfs.contains(request.vrf);
}

const std::vector<BgpPath>& Evidence::vpn_paths() {
  require_bgp();
  return of_route_.vpn_paths.get([this] {
    auto paths = parse_vpn_paths(ask_json(fmt::format("show bgp {} vpn {}", family_name(), prefix_name())));
    std::erase_if(paths, [this](const BgpPath& path) {
      return path.neighbor.empty() && path.next_hop_vrf == request.vrf;
    });
    return owned(std::move(paths));
  });
}

const std::vector<BgpPath>& Evidence::vrf_paths() {
  require_bgp();
  return of_route_.vrf_paths.get([this] { return owned(parse_vrf_paths(ask_json(of_bgp_vrf()))); });
}

const std::vector<RibEntry>& Evidence::rib() {
  require_device();
  return of_route_.rib.get([this] { return owned(parse_rib(ask_json(of_family("show {} route vrf {}")))); });
}

const std::vector<RibEntry>& Evidence::core_routes() {
  const BgpPath* const used = path();
  if (used == nullptr || used->resolved().empty()) throw doctor::NotPossible("no path has a next hop");
  return of_route_.core_routes.get([this, used] {
    const std::string& to = used->resolved();
    const bool is_ipv6 = to.find(':') != std::string::npos;
    return owned(parse_rib(ask_json(fmt::format("show {} route {}", is_ipv6 ? "ipv6" : "ip", to))));
  });
}

const std::vector<kernel::KernelRoute>& Evidence::kernel_routes() {
  require_device();
  return of_route_.kernel_routes.get([this] {
    auto routes = facts.reader.routes(device()->table, [this](const kernel::KernelRoute& route) {
      return route.family == prefix().address.family && !route.cached &&
             (is_of_address() || route.prefix_length == prefix().length) &&
             inet::share_prefix(route.destination, prefix().address.octets, route.prefix_length);
    });
    keep_longest(&routes);
    return owned(std::move(routes));
  });
}

const std::vector<MibRoute>& Evidence::mib_routes() {
  return of_route_.mib_routes.get(
      [this] { return owned(read_mib_routes(facts.session, request.vrf, *route_)); });
}

const std::map<std::string, std::set<std::string>>& Evidence::exporters(const std::string& family) {
  require_bgp();
  return exporters_[family].get([&] {
    return patiently(
        [&] { return owned(parse_exporters(facts.suite.ask(fmt::format("show bgp {} vpn", family)))); });
  });
}

std::map<std::string, std::string> Evidence::sessions(const std::string& family) {
  require_bgp();
  return parse_sessions(ask_json(fmt::format("show bgp {} vpn summary", family)));
}

std::string Evidence::session_problem(const std::string& family) {
  std::map<std::string, std::string> found;
  try {
    found = sessions(family);
  } catch (const Failure& failure) {
    return fmt::format("; the sessions are unknown: {}", failure.what());
  }
  if (found.empty()) return fmt::format("; no neighbor is activated for {} vpn", family);
  std::string text;
  for (const auto& [neighbor, state] : found) {
    if (state != kEstablished)
      text += fmt::format("; the {} vpn session with {} is {}", family, neighbor, state);
  }
  return text;
}

std::vector<doctor::SuiteFamily> Evidence::families() {
  require_device();
  std::vector<doctor::SuiteFamily> of_vrf = configuration().families;
  std::erase_if(of_vrf, [this](const doctor::SuiteFamily& each) { return each.vrf != request.vrf; });
  return of_vrf;
}

const doctor::SuiteFamily* Evidence::configured_family() {
  require_device();
  const std::string family = fmt::format("{} unicast", family_name());
  const auto& families = configuration().families;
  const auto found = std::ranges::find_if(families, [&](const doctor::SuiteFamily& each) {
    return each.vrf == request.vrf && each.family == family;
  });
  return found == families.end() ? nullptr : &*found;
}

const doctor::SuiteFamily* Evidence::family_without_label() {
  require_device();
  for (const doctor::SuiteFamily& each : configuration().families) {
    if (each.vrf == request.vrf && each.exports && !each.has_label && !each.has_segment) return &each;
  }
  return nullptr;
}

bool Evidence::exports_with_labels() {
  require_device();
  return std::ranges::any_of(configuration().families, [this](const doctor::SuiteFamily& each) {
    return each.vrf == request.vrf && each.exports && each.has_label;
  });
}

const std::set<std::string>& Evidence::vpn_labels() {
  require_device();
  return vpn_labels_.get(
      [this] { return owned(parse_vpn_labels(ask_json("show mpls table"), request.vrf)); });
}

Origin Evidence::origin() {
  if (is_selected(rib(), false)) return Origin::kVrf;
  const auto& paths = vrf_paths();
  const auto is_of_vrf = [](const BgpPath& each) { return each.next_hop_vrf.empty(); };
  if (std::ranges::any_of(paths, [&](const BgpPath& each) { return each.is_best && is_of_vrf(each); }))
    return Origin::kVrf;
  if (importable() != nullptr || !std::ranges::all_of(paths, is_of_vrf)) return Origin::kVpn;
  if (!paths.empty() || !rib().empty()) return Origin::kInactive;
  if (!kernel_routes().empty()) return Origin::kVrf;  // the suite lacks local addresses
  return vpn_paths().empty() ? Origin::kNowhere : Origin::kOtherVpn;
}

const BgpPath* Evidence::importable() {
  const auto found =
      std::ranges::find_if(vpn_paths(), [this](const BgpPath& each) { return is_imported(each); });
  return found == vpn_paths().end() ? nullptr : &*found;
}

const BgpPath* Evidence::path() {
  const auto best = std::ranges::find_if(vrf_paths(), &BgpPath::is_best);
  if (best != vrf_paths().end()) return &*best;
  if (!vrf_paths().empty()) return &vrf_paths().front();
  return importable();
}

std::set<std::string> Evidence::own_targets(bool is_import) {
  return own_of(targets(), is_import);
}

std::set<std::string> Evidence::own_of(const std::vector<Target>& all, bool is_import) const {
  std::set<std::string> own;
  for (const Target& each : all) {
    const bool is_of_family = !route_ || each.family == family_name();
    if (each.vrf == request.vrf && each.is_import == is_import && is_of_family) own.insert(each.target);
  }
  return own;
}

std::string Evidence::difference_of_mib(bool is_import) {
  std::set<std::string> of_mib;
  try {
    of_mib = own_of(mib_targets(), is_import);
  } catch (const Failure&) {  // the link of the row has the reason
    return "";
  }
  if (of_mib == own_targets(is_import)) return "";
  return fmt::format("; the MIB differs: {}", list_of(of_mib));
}

bool Evidence::is_imported(const BgpPath& path) {
  const doctor::SuiteFamily* const family = configured_family();
  if (family != nullptr && path.is_of_this_router() && family->import_vrfs.contains(path.next_hop_vrf))
    return true;
  const std::set<std::string> imported = own_targets(true);
  return std::ranges::any_of(path.targets, [&](const auto& target) { return imported.contains(target); });
}

std::string list_of(const std::set<std::string>& names) {
  return names.empty() ? "none" : fmt::format("{}", fmt::join(names, " "));
}

}  // namespace cli::explain
