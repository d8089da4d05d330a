// VRFs in the forms that other systems read (docs/export.md).
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cli/vrf/vpn_instances.h"

namespace cli {

struct ExportFormat {
  const char* name;
  bool is_json;
  void (*write)(const VpnInstances& instances, std::ostream& out);
};

// Null for an unknown name.
const ExportFormat* find_export_format(const std::string& name);
std::vector<std::string> export_formats();

}  // namespace cli
