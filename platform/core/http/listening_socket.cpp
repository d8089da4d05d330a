#include "platform/core/http/listening_socket.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace http {

namespace {

constexpr int kBacklog = 16;

using AddressInfo = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressInfo find_address(const Place& place) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int failure = getaddrinfo(place.address.c_str(), std::to_string(place.port).c_str(), &hints, &found);
  return {failure == 0 ? found : nullptr, freeaddrinfo};
}

// What an operator does about it.
std::string advice_for(int error, const Place& place) {
  const std::string vrf = place.vrf.empty() ? std::string() : " in VRF " + place.vrf;
  switch (error) {
    case EADDRINUSE:
      return ": end the program that uses it, or configure another port";
    case EADDRNOTAVAIL:
      return ": no interface" + vrf + " has " + place.address + "; add the address, or configure another one";
    case ENODEV:
      return ": VRF device " + place.vrf + " does not exist";
    case EPERM:
      return ": binding to a VRF needs Linux 5.7 or the capability CAP_NET_RAW";
    case EACCES:
      return ": a port below 1024 needs the capability CAP_NET_BIND_SERVICE";
    case EAFNOSUPPORT:
      return ": the kernel, or RestrictAddressFamilies= of the service, does not permit this address family";
    default:
      return {};
  }
}

// 0 or errno.
int set_up(int socket, const Place& place, const addrinfo& address) {
  const int on = 1;
  if (setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return errno;
  const auto length = static_cast<socklen_t>(place.vrf.size());
  if (length != 0 && setsockopt(socket, SOL_SOCKET, SO_BINDTODEVICE, place.vrf.c_str(), length) != 0)
    return errno;
  if (bind(socket, address.ai_addr, address.ai_addrlen) != 0) return errno;
  return listen(socket, kBacklog) == 0 ? 0 : errno;
}

}  // namespace

std::string describe(const Place& place) {
  const bool is_ipv6 = place.address.find(':') != std::string::npos;
  const std::string address = is_ipv6 ? "[" + place.address + "]" : place.address;
  return address + ":" + std::to_string(place.port) + (place.vrf.empty() ? "" : " in VRF " + place.vrf);
}

bool is_address(const std::string& text) {
  return !text.empty() && find_address({text, 0, {}}) != nullptr;
}

int open_listening_socket(const Place& place, std::string* error) {
  const AddressInfo address = find_address(place);
  if (address == nullptr) {
    *error = place.address + " is not an IP address";
    return -1;
  }
  const int fd = socket(address->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int failure = fd < 0 ? errno : set_up(fd, place, *address);
  if (failure == 0) return fd;
  if (fd >= 0) close(fd);
  *error = std::strerror(failure) + advice_for(failure, place);
  return -1;
}

}  // namespace http
