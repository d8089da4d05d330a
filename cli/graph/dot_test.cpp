// Links of the kernel may have names that no router file can have; dot itself shows how it reads them.
#include "cli/graph/dot.h"

#include <gmock/gmock.h>

#include "cli/graph/svg.h"
#include "cli/system/program.h"

namespace cli {
namespace {

using ::testing::HasSubstr;

TEST(Dot, LabelsWithControlCharactersAndOtherOctetsAreShownEscaped) {
  if (!is_installed("dot")) GTEST_SKIP() << "no dot (package graphviz)";
  const std::string graph = "digraph { a [label=" + dot_label("x\ny\x1b\xff\"\\") + "] }";
  EXPECT_THAT(draw_svg(graph, std::chrono::minutes(1)), HasSubstr(R"(>x\x0ay\x1b\xff&quot;\</text>)"));
}

}  // namespace
}  // namespace cli
