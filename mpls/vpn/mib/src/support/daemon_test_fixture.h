// For tests: the daemon's databases on the real platform services, fed by a router model that the test
// changes.
//
// Each test has directories, an event manager, a clock and a router of its own. SetUp does what start-up does
// up to the record service: trace buffers, databases, checkpoint (a first run), record service; Connect()
// opens the membership connection; RestartDaemon() does all of it again on what the first run left. All debug
// areas are on, and Prints() is their output since the last ClearPrints(). Run() delivers what is pending.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "mpls/vpn/mib/src/attributes/attributes.h"
#include "mpls/vpn/mib/src/attributes/record_service.h"
#include "mpls/vpn/mib/src/checkpoint/checkpoint.h"
#include "mpls/vpn/mib/src/interface/cached_ifindex.h"
#include "mpls/vpn/mib/src/interface/database.h"
#include "mpls/vpn/mib/src/membership/connection.h"
#include "mpls/vpn/mib/src/membership/membership.h"
#include "mpls/vpn/mib/src/mpls_vpn_debug.h"
#include "mpls/vpn/mib/src/route_target/database.h"
#include "mpls/vpn/mib/src/support/mutex.h"
#include "mpls/vpn/mib/src/support/trace.h"
#include "mpls/vpn/mib/src/vrf/database.h"
#include "platform/config/owners.h"
#include "platform/core/base/clock.h"
#include "platform/core/base/fault.h"
#include "platform/core/evm/evm.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/files/directories.h"
#include "platform/router/bgp_vpn/bgp_vpn.h"
#include "platform/router/ifindex/ifindex.h"
#include "platform/router/model/router.h"
#include "platform/router/qic/qic.h"
#include "platform/router/services/services.h"
#include "platform/router/vmap/vmap.h"
#include "platform/router/vtab/vtab.h"
#include "platform/store/tree/kvtree.h"

// Printed lines. front() and back() of an empty list fail the test and return the empty text.
class SaidLines : public std::vector<std::string> {
 public:
  const std::string& front() const { return End(&vector::front); }
  const std::string& back() const { return End(&vector::back); }

 private:
  const std::string& End(const_reference (vector::*which)() const) const {
    static const std::string nothing;
    if (!empty()) return (this->*which)();
    ADD_FAILURE() << "nothing was said";
    return nothing;
  }
};

class DaemonTest : public testing::Test {
 protected:
  static constexpr std::uint32_t kStartSeconds = 1'700'000'000;

  void SetUp() override {
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(1);
    debug_capture(&prints_);
    manager_ = event_manager_create("/dev/mpls/vpn/main", 0x70000004);
    ASSERT_NE(manager_, nullptr);
    ASSERT_EQ(vrf_config::register_configuration(), kStatusOk);
    router_services_attach(&router_);
    ASSERT_EQ(mpls_vpn_trace_init(), kStatusOk);
    StartDatabases();
    ClearPrints();
  }

  void TearDown() override {
    fault_disarm_all();
    EndDatabases();
    router_services_attach(nullptr);
    mpls_vpn_trace_end();
    event_manager_destroy(manager_);
    debug_capture(nullptr);
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
  }

  // --- The router

  // Its id and table ids are the next free number. Returns the id.
  std::uint32_t AddVrf(const std::string& name, std::uint32_t flags = 0, const std::string& rd = "") {
    router::Vrf vrf;
    vrf.name = name;
    vrf.id = ++last_vrf_id_;
    vrf.ipv4_table = vrf.ipv6_table = vrf.id;
    vrf.flags = flags;
    vrf.rd = rd;
    EXPECT_EQ(router_.create_vrf(vrf), kStatusOk) << name;
    return vrf.id;
  }
  void SetVrfFlags(std::string_view name, std::uint32_t flags) {
    const router::Vrf* present = router_.find_vrf(name);
    ASSERT_NE(present, nullptr) << name;
    router::Vrf changed = *present;
    changed.flags = flags;
    EXPECT_EQ(router_.change_vrf(changed), kStatusOk) << name;
  }
  void DeleteVrf(std::string_view name) { EXPECT_EQ(router_.delete_vrf(name), kStatusOk) << name; }
  // Named by configuration only.
  void NameVrf(std::string_view name) { EXPECT_EQ(router_.reference_vrf(name), kStatusOk) << name; }

  // Down, without addresses; in the VRF, if one is given. Returns the handle.
  std::uint32_t AddInterface(const std::string& name,
                             const std::string& vrf = std::string(router::kDefaultVrf)) {
    router::Interface interface;
    interface.name = name;
    interface.index = ++last_if_index_;
    interface.vrf = vrf;
    std::uint32_t handle = 0;
    EXPECT_EQ(router_.add_interface(interface, &handle), kStatusOk) << name;
    return handle;
  }
  void RemoveInterface(std::string_view name) {
    EXPECT_EQ(router_.remove_interface(HandleOf(name)), kStatusOk) << name;
  }
  void Join(std::string_view name, std::string_view vrf) {
    EXPECT_EQ(router_.move_interface(HandleOf(name), vrf), kStatusOk) << name;
  }
  void Leave(std::string_view name) { Join(name, router::kDefaultVrf); }
  void LinkUp(std::string_view name) { SetLink(name, true); }
  void LinkDown(std::string_view name) { SetLink(name, false); }
  static router::Address AddressOf(std::string_view text) {
    router::Address address;
    EXPECT_TRUE(router::parse_address(text, &address)) << text;
    return address;
  }
  void AddAddress(std::string_view name, std::string_view text) {
    std::vector<router::Address> addresses = InterfaceOf(name).addresses.values();
    addresses.push_back(AddressOf(text));
    SetAddresses(name, addresses);
  }
  void SetAddresses(std::string_view name, const std::vector<router::Address>& addresses) {
    router::Interface changed = InterfaceOf(name);
    changed.addresses = addresses;
    EXPECT_EQ(router_.change_interface(changed), kStatusOk) << name;
  }
  // In the place of all that it had, in one change.
  void SetOnlyAddress(std::string_view name, std::string_view text) { SetAddresses(name, {AddressOf(text)}); }
  void Rename(std::string_view name, const std::string& to) {
    router::Interface changed = InterfaceOf(name);
    changed.name = to;
    EXPECT_EQ(router_.change_interface(changed), kStatusOk) << name;
  }
  void SetIndex(std::string_view name, std::uint32_t index) {
    router::Interface changed = InterfaceOf(name);
    changed.index = index;
    EXPECT_EQ(router_.change_interface(changed), kStatusOk) << name;
  }
  router::Interface InterfaceOf(std::string_view name) const {
    const router::Interface* interface = router_.find_interface_by_name(name);
    EXPECT_NE(interface, nullptr) << name;
    return interface == nullptr ? router::Interface{} : *interface;
  }
  std::uint32_t HandleOf(std::string_view name) const { return InterfaceOf(name).handle; }
  // "0x1f", as prints show handles and ids.
  static std::string Hex(std::uint32_t number) {
    std::ostringstream text;
    text << "0x" << std::hex << number;
    return text.str();
  }
  std::uint32_t IndexOf(std::string_view name) const { return InterfaceOf(name).index; }

  // --- The daemon

  // Opens the membership connection; what exists is in the databases afterwards.
  void Connect() {
    ASSERT_EQ(mpls_vpn_mib_vmap_register_for_notification(manager_), kStatusOk);
    Run();
  }
  // The daemon ends, and another one starts on the same router and the same directories. What happened in
  // between is done by `meanwhile`.
  void RestartDaemon(const std::function<void()>& meanwhile = [] {}) {
    EndDatabases();
    meanwhile();
    StartDatabases();
    Reconnect();
    if (mpls_vpn_mib_chkpt_first_run() == 0) {
      EXPECT_EQ(mpls_vpn_mib_chkpt_restore(), kStatusOk);
      mpls_vpn_mib_chkpt_save_missing();
    }
    Run();
  }
  // What RestartDaemon() connects to, with the initial scan's flag up.
  virtual void Reconnect() {
    backend_scan_in_progress = 1;
    EXPECT_EQ(mpls_vpn_mib_vmap_register_for_notification(manager_), kStatusOk);
    backend_scan_in_progress = 0;
  }
  void Run() {
    while (event_run_pending(manager_)) {
    }
  }
  // The names in the VRF database, in its order.
  static std::vector<std::string> VrfNames() {
    std::vector<std::string> names;
    for (VrfNode* node = mpls_vpn_mib_vrf_dbase_first(); node != nullptr;
         node = mpls_vpn_mib_vrf_dbase_next(node)) {
      names.emplace_back(node->vrf_name);
    }
    return names;
  }
  // Straight into the interface database, without the membership service.
  IfNode* CreateIf(const char* vrf, std::uint32_t index, const char* name, std::uint32_t handle) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) return nullptr;
    return mpls_vpn_mib_create_if_wavl_node(vrf, index, name, handle);
  }
  int DeleteIf(IfNode* node) {
    const MplsVpnLock lock(__func__, ERR);
    if (!lock) return -1;
    return mpls_vpn_mib_delete_if_wavl_node(node);
  }
  // The database mutex, for tests in which it is held. The thread-safety analysis ignores these two.
  static void TakeMutex() MPLS_NO_THREAD_SAFETY_ANALYSIS { EXPECT_EQ(mpls_vpn_mutex.lock(), kStatusOk); }
  static void ReleaseMutex() MPLS_NO_THREAD_SAFETY_ANALYSIS { EXPECT_EQ(mpls_vpn_mutex.unlock(), kStatusOk); }
  mpls_vpn_vrf_attr* AttributesOf(const char* vrf) {
    VtabVrfRecord* record = vtab_get_vrf_record_by_vrf_name(vrf);
    EXPECT_NE(record, nullptr) << vrf;
    return record == nullptr ? nullptr : mpls_vpn_vrf_attributes(record);
  }
  // Seconds that the platform clock shows.
  std::uint32_t Now() const { return static_cast<std::uint32_t>(clock_stamp() / kNanosecondsPerSecond); }
  void PassSeconds(std::uint32_t seconds) { clock_.advance(seconds * kNanosecondsPerSecond); }
  // From now on work that reads the clock takes this time for each reading.
  void LetReadingsTake(std::uint64_t nanoseconds) { clock_.tick(nanoseconds); }
  void PassMilliseconds(std::uint32_t milliseconds) {
    clock_.advance(milliseconds * (kNanosecondsPerSecond / 1000));
  }

  // --- Prints and traces

  SaidLines Prints() const {
    SaidLines lines;
    std::istringstream stream(prints_);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }
  void ClearPrints() { prints_.clear(); }
  bool Printed(const std::string& line) const { return TimesPrinted(line) != 0; }
  std::size_t TimesPrinted(const std::string& line) const {
    std::size_t times = 0;
    for (const std::string& printed : Prints()) times += printed == line ? 1 : 0;
    return times;
  }
  // Leaves only this area's flag on and clears what was printed: the next prints are that area's.
  void OnlyArea(MplsVpnDebugArea area) {
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(0);
    mpls_vpn_debug_flags[area].enabled.store(1);
    ClearPrints();
  }
  // The print of mpls_vpn_error().
  static std::string Failure(const std::string& function, const std::string& what, Status status) {
    return "Error in " + function + ": " + what + ": " + err_text(status);
  }
  void OnlyProviderAndErrors() {
    OnlyArea(PROV);
    mpls_vpn_debug_flags[ERR].enabled.store(1);
  }
  // The act, during which the fault point fails once.
  static void WithFault(std::string_view point, Status status, const std::function<void()>& act) {
    const ScopedFault fault(point, status);
    act();
  }
  // The act prints this line while `area` alone is on, and does not while all others are. It is done twice;
  // all areas are on afterwards.
  void ExpectUnder(MplsVpnDebugArea area, const std::string& line, const std::function<void()>& act) {
    OnlyArea(area);
    act();
    EXPECT_TRUE(Printed(line)) << line;
    for (DebugFlag& flag : mpls_vpn_debug_flags) flag.enabled.store(1);
    mpls_vpn_debug_flags[area].enabled.store(0);
    ClearPrints();
    act();
    EXPECT_FALSE(Printed(line)) << line;
    mpls_vpn_debug_flags[area].enabled.store(1);
  }
  // The texts in a trace buffer ("mpls_vpn/vtab"), oldest first, and the code of the last one.
  SaidLines Traced(const std::string& buffer, Status* last_code = nullptr) const {
    std::vector<TraceEntry> entries;
    EXPECT_EQ(trace_read(run_directory(), buffer, &entries), kStatusOk) << buffer;
    SaidLines texts;
    for (const TraceEntry& entry : entries) texts.push_back(entry.text);
    if (last_code != nullptr && !entries.empty()) *last_code = entries.back().code;
    return texts;
  }
  // The last failure that was traced.
  void ExpectErrorTraced(const std::string& text, Status code) const {
    Status traced = kStatusOk;
    EXPECT_EQ(Traced("mpls_vpn/error", &traced).back(), text);
    EXPECT_EQ(traced, code);
  }

  router::Router router_;
  EventManager* manager_ = nullptr;

 private:
  void StartDatabases() {
    ASSERT_EQ(mpls_vpn_mib_vrf_dbase_init(), kStatusOk);
    ASSERT_EQ(mpls_vpn_mib_if_dbase_init(), kStatusOk);
    ASSERT_EQ(mpls_vpn_mib_rt_dbase_init(), kStatusOk);
    ASSERT_EQ(mpls_vpn_mib_chkpt_init(manager_), kStatusOk);
    ASSERT_EQ(mpls_vpn_mib_vtab_init(manager_), kStatusOk);
  }
  // The record service frees the blocks, and not what their texts point to.
  static void FreeTexts() {
    for (VtabVrfRecord* record = vtab_get_first_vrf_record(); record != nullptr;
         record = vtab_get_next_vrf_record(record)) {
      mpls_vpn_free_attribute_texts(mpls_vpn_vrf_attributes(record));
    }
  }
  void EndDatabases() {
    FreeTexts();
    mpls_vpn_mib_vmap_end();
    mpls_vpn_cached_ifindex_end();
    mpls_vpn_interface_name_end();
    mpls_vpn_mib_rt_dbase_end();
    mpls_vpn_mib_if_dbase_end();
    mpls_vpn_mib_vrf_dbase_end();
    vtab_attach(&router_);
    mpls_vpn_mib_chkpt_end();
  }
  void SetLink(std::string_view name, bool up) {
    router::Interface changed = InterfaceOf(name);
    changed.up = up;
    EXPECT_EQ(router_.change_interface(changed), kStatusOk) << name;
  }

  TestRunDirectory directory_;
  ManualClock clock_{kStartSeconds * kNanosecondsPerSecond};
  std::string prints_;
  std::uint32_t last_vrf_id_ = 100;
  std::uint32_t last_if_index_ = 0;
};
