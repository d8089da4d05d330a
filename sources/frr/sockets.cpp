#include "sources/frr/sockets.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace {

constexpr std::string_view kNameless = "could not lookup user ID";  // of the shell

std::string user_name() {
  const passwd* const user = getpwuid(geteuid());
  return user == nullptr ? std::to_string(geteuid()) : user->pw_name;
}

// The socket's group, or that of its folder if the user may not look into it.
std::string group_of(const std::string& socket, const std::string& folder) {
  struct stat found {};
  if (stat(socket.c_str(), &found) != 0 && stat(folder.c_str(), &found) != 0) return "of the socket";
  const group* const owner = getgrgid(found.st_gid);
  return owner == nullptr ? std::to_string(found.st_gid) : owner->gr_name;
}

// The programs may have another name for the folder than the shell: 10.3 binds below /run, which is /var/run.
bool is_same_folder(const std::filesystem::path& left, const std::filesystem::path& right) {
  std::error_code error;
  return left == right || std::filesystem::equivalent(left, right, error);
}

}  // namespace

namespace frr {

std::string missing_permission(const std::string& folder, std::string_view program, std::string_view reason) {
  if (reason.find(kNameless) != std::string_view::npos) {
    return "the user ID " + std::to_string(geteuid()) +
           " has no name, which the shell requires; add the user to /etc/passwd";
  }
  const std::string socket = folder + "/" + std::string(program) + ".vty";
  if (faccessat(AT_FDCWD, socket.c_str(), W_OK, AT_EACCESS) == 0 || errno != EACCES) return "";
  return "the user " + user_name() + " has no permission for " + socket + "; add it to the group " +
         group_of(socket, folder);
}

bool runs_without(const std::string& folder, std::string_view program) {
  constexpr std::string_view kListens = " 00010000 ";  // flags of a socket; proc(5) has the columns
  bool has_others = false;
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    const std::size_t start = line.find('/');
    if (start == std::string::npos || line.find(kListens) == std::string::npos) continue;
    const std::filesystem::path path = line.substr(start);
    if (path.extension() != ".vty" || !is_same_folder(path.parent_path(), folder)) continue;
    if (path.stem() == program) return false;
    has_others = true;
  }
  return has_others;
}

}  // namespace frr
