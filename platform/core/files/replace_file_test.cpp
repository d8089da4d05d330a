// Tests of files that are written as a whole.
#include "platform/core/files/replace_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/core/files/temporary_directory.h"

namespace {

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

TEST(ReplaceFile, MissingFolderIsAnError) {
  const TemporaryDirectory folder;
  EXPECT_EQ(replace_file(folder.path() + "/missing/file", "text"), static_cast<Status>(ENOENT));
}

}  // namespace
