#include "sources/frr/permission.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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

}  // namespace

namespace frr {

std::string socket_folder(const std::vector<std::string>& shell, const std::string& folder) {
  std::string base = folder;
  std::string path_space;
  for (std::size_t i = 0; i + 1 < shell.size(); ++i) {
    if (shell[i] == "-N" || shell[i] == "--pathspace") path_space = "/" + shell[i + 1];
    if (shell[i] == "--vty_socket") base = shell[i + 1];
  }
  return base + path_space;
}

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

}  // namespace frr
