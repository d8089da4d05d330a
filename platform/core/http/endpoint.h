// A page that is served at a place as soon as that is possible: while the port is in use, or the address or
// the VRF is missing, opening is tried again every kRetrySeconds. A VRF that is deleted and created again is
// noticed in the same interval. Each reason is logged once, and so is that the page is served. Manager's
// thread.
#pragma once

#include <memory>
#include <string>

#include "platform/core/evm/evm.h"
#include "platform/core/http/listening_socket.h"
#include "platform/core/http/server.h"

namespace http {

inline constexpr unsigned kRetrySeconds = 2;

class Endpoint {
 public:
  // `what` names the page in the log: "metrics".
  Endpoint(EventManager* manager, std::string what, Place place, Page page);
  ~Endpoint();
  Endpoint(const Endpoint&) = delete;
  Endpoint& operator=(const Endpoint&) = delete;
  bool is_open() const { return server_ != nullptr; }
  const Place& place() const { return place_; }
  const std::string& problem() const { return reported_; }  // why it is not open; empty if it is

 private:
  void check();
  void open();
  std::string open_server(int socket);
  void report(const std::string& failure);

  EventManager* manager_;
  std::string what_;
  Place place_;
  Page page_;
  std::unique_ptr<Server> server_;
  unsigned device_ = 0;   // index of the VRF's device that the socket is bound to
  std::string reported_;  // the failure that was logged last
  EventTimerId timer_ = 0;
};

}  // namespace http
