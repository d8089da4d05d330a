// The callbacks have no argument of the client's, so their lines are in a vector of the program.
#include "platform/router/vtab/test_support.h"

#include <utility>

#include "platform/router/vmap/vmap.h"

namespace vtab {
namespace {

std::vector<std::string> lines;

}  // namespace

Records::Records() : manager_(event_manager_create("/dev/test/main", 0), event_manager_destroy) {
  lines.clear();
  vtab_attach(&router_);
  vmap_attach(&router_);
}

Records::~Records() {
  vmap_attach(nullptr);
  vtab_attach(nullptr);
}

void Records::AddVrf(const std::string& name, std::uint32_t id, std::uint32_t ipv4_table,
                     std::uint32_t ipv6_table) {
  router::Vrf vrf = MakeVrf(name, id);
  vrf.ipv4_table = ipv4_table;
  vrf.ipv6_table = ipv6_table;
  RouterTest::AddVrf(vrf);
}

void Records::AddUsableInterface(const std::string& name, std::uint32_t index, const std::string& vrf) {
  AddInterface(name, index, vrf);
  AddAddress(name, "10.0.0.1/24");
  AddAddress(name, "fe80::1/64");
}

void Records::RemoveAddresses(const std::string& name) {
  router::Interface interface = Current(name);
  interface.addresses.clear();
  ChangeInterface(interface);
}

void Records::AddAddress(const std::string& name, const std::string& address) {
  router::Interface interface = Current(name);
  ASSERT_TRUE(router::parse_address(address, &interface.addresses.emplace_back()));
  ChangeInterface(interface);
}

void Records::SetLink(const std::string& name, bool up) {
  router::Interface interface = Current(name);
  interface.up = up;
  ChangeInterface(interface);
}

void Records::StartClient() {
  ASSERT_EQ(vtab_init("test", manager_.get(), 0, sizeof(TestAttributes), 1, 3), kStatusOk);
  ASSERT_EQ(vtab_specify_if_callback(&note_interface), kStatusOk);
  ASSERT_EQ(vtab_specify_vrf_callback(&note_vrf), kStatusOk);
  ASSERT_EQ(vtab_reg_vrf_attributes("all", 3, 0x87, "default", 1), kStatusOk);
  ASSERT_EQ(vtab_reg_if_attributes("all-if", "all", 3, 1, "default", 0x221, 0), kStatusOk);
}

std::vector<std::string> Records::Calls() {
  return std::exchange(lines, {});
}

std::string Records::StatesOf(const std::string& name) {
  const VtabIfRecord* record = vtab_get_if_record(name.c_str());
  if (record == nullptr) return "none";
  const auto text = [](std::uint32_t state) { return state == kVtabStateUp ? "up" : "down"; };
  return std::string(text(record->ipv4_state)) + ' ' + text(record->ipv6_state);
}

std::vector<std::string> Records::VrfWalk() {
  std::vector<std::string> walk;
  for (auto* record = vtab_get_first_vrf_record(); record != nullptr;
       record = vtab_get_next_vrf_record(record)) {
    walk.push_back(std::string(record->vrf_name) + '=' + std::to_string(record->vrf_id));
  }
  return walk;
}

std::vector<std::string> Records::InterfaceWalk() {
  std::vector<std::string> walk;
  for (auto* record = vtab_get_first_if_record(); record != nullptr;
       record = vtab_get_next_if_record(record)) {
    walk.push_back(std::string(record->if_name) + '=' + std::to_string(record->if_index));
  }
  return walk;
}

std::vector<std::string> Records::TableWalk(const std::string& vrf) {
  std::vector<std::string> walk;
  for (auto* table = vtab_get_first_table_record_by_vrf_name(vrf.c_str()); table != nullptr;
       table = vtab_get_next_table_record_by_vrf_name(vrf.c_str(), table)) {
    EXPECT_EQ(table->vrf_name, vrf);
    walk.push_back(std::to_string(table->afi) + '/' + std::to_string(table->safi) + ' ' + table->table_name +
                   ' ' + std::to_string(table->table_id));
  }
  return walk;
}

void note_line(const std::string& line) {
  lines.push_back(line);
}

Status note_vrf(const char* vrf_name) {
  VtabVrfRecord* record = nullptr;
  std::uint32_t event = 0;
  std::uint32_t unused = 0;
  if (Status status = vtab_lock_begin_access_vrf_record(vrf_name, &record, &event, &unused)) {
    lines.push_back(std::string("vrf ") + vrf_name + " refused " + std::to_string(status));
    return status;
  }
  if (record == nullptr) {
    lines.push_back(std::string("vrf ") + vrf_name + " no record");
    return kStatusOk;
  }
  lines.push_back(std::string("vrf ") + record->vrf_name + ' ' + std::to_string(record->vrf_id) + " event " +
                  std::to_string(event));
  return vtab_unlock_end_access_vrf_record(record);
}

Status note_interface(const char* if_name, const char* vrf_name) {
  VtabIfRecord* record = nullptr;
  std::uint32_t ipv4 = 0;
  std::uint32_t ipv6 = 0;
  std::uint32_t unused[2] = {};
  if (Status status = vtab_lock_begin_access_if_record(if_name, vrf_name, &record, &ipv4, &ipv6, &unused[0],
                                                       &unused[1])) {
    lines.push_back(std::string("if ") + if_name + " refused " + std::to_string(status));
    return status;
  }
  lines.push_back(std::string("if ") + if_name + " in " + vrf_name + " changes " + std::to_string(ipv4) +
                  ' ' + std::to_string(ipv6) + " record " + (record == nullptr ? "none" : record->if_name));
  return record == nullptr ? kStatusOk : vtab_unlock_end_access_if_record(vrf_name, record);
}

}  // namespace vtab
