// A TCP socket that listens at a configured place, in the network of a VRF if one is named. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace http {

struct Place {
  std::string address = "127.0.0.1";  // a literal IPv4 or IPv6 address
  std::uint16_t port = 0;
  std::string vrf;  // a VRF device; empty: no VRF
  bool operator==(const Place&) const = default;
};

// "127.0.0.1:9000", "[::1]:9000", "10.0.0.1:9000 in VRF red".
std::string describe(const Place& place);
bool is_address(const std::string& text);

// A non-blocking descriptor, which the caller closes, or -1 and in *error what fails and what to do. The VRF
// is that of its device at this moment: if the device is deleted, the socket is connected to nothing.
int open_listening_socket(const Place& place, std::string* error);

}  // namespace http
