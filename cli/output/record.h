// A decoded record of the daemon, which owns its texts.
#pragma once

#include <string>

#include "cli/session.h"
#include "mpls/vpn/mib/src/records/decoded.h"
#include "mpls/vpn/mib/src/records/layouts.h"

namespace cli {

// A text of a record; null is the empty text.
inline std::string text_or_empty(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

// For a cell of a table.
inline std::string text_or_dash(const char* text) {
  return text == nullptr || *text == '\0' ? "-" : text;
}

// T is the struct that the description describes.
template <typename T>
class Record {
 public:
  // `path` names the request in the Failure for octets that are not such a record. The description must
  // outlive it.
  Record(const Session& session, const std::string& path, const ParcelDescription& description,
         const kvtree::Octets& octets)
      : decoded_(description, octets.data(), octets.size()) {
    if (decoded_.status() != kStatusOk) {
      throw request_failure(session, path, decoded_.status(),
                            path + ": the answer is not of the type " + description.type_name +
                                " as this program knows it; are daemon and command line of one version?");
    }
  }

  const T& operator*() const { return *decoded_; }
  const T* operator->() const { return &*decoded_; }

 private:
  const Decoded<T> decoded_;
};

}  // namespace cli
