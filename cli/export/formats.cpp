#include "cli/export/formats.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

#include "cli/output/json_list.h"

namespace cli {

namespace {

// --- NAPALM: the result of get_network_instances(), and the route targets, which it lacks -----------

Json napalm_instance(const char* type, const VpnInstance& instance) {
  Json interfaces = Json::object();
  for (const std::string& name : instance.interfaces) interfaces[name] = Json::object();
  return {{"name", instance.name},
          {"type", type},
          {"state", {{"route_distinguisher", instance.rd}}},
          {"interfaces", {{"interface", interfaces}}},
          {"route_targets", {{"import", instance.imports}, {"export", instance.exports}}}};
}

// One that reads it looks for "default", which has what is in no VRF.
void write_napalm(const VpnInstances& instances, std::ostream& out) {
  Json all = Json::object();
  all["default"] =
      napalm_instance("DEFAULT_INSTANCE", {.name = "default", .interfaces = instances.unassigned});
  for (const VpnInstance& vrf : instances.vrfs) all[vrf.name] = napalm_instance("L3VRF", vrf);
  out << json_line(all) << '\n';
}

// --- NetBox: objects for /api/ipam/route-targets/ and /api/ipam/vrfs/ --------------------------------

constexpr std::size_t kLongestDescription = 200;  // that NetBox accepts; a comment has no limit

Json netbox_vrf(const VpnInstance& vrf) {
  const bool is_long = vrf.description.size() > kLongestDescription;
  return {{"name", vrf.name},
          {"rd", text_or_null(vrf.rd)},
          {"description", is_long ? "" : vrf.description},
          {"comments", is_long ? vrf.description : ""},
          {"import_targets", vrf.imports},
          {"export_targets", vrf.exports}};
}

void write_netbox(const VpnInstances& instances, std::ostream& out) {
  std::set<std::string> names;
  Json vrfs = Json::array();
  for (const VpnInstance& vrf : instances.vrfs) {
    names.insert(vrf.imports.begin(), vrf.imports.end());
    names.insert(vrf.exports.begin(), vrf.exports.end());
    vrfs.push_back(netbox_vrf(vrf));
  }
  Json targets = Json::array();
  for (const std::string& name : names) targets.push_back({{"name", name}});
  out << json_line({{"route_targets", targets}, {"vrfs", vrfs}}) << '\n';
}

// --- CSV (RFC 4180) -----------------------------------------------------------------------------------

std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char octet : text) quoted.append(octet == '"' ? 2 : 1, octet);
  return quoted + '"';
}

void write_csv_row(const std::vector<std::string>& texts, std::ostream& out) {
  const char* separator = "";
  for (const std::string& text : texts) {
    out << separator << csv_field(text);
    separator = ",";
  }
  out << "\r\n";
}

// No route target and no name of a link has a blank.
std::string csv_list(const std::vector<std::string>& texts) {
  return fmt::format("{}", fmt::join(texts, " "));
}

void write_csv(const VpnInstances& instances, std::ostream& out) {
  write_csv_row({"name", "rd", "description", "import_targets", "export_targets", "interfaces"}, out);
  for (const VpnInstance& vrf : instances.vrfs)
    write_csv_row({vrf.name, vrf.rd, vrf.description, csv_list(vrf.imports), csv_list(vrf.exports),
                   csv_list(vrf.interfaces)},
                  out);
}

constexpr ExportFormat kFormats[] = {
    {"napalm", true, write_napalm},
    {"netbox", true, write_netbox},
    {"csv", false, write_csv},
};

}  // namespace

const ExportFormat* find_export_format(const std::string& name) {
  const auto found = std::ranges::find(kFormats, name, &ExportFormat::name);
  return found == std::end(kFormats) ? nullptr : found;
}

std::vector<std::string> export_formats() {
  std::vector<std::string> names;
  for (const ExportFormat& format : kFormats) names.emplace_back(format.name);
  return names;
}

}  // namespace cli
