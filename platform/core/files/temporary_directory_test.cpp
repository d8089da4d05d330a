// Directories for tests: private, where the environment says, and removed with their content.
#include "platform/core/files/temporary_directory.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

namespace fs = std::filesystem;

TEST(TemporaryDirectory, IsPrivateAndRemovedWithItsContent) {
  std::string path;
  {
    const TemporaryDirectory directory;
    const TemporaryDirectory other;
    path = directory.path();
    EXPECT_NE(path, other.path());
    EXPECT_TRUE(fs::is_empty(path));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_all);
    fs::create_directories(path + "/folder/inside");
    std::ofstream(path + "/folder/inside/file") << "x";
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(TemporaryDirectory, IsCreatedWhereTheEnvironmentSays) {
  const TemporaryDirectory place;
  const char* const before = getenv("TMPDIR");
  const std::string saved = before == nullptr ? "/tmp" : before;
  setenv("TMPDIR", place.path().c_str(), 1);
  EXPECT_EQ(fs::path(TemporaryDirectory().path()).parent_path(), place.path());
  setenv("TMPDIR", (place.path() + "/missing").c_str(), 1);
  EXPECT_THROW(TemporaryDirectory(), std::runtime_error);
  setenv("TMPDIR", saved.c_str(), 1);
}

}  // namespace
