// Runs mplsvpn in this process, in a run directory of its own.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "cli/session.h"
#include "platform/core/evm/test_run_directory.h"

namespace cli {

class CommandLine : public ::testing::Test {
 protected:
  int Run(const std::vector<std::string>& words) {
    out_.str("");
    err_.str("");
    return run(words, out_, err_);
  }
  std::string Out() const { return out_.str(); }
  std::string Err() const { return err_.str(); }
  const std::string& Directory() const { return directory_.path(); }

 private:
  const TestRunDirectory directory_;
  std::ostringstream out_;
  std::ostringstream err_;
};

}  // namespace cli
