// Texts as the registry file of record definitions. What is read is written and read again, and must be the
// same; every schema in it can be parsed.
#include "fuzz/support.h"
#include "platform/core/evm/test_run_directory.h"
#include "platform/core/parcel/registry.h"
#include "platform/core/parcel/schema.h"

namespace {

using fuzz::require;
using parcel_detail::Definition;
using parcel_detail::Definitions;

bool same(const Definition& left, const Definition& right) {
  return left.same_record(right) && left.set_name == right.set_name;
}

void check(const Definitions& definitions) {
  for (const auto& [type, definition] : definitions) {
    parcel_detail::Schema schema;
    require(!type.empty() && parcel_detail::parse_schema(definition.schema, &schema) == kStatusOk);
  }
  require(parcel_detail::write_registry_file(definitions) == kStatusOk);
  const Definitions again = parcel_detail::read_registry_file();
  require(again.size() == definitions.size());
  for (const auto& [type, definition] : definitions) require(same(again.at(type), definition));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TestRunDirectory directory;
  fuzz::write_file(directory.path() + "/parcel.registry", fuzz::text_of({data, size}));
  check(parcel_detail::read_registry_file());
  return 0;
}
