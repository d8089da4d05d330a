// Tests of the credentials and the roles of peers.
#include "platform/core/wire/peer.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/files/directories.h"
#include "platform/core/wire/wire.h"

using namespace std::chrono_literals;

namespace wire {
namespace {

TEST(PeerTest, OwnUserMayChange) {
  std::array<int, 2> pair{-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
  EXPECT_EQ(peer_role(read_peer(pair[0])), Role::kConfigure);
  ::close(pair[0]);
  ::close(pair[1]);
}

TEST(PeerTest, OtherDescriptorsMayNot) {
  EXPECT_EQ(peer_role(read_peer(STDERR_FILENO)), Role::kRead);
}

// A peer of another user, with these groups.
Role RoleOfAnotherUser(const std::vector<gid_t>& groups) {
  std::array<int, 2> pair{-1, -1};
  const TestRunDirectory directory;
  EventManager* manager = event_manager_create("/dev/peer", 0);
  EXPECT_EQ(chmod(event_manager_socket("/dev/peer").c_str(), 0666), 0);
  EXPECT_EQ(chmod(directory.path().c_str(), 0755), 0);
  int accepted = -1;
  event_set_acceptor(manager, [&](int fd) { accepted = fd; });
  EXPECT_EQ(pipe(pair.data()), 0);
  const pid_t child = fork();
  if (child == 0) {
    ClientSocket client;
    const bool ready = setgroups(groups.size(), groups.data()) == 0 && setgid(60001) == 0 &&
                       setuid(60001) == 0 &&
                       client.connect(event_manager_socket("/dev/peer"), 1000ms) == kStatusOk;
    char octet = 0;
    // Stay until the parent has looked.
    if (ready && read(pair[0], &octet, 1) == 1) _exit(0);
    _exit(1);
  }
  EXPECT_TRUE(event_run_pending(manager, 10'000'000'000));
  const Role result = peer_role(read_peer(accepted));
  EXPECT_EQ(write(pair[1], "x", 1), 1);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ::close(accepted);
  ::close(pair[0]);
  ::close(pair[1]);
  event_manager_destroy(manager);
  return result;
}

TEST(PeerTest, KernelReportsTheGroupsOfAnotherUser) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to become another user";
  const group* administrators = getgrnam("adm");
  ASSERT_NE(administrators, nullptr);
  const gid_t gid = administrators->gr_gid;
  setenv("MPLS_VPN_MIB_ADMIN_GROUP", "adm", 1);
  EXPECT_EQ(RoleOfAnotherUser({}), Role::kRead);
  EXPECT_EQ(RoleOfAnotherUser({60002}), Role::kRead);
  EXPECT_EQ(RoleOfAnotherUser({60002, gid}), Role::kConfigure);
  std::vector<gid_t> many(1000, 60002);
  many.push_back(gid);
  EXPECT_EQ(RoleOfAnotherUser(many), Role::kConfigure);
  setenv("MPLS_VPN_MIB_ADMIN_GROUP", "no_such_group", 1);
  setenv("MPLS_VPN_MIB_AGENT_GROUP", "adm", 1);
  EXPECT_EQ(RoleOfAnotherUser({60002, gid}), Role::kAgent);
  unsetenv("MPLS_VPN_MIB_ADMIN_GROUP");
  unsetenv("MPLS_VPN_MIB_AGENT_GROUP");
}

// In a user namespace without ids every user is the overflow user, this process's own as well.
TEST(PeerTest, UserWithoutAnIdIsNotTheOwnUser) {
  std::array<int, 2> pair{-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair.data()), 0);
  constexpr int kCannot = 99;
  const pid_t child = fork();
  if (child == 0) {
    setenv("MPLS_VPN_MIB_ADMIN_GROUP", "nogroup", 1);
    if (getgrnam("nogroup") == nullptr || unshare(CLONE_NEWUSER) != 0) _exit(kCannot);
    const Peer peer = read_peer(pair[0]);
    const bool is_unknown = peer.uid == geteuid() && peer.gid == getgrnam("nogroup")->gr_gid;
    _exit(is_unknown ? static_cast<int>(peer_role(peer)) : kCannot - 1);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  ::close(pair[0]);
  ::close(pair[1]);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kCannot)
    GTEST_SKIP() << "SKIPPED: needs user namespaces and the group nogroup";
  EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(Role::kRead)) << status;
}

// A name service with two groups, which counts its questions. In the background it answers when it is let.
class Roles : public ::testing::Test {
 protected:
  Roles() : former_(std::exchange(find_group, &Find)), former_run_(std::exchange(run_in_background, &Later)) {
    forget_groups();
    static_cast<void>(peer_role({}));
    questions_ = 0;
  }
  ~Roles() override {
    find_group = former_;
    run_in_background = former_run_;
    forget_groups();
  }
  static void AnswerInBackground() {
    for (const std::function<void()>& answer : std::exchange(later_, {})) answer();
  }
  static Role RoleOf(gid_t gid, std::vector<gid_t> groups) {
    return peer_role({60001, gid, 0, std::move(groups)});
  }

  static inline unsigned questions_ = 0;
  static inline Status status_ = kStatusOk;
  static inline std::vector<std::function<void()>> later_;
  ManualClock clock_{kNanosecondsPerSecond};

 private:
  static FoundGroup Find(const std::string& name) {
    ++questions_;
    if (status_ != kStatusOk) return {status_, 0};
    if (name == "mpls_vpn_admin") return {kStatusOk, 701};
    if (name == "mpls_vpn_agent") return {kStatusOk, 702};
    return {kStatusNoSuchRow, 0};
  }
  static void Later(std::function<void()> function) { later_.push_back(std::move(function)); }
  FindGroup former_;
  RunInBackground former_run_;
};

TEST_F(Roles, AreGivenByGroups) {
  EXPECT_EQ(RoleOf(60001, {}), Role::kRead);
  EXPECT_EQ(RoleOf(701, {}), Role::kConfigure);
  EXPECT_EQ(RoleOf(702, {}), Role::kAgent);
  EXPECT_EQ(RoleOf(60001, {5, 702}), Role::kAgent);
  EXPECT_EQ(RoleOf(702, {5, 701}), Role::kConfigure);
  EXPECT_EQ(peer_role({}), Role::kRead);
}

TEST_F(Roles, RootAndTheOwnUserNeedNoNameService) {
  EXPECT_EQ(peer_role({0, 0, 0, {}}), Role::kConfigure);
  EXPECT_EQ(peer_role({geteuid(), 60001, 0, {}}), Role::kConfigure);
  EXPECT_EQ(questions_, 0U);
}

TEST_F(Roles, NameServiceIsAskedOnceAMinuteForEachGroup) {
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
  EXPECT_EQ(questions_, 0U);
  for (unsigned minute = 1; minute <= 3; ++minute) {
    clock_.advance(60 * kNanosecondsPerSecond - 1);
    EXPECT_EQ(RoleOf(60001, {}), Role::kRead);
    EXPECT_EQ(questions_, 2 * (minute - 1));
    clock_.advance(1);
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
    AnswerInBackground();
    EXPECT_EQ(questions_, 2 * minute);
  }
}

TEST_F(Roles, AnswerOfTheNameServiceIsNotWaitedFor) {
  clock_.advance(60 * kNanosecondsPerSecond);
  status_ = kStatusNoSuchRow;
  EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
  EXPECT_EQ(questions_, 0U);
  clock_.advance(3600 * kNanosecondsPerSecond);
  EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
  EXPECT_EQ(later_.size(), 2U) << "a question that is not answered is not repeated";
  AnswerInBackground();
  EXPECT_EQ(RoleOf(60001, {702}), Role::kRead);
  status_ = kStatusOk;
}

TEST_F(Roles, NameServiceThatFailsTakesNoRoleAway) {
  clock_.advance(60 * kNanosecondsPerSecond);
  status_ = EIO;
  EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
  AnswerInBackground();
  EXPECT_EQ(questions_, 2U);
  EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
  status_ = kStatusOk;
}

TEST_F(Roles, WithoutAThreadTheGroupsThatAreKnownAreUsed) {
  run_in_background = [](std::function<void()>) {
    throw std::system_error(EAGAIN, std::generic_category(), "no thread");
  };
  clock_.advance(60 * kNanosecondsPerSecond);
  EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
  run_in_background = [](std::function<void()> function) { later_.push_back(std::move(function)); };
  clock_.advance(60 * kNanosecondsPerSecond);
  EXPECT_EQ(RoleOf(60001, {702}), Role::kAgent);
  AnswerInBackground();
  EXPECT_EQ(questions_, 2U) << "asked again";
}

}  // namespace
}  // namespace wire
