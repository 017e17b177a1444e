// Tables on a terminal.

#include "tools/spamreport/table.h"

#include <gtest/gtest.h>

TEST(AlignedTable, MeasuresCharactersOfWhatIsShownAndLeavesNoBlanksBehind) {
  EXPECT_EQ(
      Velmar::Tool::alignedTable({{"a", "b", ""}, {"gr\xc3\xbc\xc3\x9f", "", "x"}, {"\x1b[2J", "1"}, {}, {"a\nb"}}),
      "a        b\ngr\xc3\xbc\xc3\x9f        x\n\\x1b[2J  1\n\na\\nb\n");
}
