// For the membership service's tests: a router, an event loop that is stepped, and a client that writes a
// line for every call.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/core/base/fault.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/router/model/router_test_support.h"
#include "platform/router/vmap/vmap.h"

namespace vmap {

class Membership : public router::RouterTest {
 protected:
  Membership();
  ~Membership() override;

  // --- the router ---
  void AddVrf(const std::string& name, std::uint32_t id, std::uint32_t flags = 0);
  void SetFlags(const std::string& vrf, std::uint32_t flags);
  // With the next free index.
  void AddInterface(const std::string& name, const std::string& vrf) {
    RouterTest::AddInterface(name, ++last_index_, vrf);
  }

  // --- the client ---
  void Connect();  // bind, member database, both subscriptions, registration
  void Bind() { ASSERT_EQ(vmap_c_bind(client_, &fd_), kStatusOk); }
  void Unbind() { ASSERT_EQ(vmap_c_unbind(client_), kStatusOk); }
  void EndClient();
  void Run() { event_run_pending(manager_.get()); }
  bool HasHungUp() const;
  // The service fails at a change, and until RestoreService() it refuses to bind.
  void LoseConnection();
  static void RestoreService() { fault_disarm_all(); }
  // The calls of the callbacks since the last one: "+vrf red 10", "-if 1 red 10", ...
  static std::vector<std::string> Calls();

  static int NoteDrop(void* client);
  static void NoteVrf(VmapMemberDatabase* database, VmapEvent kind, const VmapVrfItem* item);
  static void NoteInterface(VmapMemberDatabase* database, VmapEvent kind, const VmapIntfItem* item);

  TestRunDirectory directory_;
  std::unique_ptr<EventManager, void (*)(EventManager*)> manager_;
  std::uint32_t last_index_ = 0;
  VmapClient* client_ = nullptr;
  VmapMemberDatabase* database_ = nullptr;
  int fd_ = -1;
  std::uint32_t num_results_ = 0;
};

}  // namespace vmap
