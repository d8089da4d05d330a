// For tests: a run and state directory of their own, made for the test and removed after it.
#pragma once

#include <cstdlib>
#include <string>

#include "platform/core/files/temporary_directory.h"

class TestRunDirectory {
 public:
  TestRunDirectory() {
    setenv("MPLS_VPN_MIB_RUN_DIR", path().c_str(), 1);
    setenv("MPLS_VPN_MIB_STATE_DIR", path().c_str(), 1);
  }
  const std::string& path() const { return directory_.path(); }

 private:
  TemporaryDirectory directory_;
};
