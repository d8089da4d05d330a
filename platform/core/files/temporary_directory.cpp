// mkdtemp makes the name unique and the directory private. A process that is killed or calls _exit does not
// remove its directory.
#include "platform/core/files/temporary_directory.h"

#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>

#include "platform/core/base/fault.h"
#include "platform/core/base/log.h"

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

std::string failed_removal(const std::string& path) {
  if (Status s = fault_check("temporary_directory_remove")) return err_text(s);
  std::error_code failure;
  fs::remove_all(path, failure);
  return failure ? failure.message() : std::string();
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : path_(make_directory()) {}

TemporaryDirectory::~TemporaryDirectory() {
  const std::string failure = failed_removal(path_);
  if (!failure.empty()) log_error("files", "cannot remove %s: %s", path_.c_str(), failure.c_str());
}
