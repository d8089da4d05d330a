// For tests: a client of an HTTP server on the same thread, whose event loop runs while it waits.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>

#include "platform/core/evm/test_manager.h"
#include "platform/core/http/server.h"

namespace http {

inline sockaddr_in LoopbackAddress(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

inline std::uint16_t PortOf(int socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  EXPECT_EQ(getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
  return ntohs(address.sin_port);
}

class HttpClient {
 public:
  HttpClient(EventManager* manager, std::uint16_t port) : manager_(manager) {
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = LoopbackAddress(port);
    is_connected_ = connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~HttpClient() { close(fd_); }
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  bool is_connected() const { return is_connected_; }
  void Send(const std::string& text) const {
    EXPECT_EQ(send(fd_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
  }
  // What arrives until the server closes the connection.
  std::string ReadAll() {
    std::string text;
    std::array<char, 65536> buffer;
    for (;;) {
      event_run_pending(manager_, kMillisecond);
      const ssize_t count = recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT);
      if (count == 0) return text;
      if (count > 0) text.append(buffer.data(), static_cast<std::size_t>(count));
      if (count < 0 && errno != EAGAIN) return text;
    }
  }
  // The count of octets, 0 at the end, -1 if nothing has arrived.
  ssize_t Read(std::size_t size) {
    std::string text(size, '\0');
    return recv(fd_, text.data(), size, MSG_DONTWAIT);
  }
  // After up to some MB that have arrived.
  bool IsClosed() {
    for (int i = 0; i < 1000; ++i) {
      event_run_pending(manager_, kMillisecond);
      const ssize_t count = Read(65536);
      if (count == 0 || (count < 0 && errno != EAGAIN)) return true;
      if (count < 0) return false;
    }
    return false;
  }
  // A request without keep-alive, and its whole answer. HTTP/1.0 has no chunks.
  std::string Ask(const std::string& path, const std::string& method = "GET") {
    Send(method + " " + path + " HTTP/1.0\r\nHost: x\r\nConnection: close\r\n\r\n");
    return ReadAll();
  }

 private:
  EventManager* manager_;
  int fd_ = -1;
  bool is_connected_ = false;
};

inline std::string BodyOf(const std::string& answer) {
  const std::size_t end = answer.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : answer.substr(end + 4);
}

}  // namespace http
