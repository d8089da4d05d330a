// The parser reads through a stream buffer that counts how many tokens it may hold. The bound ends the
// stream, because the parser takes no exceptions from it; the error of a text that seems to end there is then
// replaced.
//
// A document in braces (JSON) begins with what could be a key, and the parser would look ahead to its end.
// After
// "--- " on the same line it does not, so the text is read as if that had been written before the brace.
#include "sources/file/reader/yaml_document.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <array>
#include <istream>
#include <map>
#include <streambuf>
#include <utility>

#include "sources/file/reader/plain_yaml.h"

namespace router_file {

namespace {

constexpr std::string_view kDocumentStart = "--- ";
constexpr int kStartLength = static_cast<int>(kDocumentStart.size());

bool may_start_token(char octet) {
  return std::string_view("[]{},:?&*!|>'\"%@`").find(octet) != std::string_view::npos;
}

// Line and column, counted from 0.
YAML::Mark mark_at(std::string_view before) {
  YAML::Mark mark;
  mark.pos = static_cast<int>(before.size());
  mark.line = static_cast<int>(std::ranges::count(before, '\n'));
  const std::size_t line_end = before.rfind('\n');
  mark.column =
      static_cast<int>(line_end == std::string_view::npos ? before.size() : before.size() - line_end - 1);
  return mark;
}

}  // namespace

void refuse(const YAML::Mark& mark, const std::string& what) {
  throw Misreading(mark, what);
}

// The text in pieces, until the parser has read too much without an event.
class BoundedText : public std::streambuf {
 public:
  explicit BoundedText(std::string_view text) : text_(text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos || text[first] != '{') return;
    if (first > 0 && text[first - 1] != '\n') return;  // "---" is at the start of a line
    at_ = first;
    skipped_lines_ = mark_at(text.substr(0, first)).line;
    starts_with_insertion_ = is_insertion_left_ = true;
  }
  // The parser reports what it has read. False when it has read too much for one report.
  bool event() {
    if (has_ended_early_) return false;
    seen_ = 0;
    event_at_ = at_;
    return true;
  }
  bool has_ended_early() const { return has_ended_early_; }
  // The line of the last event, or one that the parser had read then.
  YAML::Mark last_event() const {
    YAML::Mark mark = mark_at(text_.substr(0, event_at_));
    mark.column = 0;
    return mark;
  }
  // The position in the text of what the parser sees at `mark`.
  YAML::Mark original(YAML::Mark mark) const {
    // At the end of a text that is not UTF-8 the mark is the beginning of what is read, the insertion.
    if (starts_with_insertion_ && mark.line == 0) mark.column = std::max(mark.column - kStartLength, 0);
    mark.line += skipped_lines_;
    return mark;
  }

 protected:
  int_type underflow() override {
    const bool is_insertion = std::exchange(is_insertion_left_, false);
    const std::string_view piece = is_insertion ? kDocumentStart : text_.substr(at_, kPiece);
    if (!is_insertion) at_ += piece.size();
    seen_ += static_cast<std::size_t>(std::ranges::count_if(piece, may_start_token));
    has_ended_early_ = has_ended_early_ || seen_ > kLookAheadMax;
    if (piece.empty() || has_ended_early_) return traits_type::eof();
    std::ranges::copy(piece, buffer_.begin());
    setg(buffer_.data(), buffer_.data(), buffer_.data() + piece.size());
    return traits_type::to_int_type(buffer_.front());
  }

 private:
  static constexpr std::size_t kPiece = 4096;
  std::array<char, kPiece> buffer_{};
  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t event_at_ = 0;
  std::size_t seen_ = 0;  // characters that may start a token, since the last event
  int skipped_lines_ = 0;
  bool starts_with_insertion_ = false;
  bool is_insertion_left_ = false;
  bool has_ended_early_ = false;
};

[[noreturn]] static void refuse_look_ahead(const BoundedText& text) {
  refuse(text.last_event(),
         "too many values in brackets where a key could be: write each on a line of its own, after \"- \"");
}

class DocumentBuilder : public YAML::EventHandler {
 public:
  explicit DocumentBuilder(BoundedText* text) : text_(text) {}
  YamlDocument take() { return std::move(document_); }

  void OnDocumentStart(const YAML::Mark& /*mark*/) override {}
  void OnDocumentEnd() override { ++documents_; }
  void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    leaf(add(Node::Kind::kNull, mark, anchor));
  }
  void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                const std::string& value) override {
    leaf(add(Node::Kind::kScalar, mark, anchor, value, tag == kQuotedTag));
  }
  void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
    const Node* node = anchors_.at(anchor);
    if (node->size_ == 0) refuse(text_->original(mark), "an alias refers to a value that contains it");
    begin_event(mark, node->size_);
    link(node);
  }
  void OnSequenceStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                       YAML::EmitterStyle::value /*style*/) override {
    open(add(Node::Kind::kSequence, mark, anchor));
  }
  void OnSequenceEnd() override { close(); }
  void OnMapStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                  YAML::EmitterStyle::value /*style*/) override {
    open(add(Node::Kind::kMap, mark, anchor));
  }
  void OnMapEnd() override { close(); }

 private:
  struct Open {
    Node* node;
    std::size_t before;  // nodes
  };

  void begin_event(const YAML::Mark& mark, std::size_t nodes) {
    if (!text_->event()) refuse_look_ahead(*text_);
    const YAML::Mark here = text_->original(mark);
    if (documents_ > 0) refuse(here, "a router file is one document");
    if (open_.size() >= kDepthMax)
      refuse(here, "more than " + std::to_string(kDepthMax) + " levels of nesting");
    nodes_ += nodes;
    if (nodes_ > kNodesMax) refuse(here, "the file has more than " + std::to_string(kNodesMax) + " values");
  }
  Node* add(Node::Kind kind, const YAML::Mark& mark, YAML::anchor_t anchor, const std::string& scalar = {},
            bool is_quoted = false) {
    begin_event(mark, 1);
    Node* node = &document_.nodes.emplace_back(kind, text_->original(mark), scalar, is_quoted);
    if (anchor != 0) anchors_[anchor] = node;
    link(node);
    return node;
  }
  void link(const Node* node) {
    if (open_.empty()) {
      document_.root = node;
    } else {
      open_.back().node->items_.push_back(node);
    }
  }
  static void leaf(Node* node) { node->size_ = 1; }
  void open(Node* node) { open_.push_back({node, nodes_ - 1}); }
  void close() {
    const Open closed = open_.back();
    open_.pop_back();
    closed.node->size_ = static_cast<std::uint32_t>(nodes_ - closed.before);
  }

  BoundedText* text_;
  YamlDocument document_;
  std::map<YAML::anchor_t, const Node*> anchors_;
  std::vector<Open> open_;
  std::size_t nodes_ = 0;
  unsigned documents_ = 0;
};

// False for a text that the library has to read, or to refuse.
static bool build_plain(std::string_view text, YamlDocument* document) {
  BoundedText nothing({});
  DocumentBuilder builder(&nothing);
  try {
    if (!read_plain_yaml(text, &builder)) return false;
  } catch (const Misreading&) {
    return false;
  }
  *document = builder.take();
  return true;
}

YamlDocument parse_yaml(std::string_view text) {
  YamlDocument plain;
  if (build_plain(text, &plain)) return plain;
  BoundedText bounded(text);
  DocumentBuilder builder(&bounded);
  try {
    std::istream stream(&bounded);
    YAML::Parser parser(stream);
    while (parser.HandleNextDocument(builder)) {
    }
  } catch (YAML::Exception& exception) {
    if (bounded.has_ended_early()) refuse_look_ahead(bounded);
    exception.mark = bounded.original(exception.mark);
    throw;
  }
  if (bounded.has_ended_early()) refuse_look_ahead(bounded);
  return builder.take();
}

}  // namespace router_file
