// Directories for tests: where they are made, that they go, and what is said when either fails.
#include "platform/core/files/temporary_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/core/base/fault.h"

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

// TMPDIR for a while.
class ScopedPlace {
 public:
  explicit ScopedPlace(const std::string& place) {
    if (const char* before = getenv("TMPDIR")) before_ = before;
    setenv("TMPDIR", place.c_str(), 1);
  }
  ~ScopedPlace() { before_ ? setenv("TMPDIR", before_->c_str(), 1) : unsetenv("TMPDIR"); }
  ScopedPlace(const ScopedPlace&) = delete;
  ScopedPlace& operator=(const ScopedPlace&) = delete;

 private:
  std::optional<std::string> before_;
};

void Make() {
  const TemporaryDirectory directory;
}

TEST(TemporaryDirectory, IsEmptyAndForThisUserOnly) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(fs::path(directory.path()).is_absolute());
  ASSERT_TRUE(fs::is_directory(directory.path()));
  EXPECT_TRUE(fs::is_empty(directory.path()));
  EXPECT_EQ(fs::status(directory.path()).permissions(), fs::perms::owner_all);
}

TEST(TemporaryDirectory, EachIsAnother) {
  const TemporaryDirectory one;
  const TemporaryDirectory other;
  EXPECT_NE(one.path(), other.path());
}

TEST(TemporaryDirectory, IsCreatedWhereTheEnvironmentSays) {
  const TemporaryDirectory place;
  const ScopedPlace scoped(place.path());
  const TemporaryDirectory directory;
  EXPECT_EQ(fs::path(directory.path()).parent_path(), place.path());
}

TEST(TemporaryDirectory, IsRemovedWithItsContent) {
  std::string path;
  {
    const TemporaryDirectory directory;
    path = directory.path();
    fs::create_directories(path + "/folder/inside");
    std::ofstream(path + "/folder/inside/file") << "x";
    ASSERT_TRUE(fs::exists(path + "/folder/inside/file"));
  }
  EXPECT_FALSE(fs::exists(path));
}

TEST(TemporaryDirectory, RemovedEarlierIsNotAFailure) {
  testing::internal::CaptureStderr();
  {
    const TemporaryDirectory directory;
    fs::remove_all(directory.path());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(TemporaryDirectory, FailureToMakeItIsThrownWithItsReason) {
  const TemporaryDirectory place;
  {
    const ScopedPlace missing(place.path() + "/missing");
    EXPECT_THAT(Make, ThrowsMessage<std::runtime_error>(HasSubstr(place.path() + "/missing")));
  }
  const ScopedPlace takes_none("/proc");  // the kernel refuses this to every user
  EXPECT_THAT(Make, ThrowsMessage<std::runtime_error>(EndsWith(": No such file or directory")));
}

TEST(TemporaryDirectory, FailureToRemoveItIsLogged) {
  const TemporaryDirectory place;  // takes away what is left
  const ScopedPlace scoped(place.path());
  const ScopedFault fault("temporary_directory_remove", kStatusIo);
  std::string path;
  testing::internal::CaptureStderr();
  {
    const TemporaryDirectory directory;
    path = directory.path();
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "files: cannot remove " + path + ": " + err_text(kStatusIo) + "\n");
  EXPECT_TRUE(fs::exists(path));
}

}  // namespace
