#include "cli/row_walk.h"

namespace cli {

kvtree::WalkResult fetch_rows(const Session& session, kvtree::Client& client, const std::string& path,
                              std::uint32_t most) {
  kvtree::WalkResult result = client.walk(path, most);
  if (result.status == kStatusNoSuchRow) return {kStatusOk, {}, true};
  if (result.status) throw request_failure(session, path, result.status);
  return result;
}

}  // namespace cli
