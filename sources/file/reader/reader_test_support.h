// For tests of router files: what a text contains, and the error in an invalid one.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sources/file/reader/router_file.h"

namespace router_file {

inline RouterFile Read(const std::string& text) {
  RouterFile file;
  ParseError error;
  EXPECT_TRUE(parse(text, &file, &error)) << error.line << ":" << error.column << ": " << error.what << "\n"
                                          << text;
  return file;
}

// "LINE:COLUMN: what".
inline std::string ErrorIn(const std::string& text) {
  RouterFile file;
  file.references = {"unchanged"};
  ParseError error;
  EXPECT_FALSE(parse(text, &file, &error)) << text;
  EXPECT_EQ(file.references, std::vector<std::string>{"unchanged"}) << "nothing of the text is used";
  return std::to_string(error.line) + ":" + std::to_string(error.column) + ": " + error.what;
}

}  // namespace router_file
