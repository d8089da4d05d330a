// Client of the data store that never waits, for a program with an event loop of its own: requests are sent,
// and what has arrived is taken when the descriptor is readable.
//
// One AsyncClient is one connection, used from one thread. Any failure closes it; requests under way then
// have no answer. Requests are small: one that the daemon's socket has no room for is a failure
// (kStatusTimedOut), because the daemon has then read nothing for hundreds of requests.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "platform/core/base/status.h"
#include "platform/store/client/client.h"

namespace kvtree {

// A batch of rows with some of their columns (platform/store/tree/columns.h). The octets are valid until the
// client is used again.
struct ColumnsResult {
  Status status = kStatusNotConnected;
  bool end = false;  // no row follows the last one
  std::uint32_t rows = 0;
  std::span<const std::uint8_t> packed;
};

class AsyncClient {
 public:
  explicit AsyncClient(std::string socket_path);
  ~AsyncClient();
  AsyncClient(const AsyncClient&) = delete;
  AsyncClient& operator=(const AsyncClient&) = delete;

  // Statuses of Client::connect(); kStatusTimedOut while the daemon accepts no connection.
  [[nodiscard]] Status connect();
  void close();
  bool connected() const;
  int fd() const;  // -1 when closed

  // Requests. They are answered in order.
  [[nodiscard]] Status ask_columns(std::string_view path, std::uint32_t max_rows,
                                   std::span<const std::uint8_t> columns);
  // As Client::subscribe() with a name.
  // `version`: of this program, for the state of the process; empty: none.
  [[nodiscard]] Status ask_subscription(std::string_view path, std::string_view name,
                                        std::string_view version = {});
  [[nodiscard]] Status acknowledge(std::uint32_t subscription, std::uint64_t sequence);

  enum class Arrived { kNothing, kBatch, kSubscribed, kNotified };
  struct Arrival {
    Arrived what = Arrived::kNothing;
    ColumnsResult columns;
    SubscribeResult subscription;
    NotificationResult notification;
  };
  // The next message that has arrived: kStatusOk with kNothing if there is none.
  [[nodiscard]] Status receive(Arrival* arrival);

 private:
  struct Connection;
  std::unique_ptr<Connection> connection_;
};

}  // namespace kvtree
