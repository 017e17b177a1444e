// Tables on a terminal.

#include "tools/spamreport/table.h"

#include <gtest/gtest.h>

namespace {

using Velmar::Tool::alignedTable;

TEST(AlignedTable, AlignsByCharactersAndLeavesNoBlanksBehind) {
  EXPECT_EQ(alignedTable({{"a", "b", ""}, {"gr\xc3\xbc\xc3\x9f", "", "x"}, {"long one"}}),
            "a         b\ngr\xc3\xbc\xc3\x9f         x\nlong one\n");
  EXPECT_EQ(alignedTable({}), "");
  EXPECT_EQ(alignedTable({{}, {""}}), "\n\n");
}

TEST(AlignedTable, MakesCellsPrintableBeforeItMeasures) {
  EXPECT_EQ(alignedTable({{"\x1b[2J", "1"}, {"a\nb", "2"}, {"\"\\\"", "3"}}),
            "\\x1b[2J  1\na\\nb     2\n\"\\\"      3\n");
}

}  // namespace
