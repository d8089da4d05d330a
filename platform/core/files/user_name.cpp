#include "platform/core/files/user_name.h"

#include <pwd.h>

#include <array>

std::string user_name(uid_t user) {
  std::array<char, 4096> texts;
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(user, &entry, texts.data(), texts.size(), &found) != 0 || found == nullptr)
    return std::to_string(user);
  return found->pw_name;
}
