// Tests of files that are read as a whole.
#include "platform/core/files/read_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/core/base/fault.h"
#include "platform/core/files/temporary_directory.h"

namespace {

class ReadFile : public ::testing::Test {
 protected:
  Status Read(std::size_t limit = 1000) { return read_file(path_, limit, &text_, &error_); }
  void Write(const std::string& text) const { std::ofstream(path_) << text; }
  void ExpectRefused(const std::string& error) {
    EXPECT_EQ(Read(), kStatusInvalid);
    EXPECT_EQ(error_, error);
    EXPECT_EQ(text_, "unchanged");
  }
  // Binds a socket of this name.
  void MakeSocket() const {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path_.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path_.c_str(), path_.size());
    const void* place = &address;
    EXPECT_EQ(bind(fd, static_cast<const sockaddr*>(place), sizeof address), 0);
    close(fd);
  }

  const TemporaryDirectory folder_;
  const std::string path_ = folder_.path() + "/file";
  std::string text_ = "unchanged";
  std::string error_;
};

TEST_F(ReadFile, WholeTextIsReadUpToTheLimit) {
  const std::string large(200'000, 'x');
  for (const std::string& text : {std::string(), std::string("a\0b\n", 4), large}) {
    Write(text);
    ASSERT_EQ(Read(large.size()), kStatusOk) << error_;
    EXPECT_EQ(text_, text);
  }
  text_ = "unchanged";
  EXPECT_EQ(Read(large.size() - 1), kStatusMessageTooLarge);
  EXPECT_EQ(error_, "it has more than 199999 octets");
  EXPECT_EQ(text_, "unchanged");
}

TEST_F(ReadFile, LinkToAFileIsFollowed) {
  std::ofstream(path_ + ".real") << "text";
  std::filesystem::create_symlink(path_ + ".real", path_);
  EXPECT_EQ(Read(), kStatusOk);
  EXPECT_EQ(text_, "text");
}

TEST_F(ReadFile, OnlyRegularFilesAreRead) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  ExpectRefused("it is a FIFO, not a regular file");
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  ExpectRefused("it is a directory, not a regular file");
  std::filesystem::remove(path_);
  MakeSocket();
  ExpectRefused("it is a socket, not a regular file");
  std::filesystem::remove(path_);
  std::filesystem::create_symlink("/dev/zero", path_);
  ExpectRefused("it is a device, not a regular file");
}

// Between the check of the name and the opening of the file, in some of the rounds.
TEST_F(ReadFile, FifoThatTakesThePlaceOfTheFileMeanwhileIsRefused) {
  const std::string fifo = path_ + ".fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  Write("text");
  std::atomic<bool> ends{false};
  std::atomic<int> exchanges{0};
  std::thread exchanging([&] {
    for (; !ends; ++exchanges) renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, fifo.c_str(), RENAME_EXCHANGE);
  });
  constexpr int kRounds = 20'000;
  int wrong = 0;
  for (int i = 0; i < kRounds || exchanges < kRounds; ++i) {
    text_ = "unchanged";
    const bool is_read = Read() == kStatusOk && text_ == "text";
    const bool is_refused = error_ == "it is a FIFO, not a regular file" && text_ == "unchanged";
    wrong += is_read || is_refused ? 0 : 1;
  }
  ends = true;
  exchanging.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(ReadFile, SystemErrorsAreReported) {
  EXPECT_EQ(Read(), static_cast<Status>(ENOENT));
  EXPECT_EQ(error_, "No such file or directory");
  const ScopedFault fault("read_file", static_cast<Status>(EIO));
  EXPECT_EQ(Read(), kStatusIo);
  EXPECT_EQ(error_, "Input/output error");
}

}  // namespace
