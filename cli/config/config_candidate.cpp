// The file is truncated, not removed, so that a process that waits for its lock gets the file that the next
// one opens.
#include "cli/config/config_candidate.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string_view>

#include "platform/core/files/lock_file.h"
#include "platform/core/files/private_files.h"
#include "platform/store/tree/kvtree.h"

namespace cli {

namespace {

constexpr std::string_view kCandidate = "candidate.";

std::filesystem::path state_home() {
  const char* home = std::getenv("XDG_STATE_HOME");
  if (home != nullptr && *home == '/') return home;
  home = std::getenv("HOME");
  if (home != nullptr && *home == '/') return std::filesystem::path(home) / ".local/state";
  throw Failure(kExitFailed,
                "the candidate cannot be stored: set XDG_STATE_HOME or HOME to an absolute path");
}

std::string candidate_path(const Session& session) {
  const std::filesystem::path directory = state_home() / "mplsvpn";
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) throw Failure(kExitFailed, fmt::format("{}: {}", directory.string(), error.message()));
  if (const Status status = prepare_directory(directory, kStateDirectoryMode))
    throw Failure(kExitFailed, fmt::format("{}: {}", directory.string(), err_text(status)));
  return directory / (std::string(kCandidate) + kvtree_encode_text(session.socket));
}

// The run directory of a file's daemon; empty for another name.
std::filesystem::path run_directory_of(std::string name) {
  if (!name.starts_with(kCandidate)) return {};
  name.erase(0, kCandidate.size());
  char* socket = nullptr;
  if (kvtree_string_decode(name.c_str(), &socket) != kStatusOk) return {};
  const std::filesystem::path path = socket;
  std::free(socket);
  return path.is_absolute() ? path.parent_path() : std::filesystem::path();
}

// The empty ones of daemons whose run directory no longer exists, such as of tests: nothing else would remove
// them. Edits stay: the service manager removes the run directory whenever it stops a daemon.
void remove_stale_candidates(const std::filesystem::path& own) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(own.parent_path(), error)) {
    const std::filesystem::path directory = run_directory_of(entry.path().filename());
    if (entry.path() == own || directory.empty()) continue;
    if (!entry.is_regular_file(error) || entry.file_size(error) > 0 || error) continue;
    if (!std::filesystem::exists(directory, error) && !error) std::filesystem::remove(entry.path(), error);
  }
}

// Not if it has lost its permissions or belongs to another user.
bool can_be_opened(const std::string& path) {
  const int file = open_private_file(path, O_RDWR);
  if (file < 0) return false;
  close(file);
  return true;
}

constexpr std::string_view kBegunAfter = "# after commit ";

// Of the first line.
std::string commit_of(std::string_view text) {
  if (!text.starts_with(kBegunAfter)) return {};
  text.remove_prefix(kBegunAfter.size());
  return std::string(text.substr(0, text.find('\n')));
}

std::vector<ConfigEdit> parse_candidate(const std::string& text, const std::string& path) try {
  return parse_edits(text, path);
} catch (const Failure& failure) {
  throw Failure(failure.exit_status(),
                fmt::format("{}; \"mplsvpn config discard\" drops the candidate", failure.what()));
}

}  // namespace

// Delegates, so that the destructor closes the file if it cannot be read.
Candidate::Candidate(const Session& session) : Candidate() {
  const std::string text = open(session);
  edits_ = parse_candidate(text, path_);
  begun_after_ = commit_of(text);
}

Candidate::~Candidate() {
  if (file_ >= 0) close(file_);
}

std::string Candidate::open(const Session& session) {
  path_ = candidate_path(session);
  remove_stale_candidates(path_);
  file_ = open_private_file(path_, O_RDWR | O_APPEND);
  if (file_ < 0) throw failure(errno);
  lock();
  return read();
}

std::optional<std::size_t> Candidate::discard(const Session& session) {
  const std::string path = candidate_path(session);
  std::error_code error;
  const auto type = std::filesystem::symlink_status(path, error).type();
  if (type == std::filesystem::file_type::not_found) return std::nullopt;
  if (type != std::filesystem::file_type::regular || !can_be_opened(path)) {
    if (std::filesystem::remove(path, error)) return 0;
    throw Failure(kExitFailed, fmt::format("{}: {}", path, error.message()));
  }
  Candidate candidate;
  const std::string text = candidate.open(session);
  if (text.empty()) return std::nullopt;
  candidate.clear();
  const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
  return text.starts_with(kBegunAfter) && lines > 0 ? lines - 1 : lines;
}

void Candidate::lock() const {
  pid_t holder = 0;
  const Status status = lock_file(file_, candidate_patience, &holder);
  if (status == kStatusTimedOut) {
    throw Failure(kExitFailed, fmt::format("{}: {} has it locked: wait for its end, or end it", path_,
                                           describe_process(holder)));
  }
  if (status != kStatusOk) throw failure(static_cast<int>(status));
}

std::string Candidate::read() const {
  std::string text;
  std::array<char, 4096> octets{};
  while (true) {
    const ssize_t count = pread(file_, octets.data(), octets.size(), static_cast<off_t>(text.size()));
    if (count < 0) throw failure(errno);
    if (count == 0) return text;
    text.append(octets.data(), static_cast<std::size_t>(count));
  }
}

void Candidate::append(const std::vector<ConfigEdit>& edits, const std::string& newest_commit) {
  if (edits.empty()) return;
  std::string text;
  if (edits_.empty()) text = fmt::format("{}{}\n", kBegunAfter, newest_commit);
  for (const ConfigEdit& edit : edits) text += edit_line(edit) + '\n';
  const off_t before = lseek(file_, 0, SEEK_END);
  const ssize_t written = write(file_, text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) return;
  const int error = written < 0 ? errno : ENOSPC;
  if (before >= 0 && ftruncate(file_, before) != 0) throw failure(errno);
  throw failure(error);
}

void Candidate::clear() {
  if (ftruncate(file_, 0) != 0) throw failure(errno);
}

Failure Candidate::failure(int error) const {
  return {kExitFailed,
          fmt::format("{}: {}", path_, std::error_code(error, std::generic_category()).message())};
}

}  // namespace cli
