#include "line_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace
{
constexpr size_t limit = 8;

// The lines of a stream, over-long ones as "<long>".
std::vector<std::string> linesOf(LineReader &reader, const std::string &bytes)
{
    std::vector<std::string> lines;
    reader.feed(bytes.data(), bytes.size());
    while (const auto line = reader.next())
        lines.push_back(line->tooLong ? "<long>" : line->text);
    return lines;
}

using Lines = std::vector<std::string>;
} // namespace

TEST(LineReader, SeveralLinesOfOneReadComeOneByOne)
{
    LineReader reader(limit);
    EXPECT_EQ((Lines{"one", "", "two"}), linesOf(reader, "one\n\ntwo\nth"));
    EXPECT_TRUE(reader.hasPartialLine());
    EXPECT_EQ((Lines{"three"}), linesOf(reader, "ree\n"));
    EXPECT_FALSE(reader.hasPartialLine());
}

TEST(LineReader, CarriageReturnBeforeTheEndIsDropped)
{
    LineReader reader(limit);
    EXPECT_EQ((Lines{"one", "a\rb"}), linesOf(reader, "one\r\na\rb\n"));
}

TEST(LineReader, LineOfExactlyTheLimitIsTaken)
{
    LineReader reader(limit);
    EXPECT_EQ((Lines{"12345678", "12345678"}), linesOf(reader, "12345678\n12345678\r\n"));
}

TEST(LineReader, LongerLineIsReportedOnceAndDroppedToItsEnd)
{
    LineReader reader(limit);
    EXPECT_EQ((Lines{"<long>"}), linesOf(reader, "1234567890"));
    EXPECT_EQ((Lines{}), linesOf(reader, "and more and more and more"));
    EXPECT_TRUE(reader.hasPartialLine());
    EXPECT_EQ((Lines{"next"}), linesOf(reader, "the end\nnext\n"));
}

TEST(LineReader, LongerLineThatComesWholeIsReportedOnceToo)
{
    LineReader reader(limit);
    EXPECT_EQ((Lines{"<long>", "next"}), linesOf(reader, "123456789\nnext\n"));
    EXPECT_EQ((Lines{"<long>", "next"}), linesOf(reader, "123456789012\nnext\n"));
}

TEST(LineReader, ZeroBytesAreBytesOfALine)
{
    LineReader reader(limit);
    EXPECT_EQ((Lines{std::string("a\0b", 3)}), linesOf(reader, std::string("a\0b\n", 4)));
}

// However the stream is cut, the lines are the same.
TEST(LineReader, LinesDoNotDependOnHowTheBytesArrive)
{
    const std::string stream = "a\n12345678\n123456789\n\r\n1234567890123456789012345\nb\r\n12345678\r\nlast";
    LineReader whole(limit);
    const Lines expected = linesOf(whole, stream);
    ASSERT_EQ((Lines{"a", "12345678", "<long>", "", "<long>", "b", "12345678"}), expected);
    for (unsigned seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        LineReader reader(limit);
        Lines lines;
        for (size_t at = 0; at < stream.size();) {
            const size_t count = 1 + random() % 12;
            const Lines some = linesOf(reader, stream.substr(at, count));
            lines.insert(lines.end(), some.begin(), some.end());
            at += count;
        }
        ASSERT_EQ(expected, lines) << "seed " << seed;
        ASSERT_TRUE(reader.hasPartialLine());
    }
}
