// Reading and writing of the registry file. The file belongs to the run directory and may be damaged or left
// by another release: it is read with bounds, and what does not parse is left out.
#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "platform/core/base/log.h"
#include "platform/core/files/directories.h"
#include "platform/core/files/private_files.h"
#include "platform/core/files/replace_file.h"
#include "platform/core/parcel/registry.h"
#include "platform/core/parcel/schema.h"
#include "platform/core/text/numbers.h"

namespace parcel_detail {
namespace {

constexpr std::string_view kHeading = "# mpls_vpn_mib record definitions, 1";
constexpr std::size_t kMaxFileSize = 4U << 20;

std::string registry_path() {
  return run_directory() + "/parcel.registry";
}

bool parse_line(std::string_view line, Definitions* definitions) {
  std::array<std::string_view, 5> fields;
  for (std::size_t i = 0; i + 1 < fields.size(); ++i) {
    const std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos) return false;
    fields[i] = line.substr(0, tab);
    line.remove_prefix(tab + 1);
  }
  fields[4] = line;
  const std::optional<std::uint32_t> version = text::parse_number(fields[1]);
  const std::optional<std::uint32_t> reader_version = text::parse_number(fields[2]);
  if (fields[0].empty() || !version || !reader_version) return false;
  Definition definition{*version, *reader_version, std::string(fields[3]), std::string(fields[4])};
  Schema schema;
  if (parse_schema(definition.schema, &schema) != kStatusOk) return false;
  definitions->insert_or_assign(std::string(fields[0]), std::move(definition));
  return true;
}

std::string file_text(const Definitions& definitions) {
  std::string text(kHeading);
  text += '\n';
  for (const auto& [type_name, one] : definitions) {
    text += type_name + '\t' + std::to_string(one.version) + '\t' + std::to_string(one.reader_version) +
            '\t' + one.set_name + '\t' + one.schema + '\n';
  }
  return text;
}

}  // namespace

Definitions read_registry_file() {
  Definitions definitions;
  const std::string path = registry_path();
  std::error_code no_size;
  const std::uintmax_t size = std::filesystem::file_size(path, no_size);
  if (no_size) return definitions;
  if (size > kMaxFileSize) {
    log_error("parcel", "%s is too large to be a registry", path.c_str());
    return definitions;
  }
  std::ifstream file(path);
  std::string line;
  for (unsigned number = 1; std::getline(file, line); ++number) {
    if (line.starts_with('#') || parse_line(line, &definitions)) continue;
    log_warning("parcel", "%s:%u: not a record definition", path.c_str(), number);
  }
  return definitions;
}

Status write_registry_file(const Definitions& definitions) {
  if (const Status status = prepare_directory(run_directory(), kRunDirectoryMode)) return status;
  const std::string path = registry_path();
  const Status status = replace_file(path, file_text(definitions), kRunFileMode);
  if (status != kStatusOk) log_error("parcel", "%s cannot be written: %s", path.c_str(), err_text(status));
  return status;
}

}  // namespace parcel_detail
