// Receives the kernel's events on a socket of its own, and replaces the socket when it fails.
//
// Main thread only. The client must outlive the listener, the listener must be destroyed before the event
// manager.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "sources/kernel/netlink/socket.h"

namespace kernel {

class EventListener {
 public:
  enum class Failure { kReceiving, kListening };  // of the socket; of an attempt to replace it

  class Client {
   public:
    virtual ~Client() = default;
    virtual void on_datagram(std::span<const std::uint8_t> datagram) = 0;
    // The datagrams of one read() have been delivered.
    virtual void on_batch_end() {}
    // The kernel dropped events, possibly while the socket was being replaced.
    virtual void on_events_lost() = 0;
    // The socket is replaced after `retry`.
    virtual void on_listener_failure(Failure failure, Status status) = 0;
  };

  struct Options {
    std::vector<int> groups;         // RTNLGRP_...
    std::size_t receive_buffer = 0;  // octets
    unsigned batch = 1;              // datagrams in one iteration of the loop
    std::uint64_t retry = 0;         // nanoseconds before a socket that failed is replaced
    NetlinkFaultPoints faults;
  };

  EventListener(Client* client, Options options);
  ~EventListener() { stop(); }
  EventListener(const EventListener&) = delete;
  EventListener& operator=(const EventListener&) = delete;

  // Opens the socket: the kernel queues events from here on. A failure leaves it closed.
  [[nodiscard]] Status open();
  // Reads events from the manager's loop. REQUIRES: open.
  [[nodiscard]] Status watch(EventManager* manager);
  void unwatch();
  // Unwatches and closes.
  void stop();

  // Reads up to `batch` of the waiting datagrams. Does nothing when the socket is closed.
  void read();
  bool is_open() const { return socket_.is_open(); }
  bool drained() const { return drained_; }  // the queue was empty when it was last read

 private:
  Status try_open();
  void receive_failed(Status status);
  void reopen();
  void reopen_later();

  Client* client_;
  const Options options_;
  NetlinkSocket socket_;
  EventManager* manager_ = nullptr;  // while watched
  EventTimerId reopen_timer_ = 0;
  bool drained_ = true;
};

}  // namespace kernel
