// For tests: a simulated routing suite. fake_vtysh is its shell; a temporary folder has the configuration and
// the state of its programs.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/core/evm/test_run_directory.h"

// What the shell prints for a question, with its end.
inline constexpr char kWhole[] =
    "vm# show running-config\nBuilding configuration...\n\nCurrent configuration:\n!\nrouter bgp 65000 vrf "
    "red\n"
    "exit\n!\nend\nvm# show daemons\n zebra bgpd\nvm# ";

// A socket at which a program listens.
class SuiteSocket {
 public:
  explicit SuiteSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    EXPECT_EQ(listen(fd_, 1), 0);
  }
  ~SuiteSocket() { close(fd_); }
  SuiteSocket(const SuiteSocket&) = delete;
  SuiteSocket& operator=(const SuiteSocket&) = delete;

 private:
  int fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

class FakeSuite {
 public:
  FakeSuite() { Become("mgmtd", "unknown"); }
  std::vector<std::string> shell() const {
    return {std::filesystem::absolute("sources/frr/fake_vtysh").string(), folder_.path()};
  }
  void Configure(const std::string& program, const std::string& text) const {
    Write(program + ".conf", text);
  }
  void Become(const std::string& program, const std::string& state) const {
    Write(program + ".state", state);
  }
  void Show(const std::string& command, const std::string& text) const { Write(command, text); }
  // What each program of this version printed of the same configuration: sources/frr/recorded.
  void Install(const std::string& version) const {
    Become("mgmtd", "unknown");
    for (const auto& file : std::filesystem::directory_iterator("sources/frr/recorded/" + version)) {
      Configure(file.path().stem().string(), Read(file.path()));
      Become(file.path().stem().string(), "ok");
    }
  }
  std::string Configuration(const std::string& program) const {
    return Read(folder_.path() + "/" + program + ".conf");
  }
  std::size_t Asked(const std::string& program) const { return Lines(program + ".asked"); }
  std::size_t Started(const std::string& program) const { return Lines(program + ".started"); }

 private:
  // Moved into place, so that the shell never reads an incomplete file.
  void Write(const std::string& name, const std::string& text) const {
    const std::string file = folder_.path() + "/" + name;
    std::ofstream(file + ".new") << text;
    std::filesystem::rename(file + ".new", file);
  }
  static std::string Read(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  std::size_t Lines(const std::string& name) const { return Read(folder_.path() + "/" + name).size(); }

  TestRunDirectory folder_;
};
