// For the record service's tests: a router, an event loop that is stepped, and a client that writes a line
// for every callback and makes the access that a callback must make.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/service.h"
#include "platform/router/vtab/vtab.h"

namespace vtab {

struct TestAttributes {  // the client's block
  char* text;
  std::uint32_t number;
};

class Records : public router::RouterTest {
 protected:
  Records() : manager_(event_manager_create("/dev/test/main", 0), event_manager_destroy) {
    lines_.clear();
    vtab_attach(&router_);
    vmap_attach(&router_);
  }
  ~Records() override {
    vmap_attach(nullptr);
    vtab_attach(nullptr);
  }

  // --- the router ---
  void AddVrf(const std::string& name, std::uint32_t id, std::uint32_t ipv4_table = 0,
              std::uint32_t ipv6_table = 0) {
    router::Vrf vrf = MakeVrf(name, id);
    vrf.ipv4_table = ipv4_table;
    vrf.ipv6_table = ipv6_table;
    RouterTest::AddVrf(vrf);
  }
  void Reference(const std::string& name) { ASSERT_EQ(router_.reference_vrf(name), kStatusOk); }
  void Unreference(const std::string& name) { ASSERT_EQ(router_.unreference_vrf(name), kStatusOk); }
  // With an address of each family, so that its states depend on the link.
  void AddUsableInterface(const std::string& name, std::uint32_t index, const std::string& vrf = "default") {
    AddInterface(name, index, vrf);
    AddAddress(name, "10.0.0.1/24");
    AddAddress(name, "fe80::1/64");
  }
  void AddAddress(const std::string& name, const std::string& address) {
    router::Interface interface = Current(name);
    interface.addresses.push_back(AddressOf(address));
    ChangeInterface(interface);
  }
  void ReplaceFirstAddress(const std::string& name, const std::string& address) {
    router::Interface interface = Current(name);
    std::vector<router::Address> addresses = interface.addresses.values();
    addresses.at(0) = AddressOf(address);
    interface.addresses = addresses;
    ChangeInterface(interface);
  }
  void RemoveAddresses(const std::string& name) {
    router::Interface interface = Current(name);
    interface.addresses = {};
    ChangeInterface(interface);
  }
  void SetLink(const std::string& name, bool up) {
    router::Interface interface = Current(name);
    interface.up = up;
    ChangeInterface(interface);
  }

  // --- the client ---
  void StartClient() {
    ASSERT_EQ(vtab_init("test", manager_.get(), 0, sizeof(TestAttributes), 1, 3), kStatusOk);
    ASSERT_EQ(vtab_specify_if_callback(&NoteInterface), kStatusOk);
    ASSERT_EQ(vtab_specify_vrf_callback(&NoteVrf), kStatusOk);
    ASSERT_EQ(vtab_reg_vrf_attributes("all", 3, 0x87, "default", 1), kStatusOk);
    ASSERT_EQ(vtab_reg_if_attributes("all-if", "all", 3, 1, "default", 0x221, 0), kStatusOk);
  }
  void Run() { event_run_pending(manager_.get()); }
  static std::vector<std::string> Calls() { return std::exchange(lines_, {}); }  // since the last call
  std::vector<std::string> Delivered() {  // those, after what is pending was delivered
    Run();
    return Calls();
  }
  static std::string StatesOf(const std::string& name) {  // "up down": IPv4, IPv6
    const VtabIfRecord* record = vtab_get_if_record(name.c_str());
    if (record == nullptr) return "none";
    const auto text = [](std::uint32_t state) { return state == kVtabStateUp ? "up" : "down"; };
    return std::string(text(record->ipv4_state)) + ' ' + text(record->ipv6_state);
  }
  static VtabVrfRecord* Find(const std::string& name) {
    return vtab_get_vrf_record_by_vrf_name(name.c_str());
  }
  static TestAttributes* AttributesOf(VtabVrfRecord* record) {
    return static_cast<TestAttributes*>(record->attributes);
  }
  static std::vector<std::string> VrfWalk() {  // "red=10", in the order of the records
    std::vector<std::string> walk;
    for (auto* record = vtab_get_first_vrf_record(); record != nullptr;
         record = vtab_get_next_vrf_record(record)) {
      walk.push_back(std::string(record->vrf_name) + '=' + std::to_string(record->vrf_id));
    }
    return walk;
  }
  static std::vector<std::string> InterfaceWalk() {  // "ge0=7"
    std::vector<std::string> walk;
    for (auto* record = vtab_get_first_if_record(); record != nullptr;
         record = vtab_get_next_if_record(record)) {
      walk.push_back(record->if_name + "=" + std::to_string(record->if_index));
    }
    return walk;
  }
  static std::vector<std::string> TableWalk(const std::string& vrf) {
    std::vector<std::string> walk;
    for (auto* table = vtab_get_first_table_record_by_vrf_name(vrf.c_str()); table != nullptr;
         table = vtab_get_next_table_record_by_vrf_name(vrf.c_str(), table)) {
      EXPECT_EQ(table->vrf_name, vrf);
      walk.push_back(std::to_string(table->afi) + '/' + std::to_string(table->safi) + ' ' +
                     table->table_name + ' ' + std::to_string(table->table_id));
    }
    return walk;
  }

  static void Note(const std::string& line) { lines_.push_back(line); }
  // The client's callbacks: "vrf red 10 event 1", "if ge0 in red changes 1 1 record ge0".
  static Status NoteVrf(const char* vrf_name) {
    VtabVrfRecord* record = nullptr;
    std::uint32_t event = 0;
    std::uint32_t unused = 0;
    const std::string line = std::string("vrf ") + vrf_name;
    if (Status status = vtab_lock_begin_access_vrf_record(vrf_name, &record, &event, &unused)) {
      Note(line + " refused " + std::to_string(status));
      return status;
    }
    Note(record == nullptr ? line + " no record"
                           : line + ' ' + std::to_string(record->vrf_id) + " event " + std::to_string(event));
    return record == nullptr ? kStatusOk : vtab_unlock_end_access_vrf_record(record);
  }
  static Status NoteInterface(const char* if_name, const char* vrf_name) {
    VtabIfRecord* record = nullptr;
    std::uint32_t ipv4 = 0;
    std::uint32_t ipv6 = 0;
    std::uint32_t unused[2] = {};
    const std::string line = std::string("if ") + if_name;
    if (Status status = vtab_lock_begin_access_if_record(if_name, vrf_name, &record, &ipv4, &ipv6, &unused[0],
                                                         &unused[1])) {
      Note(line + " refused " + std::to_string(status));
      return status;
    }
    Note(line + " in " + vrf_name + " changes " + std::to_string(ipv4) + ' ' + std::to_string(ipv6) +
         " record " + (record == nullptr ? "none" : record->if_name.c_str()));
    return record == nullptr ? kStatusOk : vtab_unlock_end_access_if_record(vrf_name, record);
  }

  static inline std::vector<std::string> lines_;  // the callbacks have no argument of the client's
  TestRunDirectory directory_;
  std::unique_ptr<EventManager, void (*)(EventManager*)> manager_;
};

// Records that are deleted and not freed.
inline std::size_t removed_count() {
  return service().vrfs.removed_count();
}

}  // namespace vtab
