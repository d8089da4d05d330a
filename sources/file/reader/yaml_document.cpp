// libyaml takes a ':' at the beginning of a value in brackets or braces for the one after a key, also in ::1.
// The parser sees two characters of private use instead of a word's first two colons; columns stay the same.
#include "sources/file/reader/yaml_document.h"

#include <yaml.h>

#include <algorithm>
#include <map>
#include <new>
#include <optional>

namespace router_file {

namespace {

constexpr std::string_view kColons = "::";
constexpr std::string_view kHiddenColons = "\xee\x80\x80\xee\x80\x80";
constexpr std::string_view kTagDirective = "%TAG";
constexpr std::size_t kTagDirectivesMax = 100;

bool is_one_of(char octet, std::string_view octets) {
  return octets.find(octet) != std::string_view::npos;
}

bool begins_word(std::string_view text, std::size_t at) {
  const std::size_t end = at + kColons.size();
  return at > 0 && is_one_of(text[at - 1], " \t\r\n,[{") && end < text.size() &&
         is_one_of(text[end], "/0123456789abcdefABCDEF");
}

// The text with hidden colons; none if there is nothing to hide, or if hidden colons could not be recognized.
std::optional<std::string> hide_colons(std::string_view text) {
  std::string hidden;
  std::size_t done = 0;
  for (std::size_t at = text.find(kColons); at != std::string_view::npos; at = text.find(kColons, at + 1)) {
    if (!begins_word(text, at)) continue;
    hidden.append(text.substr(done, at - done)).append(kHiddenColons);
    done = at + kColons.size();
  }
  if (done == 0 || text.find(kHiddenColons) != std::string_view::npos) return std::nullopt;
  return hidden.append(text.substr(done));
}

std::string show_colons(std::string_view scalar) {
  std::string shown;
  std::size_t done = 0;
  for (std::size_t at = scalar.find(kHiddenColons); at != std::string_view::npos;
       at = scalar.find(kHiddenColons, done)) {
    shown.append(scalar.substr(done, at - done)).append(kColons);
    done = at + kHiddenColons.size();
  }
  return shown.append(scalar.substr(done));
}

// libyaml compares each directive for tags with all others.
void check_directives(std::string_view text) {
  std::size_t directives = 0;
  for (std::size_t at = text.find(kTagDirective); at != std::string_view::npos;
       at = text.find(kTagDirective, at + 1)) {
    if (++directives <= kTagDirectivesMax) continue;
    refuse({1, 1}, "more than " + std::to_string(kTagDirectivesMax) + " times \"" +
                       std::string(kTagDirective) + "\"; remove these directives");
  }
}

Mark mark_of(const yaml_mark_t& mark) {
  return {static_cast<int>(mark.line + 1), static_cast<int>(mark.column + 1)};
}

// libyaml has no line and column of an octet that is not a character.
Mark mark_of_offset(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const std::string_view line = before.substr(before.rfind('\n') + 1);
  const auto begins_character = [](char octet) { return (octet & 0xc0) != 0x80; };
  return {static_cast<int>(std::ranges::count(before, '\n') + 1),
          static_cast<int>(std::ranges::count_if(line, begins_character) + 1)};
}

class Event {
 public:
  Event() = default;
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;
  ~Event() { yaml_event_delete(&event_); }
  yaml_event_t* operator->() { return &event_; }
  yaml_event_t& operator*() { return event_; }

 private:
  yaml_event_t event_{};
};

class EventParser {
 public:
  explicit EventParser(std::string_view text) : text_(text) {
    if (yaml_parser_initialize(&parser_) == 0) throw std::bad_alloc();
    yaml_parser_set_input_string(&parser_, reinterpret_cast<const yaml_char_t*>(text.data()), text.size());
  }
  EventParser(const EventParser&) = delete;
  EventParser& operator=(const EventParser&) = delete;
  ~EventParser() { yaml_parser_delete(&parser_); }

  void read(Event* event) {
    if (yaml_parser_parse(&parser_, &**event) == 0) refuse_text();
  }

 private:
  [[noreturn]] void refuse_text() const {
    if (parser_.error == YAML_MEMORY_ERROR) throw std::bad_alloc();
    if (parser_.error == YAML_READER_ERROR) {
      refuse(mark_of_offset(text_, parser_.problem_offset),
             std::string(parser_.problem) + "; the file is text in UTF-8");
    }
    refuse(mark_of(parser_.problem_mark), parser_.problem + context() + advice());
  }
  // Which part of the text the parser was reading, and where that begins.
  std::string context() const {
    if (parser_.context == nullptr) return "";
    const std::string context = std::string(" ") + parser_.context;
    if (parser_.context_mark.index == parser_.problem_mark.index) return context;
    const Mark mark = mark_of(parser_.context_mark);
    return context + " (from " + std::to_string(mark.line) + ":" + std::to_string(mark.column) + ")";
  }
  std::string advice() const {
    if (parser_.error == YAML_SCANNER_ERROR && *parser_.buffer.pointer == '\t')
      return "; write blanks instead of the tab";
    const std::string_view problem = parser_.problem;
    if (problem == "found unexpected ':'") return "; write a blank after the colon, or the word in quotes";
    if (problem == "did not find expected node content") return "; a value is missing before this place";
    return "";
  }

  std::string_view text_;
  yaml_parser_t parser_{};
};

bool is_null_word(std::string_view word) {
  return word.empty() || word == "~" || word == "null" || word == "Null" || word == "NULL";
}

}  // namespace

void refuse(const Mark& mark, const std::string& what) {
  throw Misreading(mark, what);
}

class DocumentBuilder {
 public:
  explicit DocumentBuilder(bool has_hidden_colons) : has_hidden_colons_(has_hidden_colons) {}
  YamlDocument take() { return std::move(document_); }

  void add(const yaml_event_t& event) {
    const Mark mark = mark_of(event.start_mark);
    switch (event.type) {
      case YAML_DOCUMENT_END_EVENT:
        ++documents_;
        break;
      case YAML_ALIAS_EVENT:
        add_alias(mark, event.data.alias.anchor);
        break;
      case YAML_SCALAR_EVENT:
        add_scalar(mark, event);
        break;
      case YAML_SEQUENCE_START_EVENT:
        open(add_node(Node::Kind::kSequence, mark, event.data.sequence_start.anchor));
        break;
      case YAML_MAPPING_START_EVENT:
        open(add_node(Node::Kind::kMap, mark, event.data.mapping_start.anchor));
        break;
      case YAML_SEQUENCE_END_EVENT:
      case YAML_MAPPING_END_EVENT:
        close();
        break;
      default:
        break;
    }
  }

 private:
  struct Open {
    Node* node;
    std::size_t before;  // nodes
  };

  void count(const Mark& mark, std::size_t nodes) {
    if (documents_ > 0) refuse(mark, "a second document; the file is one");
    if (open_.size() >= kDepthMax)
      refuse(mark, "more than " + std::to_string(kDepthMax) + " levels of nesting");
    nodes_ += nodes;
    if (nodes_ > kNodesMax) refuse(mark, "the file has more than " + std::to_string(kNodesMax) + " values");
  }
  Node* add_node(Node::Kind kind, const Mark& mark, const yaml_char_t* anchor, std::string scalar = {},
                 bool is_quoted = false) {
    count(mark, 1);
    Node* node = &document_.nodes.emplace_back(kind, mark, std::move(scalar), is_quoted);
    if (anchor != nullptr) anchors_[reinterpret_cast<const char*>(anchor)] = node;
    link(node);
    return node;
  }
  void add_scalar(const Mark& mark, const yaml_event_t& event) {
    const auto& scalar = event.data.scalar;
    const std::string_view word(reinterpret_cast<const char*>(scalar.value), scalar.length);
    const bool is_null =
        scalar.plain_implicit != 0 && scalar.style == YAML_PLAIN_SCALAR_STYLE && is_null_word(word);
    Node* const node =
        add_node(is_null ? Node::Kind::kNull : Node::Kind::kScalar, mark, scalar.anchor,
                 has_hidden_colons_ ? show_colons(word) : std::string(word), scalar.quoted_implicit != 0);
    node->size_ = 1;
  }
  void add_alias(const Mark& mark, const yaml_char_t* name) {
    const auto found = anchors_.find(reinterpret_cast<const char*>(name));
    if (found == anchors_.end()) refuse(mark, "no value above has the anchor of this alias");
    const Node* node = found->second;
    if (node->size_ == 0) refuse(mark, "an alias refers to a value that contains it");
    count(mark, node->size_);
    link(node);
  }
  void link(const Node* node) {
    if (open_.empty()) {
      document_.root = node;
    } else {
      open_.back().node->items_.push_back(node);
    }
  }
  void open(Node* node) { open_.push_back({node, nodes_ - 1}); }
  void close() {
    const Open closed = open_.back();
    open_.pop_back();
    closed.node->size_ = static_cast<std::uint32_t>(nodes_ - closed.before);
  }

  bool has_hidden_colons_;
  YamlDocument document_;
  std::map<std::string, const Node*, std::less<>> anchors_;
  std::vector<Open> open_;
  std::size_t nodes_ = 0;
  unsigned documents_ = 0;
};

YamlDocument parse_yaml(std::string_view text) {
  check_directives(text);
  const std::optional<std::string> hidden = hide_colons(text);
  EventParser parser(hidden ? *hidden : text);
  DocumentBuilder builder(hidden.has_value());
  for (bool is_end = false; !is_end;) {
    Event event;
    parser.read(&event);
    builder.add(*event);
    is_end = event->type == YAML_STREAM_END_EVENT;
  }
  return builder.take();
}

}  // namespace router_file
