// For tests: running configurations with one instance of BGP, and errors in them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "sources/frr/parser/running_config.h"

inline std::string family_of(const std::string& family, const std::string& lines) {
  return "router bgp 65000 vrf red\n !\n address-family " + family + "\n" + lines +
         " exit-address-family\nexit\n!\n";
}

inline frr::BgpInstance only_instance(const std::string& text) {
  const frr::RunningConfig config = frr::parse_running_config(text);
  EXPECT_THAT(config.errors, testing::IsEmpty());
  EXPECT_THAT(config.bgp, testing::SizeIs(1));
  return config.bgp.empty() ? frr::BgpInstance{} : config.bgp[0];
}

inline frr::LineError only_error(const std::string& text) {
  const frr::RunningConfig config = frr::parse_running_config(text);
  EXPECT_THAT(config.errors, testing::SizeIs(1));
  return config.errors.empty() ? frr::LineError{} : config.errors[0];
}
