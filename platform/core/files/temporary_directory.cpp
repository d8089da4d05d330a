// mkdtemp makes the name unique and the directory private. A process that is killed or calls _exit does not
// remove its directory.
#include "platform/core/files/temporary_directory.h"

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include "platform/core/base/log.h"
#include "platform/core/base/status.h"

namespace {

namespace fs = std::filesystem;

std::string make_directory() {
  const char* place = getenv("TMPDIR");
  std::string path = fs::absolute(fs::path(place == nullptr ? "/tmp" : place) / "mpls_vpn_mib_XXXXXX");
  if (mkdtemp(path.data()) == nullptr) {
    throw std::runtime_error(path + ": " + err_text(static_cast<Status>(errno)));
  }
  return path;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : path_(make_directory()) {}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code failure;
  fs::remove_all(path_, failure);
  if (failure) log_error("files", "cannot remove %s: %s", path_.c_str(), failure.message().c_str());
}
