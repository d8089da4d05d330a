// The callbacks have no argument of the client's, so their lines are in a vector of the program.
#include "platform/router/vmap/test_support.h"

#include <poll.h>

#include <utility>

namespace vmap {
namespace {

std::vector<std::string> lines;

const char* sign(VmapEvent kind) {
  return kind == VmapEvent::kUpdate ? "+" : "-";
}

}  // namespace

Membership::Membership() : manager_(event_manager_create("/dev/test/main", 0), event_manager_destroy) {
  lines.clear();
  vmap_attach(&router_);
  EXPECT_EQ(vmap_c_lib_init("test", manager_.get(), &NoteDrop, &client_), kStatusOk);
}

Membership::~Membership() {
  EndClient();
  vmap_attach(nullptr);
  fault_disarm_all();
}

void Membership::EndClient() {
  vmap_c_lib_end(client_);
  client_ = nullptr;
}

void Membership::AddVrf(const std::string& name, std::uint32_t id, std::uint32_t flags) {
  router::Vrf vrf = MakeVrf(name, id);
  vrf.flags = flags;
  RouterTest::AddVrf(vrf);
}

void Membership::SetFlags(const std::string& vrf, std::uint32_t flags) {
  router::Vrf changed = *router_.find_vrf(vrf);
  changed.flags = flags;
  ChangeVrf(changed);
}

void Membership::Connect() {
  Bind();
  ASSERT_EQ(vmap_c_mdb_init(client_, 2, &database_), kStatusOk);
  ASSERT_EQ(vmap_c_mdb_add_intf_all(database_, &NoteInterface, 40), kStatusOk);
  ASSERT_EQ(vmap_c_mdb_add_vrf_all(database_, &NoteVrf), kStatusOk);
  int fd = -1;
  ASSERT_EQ(vmap_c_notif_reg(database_, &fd, &num_results_), kStatusOk);
  EXPECT_EQ(fd, fd_);
}

bool Membership::HasHungUp() const {
  pollfd entry{fd_, 0, 0};
  return poll(&entry, 1, 0) == 1 && (entry.revents & POLLHUP) != 0;
}

void Membership::LoseConnection() {
  fault_arm("vmap_service", kStatusUnavailable, 1, 0);
  AddVrf("trigger", 99);
  DeleteVrf("trigger");
}

std::vector<std::string> Membership::Calls() {
  return std::exchange(lines, {});
}

int Membership::NoteDrop(void* /*client*/) {
  lines.push_back("closed");
  return 1;
}

void Membership::NoteVrf(VmapMemberDatabase* /*database*/, VmapEvent kind, const VmapVrfItem* item) {
  lines.push_back(std::string(sign(kind)) + "vrf " + item->vrf_name + ' ' + std::to_string(item->vrf_id) +
                  (item->flags == 0 ? "" : " flags " + std::to_string(item->flags)));
}

void Membership::NoteInterface(VmapMemberDatabase* /*database*/, VmapEvent kind, const VmapIntfItem* item) {
  lines.push_back(std::string(sign(kind)) + "if " + std::to_string(item->ifh) + ' ' + item->vrf_name + ' ' +
                  std::to_string(item->vrf_id));
}

}  // namespace vmap
