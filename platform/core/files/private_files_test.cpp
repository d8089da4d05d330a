// Tests of directories and files that other users may not write. Those that need another owner need root.
#include "platform/core/files/private_files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/core/files/replace_file.h"
#include "platform/core/files/temporary_directory.h"

namespace {

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

constexpr uid_t kAnotherUser = 60001;

class PrivateFiles : public ::testing::Test {
 protected:
  PrivateFiles() : umask_(umask(0)) {}
  ~PrivateFiles() override { umask(umask_); }

  static mode_t ModeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }
  void MakeDirectory(mode_t mode) const { ASSERT_EQ(mkdir(path.c_str(), mode), 0); }
  void MakeFile(mode_t mode) const {
    std::ofstream(path) << "content";
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }
  // The status of the call, which must log the text.
  template <typename Call>
  static Status Logged(const std::string& text, Call call) {
    CaptureStderr();
    const Status status = call();
    EXPECT_THAT(GetCapturedStderr(), HasSubstr(text));
    return status;
  }

  TemporaryDirectory folder;
  std::string path = folder.path() + "/entry";

 private:
  mode_t umask_;
};

TEST_F(PrivateFiles, NewDirectoryHasItsModeWhateverTheUmaskIs) {
  ASSERT_EQ(prepare_directory(path, kRunDirectoryMode), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0750U);
  umask(0777);
  ASSERT_EQ(prepare_directory(path + "/state", kStateDirectoryMode), kStatusOk);
  EXPECT_EQ(ModeOf(path + "/state"), 0700U);
}

TEST_F(PrivateFiles, ExistingDirectoryLosesPermissionsAndGetsNone) {
  MakeDirectory(02775);
  ASSERT_EQ(chmod(path.c_str(), 02775), 0);
  ASSERT_EQ(prepare_directory(path, kRunDirectoryMode), kStatusOk);
  EXPECT_EQ(ModeOf(path), 02750U);
  ASSERT_EQ(chmod(path.c_str(), 0500), 0);
  ASSERT_EQ(prepare_directory(path, kRunDirectoryMode), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0500U);
}

TEST_F(PrivateFiles, DirectoryThatEverybodyMayWriteIsRefused) {
  MakeDirectory(0777);
  EXPECT_EQ(Logged("everybody may write to " + path, [&] { return prepare_directory(path, 0750); }),
            kStatusAccess);
  EXPECT_EQ(ModeOf(path), 0777U);
}

TEST_F(PrivateFiles, DirectoryOfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to change an owner";
  MakeDirectory(0700);
  ASSERT_EQ(chown(path.c_str(), kAnotherUser, 0), 0);
  EXPECT_EQ(Logged(path + " belongs to user 60001", [&] { return prepare_directory(path, 0700); }),
            kStatusAccess);
}

// Only root could take the permission away.
TEST_F(PrivateFiles, DirectoryOfRootThatItsGroupMayWriteIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to become another user";
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  MakeDirectory(0);
  for (const auto& [mode, expected] : {std::pair{0770U, kStatusAccess}, std::pair{0755U, kStatusOk}}) {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    ASSERT_EQ(seteuid(kAnotherUser), 0);
    EXPECT_EQ(Logged(expected == kStatusOk ? "" : "group 0 may write to " + path,
                     [&] { return prepare_directory(path, kRunDirectoryMode); }),
              expected);
    ASSERT_EQ(seteuid(0), 0);
  }
}

TEST_F(PrivateFiles, LinkToADirectoryCountsByItsOwnerAndItsTarget) {
  const std::string link = folder.path() + "/link";
  MakeDirectory(0755);
  std::filesystem::create_symlink(path, link);
  ASSERT_EQ(prepare_directory(link, kStateDirectoryMode), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0700U);
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to change an owner";
  ASSERT_EQ(lchown(link.c_str(), kAnotherUser, 0), 0);
  EXPECT_EQ(Logged(link + " belongs to", [&] { return prepare_directory(link, 0700); }), kStatusAccess);
}

TEST_F(PrivateFiles, FileInPlaceOfADirectoryIsAnError) {
  MakeFile(0600);
  EXPECT_EQ(prepare_directory(path, 0700), static_cast<Status>(ENOTDIR));
  EXPECT_EQ(prepare_directory(folder.path() + "/no/such", 0700), static_cast<Status>(ENOENT));
}

TEST_F(PrivateFiles, NewFileIsForItsOwnerAlone) {
  ASSERT_EQ(prepare_private_file(path), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(prepare_private_file(folder.path() + "/no/such"), static_cast<Status>(ENOENT));
}

TEST_F(PrivateFiles, ExistingFileLosesThePermissionsOfOthersAndItsContentStays) {
  MakeFile(0666);
  ASSERT_EQ(prepare_private_file(path), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(std::filesystem::file_size(path), 7U);
  ASSERT_EQ(chmod(path.c_str(), 0444), 0);
  ASSERT_EQ(prepare_private_file(path), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0400U);
}

TEST_F(PrivateFiles, OpenedFileHasTheSameMode) {
  MakeFile(0664);
  const int fd = open_private_file(path, O_RDWR);
  ASSERT_GE(fd, 0);
  close(fd);
  EXPECT_EQ(ModeOf(path), 0600U);
}

TEST_F(PrivateFiles, LinksAndOtherSpecialFilesAreRefused) {
  const std::string target = folder.path() + "/precious";
  std::filesystem::create_symlink(target, path);
  EXPECT_EQ(Logged("not a regular file", [&] { return prepare_private_file(path); }), kStatusAccess);
  EXPECT_EQ(open_private_file(path, O_RDWR), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_FALSE(std::filesystem::exists(target));
  const std::string fifo = folder.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(Logged("not a regular file", [&] { return prepare_private_file(fifo); }), kStatusAccess);
  EXPECT_EQ(open_private_file(fifo, O_RDWR), -1);
}

TEST_F(PrivateFiles, FileOfAnotherUserIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to change an owner";
  MakeFile(0666);
  ASSERT_EQ(chown(path.c_str(), kAnotherUser, 0), 0);
  EXPECT_EQ(Logged(path + " belongs to user 60001", [&] { return prepare_private_file(path); }),
            kStatusAccess);
  EXPECT_EQ(open_private_file(path, O_RDWR), -1);
  EXPECT_EQ(errno, EACCES);
}

// As after a start as root and one as another user.
TEST_F(PrivateFiles, FileOfRootThatThisUserMayNotUseIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "SKIPPED: needs root to become another user";
  ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
  MakeFile(0600);
  ASSERT_EQ(seteuid(kAnotherUser), 0);
  EXPECT_EQ(Logged(path + " belongs to user 0 and user 60001 may not read and write it: change its owner",
                   [&] { return prepare_private_file(path); }),
            kStatusAccess);
  ASSERT_EQ(seteuid(0), 0);
}

// What another release left, in whatever file or folder.
TEST_F(PrivateFiles, FilesOfADirectoryLoseThePermissionsOfOthers) {
  MakeFile(0666);
  const std::string below = folder.path() + "/below";
  ASSERT_EQ(mkdir(below.c_str(), 0750), 0);
  for (const auto& [name, mode] : {std::pair{"/wide", 0777U}, std::pair{"/strict", 0400U}}) {
    std::ofstream(below + name) << "content";
    ASSERT_EQ(chmod((below + name).c_str(), mode), 0);
  }
  ASSERT_EQ(restrict_files(folder.path(), kRunFileMode), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0640U);
  EXPECT_EQ(ModeOf(below + "/wide"), 0640U);
  EXPECT_EQ(ModeOf(below + "/strict"), 0400U);
  EXPECT_EQ(ModeOf(below), 0750U);
  EXPECT_EQ(restrict_files(folder.path() + "/missing", kRunFileMode), static_cast<Status>(ENOENT));
}

TEST_F(PrivateFiles, TargetsOfLinksInADirectoryKeepTheirPermissions) {
  MakeFile(0644);
  const std::string inside = folder.path() + "/inside";
  ASSERT_EQ(mkdir(inside.c_str(), 0700), 0);
  std::filesystem::create_symlink(path, inside + "/link");
  std::filesystem::create_symlink(folder.path(), inside + "/folder");
  ASSERT_EQ(restrict_files(inside, kPrivateFileMode), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0644U);
}

// As a user who could write to the directory would prepare it.
TEST_F(PrivateFiles, ReplacedFileDoesNotFollowALinkInPlaceOfItsTemporaryFile) {
  const std::string target = folder.path() + "/precious";
  std::ofstream(target) << "precious";
  std::filesystem::create_symlink(target, path + ".new");
  ASSERT_EQ(replace_file(path, "text", 0640), kStatusOk);
  EXPECT_EQ(std::filesystem::file_size(target), 8U);
  EXPECT_EQ(ModeOf(path), 0640U);
  umask(077);
  ASSERT_EQ(replace_file(path, "text", 0640), kStatusOk);
  EXPECT_EQ(ModeOf(path), 0640U);
}

}  // namespace
