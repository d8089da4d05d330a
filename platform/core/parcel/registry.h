// The registry file: the definition of every record type that was ever registered in this run directory, so
// that a changed definition is noticed and readers without compiled-in knowledge can print a record.
//
// RUN_DIRECTORY/parcel.registry, one line a type after a heading, fields separated by tabs:
//   type name, version, reader version, set name, annotated schema
// It is replaced as a whole (written beside, then renamed), so a reader never sees half of it.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/core/base/status.h"

namespace parcel_detail {

struct Definition {
  std::uint32_t version = 0;
  std::uint32_t reader_version = 0;
  std::string set_name;
  std::string schema;  // annotated

  // The set may differ; readers compare the record form.
  bool same_record(const Definition& other) const {
    return version == other.version && reader_version == other.reader_version && schema == other.schema;
  }
};

using Definitions = std::map<std::string, Definition>;  // by type name

// The file's definitions; none without a file. Other lines are logged and ignored.
Definitions read_registry_file();
// Replaces the file, making the run directory when it is missing. The system's errno.
[[nodiscard]] Status write_registry_file(const Definitions& definitions);

}  // namespace parcel_detail
