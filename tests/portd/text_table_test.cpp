#include "text_table.h"

#include <gtest/gtest.h>

using enum TextTable::Align;

TEST(TextTable, ColumnsAreAsWideAsTheirWidestCell)
{
    TextTable table({{"PORT", right}, {"NAME", left}, {"LINK", left}});
    table.addRow({"1", "swp1", "up"});
    table.addRow({"12345", "a-long-name", "down"});
    EXPECT_EQ(" PORT  NAME         LINK\n"
              "    1  swp1         up\n"
              "12345  a-long-name  down\n",
              table.text());
}

TEST(TextTable, WithoutRowsThereIsTheTitleLine)
{
    EXPECT_EQ("A  B\n", TextTable({{"A", left}, {"B", right}}).text());
}

TEST(TextTable, MissingCellsAreEmptyAndNoLineEndsInBlanks)
{
    TextTable table({{"A", left}, {"B", left}});
    table.addRow({"x"});
    table.addRow({"y", "1", "one too many"});
    EXPECT_EQ("A  B\nx\ny  1\n", table.text());
}

// Interface names may hold escape sequences; a terminal must not obey them.
TEST(Printable, ControlBytesAreReplacedAndOthersStay)
{
    EXPECT_EQ("a?[31mb?c\xc3\xa9", printable("a\x1b[31mb\x7f"
                                             "c\xc3\xa9"));
    EXPECT_EQ("", printable(""));
    EXPECT_EQ("???", printable("\n\r\t"));
}
