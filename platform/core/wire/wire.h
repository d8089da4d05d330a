// Framed messages over Unix stream sockets: the protocol between the processes of this system.
//
// A message is a header of kHeaderSize octets and a payload, every integer little-endian:
//
//   offset 0  magic     "MVPN"
//          4  version   16 bits, kVersion
//          6  type      16 bits, given by the service; 0xffff is the answer to a peer of another version
//          8  request   32 bits, chosen by the client and repeated in the answer; 0 in notifications
//         12  length    32 bits, octets of the payload
//
// The layout of the header is the same in every version, so that a peer can detect and report a mismatch.
// Every octet from a peer is untrusted: the length is checked against a limit before memory is allocated, and
// payloads are read through a Reader, which never reads past the end.
//
// Thread: a Server and its Connections belong to the thread of their event manager; a ClientSocket to one
// thread. A connection is released only within a dispatch of that manager.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/core/base/little_endian.h"
#include "platform/core/base/status.h"
#include "platform/core/evm/evm.h"
#include "platform/core/wire/output_gate.h"
#include "platform/core/wire/peer.h"
#include "platform/core/wire/request_counter.h"

namespace wire {

using Octets = std::vector<std::uint8_t>;
using OctetSpan = std::span<const std::uint8_t>;

inline constexpr std::size_t kHeaderSize = 16;
inline constexpr std::uint32_t kMagic = 0x4e50564d;  // "MVPN" on the wire
inline constexpr std::uint16_t kVersion = 4;
inline constexpr std::uint16_t kTypeVersionMismatch = 0xffff;

// One message. The payload is valid only while its handler runs.
struct Message {
  std::uint16_t type = 0;
  std::uint32_t request = 0;
  OctetSpan payload;
  std::uint64_t time = 0;  // clock_monotonic() when a server began to handle it
};

// --- Payloads ------------------------------------------------------------------------------------

// 32-bit integers as payloads have them.
template <typename... Words>
std::array<std::uint8_t, 4 * sizeof...(Words)> encode_words(Words... words) {
  std::array<std::uint8_t, 4 * sizeof...(Words)> octets;
  std::size_t at = 0;
  ((store_little_endian(&octets[at], static_cast<std::uint32_t>(words)), at += 4), ...);
  return octets;
}

// Appends to an octet vector, which must outlive it.
class Writer {
 public:
  explicit Writer(Octets* out) : out_(out) {}
  void u8(std::uint8_t value);
  void u16(std::uint16_t value);
  void u32(std::uint32_t value);
  void u64(std::uint64_t value);
  void octets(OctetSpan value);       // a 32-bit length, then the octets
  void text(std::string_view value);  // the same
  std::size_t size() const { return out_->size(); }
  void patch_u32(std::size_t offset, std::uint32_t value);  // REQUIRES offset + 4 <= size()
  void truncate(std::size_t size);                          // forgets what was written after that size

 private:
  Octets* out_;
};

// Reads a payload. After the first read beyond the end every read fails and returns 0 or an empty view. Texts
// and octets point into the payload.
class Reader {
 public:
  explicit Reader(OctetSpan payload = {}) : rest_(payload) {}
  std::uint8_t u8();
  std::uint16_t u16();
  std::uint32_t u32();
  std::uint64_t u64();
  OctetSpan octets();
  std::string_view text();
  bool ok() const { return ok_; }
  std::size_t left() const { return rest_.size(); }
  bool finished() const { return ok_ && rest_.empty(); }  // all was there and nothing is left over

 private:
  OctetSpan take(std::size_t size);
  OctetSpan rest_;
  bool ok_ = true;
};

// --- Frames --------------------------------------------------------------------------------------

// Appends a header with length 0 and returns where it begins; finish_frame() then sets the length from what
// was appended after it.
std::size_t begin_frame(Octets* out, std::uint16_t type, std::uint32_t request);
void finish_frame(Octets* out, std::size_t frame);
// Appends a whole message, whose payload has two parts, the first of which is short.
void append_frame(Octets* out, std::uint16_t type, std::uint32_t request, OctetSpan head, OctetSpan body);

// Looks for one whole message at the beginning of `data`. kStatusOk: *message is there and *used octets
// belong to it. kStatusIncomplete: more octets are needed, *used is the size of the message
// (kHeaderSize while its header is incomplete). kStatusBadMessage (magic), kStatusVersionMismatch,
// kStatusMessageTooLarge.
[[nodiscard]] Status parse_frame(OctetSpan data, std::size_t max_payload, Message* message,
                                 std::size_t* used);

// --- Server side ---------------------------------------------------------------------------------

struct Limits {
  std::size_t max_clients = 64;
  std::size_t reserved_clients = 16;     // of those, for peers with a role above kRead
  std::size_t clients_per_user = 16;     // of one user with the role kRead
  std::size_t max_payload = 64U << 10;   // of one request
  std::size_t pause_octets = 1U << 20;   // a client with more unsent octets than this is no longer read,
  std::size_t pause_messages = 256;      // nor one with more unsent messages than this
  std::size_t close_octets = 16U << 20;  // a client with more unsent octets than this is closed
  std::uint64_t requests_per_second = 20'000;       // of one user with the role kRead; what exceeds it waits
  std::uint64_t request_burst = 5'000;              // of such a user after a pause
  std::uint64_t requests_per_connection = 20;       // what a connection of such a user is worth
  std::uint64_t message_deadline = 10'000'000'000;  // nanoseconds from a message's first octet to its last
  // The messages of all clients are handled in slices of this many nanoseconds; between them the event loop
  // serves its other descriptors, timers and functions.
  std::uint64_t slice = 2'000'000;
};

class Server;
class Users;
struct User;

// One client. Owned by its Server; a reference is valid until the server's close handler has returned for it,
// and inside a message handler until that handler returns. A client that shuts down its sending side still
// receives the answers to its requests.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Server* server, int fd, std::uint64_t id, Peer peer);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  std::uint64_t id() const { return id_; }  // a server never reuses it
  bool open() const { return fd_ >= 0; }
  std::size_t queued() const { return out_.size() - out_start_; }  // unsent octets
  const Peer& peer() const { return peer_; }
  Role role() const { return role_; }
  Statistics statistics() const { return counter_.read(clock_monotonic()); }
  bool may_change() const { return role_ == Role::kConfigure; }

  // Queues one message. Messages that are queued while a message of this client is handled leave with one
  // write after it; others are written at once, as far as the peer accepts them. Beyond close_octets the
  // client is closed.
  void send(std::uint16_t type, std::uint32_t request, OctetSpan payload) {
    send(type, request, {}, payload);
  }
  void send(std::uint16_t type, std::uint32_t request, OctetSpan head, OctetSpan body);
  // The same without a copy: `Writer w = begin(...)`, write the payload, finish(). Nothing else may be sent
  // in between.
  Writer begin(std::uint16_t type, std::uint32_t request);
  void finish();
  // Handles no further message of this client until release(): for an answer that has to wait, because
  // answers are sent in the order of the requests. Only within a message handler; messages that arrive
  // meanwhile are buffered.
  void hold() { held_ = true; }
  void release();
  // Handles the message at hand again when it is this client's turn, before its other messages: for a request
  // that is answered in steps. Only within a message handler, before which it has not run the event loop.
  void repeat() { repeats_ = true; }
  bool repeats() const { return repeats_; }
  // Reads once, and passes the messages that this client has sent to `take` until one is not taken: for a
  // client that another one replaces, before it is closed. Not while a message of it is handled.
  void drain(const std::function<bool(const Message&)>& take);
  // Closes the connection and logs the reason; null for a normal end. Unsent messages are lost. No effect on
  // a closed connection.
  void close(const char* reason);

 private:
  static const std::uint32_t kReadEvents;  // epoll events of a client that is only read
  friend class Server;
  friend class Users;
  friend void open_output_gate(std::uint64_t number);
  // A call is in this connection, which may end and is then destroyed after it.
  class Visit {
   public:
    explicit Visit(Connection* connection) : connection_(connection) { ++connection_->visits_; }
    ~Visit() {
      if (--connection_->visits_ == 0 && !connection_->open()) connection_->destroy();
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

   private:
    Connection* connection_;
  };
  void destroy();
  void end(const char* reason);
  void on_event(std::uint32_t events);
  void proceed();
  bool fill();
  ssize_t read_socket(std::span<std::uint8_t> room);
  void check_input();
  void make_room();
  bool has_message() const;
  void serve();
  void finish_service();
  void suspend(bool writes_now);
  void begin_request(const Message& message);
  void handle_next();
  void refuse(Status status);
  void write_queue();
  void write_octets(std::size_t count);
  void count_sent_messages();
  void lose_output(int error);
  void drop_output();
  void leave_gate(bool writes_now);
  void await_gate();
  void take_queued_message();
  void note_incomplete(bool waits_for_the_rest);
  void watch();
  bool paused() const;

  Server* server_;
  int fd_;
  std::uint64_t id_;
  Peer peer_;
  Role role_;  // determined once: the name service may be slow
  std::shared_ptr<User> user_;
  std::uint64_t active_;                // when it connected or a message of it was handled last
  std::uint64_t incomplete_since_ = 0;  // when the first part of a message was read; 0 without one
  std::uint64_t used_ = 0;              // its account (users.h)
  bool waiting_ = false;                // for the server to handle a message
  std::uint32_t watched_ = 0;           // epoll events asked for
  bool leaves_input_ = false;           // the last read left input, or an end, in the socket
  bool handling_ = false;               // queued messages leave after the message at hand
  bool peer_finished_ = false;          // the peer has shut down its sending side
  bool peer_closed_ = false;            // it takes no answers
  bool held_ = false;                   // an answer must be sent first
  bool repeats_ = false;                // the message handled last is handled again
  bool is_unanswered_ = false;          // the message handled last
  std::uint16_t type_ = 0;              // ... its type,
  std::uint64_t began_ = 0;             // and when its handling began
  bool passes_descriptors_ = false;     // with its messages
  bool unchecked_ = false;              // input may be left in the socket unnoticed
  unsigned visits_ = 0;
  unsigned handled_since_read_ = 0;  // messages
  unsigned lone_reads_ = 0;          // each of one whole message, since the last other one
  RequestCounter counter_{clock_monotonic()};
  Octets in_;
  std::size_t in_start_ = 0;
  std::size_t in_end_ = 0;
  Octets out_;
  std::size_t out_start_ = 0;
  std::size_t frame_ = 0;            // of begin()
  std::size_t first_unsent_ = 0;     // the first message that has not left whole
  std::size_t unsent_messages_ = 0;  // from there on
  std::uint64_t sent_ = 0;           // octets, ever
  GatedOutput gated_;
  bool awaits_gate_ = false;
};

// Makes the output of the calling thread's servers wait: whatever a client could conclude from an answer must
// be stored before the answer leaves. Before queued octets leave for the first time, `next_number` returns
// what they wait for: 0 for nothing, else a number that open_output_gate() will be called with, or a higher
// one. Numbers do not decrease. Meanwhile clients are served; the wait for the gate counts for no limit of
// what a client leaves unread, except that it is not read while much is queued. `next_number` must neither
// send nor close. Null removes it and lets everything leave. Servers of other threads are not affected.
void set_output_gate(std::function<std::uint64_t()> next_number);
// What waits for this number, or for a lower one, may leave. Not from within `next_number`.
void open_output_gate(std::uint64_t number);

// Serves clients on the named socket of an event manager. REQUIRES: it is destroyed before its manager.
class Server {
 public:
  // False closes the client ("malformed request"). The handler may close any client.
  using MessageHandler = std::function<bool(Connection&, const Message&)>;
  // Called once for each client that ends; the reason is logged. The destructor of the server calls it too,
  // so it must not throw.
  using CloseHandler = std::function<void(Connection&)>;
  // What a message of this type took, in nanoseconds: from when its handling began until its answer was
  // queued, with all steps of the answer and the waits between them. Not called for a client that has ended.
  using AnswerHandler = std::function<void(std::uint16_t type, std::uint64_t nanoseconds)>;

  // The name appears in log lines ("kvtree: client 3 closed: ...").
  Server(EventManager* manager, std::string name, Limits limits, MessageHandler on_message,
         CloseHandler on_close = nullptr);
  ~Server();  // stops
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  void start();  // becomes the manager's acceptor
  void stop();   // closes every client
  // Takes over a connected socket as if it had been accepted. Without room for it the longest idle client of
  // the greediest user is closed, if that user has less rights or more clients, else the socket.
  void adopt(int fd);
  void adopt(int fd, Peer peer);
  void on_answer(AnswerHandler handler) { on_answer_ = std::move(handler); }
  std::size_t client_count() const { return clients_.size(); }
  Connection* find(std::uint64_t id) const;                      // null for an ended connection
  void for_each(const std::function<void(Connection&)>& visit);  // the visitor may close any client

 private:
  friend class Connection;
  void forget(Connection& connection, const char* reason);
  bool admit(const Connection& newcomer);
  bool has_room(const User& user) const;
  Connection* find_replaceable(const User& newcomer) const;
  void watch_deadlines();
  void start_deadline_timer(std::uint64_t when);
  void check_deadlines();
  void check_inputs_later();
  void enqueue(Connection& connection);
  void schedule();
  void run_slice();
  void suspend_waiting(std::uint64_t now);
  void schedule_next(std::uint64_t now);
  void stop_rate_timer();
  std::uint64_t serve(Connection& connection, std::uint64_t now);
  void note_answer(Connection& connection, std::uint64_t now) const;

  EventManager* manager_;
  std::string name_;
  Limits limits_;
  MessageHandler on_message_;
  CloseHandler on_close_;
  AnswerHandler on_answer_;
  bool accepting_ = false;
  std::uint64_t next_id_ = 1;
  std::map<std::uint64_t, std::shared_ptr<Connection>> clients_;
  std::vector<std::shared_ptr<Connection>> ended_;  // which calls are still in
  std::unique_ptr<Users> users_;
  EventTimerId deadline_timer_ = 0;
  EventTimerId input_timer_ = 0;
  EventTimerId rate_timer_ = 0;  // ends the pause of users who exceed their rate
  bool scheduled_ = false;       // a slice is deferred
  EventStep read_step_;          // in which a client was read
  std::uint64_t now_ = 0;        // when the message at hand began
};

// --- Client side ---------------------------------------------------------------------------------

// A blocking connection with deadlines.
class ClientSocket {
 public:
  explicit ClientSocket(std::size_t max_payload = 4U << 20) : max_payload_(max_payload) {}
  ~ClientSocket() { close(); }
  ClientSocket(const ClientSocket&) = delete;
  ClientSocket& operator=(const ClientSocket&) = delete;

  // Connects; the timeout is also the default limit of every later send and receive. With a timeout of 0
  // nothing ever waits: a server or a peer that is not ready is kStatusTimedOut. kStatusNotConnected if
  // no process serves the socket, kStatusTimedOut, kStatusAccess, kStatusUntrustedServer if another user than
  // root, this one and the owner of the socket's directory serves it, or the system's errno.
  [[nodiscard]] Status connect(const std::string& path, std::chrono::milliseconds timeout);
  void close();
  bool connected() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  // Builds a frame: begin(), write the payload, then send(). The buffer is reused.
  Writer begin(std::uint16_t type, std::uint32_t request);
  std::size_t frame_size() const { return out_.size(); }  // so far, with its header
  // Any failure closes the socket: kStatusTimedOut, kStatusNotConnected.
  [[nodiscard]] Status send();
  // The next message, of any request; the payload is valid until the next receive. kStatusTimedOut leaves the
  // socket open and partial input buffered; every other failure closes it: kStatusNotConnected,
  // kStatusBadMessage, kStatusVersionMismatch, kStatusMessageTooLarge.
  [[nodiscard]] Status receive(Message* message);
  // `deadline` is when this timeout ends, for a caller that has read the clock.
  [[nodiscard]] Status receive(Message* message, std::chrono::milliseconds timeout,
                               std::chrono::steady_clock::time_point deadline = {});

 private:
  Status fail(Status status);
  Status send_rest(std::size_t sent);
  Status read_some(std::size_t needed, std::chrono::steady_clock::time_point deadline, bool block);

  std::size_t max_payload_;
  int fd_ = -1;
  std::chrono::milliseconds timeout_{0};
  Octets out_;
  Octets in_;
  std::size_t in_start_ = 0;
  std::size_t in_end_ = 0;
};

}  // namespace wire
