// The text format of Prometheus, version 0.0.4 (prometheus.io/docs/instrumenting/exposition_formats):
// families of samples, each family once with its type and a help text. Stateless but for the text; any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace metrics {

inline constexpr char kContentType[] = "text/plain; version=0.0.4; charset=utf-8";

enum class Type : std::uint8_t { kGauge, kCounter, kHistogram };

// REQUIRES: the name is valid, and only a counter's ends in "_total".
struct Family {
  std::string_view name;
  Type type;
  std::string_view help;  // one line
};

// The value may have any octets: those that are not UTF-8, for which a server refuses the whole scrape, are
// written as \xNN.
struct Label {
  std::string_view name;
  std::string_view value;
};
using Labels = std::initializer_list<Label>;

// Appends the samples of one family to a text.
class Samples {
 public:
  Samples(const Family& family, std::string* text) : family_(family), text_(text) {}
  void add_header();
  void add(Labels labels, std::uint64_t value) { add_to({}, labels, value); }
  // With a suffix of the family's name, for the parts of a histogram.
  void add_part(std::string_view suffix, Labels labels, std::uint64_t value) {
    add_to(suffix, labels, value);
  }
  void add_seconds(std::string_view suffix, Labels labels, double seconds);
  std::size_t size() const { return text_->size(); }

 private:
  void begin(std::string_view suffix, Labels labels);
  void add_to(std::string_view suffix, Labels labels, std::uint64_t value);

  const Family& family_;
  std::string* text_;
};

// The value as it is written between the quotation marks.
void append_escaped(std::string* text, std::string_view value);

}  // namespace metrics
