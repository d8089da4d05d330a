// For the membership service's tests: a router, an event loop that is stepped, and a client that writes a
// line for every call.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vmap/vmap.h"

namespace vmap {

class Membership : public router::RouterTest {
 protected:
  Membership() : manager_(event_manager_create("/dev/test/main", 0), event_manager_destroy) {
    lines_.clear();
    vmap_attach(&router_);
    EXPECT_EQ(vmap_c_lib_init("test", manager_.get(), &NoteDrop, &client_), kStatusOk);
  }
  ~Membership() override {
    EndClient();
    vmap_attach(nullptr);
    fault_disarm_all();
  }

  // --- the router ---
  void AddVrf(const std::string& name, std::uint32_t id, std::uint32_t flags = 0) {
    router::Vrf vrf = MakeVrf(name, id);
    vrf.flags = flags;
    RouterTest::AddVrf(vrf);
  }
  void SetFlags(const std::string& vrf, std::uint32_t flags) {
    router::ChangeVrf(&router_, vrf, &router::Vrf::flags, flags);
  }
  // With the next free index.
  void AddInterface(const std::string& name, const std::string& vrf) {
    RouterTest::AddInterface(name, ++last_index_, vrf);
  }

  // --- the client ---
  void Connect() {  // bind, member database, both subscriptions, registration
    Bind();
    ASSERT_EQ(vmap_c_mdb_init(client_, 2, &database_), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_add_intf_all(database_, &NoteInterface, 40), kStatusOk);
    ASSERT_EQ(vmap_c_mdb_add_vrf_all(database_, &NoteVrf), kStatusOk);
    int fd = -1;
    ASSERT_EQ(vmap_c_notif_reg(database_, &fd, &num_results_), kStatusOk);
    EXPECT_EQ(fd, fd_);
  }
  void ConnectQuietly() {
    Connect();
    Calls();
  }
  void Bind() { ASSERT_EQ(vmap_c_bind(client_, &fd_), kStatusOk); }
  void Unbind() { ASSERT_EQ(vmap_c_unbind(client_), kStatusOk); }
  void EndClient() {
    vmap_c_lib_end(client_);
    client_ = nullptr;
  }
  void Run() { event_run_pending(manager_.get()); }
  bool HasHungUp() const {
    pollfd entry{fd_, 0, 0};
    return poll(&entry, 1, 0) == 1 && (entry.revents & POLLHUP) != 0;
  }
  // The service fails at a change, and until faults are disarmed it refuses to bind.
  void LoseConnection() {
    fault_arm("vmap_service", kStatusUnavailable, 1, 0);
    AddVrf("trigger", 99);
    DeleteVrf("trigger");
  }
  // The calls of the callbacks since the last one: "+vrf red 10", "-if 1 red 10", ...
  static std::vector<std::string> Calls() { return std::exchange(lines_, {}); }

  // Those, after what is pending was delivered.
  std::vector<std::string> Delivered() {
    Run();
    return Calls();
  }

  static int NoteDrop(void* /*client*/) {
    lines_.emplace_back("closed");
    return 1;
  }
  static void NoteVrf(VmapMemberDatabase* /*database*/, VmapEvent kind, const VmapVrfItem* item) {
    lines_.push_back(Sign(kind) + "vrf " + item->vrf_name + ' ' + std::to_string(item->vrf_id) +
                     (item->flags == 0 ? "" : " flags " + std::to_string(item->flags)));
  }
  static void NoteInterface(VmapMemberDatabase* /*database*/, VmapEvent kind, const VmapIntfItem* item) {
    lines_.push_back(Sign(kind) + "if " + std::to_string(item->ifh) + ' ' + item->vrf_name + ' ' +
                     std::to_string(item->vrf_id));
  }
  static std::string Sign(VmapEvent kind) { return kind == VmapEvent::kUpdate ? "+" : "-"; }

  static inline std::vector<std::string> lines_;  // the callbacks have no argument of the client's
  TestRunDirectory directory_;
  std::unique_ptr<EventManager, void (*)(EventManager*)> manager_;
  std::uint32_t last_index_ = 0;
  VmapClient* client_ = nullptr;
  VmapMemberDatabase* database_ = nullptr;
  int fd_ = -1;
  std::uint32_t num_results_ = 0;
};

}  // namespace vmap
