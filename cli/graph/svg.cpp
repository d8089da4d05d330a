#include "cli/graph/svg.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "cli/session.h"
#include "cli/system/program.h"

namespace cli {

namespace {

constexpr char kProgram[] = "dot";
constexpr char kMissing[] =
    "dot is not installed, which draws the graph: apt-get install graphviz, or use --format dot";

Failure memory_failure() {
  return {kExitFailed, fmt::format("no memory for the graph: {}", std::strerror(errno))};
}

// A file in memory that a child process opens by its path.
class MemoryFile {
 public:
  explicit MemoryFile(const char* name) : handle_(memfd_create(name, 0)) {
    if (handle_ < 0) throw memory_failure();
  }
  ~MemoryFile() { close(handle_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return fmt::format("/dev/fd/{}", handle_); }

  void write(const std::string& text) {
    for (std::size_t done = 0; done < text.size();) {
      const ssize_t length = ::write(handle_, text.data() + done, text.size() - done);
      if (length < 0 && errno != EINTR) throw memory_failure();
      if (length > 0) done += static_cast<std::size_t>(length);
    }
  }

  std::string contents() const {
    std::string text;
    std::array<char, 65536> octets;
    for (;;) {
      const ssize_t length = pread(handle_, octets.data(), octets.size(), static_cast<off_t>(text.size()));
      if (length < 0 && errno == EINTR) continue;
      if (length < 0) throw memory_failure();
      if (length == 0) return text;
      text.append(octets.data(), static_cast<std::size_t>(length));
    }
  }

 private:
  const int handle_;
};

std::string problem_of(const Ran& ran) {
  if (!ran.problem.empty())
    return fmt::format(
        "dot did not draw the graph, as {}: allow more by --time-limit, or draw --format dot with "
        "another program, such as sfdp",
        ran.problem);
  return fmt::format("dot failed: {}", last_line(ran.output));
}

}  // namespace

std::string draw_svg(const std::string& graph, std::chrono::milliseconds limit) {
  if (!is_installed(kProgram)) throw Failure(kExitFailed, kMissing);
  MemoryFile input("graph.dot");
  const MemoryFile output("graph.svg");
  input.write(graph);
  const Ran ran = run_program({kProgram, "-Tsvg", "-o", output.path(), input.path()}, limit);
  if (ran.status != 0) throw Failure(kExitFailed, problem_of(ran));
  return output.contents();
}

}  // namespace cli
