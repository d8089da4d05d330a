// A record decoded with its description.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/core/parcel/parcel.h"

// Owns the record's texts. The description must outlive it.
template <typename Record>
class Decoded {
 public:
  Decoded(const ParcelDescription& description, const std::uint8_t* octets, std::size_t length)
      : description_(description), status_(parcel_decode(&description, octets, length, &record_)) {}
  ~Decoded() {
    // Fails for a description that does not fit its record only, and then nothing was decoded.
    if (status_ == kStatusOk) static_cast<void>(parcel_free_indirections(&description_, &record_));
  }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;

  Status status() const { return status_; }
  const Record& operator*() const { return record_; }
  const Record* operator->() const { return &record_; }

 private:
  const ParcelDescription& description_;
  Record record_{};
  Status status_;
};
