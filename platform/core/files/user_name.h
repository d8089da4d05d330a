// The names of users.
#pragma once

#include <sys/types.h>

#include <string>

// The user's name, or the number if this system has no such user. Any thread; the name service may take long.
std::string user_name(uid_t user);
