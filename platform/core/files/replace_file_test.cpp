// Tests of files that are written as a whole.
#include "platform/core/files/replace_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/core/files/private_files.h"
#include "platform/core/files/temporary_directory.h"

namespace {

std::vector<std::string>& operations() {
  static std::vector<std::string> all;
  return all;
}

}  // namespace

// Calls of these from the library under test are recorded (mpls_wrap).
extern "C" {
int __real_fsync(int fd);
int __wrap_fsync(int fd) {
  struct stat status {};
  const bool is_directory = fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
  operations().emplace_back(is_directory ? "synchronize directory" : "synchronize file");
  return __real_fsync(fd);
}
int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  operations().emplace_back("rename");
  return __real_rename(from, to);
}
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string text_of(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(ReplaceFile, FileHasTheTextAndNoTemporaryFileRemains) {
  const TemporaryDirectory folder;
  const std::string path = folder.path() + "/file";
  ASSERT_EQ(replace_file(path, "a longer text\n"), kStatusOk);
  ASSERT_EQ(replace_file(path, "short\n"), kStatusOk);
  EXPECT_EQ(text_of(path), "short\n");
  EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

TEST(ReplaceFile, TemporaryFileThatCannotBeRenamedIsRemoved) {
  const TemporaryDirectory folder;
  const std::string path = folder.path() + "/file";
  std::filesystem::create_directory(path);
  EXPECT_EQ(replace_file(path, "text"), static_cast<Status>(EISDIR));
  EXPECT_FALSE(std::filesystem::exists(path + ".new"));
}

// Otherwise the name could be there after a power cut, but not the text, or still the former file.
TEST(ReplaceFile, FileForAPowerCutIsSynchronizedBeforeItHasTheNameAndTheNameAfterwards) {
  const TemporaryDirectory folder;
  operations().clear();
  ASSERT_EQ(replace_file(folder.path() + "/file", "text", 0600, Survives::kPowerCut), kStatusOk);
  EXPECT_THAT(operations(), ElementsAre("synchronize file", "rename", "synchronize directory"));
}

TEST(ReplaceFile, FileForTheNextProcessIsNotSynchronized) {
  const TemporaryDirectory folder;
  operations().clear();
  ASSERT_EQ(replace_file(folder.path() + "/file", "text"), kStatusOk);
  EXPECT_THAT(operations(), ElementsAre("rename"));
}

TEST(PrepareDirectory, NewDirectorySurvivesAPowerCut) {
  const TemporaryDirectory folder;
  operations().clear();
  ASSERT_EQ(prepare_directory(folder.path() + "/new", kStateDirectoryMode), kStatusOk);
  EXPECT_THAT(operations(), ElementsAre("synchronize directory"));
  operations().clear();
  ASSERT_EQ(prepare_directory(folder.path() + "/new", kStateDirectoryMode), kStatusOk);
  EXPECT_THAT(operations(), IsEmpty());
}

TEST(ReplaceFile, MissingFolderIsAnError) {
  const TemporaryDirectory folder;
  EXPECT_EQ(replace_file(folder.path() + "/missing/file", "text"), static_cast<Status>(ENOENT));
}

}  // namespace
