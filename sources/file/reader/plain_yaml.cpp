// The position is always on a token or at the end of a line. Blocks begin on their first token, with its
// column as their indentation, and end on the first token that is not theirs.
#include "sources/file/reader/plain_yaml.h"

#include <algorithm>
#include <string>

namespace router_file {

namespace {

constexpr char kPlainTag[] = "?";
constexpr unsigned kMostLevels = 32;  // of the recursion; a router file has fewer

bool is_alphanumeric(char octet) {
  return (octet >= 'a' && octet <= 'z') || (octet >= 'A' && octet <= 'Z') || (octet >= '0' && octet <= '9');
}

// Within a plain value, also in flow maps and lists.
bool is_plain(char octet) {
  return is_alphanumeric(octet) || std::string_view("_-./:").find(octet) != std::string_view::npos;
}

bool is_key(char octet) {
  return is_alphanumeric(octet) || octet == '_' || octet == '-';
}

bool is_null(std::string_view word) {
  return word == "null" || word == "Null" || word == "NULL";
}

class PlainYaml {
 public:
  PlainYaml(std::string_view text, YAML::EventHandler* events) : text_(text), events_(events) {}

  bool read() {
    const auto is_expected = [](char octet) { return (octet >= ' ' && octet <= '~') || octet == '\n'; };
    if (!std::ranges::all_of(text_, is_expected)) return false;
    if (!next_line() || !is_key(now())) return false;
    events_->OnDocumentStart(mark());
    if (!block_map() || at_ < text_.size()) return false;
    events_->OnDocumentEnd();
    return true;
  }

 private:
  // --- The position

  char now() const { return at_ < text_.size() ? text_[at_] : '\n'; }
  char following() const { return at_ + 1 < text_.size() ? text_[at_ + 1] : '\n'; }
  int column() const { return static_cast<int>(at_ - line_start_); }
  YAML::Mark mark() const {
    YAML::Mark here;
    here.pos = static_cast<int>(at_);
    here.line = line_;
    here.column = column();
    return here;
  }
  bool skip(char octet) {
    if (now() != octet) return false;
    ++at_;
    return true;
  }
  void skip_spaces() {
    while (now() == ' ') ++at_;
  }
  // Moves over spaces and a comment. Whether the line ends there.
  bool ends_line() {
    const bool is_separated = column() == 0 || text_[at_ - 1] == ' ' || now() == ' ';
    skip_spaces();
    if (now() == '#' && is_separated) at_ = std::min(text_.find('\n', at_), text_.size());
    return now() == '\n';
  }
  // From the end of a line, or the start of the text, to the first token of a later line. False at the end.
  bool next_line() {
    while (ends_line()) {
      if (at_ >= text_.size()) return false;
      line_start_ = ++at_;
      ++line_;
    }
    return true;
  }
  bool is_item() const { return now() == '-' && following() == ' '; }

  // --- Blocks

  bool block_map() {
    const int indentation = column();
    events_->OnMapStart(mark(), kPlainTag, 0, YAML::EmitterStyle::Block);
    do {
      if (!block_key() || !block_value(indentation)) return false;
    } while (at_ < text_.size() && column() == indentation && !is_item());
    events_->OnMapEnd();
    return at_ >= text_.size() || column() < indentation;
  }
  bool block_key() {
    const std::size_t start = at_;
    const YAML::Mark here = mark();
    while (is_key(now())) ++at_;
    const std::string_view key = text_.substr(start, at_ - start);
    if (key.empty() || !is_alphanumeric(key.front()) || is_null(key) || !skip(':')) return false;
    events_->OnScalar(here, kPlainTag, 0, std::string(key));
    return now() == ' ' || now() == '\n';
  }
  // The value of a key of a map with this indentation.
  bool block_value(int indentation) {
    if (!ends_line()) return line_value();
    if (!next_line()) return false;
    if (is_item() && column() >= indentation) return block_list();
    return column() > indentation && nested(&PlainYaml::block_map);
  }
  bool block_list() {
    const int indentation = column();
    events_->OnSequenceStart(mark(), kPlainTag, 0, YAML::EmitterStyle::Block);
    do {
      ++at_;
      if (ends_line() || !(is_map_ahead() ? nested(&PlainYaml::block_map) : line_value())) return false;
    } while (at_ < text_.size() && column() == indentation && is_item());
    events_->OnSequenceEnd();
    return at_ >= text_.size() || column() <= indentation;
  }
  bool is_map_ahead() const {
    std::size_t end = at_;
    while (end < text_.size() && is_key(text_[end])) ++end;
    if (end == at_ || end >= text_.size() || text_[end] != ':') return false;
    return end + 1 >= text_.size() || text_[end + 1] == ' ' || text_[end + 1] == '\n';
  }

  // --- Values on one line

  // The rest of the line, and on to the next one.
  bool line_value() {
    if (!value(false) || !ends_line()) return false;
    next_line();
    return true;
  }
  bool value(bool is_in_flow) {
    if (now() == '{') return nested(&PlainYaml::flow_map);
    if (now() == '[') return nested(&PlainYaml::flow_list);
    if (now() == '"' || now() == '\'') return quoted_value();
    return plain_value(is_in_flow);
  }
  bool nested(bool (PlainYaml::*read_value)()) {
    if (++levels_ > kMostLevels) return false;
    const bool is_read = (this->*read_value)();
    --levels_;
    return is_read;
  }
  bool flow_map() {
    events_->OnMapStart(mark(), kPlainTag, 0, YAML::EmitterStyle::Flow);
    ++at_;
    do {
      skip_spaces();
      if (!block_key() || !skip(' ')) return false;
      skip_spaces();
      if (!value(true)) return false;
      skip_spaces();
    } while (skip(','));
    events_->OnMapEnd();
    return skip('}');
  }
  bool flow_list() {
    events_->OnSequenceStart(mark(), kPlainTag, 0, YAML::EmitterStyle::Flow);
    ++at_;
    skip_spaces();
    while (now() != ']') {
      if (!value(true)) return false;
      skip_spaces();
      if (now() == ']') break;
      if (!skip(',')) return false;
      skip_spaces();
      if (now() == ']') return false;
    }
    events_->OnSequenceEnd();
    return skip(']');
  }
  bool quoted_value() {
    const YAML::Mark here = mark();
    const char quote = text_[at_++];
    const std::size_t start = at_;
    while (now() != quote) {
      if (now() == '\n' || now() == '\\') return false;
      ++at_;
    }
    events_->OnScalar(here, kQuotedTag, 0, std::string(text_.substr(start, at_ - start)));
    ++at_;
    return now() != quote && now() != ':';
  }
  // Words that single spaces separate; a '#' after a space begins a comment.
  bool plain_value(bool is_in_flow) {
    const YAML::Mark here = mark();
    const std::size_t start = at_;
    if (!is_alphanumeric(now())) return false;
    const auto continues = [&] {
      if (now() == ' ') return is_plain(following()) && following() != ':';
      if (now() == ':') return is_plain(following());
      return is_plain(now()) || (now() == ',' && !is_in_flow);
    };
    while (continues()) ++at_;
    const std::string_view word = text_.substr(start, at_ - start);
    if (is_null(word) || now() == ':') return false;
    events_->OnScalar(here, kPlainTag, 0, std::string(word));
    return true;
  }

  std::string_view text_;
  YAML::EventHandler* events_;
  std::size_t at_ = 0;
  std::size_t line_start_ = 0;
  int line_ = 0;
  unsigned levels_ = 0;
};

}  // namespace

bool read_plain_yaml(std::string_view text, YAML::EventHandler* events) {
  return PlainYaml(text, events).read();
}

}  // namespace router_file
