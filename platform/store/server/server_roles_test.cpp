// What peers of each group may request.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/wire/wire.h"
#include "platform/store/server/protocol.h"
#include "platform/store/server/server.h"
#include "platform/store/server/test_served_store.h"

namespace {

using ::testing::ElementsAre;

wire::FoundGroup find_role_group(const std::string& name) {
  return {kStatusOk, name == "mpls_vpn_agent" ? gid_t{702} : gid_t{701}};
}

// Requests of peers that are in the administrators' group 701, in the agents' 702, or in neither.
class PeersOfAnotherUser : public ServedStore {
 protected:
  PeersOfAnotherUser() {
    wire::forget_groups();
    EXPECT_EQ(kvtree_retain_notifications("/oper/mpls_vpn/gl/", "snmp", 4), kStatusOk);
    Add("get", kvtree::kGet, [](wire::Writer* to) { to->u8(0), to->text("/oper/mpls_vpn/gl/scalars"); });
    Add("walk", kvtree::kWalk,
        [](wire::Writer* to) { to->u8(0), to->u32(1), to->text("/oper/mpls_vpn/gl/scalars"); });
    Add("subscribe", kvtree::kSubscribe, [](wire::Writer* to) { to->text("/oper/mpls_vpn/"), to->text(""); });
    Add("subscribe by name", kvtree::kSubscribe,
        [](wire::Writer* to) { to->text("/oper/mpls_vpn/gl/"), to->text("snmp"); });
    Add("nodes", kvtree::kNodes,
        [](wire::Writer* to) { to->u32(1), to->text("/cfg/"), to->text(""), to->text(""); });
    Add("history", kvtree::kHistory, [](wire::Writer* to) { to->u32(1), to->text(""); });
    Add("changes", kvtree::kCommitChanges, [](wire::Writer* to) { to->text("1"), to->u32(0), to->u32(1); });
    Add("action", kvtree::kAction, [](wire::Writer* to) { to->u16(1), to->text("act"); });
    Add("stage", kvtree::kStage, [](wire::Writer* to) { to->u8(0), to->u32(0); });
    Add("commit", kvtree::kCommit, [](wire::Writer* to) { to->u32(0), to->text(""); });
    Add("confirmation", kvtree::kConfirmation, [](wire::Writer*) {});
    Add("confirm", kvtree::kConfirm, [](wire::Writer* to) { to->text(""); });
  }
  ~PeersOfAnotherUser() override {
    wire::find_group = former_;
    wire::forget_groups();
  }

  // The requests that a peer of this group is refused.
  std::vector<std::string> RefusedTo(gid_t group) {
    std::array<int, 2> pair{-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair.data()), 0);
    wire::Server& server = kvtree::the_server()->server;
    server.adopt(pair[1], {60001, group, 0, {}});
    wire::Connection* connection = nullptr;
    server.for_each([&](wire::Connection& each) { connection = &each; });
    std::vector<std::string> refused;
    for (const Request& request : requests_) {
      if (StatusOf(*connection, pair[0], request) == kStatusAccess) refused.push_back(request.name);
    }
    close(pair[0]);
    return refused;
  }

 private:
  struct Request {
    std::string name;
    std::uint16_t type;
    wire::Octets payload;
  };
  // A commit is answered later, on the loop.
  Status StatusOf(wire::Connection& connection, int peer, const Request& request) const {
    EXPECT_TRUE(kvtree::the_server()->handle(connection, {request.type, 1, request.payload})) << request.name;
    wire::Octets octets(1U << 20);
    ssize_t size = 0;
    while ((size = read(peer, octets.data(), octets.size())) < 0 && errno == EAGAIN)
      event_run_pending(manager, kNanosecondsPerMillisecond);
    wire::Message answer;
    std::size_t used = 0;
    EXPECT_EQ(wire::parse_frame({octets.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0))},
                                octets.size(), &answer, &used),
              kStatusOk)
        << request.name;
    return wire::Reader(answer.payload).u32();
  }
  void Add(const char* name, std::uint16_t type, void (*write)(wire::Writer*)) {
    requests_.push_back({name, type, {}});
    wire::Writer writer(&requests_.back().payload);
    write(&writer);
  }
  std::vector<Request> requests_;
  wire::FindGroup former_ = std::exchange(wire::find_group, &find_role_group);
};

TEST_F(PeersOfAnotherUser, ReadersReadAndSubscribeWithoutAName) {
  EXPECT_THAT(RefusedTo(60001), ElementsAre("subscribe by name", "stage", "commit", "confirm"));
}

TEST_F(PeersOfAnotherUser, AgentsReadTablesAndReceiveNotificationsAndNothingElse) {
  EXPECT_THAT(RefusedTo(702), ElementsAre("nodes", "history", "changes", "action", "stage", "commit",
                                          "confirmation", "confirm"));
}

TEST_F(PeersOfAnotherUser, AdministratorsAreRefusedNothing) {
  EXPECT_THAT(RefusedTo(701), ElementsAre());
}

}  // namespace
