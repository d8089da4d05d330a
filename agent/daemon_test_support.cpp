// The child registers a provider like the daemon's, with the same paths and the same walk rule, over a
// computed table.
#include "agent/daemon_test_support.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/records/pack.h"
#include "platform/core/evm/evm.h"
#include "platform/core/files/directories.h"
#include "platform/store/client/client.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/kvtree.h"

namespace agent_test {
namespace {

constexpr const char* kManager = "/dev/mpls/vpn/main";
std::uint32_t row_count = 0;
KvConnection* provider_connection = nullptr;

Status encode(const ParcelDescription& description, const void* record, KvReply* reply) {
  reply->kind = kKvKindRecord;
  return parcel_encode(&description, record, &reply->data, &reply->length);
}

Status get_scalars(KvReply* reply, const RequestArgs*) {
  const mpls_vpn_mib_scalars record = {1, 1, row_count, 0, 0, 0};
  return encode(kMibScalarsParcel, &record, reply);
}

Status get_interface(KvReply* reply, const RequestArgs* args) {
  if (kvtree_absent(args, 0) || kvtree_absent(args, 1)) return kStatusArgumentMissing;
  const std::string vrf = args->arg[0].text;
  std::uint32_t index = *args->arg[1].number;
  const bool before = vrf.size() < 3 || (vrf.size() == 3 && vrf < "RED");
  if (before || index == 0) index = 1;
  if ((!before && vrf != "RED") || index > row_count) return kStatusNoSuchRow;
  std::string name = "ge" + std::to_string(index);
  std::string red = "RED";
  const mpls_vpn_mib_interface record = {name.data(), static_cast<std::int32_t>(index), 2, 0x40, 5, 1,
                                         red.data()};
  return encode(kMibInterfaceParcel, &record, reply);
}

Status following_interface(const KvReply* row, std::string* path) {
  mpls_vpn_mib_interface record{};
  if (const Status status = parcel_decode(&kMibInterfaceParcel, row->data, row->length, &record))
    return status;
  *path = "interface-next/RED/" + std::to_string(record.ifConfIndex + 1);
  return parcel_free_indirections(&kMibInterfaceParcel, &record);
}

const std::array<KvPathRow, 2> kPaths = {
    KvPathRow{"scalars", {0, nullptr, get_scalars, nullptr, nullptr}},
    KvPathRow{"interface-next/<s>/<n>", {kKvModeNext, nullptr, get_interface, nullptr, nullptr}}};
const KvPathTable kTable = {kPaths.data(), kPaths.size()};
const KvWalkRule kWalkRule = {"interface-next", following_interface};
const std::array<KvColumnRule, 2> kColumnRules = {
    KvColumnRule{"scalars", mib::pack_reply<mib::Scalars, kMibScalarsParcel, mib::kScalarColumns>},
    KvColumnRule{"interface-next",
                 mib::pack_reply<mib::Interface, kMibInterfaceParcel, mib::kInterfaceColumns>}};

Status match(const KvRequest* request, KvReply* reply) {
  return kvtree_match_get(request, &kTable, reply);
}

bool register_provider(EventManager* manager) {
  KvProviderFunctions functions{};
  if (kvtree_init_prov_functions(&functions) != kStatusOk) return false;
  functions.get = match;
  functions.walk_rules = &kWalkRule;
  functions.walk_rule_count = 1;
  functions.column_rules = kColumnRules.data();
  functions.column_rule_count = kColumnRules.size();
  return kvtree_bind(&provider_connection, "/oper/mpls_vpn/gl/", kKvBindProvider) == kStatusOk &&
         kvtree_register_prov2(provider_connection, "", manager, &functions, 0, 1) == kStatusOk;
}

// "trap TYPE VRF IFINDEX COUNT": raises COUNT traps, whose current routes count from 1 and so identify them.
Status raise_traps(const KvActionContext&, const std::vector<std::string>& words, std::string*, void*) {
  std::string vrf = words.at(2);
  mpls_vpn_mib_trap trap{};
  trap.trapType = static_cast<std::uint32_t>(std::stoul(words.at(1)));
  trap.vrfName = vrf.data();
  trap.ifConfIndex = std::stoi(words.at(3));
  trap.vrfOperStatus = 1;
  trap.ifConfRowStatus = 1;
  for (std::uint32_t i = 1; i <= std::stoul(words.at(4)); ++i) {
    trap.currNumRoutes = i;
    KvReply reply{};
    if (const Status status = encode(kMibTrapParcel, &trap, &reply)) return status;
    const KvProviderNotification notification{"trap_msg", 2, kKvKindRecord, {}, reply.data, reply.length};
    const Status status = kvtree_prov_notify(provider_connection, &notification);
    std::free(reply.data);
    if (status != kStatusOk) return status;
  }
  return kStatusOk;
}

// Sends a notification that is not a trap record.
Status raise_nonsense(const KvActionContext&, const std::vector<std::string>&, std::string*, void*) {
  const std::uint8_t data[] = {1, 2, 3};
  const KvProviderNotification notification{"trap_msg", 2, kKvKindRecord, {}, data, sizeof data};
  return kvtree_prov_notify(provider_connection, &notification);
}

bool retain_traps(const std::string& file) {
  return kvtree_retain_notifications("/oper/mpls_vpn/gl/", "snmp", kTrapLimit, file) == kStatusOk &&
         kvtree_register_action("trap", raise_traps, nullptr) == kStatusOk &&
         kvtree_register_action("nonsense", raise_nonsense, nullptr) == kStatusOk;
}

// The child: never returns. Writes one octet to `ready` when it serves.
[[noreturn]] void serve(const std::string& directory, bool provider, const std::string& trap_file,
                        int ready) {
  setenv("MPLS_VPN_MIB_RUN_DIR", directory.c_str(), 1);
  EventManager* const manager = event_manager_create(kManager, 0);
  if (manager == nullptr || kvtree_serve(manager) != kStatusOk) _exit(1);
  if (provider && (!register_provider(manager) || !retain_traps(trap_file))) _exit(2);
  if (write(ready, "r", 1) != 1) _exit(3);
  while (true) event_run_pending(manager, 1'000'000'000);
}

}  // namespace

DaemonProcess::~DaemonProcess() {
  Kill();
}

void DaemonProcess::Start(std::uint32_t rows, bool provider) {
  row_count = rows;
  std::array<int, 2> ready{};
  ASSERT_EQ(pipe(ready.data()), 0);
  pid_ = fork();
  ASSERT_GE(pid_, 0);
  if (pid_ == 0) serve(directory_.path(), provider, trap_file_, ready[1]);
  close(ready[1]);
  char octet = 0;
  EXPECT_EQ(read(ready[0], &octet, 1), 1) << "the data store did not start";
  close(ready[0]);
}

void DaemonProcess::RaiseTraps(std::uint32_t type, const std::string& vrf, std::uint32_t index,
                               std::uint32_t count) {
  Do({"trap", std::to_string(type), vrf, std::to_string(index), std::to_string(count)});
}

void DaemonProcess::RaiseNonsense() {
  Do({"nonsense"});
}

void DaemonProcess::Do(const std::vector<std::string>& words) {
  kvtree::Client client(socket_, std::chrono::milliseconds(5000));
  ASSERT_EQ(client.connect(), kStatusOk);
  EXPECT_EQ(client.action(words).status, kStatusOk);
}

void DaemonProcess::Kill() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

void DaemonProcess::Hang() {
  kill(pid_, SIGSTOP);
  int status = 0;
  EXPECT_EQ(waitpid(pid_, &status, WUNTRACED), pid_);
}

void DaemonProcess::GoOn() {
  kill(pid_, SIGCONT);
}

}  // namespace agent_test
