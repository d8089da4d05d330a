// Directories and files that no other user may write or replace. Another user is neither root nor the
// effective user of this process.
//
// Permissions are only taken away: what an operator has made stricter stays so.
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/core/base/status.h"

inline constexpr mode_t kRunDirectoryMode = 0750;  // the group may connect to the sockets
inline constexpr mode_t kRunFileMode = 0640;       // mplsvpn reads the files for users of the group
inline constexpr mode_t kSocketMode = 0660;
inline constexpr mode_t kStateDirectoryMode = 0700;
inline constexpr mode_t kPrivateFileMode = 0600;  // in the state directory, and the lock of the run directory

// Creates the directory, whose parent must exist, or takes from an existing one of this user the permissions
// that `mode` does not have. kStatusAccess, with the reason in the log, if the directory or a symbolic link
// to it belongs to another user, if everybody may write to it (any user could have made its content), or if
// it is root's and its group may, which this process cannot change. Otherwise the system's error.
[[nodiscard]] Status prepare_directory(const std::string& path, mode_t mode);

// Takes from this user's regular files below the directory the permissions that `mode` does not have: another
// release may have left them. A directory that this process may not read is left out. The system's error.
[[nodiscard]] Status restrict_files(const std::string& directory, mode_t mode);

// Creates the file with mode 0600 or takes the permissions of group and others from an existing one.
// kStatusAccess, with the reason in the log, if it is a symbolic link or another special file, belongs to
// another user, or belongs to root and this process may not read and write it. An existing file is not
// opened: closing it would release the locks that this process has on it (fcntl(2)), and SQLite has such
// locks.
[[nodiscard]] Status prepare_private_file(const std::string& path);

// The same for a file that is then opened with these flags. -1 and errno: ELOOP for a symbolic link.
int open_private_file(const std::string& path, int flags);
