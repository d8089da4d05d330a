// For tests: an operation fails with the status of its fault point.
#pragma once

#include <gtest/gtest.h>

#include "platform/core/base/fault.h"

template <typename Operation>
void ExpectFault(const char* point, const Operation& operation, Status status = kStatusNoMemory) {
  const ScopedFault fault(point, status);
  EXPECT_EQ(operation(), status) << point;
}
