// For tests: a run and state directory of their own, made for the test and removed after it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

class TestRunDirectory {
 public:
  TestRunDirectory() {
    std::string path = (std::filesystem::temp_directory_path() / "mpls_test_XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("mkdtemp");
    path_ = path;
    setenv("MPLS_VPN_MIB_RUN_DIR", path_.c_str(), 1);
    setenv("MPLS_VPN_MIB_STATE_DIR", path_.c_str(), 1);
  }
  ~TestRunDirectory() {
    std::error_code ignored;  // what cannot be removed is left in the temporary directory
    std::filesystem::remove_all(path_, ignored);
  }
  TestRunDirectory(const TestRunDirectory&) = delete;
  TestRunDirectory& operator=(const TestRunDirectory&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};
