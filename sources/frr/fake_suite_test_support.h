// For tests: a routing suite made of texts. fake_vtysh is its shell; what its programs say and how they are
// stands in a folder of the test's own.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/evm/test_run_directory.h"

class FakeSuite {
 public:
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
  std::size_t Asked(const std::string& program) const { return Lines(program + ".asked"); }
  std::size_t Started(const std::string& program) const { return Lines(program + ".started"); }

 private:
  // Moved into place: the shell never reads a half of it.
  void Write(const std::string& name, const std::string& text) const {
    const std::string file = folder_.path() + "/" + name;
    std::ofstream(file + ".new") << text;
    std::filesystem::rename(file + ".new", file);
  }
  std::size_t Lines(const std::string& name) const {
    std::ifstream file(folder_.path() + "/" + name);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    return text.size();
  }

  TestRunDirectory folder_;
};
