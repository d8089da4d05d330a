#include "platform/core/files/set_aside.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "platform/core/base/fault.h"

namespace {

constexpr std::uint32_t kMostUnusable = 1000;

std::string unusable_name(const std::string& path, std::uint32_t number) {
  return path + ".unusable." + std::to_string(number);
}

bool is_there(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

}  // namespace

std::string free_unusable_name(const std::string& path, std::initializer_list<const char*> suffixes) {
  for (std::uint32_t number = 1; number <= kMostUnusable; ++number) {
    std::string name = unusable_name(path, number);
    const auto has = [&name](const char* suffix) { return is_there(name + suffix); };
    if (!is_there(name) && std::ranges::none_of(suffixes, has)) return name;
  }
  return {};
}

std::uint32_t count_unusable(const std::string& path) {
  std::uint32_t count = 0;
  while (is_there(unusable_name(path, count + 1))) ++count;
  return count;
}

Status set_aside(const std::string& path, std::string* name) {
  if (const Status status = fault_check("set_aside")) return status;
  *name = free_unusable_name(path);
  if (name->empty()) return EEXIST;
  if (link(path.c_str(), name->c_str()) == 0) return kStatusOk;
  return std::rename(path.c_str(), name->c_str()) == 0 ? kStatusOk : static_cast<Status>(errno);
}
