// For the record service's tests: a router, an event loop that is stepped, and a client that writes a line
// for every callback and makes the access that a callback must make.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vtab/vtab.h"

namespace vtab {

struct TestAttributes {  // the client's block
  char* text;
  std::uint32_t number;
};

class Records : public router::RouterTest {
 protected:
  Records();
  ~Records() override;

  // --- the router ---
  void AddVrf(const std::string& name, std::uint32_t id, std::uint32_t ipv4_table = 0,
              std::uint32_t ipv6_table = 0);
  void Reference(const std::string& name) { ASSERT_EQ(router_.reference_vrf(name), kStatusOk); }
  void Unreference(const std::string& name) { ASSERT_EQ(router_.unreference_vrf(name), kStatusOk); }
  // With an address of each family, so that its states depend on the link.
  void AddUsableInterface(const std::string& name, std::uint32_t index, const std::string& vrf = "default");
  void AddAddress(const std::string& name, const std::string& address);
  void RemoveAddresses(const std::string& name);
  void SetLink(const std::string& name, bool up);

  // --- the client ---
  void StartClient();
  void Run() { event_run_pending(manager_.get()); }
  static std::vector<std::string> Calls();  // since the last call
  std::vector<std::string> Delivered() {    // those, after what is pending was delivered
    Run();
    return Calls();
  }
  static std::string StatesOf(const std::string& name);  // "up down": IPv4, IPv6
  static VtabVrfRecord* Find(const std::string& name) {
    return vtab_get_vrf_record_by_vrf_name(name.c_str());
  }
  static TestAttributes* AttributesOf(VtabVrfRecord* record) {
    return static_cast<TestAttributes*>(record->attributes);
  }
  static std::vector<std::string> VrfWalk();        // "red=10", in the order of the records
  static std::vector<std::string> InterfaceWalk();  // "ge0=7"
  static std::vector<std::string> TableWalk(const std::string& vrf);

  TestRunDirectory directory_;
  std::unique_ptr<EventManager, void (*)(EventManager*)> manager_;
};

void note_line(const std::string& line);  // adds a line to those of the callbacks
// The client's callbacks: "vrf red 10 event 1", "if ge0 in red changes 1 1 record ge0".
Status note_vrf(const char* vrf_name);
Status note_interface(const char* if_name, const char* vrf_name);

}  // namespace vtab
