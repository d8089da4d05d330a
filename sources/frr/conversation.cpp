// A question has a line for the configuration, one for each further command, one for the programs that the
// shell is connected to, and a word that the shell does not know. That word in the output, as an echo or in
// an error message, marks the end, whatever the prompt is. Similar words are sent before, between and after
// the further commands. The words are random for each question, so that no description in a configuration can
// contain one.
//
// The shell has a process group of its own, so that it is killed with its children. It ends by itself with
// this process, because its input ends.
#include "sources/frr/conversation.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/core/base/fault.h"
#include "platform/core/text/words.h"

namespace frr {

namespace {

constexpr std::string_view kConfigurationStart = "\nCurrent configuration:\n";
constexpr std::string_view kConfigurationEnd = "\nend\n";
constexpr char kMarkStart[] = "mpls-vpn-mib-";

// Owns the arguments of posix_spawn().
struct SpawnPlan {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  SpawnPlan() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  ~SpawnPlan() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;
};

// The socket as standard input, output and error, and no other descriptor; no blocked signals; a new process
// group.
int plan_spawn(SpawnPlan* plan, int fd) {
  for (int standard = 0; standard < 3; ++standard) {
    if (const int error = posix_spawn_file_actions_adddup2(&plan->actions, fd, standard)) return error;
  }
  if (const int error = posix_spawn_file_actions_addclosefrom_np(&plan->actions, 3)) return error;
  sigset_t none;
  sigset_t defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigmask(&plan->attributes, &none);
  posix_spawnattr_setsigdefault(&plan->attributes, &defaults);
  posix_spawnattr_setpgroup(&plan->attributes, 0);
  return posix_spawnattr_setflags(&plan->attributes,
                                  POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
}

// This process's environment, but without a pager, translations and a history file.
std::vector<std::string> shell_environment() {
  constexpr std::array<std::string_view, 4> kSet{"VTYSH_PAGER=cat", "VTYSH_HISTFILE=/dev/null", "TERM=dumb",
                                                 "LC_ALL=C"};
  std::vector<std::string> environment(kSet.begin(), kSet.end());
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text = *entry;
    const std::string_view name = text.substr(0, text.find('=') + 1);
    const auto is_set = [name](std::string_view set) { return set.substr(0, name.size()) == name; };
    if (std::none_of(kSet.begin(), kSet.end(), is_set)) environment.emplace_back(text);
  }
  return environment;
}

std::vector<char*> pointers(std::vector<std::string>* texts) {
  std::vector<char*> list;
  for (std::string& text : *texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

int spawn(std::vector<std::string> command, int fd, pid_t* pid) {
  SpawnPlan plan;
  if (const int error = plan_spawn(&plan, fd)) return error;
  std::vector<std::string> environment = shell_environment();
  const std::vector<char*> arguments = pointers(&command);
  const std::vector<char*> variables = pointers(&environment);
  return posix_spawn(pid, command[0].c_str(), &plan.actions, &plan.attributes, arguments.data(),
                     variables.data());
}

// 128 bits, as digits.
Status random_token(std::string* token) {
  std::array<std::uint8_t, 16> octets;
  if (getrandom(octets.data(), octets.size(), 0) != static_cast<ssize_t>(octets.size())) {
    return static_cast<Status>(errno);
  }
  token->clear();
  for (const std::uint8_t octet : octets) {
    constexpr char kDigits[] = "0123456789abcdef";
    token->push_back(kDigits[octet >> 4]);
    token->push_back(kDigits[octet & 15]);
  }
  return kStatusOk;
}

bool has_word(std::string_view line, std::string_view wanted) {
  const std::vector<std::string_view> words = text::split(line, ' ');
  return std::ranges::find(words, wanted) != words.end();
}

template <typename Test>
bool any_line(std::string_view lines, const Test& test) {
  while (!lines.empty()) {
    if (test(text::take_until(&lines, '\n'))) return true;
  }
  return false;
}

// The list of connected programs is a line that starts with a blank.
bool is_connected(std::string_view text, std::string_view program) {
  return any_line(text, [program](std::string_view line) {
    return !line.empty() && line.front() == ' ' && has_word(line, program);
  });
}

// Much faster than a search for the first octet where that is a line feed.
std::size_t find_text(std::string_view text, std::string_view wanted, std::size_t from) {
  const std::string_view rest = text.substr(from);
  const void* found = memmem(rest.data(), rest.size(), wanted.data(), wanted.size());
  if (found == nullptr) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

// The shell's warnings about its connection.
constexpr std::array<std::string_view, 2> kWarnings{"Warning: closing connection", "Warning: connecting to"};

bool has_warning(std::string_view text) {
  const auto is_in = [text](std::string_view warning) {
    return find_text(text, warning, 0) != std::string_view::npos;
  };
  return std::ranges::any_of(kWarnings, is_in);
}

// Among the programs' lines, only a warning at the start of a line counts, because a description may contain
// the same text.
bool has_warning_line(std::string_view text) {
  const auto starts_a_line = [text](std::string_view warning) {
    std::size_t at = find_text(text, warning, 0);
    while (at != std::string_view::npos && at > 0 && text[at - 1] != '\n')
      at = find_text(text, warning, at + 1);
    return at != std::string_view::npos;
  };
  return std::ranges::any_of(kWarnings, starts_a_line);
}

// The last line before the prompt, for the log.
std::string last_words(std::string_view text) {
  constexpr std::size_t kShown = 120;
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.remove_suffix(1);
  const std::size_t start = text.rfind('\n');
  if (start != std::string_view::npos) text.remove_prefix(start + 1);
  std::string shown(text.substr(0, kShown));
  const auto is_control = [](char octet) { return static_cast<unsigned char>(octet) < ' '; };
  std::replace_if(shown.begin(), shown.end(), is_control, '?');
  return shown;
}

Answer not_whole(std::string reason) {
  Answer answer;
  answer.reason = std::move(reason);
  return answer;
}

// Takes the output of each command out of the text. False when one of the marks is missing.
bool take_parts(std::string_view* text, std::string_view token, std::size_t commands,
                std::vector<std::string>* shown) {
  for (std::size_t part = 0; part <= commands; ++part) {
    const std::string mark = part_mark(token, part);
    const std::size_t start = text->find(mark);
    if (start == std::string_view::npos) return false;
    if (part > 0) shown->emplace_back(text->substr(0, start));
    const std::size_t line_end = text->find('\n', text->rfind(mark));
    text->remove_prefix(std::min(line_end, text->size()));
  }
  return true;
}

// The last line of a shell is the same whether the suite has no such program or the program does not run.
Answer ended(std::string_view text, const std::string& program) {
  const std::string no_such = "Error: no daemons match name " + program + "!";
  Answer answer = not_whole("the shell ended: " + last_words(text));
  answer.unknown = any_line(text, [&no_such](std::string_view line) { return line == no_such; });
  return answer;
}

}  // namespace

std::string part_mark(std::string_view token, std::size_t part) {
  return kMarkStart + std::string(token) + "-part-" + std::to_string(part) + ".";
}

Answer read_shell_output(std::string text, std::string_view program, std::string_view token,
                         std::size_t commands) {
  const std::string_view all = text;
  std::size_t start = all.find(kConfigurationStart);
  if (start == std::string_view::npos) return not_whole("no configuration in its answer");
  start += kConfigurationStart.size();
  const std::size_t end = find_text(all, kConfigurationEnd, start - 1);
  if (end == std::string_view::npos) return not_whole("its configuration has no end");
  std::string_view rest = all.substr(end + kConfigurationEnd.size());
  Answer answer;
  if (commands > 0 && !take_parts(&rest, token, commands, &answer.shown)) {
    return not_whole("a command's answer is missing");
  }
  if (!is_connected(rest, program)) return not_whole("the shell has no connection to it");
  if (has_warning_line(all) || has_warning(all.substr(0, start)) || has_warning(rest)) {
    return not_whole("the shell lost its connection to it");
  }
  answer.whole = true;
  text.resize(end + 1);
  answer.configuration = std::move(text.erase(0, start));
  return answer;
}

Conversation::Conversation(std::vector<std::string> shell, std::string_view program, Limits limits)
    : command_(std::move(shell)), program_(program), limits_(limits), patience_now_(limits.patience) {
  command_.insert(command_.end(), {"-d", program_});
}

Conversation::~Conversation() {
  end();
  reap(true);
}

Status Conversation::ask(EventManager* manager, OnAnswer on_answer,
                         const std::vector<std::string>& commands) {
  if (const Status status = fault_check("frr_conversation_ask")) return status;
  if (on_answer_) return kStatusExists;
  manager_ = manager;
  reap(false);
  if (fd_ < 0) {
    if (const Status status = start_shell()) return status;
  }
  if (const Status status = send_question(commands)) {
    end();
    return status;
  }
  on_answer_ = std::move(on_answer);
  patience_ = event_timer_start(manager_, patience_now_, [this] { run_out(); });
  return kStatusOk;
}

Status Conversation::start_shell() {
  if (access(command_[0].c_str(), X_OK) != 0) return static_cast<Status>(errno);
  std::array<int, 2> ends{-1, -1};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return static_cast<Status>(errno);
  const int error = spawn(command_, ends[1], &shell_);
  close(ends[1]);
  fd_ = ends[0];
  if (error != 0) {
    shell_ = -1;
    end();
    return static_cast<Status>(error);
  }
  answered_ = false;
  const Status status = event_fd_add(manager_, fd_, EPOLLIN, [this](int, std::uint32_t) { read_answer(); });
  if (status) end();
  return status;
}

// A shell that does not accept all of the question will not answer either. One that has ended already is read
// to its end: its last words are the reason.
Status Conversation::send_question(const std::vector<std::string>& commands) {
  if (const Status status = random_token(&token_)) return status;
  mark_ = kMarkStart + token_ + "-end";
  commands_ = commands.size();
  // With a pager, each command would start a process. A shell that does not know this command uses the pager
  // from its environment, which does not wait.
  std::string question = answered_ ? "" : "no terminal paginate\n";
  question += "show running-config\n";
  for (std::size_t part = 0; part < commands_; ++part) {
    question += part_mark(token_, part) + "\n" + commands[part] + "\n";
  }
  if (commands_ > 0) question += part_mark(token_, commands_) + "\n";
  question += "show daemons\n" + mark_ + "\n";
  received_.clear();
  const ssize_t sent = send(fd_, question.data(), question.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return errno == EPIPE ? kStatusOk : static_cast<Status>(errno);
  return static_cast<std::size_t>(sent) == question.size() ? kStatusOk : kStatusIo;
}

// Level-triggered: the next iteration of the loop reads what does not fit.
void Conversation::read_answer() {
  constexpr std::size_t kPiece = 64U << 10;
  std::array<char, kPiece> piece;
  const ssize_t length = recv(fd_, piece.data(), piece.size(), MSG_DONTWAIT);
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (length <= 0) return finish(ended(received_, program_));
  if (!on_answer_) return;  // output between questions
  const std::size_t known = received_.size() - std::min(received_.size(), mark_.size());
  received_.append(piece.data(), static_cast<std::size_t>(length));
  const std::size_t mark = received_.find(mark_, known);
  if (mark != std::string::npos) {
    received_.resize(mark);
    return finish(read_shell_output(std::move(received_), program_, token_, commands_));
  }
  if (received_.size() <= limits_.answer_size) return;
  Answer answer = not_whole("its answer is too large");
  answer.too_large = true;
  finish(std::move(answer));
}

void Conversation::finish(Answer answer) {
  event_timer_cancel(manager_, patience_);
  patience_ = 0;
  std::string().swap(received_);  // clear() keeps the memory of a flood
  answer.first = !answered_;
  answered_ = answer.whole;
  if (answered_) patience_now_ = limits_.patience;
  const OnAnswer on_answer = std::exchange(on_answer_, nullptr);
  if (!answer.whole) end();
  if (on_answer) on_answer(std::move(answer));
}

void Conversation::run_out() {
  patience_now_ = std::max(limits_.patience, std::min(2 * patience_now_, limits_.longest_patience));
  finish(not_whole("no answer in time"));
}

void Conversation::end() {
  if (patience_ != 0) event_timer_cancel(manager_, patience_);
  patience_ = 0;
  on_answer_ = nullptr;
  std::string().swap(received_);
  if (fd_ >= 0) {
    event_fd_remove(manager_, fd_);
    close(fd_);
  }
  fd_ = -1;
  if (shell_ > 0) {
    kill(-shell_, SIGKILL);
    ended_.push_back(shell_);
  }
  shell_ = -1;
  reap(false);
}

void Conversation::reap(bool wait) {
  const auto is_reaped = [wait](pid_t pid) { return waitpid(pid, nullptr, wait ? 0 : WNOHANG) != 0; };
  std::erase_if(ended_, is_reaped);
}

}  // namespace frr
