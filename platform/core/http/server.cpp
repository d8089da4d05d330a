// The library polls with epoll and is run whenever its descriptor is readable or its time-out has passed. A
// connection that could continue at once, because the socket has room for the next part, has the time-out 0,
// which becomes a timer that is due in the next iteration of the loop.
//
// Connections are accepted here: the library would try again at once, for ever, when the process has no
// descriptor left.
#include "platform/core/http/server.h"

#include <microhttpd.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/core/base/clock.h"
#include "platform/core/base/log.h"

namespace http {

namespace {

constexpr char kModule[] = "http";
constexpr std::size_t kConnectionMemory = 2 * kPartSize;
constexpr std::uint64_t kAcceptPause = kNanosecondsPerSecond;

// An answer under way: its current part and how much of it was read.
struct Answer {
  Parts next_part;
  std::string part;
  std::size_t read = 0;
  bool has_more = true;
};

// 0 for an empty part: the library asks again, at once and in the next iteration of the loop.
ssize_t read_answer(void* argument, std::uint64_t /*position*/, char* to, std::size_t size) {
  Answer& answer = *static_cast<Answer*>(argument);
  if (answer.read == answer.part.size()) {
    if (!answer.has_more) return MHD_CONTENT_READER_END_OF_STREAM;
    answer.part.clear();
    answer.read = 0;
    answer.has_more = answer.next_part(&answer.part);
  }
  const std::size_t count = answer.part.copy(to, size, answer.read);
  answer.read += count;
  return static_cast<ssize_t>(count);
}

void free_answer(void* argument) {
  delete static_cast<Answer*>(argument);
}

// Takes the response.
MHD_Result send(MHD_Connection* to, unsigned status, const char* content_type, MHD_Response* response) {
  if (response == nullptr) return MHD_NO;
  MHD_Result result = MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, content_type);
  if (result == MHD_YES) result = MHD_queue_response(to, status, response);
  MHD_destroy_response(response);
  return result;
}

MHD_Result send_text(MHD_Connection* to, unsigned status, std::string text) {
  return send(to, status, "text/plain; charset=utf-8",
              MHD_create_response_from_buffer(text.size(), text.data(), MHD_RESPMEM_MUST_COPY));
}

MHD_Result send_page(MHD_Connection* to, const Page& page) {
  auto* const answer = new Answer{page.begin(), {}, 0, true};
  MHD_Response* const response =
      MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, kPartSize, read_answer, answer, free_answer);
  if (response == nullptr) delete answer;
  return send(to, MHD_HTTP_OK, page.content_type.c_str(), response);
}

bool is_read(std::string_view method) {
  return method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD;
}

Client* client_of(MHD_Connection* connection) {
  const auto* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
  return static_cast<Client*>(info->socket_context);
}

void note_client(void* argument, MHD_Connection* connection, void** context,
                 MHD_ConnectionNotificationCode what) {
  Clients& clients = static_cast<Server*>(argument)->clients();
  if (what == MHD_CONNECTION_NOTIFY_STARTED) {
    *context =
        clients.add(MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd);
  } else {
    clients.remove(static_cast<Client*>(*context));
  }
}

void note_end_of_answer(void* argument, MHD_Connection* connection, void** /*state*/,
                        MHD_RequestTerminationCode /*why*/) {
  static_cast<Server*>(argument)->clients().begin_request(client_of(connection));
}

// Called once for the headers, then for each part of a request's body, which is ignored, and at its end.
MHD_Result answer_request(void* argument, MHD_Connection* connection, const char* url, const char* method,
                          const char* /*version*/, const char* /*data*/, std::size_t* data_size,
                          void** state) {
  static char has_headers;
  auto* const server = static_cast<Server*>(argument);
  if (*state == nullptr && is_read(method)) {
    *state = &has_headers;
    return MHD_YES;
  }
  if (*data_size != 0) {
    *data_size = 0;
    return MHD_YES;
  }
  server->clients().begin_answer(client_of(connection));
  if (!is_read(method)) return send_text(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD\n");
  if (url == server->page().path) return send_page(connection, server->page());
  return send_text(connection, MHD_HTTP_NOT_FOUND, "not found; see " + server->page().path + "\n");
}

[[gnu::format(printf, 2, 0)]] void log_of_library(void* /*argument*/, const char* format, va_list arguments) {
  char text[256];
  std::vsnprintf(text, sizeof text, format, arguments);
  const std::string_view line(text);
  log_info(kModule, "%.*s", static_cast<int>(line.find_last_not_of('\n') + 1), text);
}

}  // namespace

Server::Server(EventManager* manager, int listening_socket, Page page)
    : manager_(manager),
      socket_(listening_socket),
      page_(std::move(page)),
      clients_(manager, [this](const Client& client) { close_late(client); }) {}

Server::~Server() {
  if (accept_timer_ != 0) event_timer_cancel(manager_, accept_timer_);
  if (timer_ != 0) event_timer_cancel(manager_, timer_);
  event_fd_remove(manager_, socket_);
  close(socket_);
  if (epoll_ >= 0) event_fd_remove(manager_, epoll_);
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
}

Status Server::start() {
  daemon_ = MHD_start_daemon(
      MHD_USE_EPOLL | MHD_USE_NO_LISTEN_SOCKET | MHD_USE_ERROR_LOG, 0, nullptr, nullptr, answer_request, this,
      MHD_OPTION_EXTERNAL_LOGGER, log_of_library, nullptr, MHD_OPTION_NOTIFY_CONNECTION, note_client, this,
      MHD_OPTION_NOTIFY_COMPLETED, note_end_of_answer, this, MHD_OPTION_CONNECTION_LIMIT, kMostClients,
      MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
      MHD_OPTION_END);
  if (daemon_ == nullptr) return kStatusNoMemory;
  const int epoll = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
  const auto run = [this](int, std::uint32_t) { serve(); };
  if (const Status status = event_fd_add(manager_, epoll, EPOLLIN, run)) return status;
  epoll_ = epoll;
  return event_fd_add(manager_, socket_, EPOLLIN, [this](int, std::uint32_t) { accept_clients(); });
}

void Server::accept_clients() {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  const int client =
      accept4(socket_, reinterpret_cast<sockaddr*>(&address), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (client >= 0) return take_client(client, reinterpret_cast<const sockaddr*>(&address), length);
  if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) pause_accepting();
}

void Server::take_client(int client, const sockaddr* address, unsigned length) {
  if (!make_room()) {
    log_info(kModule, "a client of %s is refused: %u others read their answers", page_.path.c_str(),
             kMostClients);
    close(client);
    return;
  }
  // The library closes a client that it does not take, and logs why.
  if (MHD_add_connection(daemon_, client, address, length) == MHD_YES) serve();
}

// A request that has arrived is read first: its client is not to be closed.
bool Server::make_room() {
  if (clients_.size() < kMostClients) return true;
  serve();
  if (clients_.size() < kMostClients) return true;
  if (clients_.close_oldest_without_request()) serve();
  return clients_.size() < kMostClients;
}

// The end of one without a request is not logged: a client that asks seldom leaves its connection open.
void Server::close_late(const Client& client) {
  if (client.has_asked) {
    log_info(kModule, "a client of %s is closed: it has not read its answer within %u s", page_.path.c_str(),
             kAnswerSeconds);
  }
  serve();
}

// The client waits in the kernel's queue, and the socket stays readable.
void Server::pause_accepting() {
  log_warning(kModule, "a client of %s waits: %s", page_.path.c_str(), std::strerror(errno));
  event_fd_remove(manager_, socket_);
  accept_timer_ = event_timer_start(manager_, kAcceptPause, [this] { resume_accepting(); });
}

void Server::resume_accepting() {
  accept_timer_ = 0;
  const auto accept = [this](int, std::uint32_t) { accept_clients(); };
  if (event_fd_add(manager_, socket_, EPOLLIN, accept) != kStatusOk) {
    accept_timer_ = event_timer_start(manager_, kAcceptPause, [this] { resume_accepting(); });
  }
}

void Server::serve() {
  if (timer_ != 0) event_timer_cancel(manager_, std::exchange(timer_, 0));
  MHD_run(daemon_);
  MHD_UNSIGNED_LONG_LONG milliseconds = 0;
  if (MHD_get_timeout(daemon_, &milliseconds) != MHD_YES) return;
  timer_ = event_timer_start(manager_, milliseconds * kNanosecondsPerMillisecond, [this] {
    timer_ = 0;
    serve();
  });
}

}  // namespace http
