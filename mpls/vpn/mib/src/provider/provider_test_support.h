// For tests: requests to the provider's handlers, and their answers decoded.
#pragma once

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include "mpls/vpn/mib/src/records/layouts.h"
#include "mpls/vpn/mib/src/support/daemon_test_fixture.h"
#include "platform/core/parcel/parcel.h"

// The calls of the data store, as "call "path" numbers" (store_calls_test_support.cpp).
extern std::vector<std::string> store_calls;

// The argument block of a request for a VRF name and a number; what is not given is absent.
class NameAndNumber {
 public:
  explicit NameAndNumber(std::uint32_t form) { block_.form = form; }
  NameAndNumber& Name(const char* name) {
    block_.arg[0].text = name;
    block_.absent_mask &= ~1U;
    return *this;
  }
  NameAndNumber& Number(std::uint32_t number) {
    number_ = number;
    block_.arg[1].number = &number_;
    block_.absent_mask &= ~2U;
    return *this;
  }
  const RequestArgs* Block() const { return &block_; }

 private:
  RequestArgs block_{0x3, 0, 2, {}};
  std::uint32_t number_ = 0;
};

// The argument block of any request: `count` arguments, of which those that are not given are absent.
class Arguments {
 public:
  Arguments(std::uint32_t form, std::uint32_t count) : block_{~0U, form, count, {}} {}
  Arguments& Text(unsigned argument, const char* text) {
    block_.arg[argument].text = text;
    block_.absent_mask &= ~(1U << argument);
    return *this;
  }
  Arguments& Number(unsigned argument, std::uint32_t number) {
    numbers_[argument] = number;
    block_.absent_mask &= ~(1U << argument);
    return *this;
  }
  const RequestArgs* Block() const {
    for (unsigned i = 0; i < kKvMaxArguments; ++i) {
      if (block_.arg[i].text == nullptr) block_.arg[i].number = &numbers_[i];
    }
    return &block_;
  }

 private:
  mutable RequestArgs block_;  // completed by the conversion, so that the object can be copied before
  std::array<std::uint32_t, kKvMaxArguments> numbers_{};
};

// A record decoded from a reply; its destructor releases it.
template <typename Record>
class Decoded {
 public:
  Decoded(const ParcelDescription& description, const KvReply& reply) : description_(description) {
    EXPECT_EQ(reply.kind, kKvKindRecord);
    EXPECT_EQ(parcel_decode(&description_, reply.data, reply.length, &record_), kStatusOk);
  }
  ~Decoded() { EXPECT_EQ(parcel_free_indirections(&description_, &record_), kStatusOk); }
  Decoded(const Decoded&) = delete;
  Decoded& operator=(const Decoded&) = delete;
  const Record* operator->() const { return &record_; }

 private:
  const ParcelDescription& description_;
  Record record_{};
};

// A reply that frees its data.
class Reply {
 public:
  ~Reply() { std::free(reply_.data); }
  // Empty again.
  KvReply* Place() {
    std::free(reply_.data);
    reply_ = {};
    return &reply_;
  }
  const KvReply& Get() const { return reply_; }

 private:
  KvReply reply_{};
};
