// One connection of a client: requests and their answers. Only for this folder.
#pragma once

#include <chrono>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include "platform/core/wire/wire.h"
#include "platform/store/client/client.h"
#include "platform/store/server/protocol.h"

namespace kvtree {

inline Octets to_octets(wire::OctetSpan span) {
  return {span.begin(), span.end()};
}

// False for a malformed one.
bool read_notification(const wire::Message& message, NotificationResult* notification);

struct Client::Connection {
  std::string path;
  std::chrono::milliseconds timeout;
  wire::ClientSocket socket{kMaxAnswer + 1024};
  std::uint32_t last_request = 0;
  std::deque<NotificationResult> pending;  // bounded by the windows of the subscriptions
  std::set<std::uint32_t> plain;           // subscriptions without a name

  wire::Writer begin(std::uint16_t type) { return socket.begin(type, ++last_request); }
  // Closes the connection and returns the status.
  Status fail(Status status);
  // Queues a notification.
  Status queue_notification(const wire::Message& message);
  // Sends what begin() began.
  Status send();
  // Waits so long for the answer; the reader is valid until the next call.
  Status receive(std::uint16_t type, std::chrono::milliseconds patience, wire::Reader* answer);
  // Both.
  Status exchange(std::uint16_t type, wire::Reader* answer);
  // The same; returns the answer's status, its first word. The reader is after it.
  Status ask(std::uint16_t type, wire::Reader* answer);
  // The same for an answer that is a counted list.
  template <typename Item>
  Status ask_list(std::uint16_t type, std::vector<Item>* items, bool (*read)(wire::Reader*, Item*)) {
    wire::Reader answer;
    if (const Status status = ask(type, &answer)) return status;
    const std::uint32_t count = answer.u32();
    for (std::uint32_t i = 0; i < count && answer.ok(); ++i) {
      if (!read(&answer, &items->emplace_back())) break;
    }
    if (answer.finished() && items->size() == count) return kStatusOk;
    items->clear();
    return fail(kStatusBadMessage);
  }
};

}  // namespace kvtree
