// The platform's settings: CONFIG_DIRECTORY/platform.yaml, read once at start.
//
//   source: kernel            # the live Linux kernel (the default), or: file
//   router_file: router.yaml  # with source: file; relative to the settings' folder
//   frr: auto                 # follow the routing suite's configuration: with the kernel only (the default);
//                             # or true, false, or its shell: "/usr/bin/vtysh -N pe1"
#pragma once

#include <string>
#include <vector>

#include "daemon/sources.h"

namespace daemon_host {

struct Settings {
  const SourceKind* source = &source_kinds().front();
  std::string
      router_file;  // absolute, or relative to the working directory; empty unless the source needs one
  std::vector<std::string> frr_shell;  // the routing suite's shell and its arguments; empty: not followed
  bool frr_wanted = false;             // named, not by default: a suite that cannot be followed is logged
  std::string notice;                  // a warning for the operator; empty for none
};

// False, and "FILE:LINE:COLUMN: what" in *error, for a file that does not parse, has an unknown key or value,
// or names a file source without a router file. A missing file means the defaults; a missing folder also sets
// the notice.
[[nodiscard]] bool read_settings(const std::string& config_directory, Settings* settings, std::string* error);

}  // namespace daemon_host
