#include "sources/frr/sockets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/core/evm/test_run_directory.h"
#include "sources/frr/fake_suite_test_support.h"
#include "sources/frr/shell/folders.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr uid_t kUser = 2;  // "bin"
constexpr uid_t kNameless = 60017;
constexpr gid_t kDaemonGroup = 1;  // "daemon", which this process is not in

// A file in place of the socket: the permissions are the same.
class SuitePermission : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: only root can become another user";
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    std::ofstream(Socket()).close();
    ASSERT_EQ(chown(Socket().c_str(), 0, kDaemonGroup), 0);
    ASSERT_EQ(chmod(Socket().c_str(), 0770), 0);
  }
  std::string Socket() const { return folder_.path() + "/bgpd.vty"; }
  std::string MissingFor(uid_t user, const std::string& reason = "the shell ended: Hint") const {
    if (seteuid(user) != 0) return "seteuid failed";
    std::string missing = frr::missing_permission(folder_.path(), "bgpd", reason);
    return seteuid(0) == 0 ? missing : "seteuid failed";
  }

  TestRunDirectory folder_;
};

TEST_F(SuitePermission, UserOutsideTheGroupGetsTheSocketAndTheGroup) {
  EXPECT_EQ(MissingFor(kUser),
            "the user bin has no permission for " + Socket() + "; add it to the group daemon");
}

TEST_F(SuitePermission, FolderThatTheUserMayNotEnterIsTheSame) {
  ASSERT_EQ(chmod(folder_.path().c_str(), 0700), 0);
  EXPECT_EQ(MissingFor(kUser),
            "the user bin has no permission for " + Socket() + "; add it to the group root");
}

TEST_F(SuitePermission, UserWithPermissionLacksNothing) {
  EXPECT_EQ(MissingFor(0), "");
  ASSERT_EQ(chown(Socket().c_str(), kUser, 0), 0);
  EXPECT_EQ(MissingFor(kUser), "");
}

TEST_F(SuitePermission, UserWithoutANameIsRefusedByTheShell) {
  ASSERT_EQ(chown(Socket().c_str(), kNameless, 0), 0);
  EXPECT_EQ(MissingFor(kNameless), "");
  EXPECT_THAT(MissingFor(kNameless, "the shell ended: could not lookup user ID 60017"),
              StartsWith("the user ID 60017 has no name"));
}

TEST_F(SuitePermission, ProgramThatDoesNotRunNeedsNoPermission) {
  ASSERT_TRUE(std::filesystem::remove(Socket()));
  EXPECT_EQ(MissingFor(kUser), "");
}

TEST(SuiteSockets, AreWhereTheShellLooksForThem) {
  EXPECT_EQ(frr::socket_folder({"/usr/bin/vtysh"}), "/var/run/frr");
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"-N", "pe1"}, {"-Npe1"}, {"--pathspace", "pe1"}, {"--pathspace=pe1"}}) {
    std::vector<std::string> shell{"/usr/bin/vtysh"};
    shell.insert(shell.end(), words.begin(), words.end());
    EXPECT_EQ(frr::socket_folder(shell), "/var/run/frr/pe1") << words[0];
    shell.insert(shell.end(), {"--vty_socket", "/run/x"});
    EXPECT_EQ(frr::socket_folder(shell), "/run/x/pe1") << words[0];
  }
  EXPECT_EQ(frr::socket_folder({"/usr/bin/vtysh", "--vty_socket=/run/x"}), "/run/x");
  EXPECT_EQ(frr::configuration_folder({"/usr/bin/vtysh", "-Npe1"}), "/etc/frr/pe1");
  EXPECT_EQ(frr::configuration_folder({"/usr/bin/vtysh", "--config_dir=/etc/x"}), "/etc/x");
}

TEST(SuiteSockets, ProgramThatDoesNotListenDoesNotRunIfOthersListen) {
  const TestRunDirectory folder;
  EXPECT_FALSE(frr::runs_without(folder.path(), "bgpd"));
  EXPECT_FALSE(frr::runs_without(folder.path() + "/nowhere", "bgpd"));
  const SuiteSocket other_file(folder.path() + "/bgpd.pid");
  std::ofstream(folder.path() + "/ripd.vty").close();  // of one that was killed
  EXPECT_FALSE(frr::runs_without(folder.path(), "bgpd"));
  const SuiteSocket zebra(folder.path() + "/zebra.vty");
  EXPECT_TRUE(frr::runs_without(folder.path(), "bgpd"));
  EXPECT_TRUE(frr::runs_without(folder.path(), "ripd"));
  EXPECT_FALSE(frr::runs_without(folder.path(), "zebra"));
  EXPECT_FALSE(frr::runs_without(folder.path() + "/pe1", "bgpd"));
  const SuiteSocket bgpd(folder.path() + "/bgpd.vty");
  EXPECT_FALSE(frr::runs_without(folder.path(), "bgpd"));
}

TEST(SuiteSockets, FolderMayHaveAnotherNameThanWhereTheProgramsListen) {
  const TestRunDirectory folder;
  const TestRunDirectory links;
  const std::string link = links.path() + "/frr";
  std::filesystem::create_directory_symlink(folder.path(), link);
  const SuiteSocket zebra(folder.path() + "/zebra.vty");
  EXPECT_TRUE(frr::runs_without(link, "bgpd"));
  EXPECT_FALSE(frr::runs_without(link, "zebra"));
}

}  // namespace
