// For tests of the times of VRFs across restarts of the daemon.
#pragma once

#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/base/memory.h"
#include "platform/core/chkpt/chkpt.h"

inline constexpr std::uint32_t kTimesSize = 8;

class VrfCheckpoint : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    // Prints of one area at a time make the order of the others' no concern of these tests.
    OnlyArea(CHKPT);
  }

  // The store as any program may open it that has the daemon's number and name. REQUIRES: the daemon has not.
  ChkptTable* OpenStore() {
    ChkptApplication application;
    chkpt_application_init(&application, 1235, "mpls_vpn");
    EXPECT_EQ(chkpt_init(&application, manager_), kStatusOk);
    ChkptTableDescriptor descriptor;
    chkpt_table_init(&descriptor, 1, 1, 0, 1, 0);
    ChkptTable* table = nullptr;
    bool had_contents = false;
    EXPECT_EQ(chkpt_register(&descriptor, 100, &table, &had_contents), kStatusOk);
    return table;
  }
  void Write(std::uint32_t vrf_id, const std::string& octets) {
    ChkptTable* table = OpenStore();
    std::uint64_t object_id = 0;
    EXPECT_EQ(chkpt_create(table, &vrf_id, sizeof vrf_id, &object_id), kStatusOk);
    EXPECT_EQ(chkpt_save(table, object_id, octets.data(), octets.size()), kStatusOk);
    chkpt_end();
  }
  // What is in the store, "vrf_id: creation time, last-changed time", the times relative to the start.
  std::vector<std::string> Stored() {
    mpls_vpn_mib_chkpt_end();
    ChkptTable* table = OpenStore();
    std::vector<std::string> lines;
    ChkptIterator* iterator = nullptr;
    EXPECT_EQ(chkpt_iterate_start(table, &iterator), kStatusOk);
    for (;;) {
      std::uint32_t vrf_id = 0;
      std::array<std::uint32_t, 2> times{};
      std::size_t key_size = sizeof vrf_id;
      std::size_t size = sizeof times;
      std::uint64_t object_id = 0;
      EXPECT_EQ(chkpt_iterate_next(iterator, &vrf_id, &key_size, times.data(), &size, &object_id), kStatusOk);
      if (object_id == 0) break;
      EXPECT_EQ(key_size, sizeof vrf_id);
      EXPECT_EQ(size, kTimesSize);
      lines.push_back(std::to_string(vrf_id) + ": " + Relative(times[0]) + ", " + Relative(times[1]));
    }
    EXPECT_EQ(chkpt_iterate_end(iterator), kStatusOk);
    chkpt_end();
    EXPECT_EQ(mpls_vpn_mib_chkpt_init(manager_), kStatusOk);
    return lines;
  }
  static std::string Relative(std::uint32_t seconds) {
    return seconds == 0 ? "none" : "+" + std::to_string(seconds - kStartSeconds);
  }
  // As Stored(), from the attribute block.
  std::string TimesOf(const char* vrf) {
    const mpls_vpn_vrf_attr* attributes = AttributesOf(vrf);
    return Relative(attributes->creation_time) + ", " + Relative(attributes->conf_last_changed_time);
  }
  Status Save(const char* vrf) {
    const VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf);
    return mpls_vpn_mib_chkpt_vrf_save(record->vrf_id, record);
  }
  Status Delete(const char* vrf) {
    return mpls_vpn_mib_chkpt_vrf_delete(vtab_get_vrf_record_by_vrf_name(vrf));
  }
  // "red" has a record; from here on this area is printed. Returns the VRF's id.
  std::uint32_t SaveRed(MplsVpnDebugArea area = ERR) {
    const std::uint32_t id = AddVrf("red");
    Connect();
    OnlyArea(area);
    return id;
  }
  static constexpr char kAdd[] = "mpls_vpn_mib_chkpt_gen_add";
  static constexpr char kRestoreVrf[] = "mpls_vpn_mib_chkpt_restore_vrf";
};
