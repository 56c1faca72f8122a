#include "vxw_shim.h"

#include "harness/fail_allocation.h"
#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <string.h>
#include <wchar.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// The platform's call, defined here: the dynamic linker prefers it to the platform library's.
namespace
{
std::vector<std::pair<int, std::string>> shown;
std::function<void()> whileShowing;
} // namespace

extern "C" int cmNotifyCLI(int cli, const char *text)
{
    shown.emplace_back(cli, text);
    if (whileShowing)
        whileShowing();
    return -1; // which is to be ignored
}

namespace
{
using Shown = std::vector<std::pair<int, std::string>>;

const wchar_t Unprintable[] = {L'a', static_cast<wchar_t>(0x7FFFFFFF), 0}; // no multibyte form: a formatting error

// A caller's line buffer, exactly as large as it says: the address sanitizer watches both ends.
struct LineBuffer {
    explicit LineBuffer(size_t bytes, int handle = 7)
        : array(new char[bytes]()), size(bytes), cursor(array.get()), remaining(bytes), cli(handle)
    {
        shown.clear();
        whileShowing = nullptr;
    }

    template <class... Arguments>
    int print(const char *format, Arguments... arguments)
    {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        return dbgCliPrint(array.get(), size, &cursor, &remaining, cli, format, arguments...);
#pragma GCC diagnostic pop
    }

    std::string text() const
    {
        return std::string(array.get(), static_cast<size_t>(cursor - array.get()));
    }

    bool isConsistent() const
    {
        return cursor >= array.get() && static_cast<size_t>(cursor - array.get()) + remaining == size &&
               (remaining == 0 || *cursor == '\0');
    }

    std::unique_ptr<char[]> array;
    size_t size;
    char *cursor;
    size_t remaining;
    int cli;
};
} // namespace

TEST(DbgCliPrint, CollectsTextsWithoutOutput)
{
    LineBuffer line(1024);
    EXPECT_EQ("", printedBy([&] {
                  EXPECT_EQ(8, line.print("port %d\n", 17));
                  EXPECT_EQ(4, line.print("up %c", 'x'));
                  EXPECT_EQ(0, line.print("%s", ""));
              }));
    EXPECT_EQ("port 17\nup x", line.text());
    EXPECT_EQ(1024U - 12, line.remaining);
    EXPECT_TRUE(line.isConsistent());
    EXPECT_TRUE(shown.empty());
}

TEST(DbgCliPrint, A1024thCharacterSendsThe1023BeforeItAndStartsAfresh)
{
    for (int cli : {0, 7}) {
        LineBuffer line(1024, cli);
        const std::string first = printedBy([&] {
            for (int i = 0; i < 1023; ++i)
                EXPECT_EQ(1, line.print("%c", 'a' + i % 26));
        });
        EXPECT_EQ("", first);
        EXPECT_EQ(1U, line.remaining);
        const std::string full = line.text();
        EXPECT_EQ(1023U, full.size());

        const std::string second = printedBy([&] { EXPECT_EQ(1, line.print("%c", '!')); });
        EXPECT_EQ(cli == 0 ? full : "", second);
        EXPECT_EQ(cli == 0 ? Shown{} : Shown({{7, full}}), shown);
        EXPECT_EQ("!", line.text());
        EXPECT_EQ(1023U, line.remaining);
        EXPECT_TRUE(line.isConsistent());
    }
}

TEST(DbgCliPrint, ATextFitsWhenItsTerminatorFitsToo)
{
    LineBuffer line(8);
    EXPECT_EQ(7, line.print("1234567"));
    EXPECT_EQ("1234567", line.text());
    EXPECT_EQ(1U, line.remaining);
    EXPECT_TRUE(shown.empty());
}

TEST(DbgCliPrint, ATextThatFillsTheRoomWithoutItsTerminatorIsSentToTheNextBuffer)
{
    LineBuffer line(8);
    EXPECT_EQ(3, line.print("abc"));
    EXPECT_EQ(5, line.print("12345"));
    EXPECT_EQ(Shown({{7, "abc"}}), shown) << "nothing of the text that came too much";
    EXPECT_EQ("12345", line.text());
    EXPECT_TRUE(line.isConsistent());
}

TEST(DbgCliPrint, ATextThatCanNeverFitIsDroppedAndItsStartStaysBehindTheCursor)
{
    LineBuffer line(8);
    EXPECT_EQ(2, line.print("ab"));
    char *const cursor = line.cursor;
    for (const char *text : {"12345678", "12345678901234567890"}) {
        EXPECT_EQ(static_cast<int>(strlen(text)), line.print("%s", text));
        EXPECT_EQ(cursor, line.cursor);
        EXPECT_EQ(6U, line.remaining);
        EXPECT_STREQ("ab12345", line.array.get());
    }
    EXPECT_TRUE(shown.empty());
    EXPECT_EQ(1, line.print("c"));
    EXPECT_STREQ("abc", line.array.get());
}

TEST(DbgCliPrint, ATextOf1024CharactersIsDroppedAndOneOf1023IsKept)
{
    LineBuffer line(1024);
    EXPECT_EQ(1024, line.print("%1024d", 5));
    EXPECT_EQ(line.array.get(), line.cursor);
    EXPECT_EQ(1024U, line.remaining);
    EXPECT_EQ(1023, line.print("%1023d", 5));
    EXPECT_EQ(1U, line.remaining);
    EXPECT_TRUE(shown.empty());
}

TEST(DbgCliPrint, HandleZeroIsStandardOutputAndEveryOtherIsPassedOn)
{
    for (int cli : {1, -1, 0x7FFFFFFF}) {
        LineBuffer line(4, cli);
        EXPECT_EQ("", printedBy([&] {
                      line.print("ab");
                      line.print("cd");
                  }));
        EXPECT_EQ(Shown({{cli, "ab"}}), shown);
    }
    LineBuffer line(4, 0);
    EXPECT_EQ("%s", printedBy([&] {
                  line.print("%%s"); // a text, not a format, when it is sent
                  line.print("cd");
              }));
    EXPECT_TRUE(shown.empty());
}

TEST(DbgCliPrint, TheSecondFormattingStartsWithAllArgumentsAgain)
{
    LineBuffer line(32);
    line.print("0123456789");
    EXPECT_EQ(26, line.print("%s %d %.3f %lld %c", "text", -12, 1.5, 123456789LL, 'z'));
    EXPECT_EQ(Shown({{7, "0123456789"}}), shown);
    EXPECT_EQ("text -12 1.500 123456789 z", line.text());
}

TEST(DbgCliPrint, AFormattingErrorChangesNothing)
{
    LineBuffer line(16);
    EXPECT_EQ(2, line.print("ab"));
    EXPECT_GT(0, line.print("cd%ls", Unprintable));
    EXPECT_EQ("ab", line.text());
    EXPECT_STREQ("ab", line.array.get()) << "nothing of it can be shown by the last flush";
    EXPECT_EQ(14U, line.remaining);
    EXPECT_TRUE(shown.empty());
}

TEST(DbgCliPrint, ATextThatGrewWhileTheBufferWasSentIsDroppedWithResultZero)
{
    LineBuffer line(8);
    char text[32] = "12345";
    line.print("abc");
    whileShowing = [&] { strcpy(text, "12345678"); };
    EXPECT_EQ(0, line.print("%s", text));
    EXPECT_EQ(line.array.get(), line.cursor);
    EXPECT_EQ(8U, line.remaining);
}

TEST(DbgCliPrint, ATextThatVanishedWhileTheBufferWasSentLeavesAnEmptyBuffer)
{
    LineBuffer line(8);
    char text[32] = "12345";
    line.print("abc");
    whileShowing = [&] { text[0] = '\0'; };
    EXPECT_EQ(0, line.print("%s", text));
    EXPECT_EQ(line.array.get(), line.cursor);
    EXPECT_EQ(8U, line.remaining);
    EXPECT_STREQ("", line.array.get());
}

TEST(DbgCliPrint, AnErrorOfTheSecondFormattingIsReturnedAndTheBufferIsEmpty)
{
    LineBuffer line(8);
    wchar_t text[8] = L"12345";
    line.print("abc");
    whileShowing = [&] { wcscpy(text, Unprintable); };
    EXPECT_GT(0, line.print("%ls", text));
    EXPECT_EQ(line.array.get(), line.cursor);
    EXPECT_EQ(8U, line.remaining);
    EXPECT_EQ(Shown({{7, "abc"}}), shown);
}

// Callers that count every byte away come with no room at all and with no terminator in the array.
TEST(DbgCliPrint, WithoutAnyRoomLeftNothingOutsideTheArrayIsTouched)
{
    for (int cli : {0, 7}) {
        LineBuffer line(8, cli);
        memcpy(line.array.get(), "12345678", 8);
        line.cursor = line.array.get() + 8;
        line.remaining = 0;
        const std::string printed = printedBy([&] { EXPECT_EQ(2, line.print("ab")); });
        EXPECT_EQ(cli == 0 ? "1234567" : "", printed);
        EXPECT_EQ(cli == 0 ? Shown{} : Shown({{7, "1234567"}}), shown);
        EXPECT_EQ("ab", line.text());
        EXPECT_EQ(6U, line.remaining);
    }
    LineBuffer line(8);
    line.cursor = line.array.get() + 8;
    line.remaining = 0;
    EXPECT_EQ(8, line.print("12345678"));
    EXPECT_GT(0, line.print("%ls", Unprintable));
    EXPECT_EQ(line.array.get() + 8, line.cursor);
    EXPECT_EQ(0U, line.remaining);
}

// An empty text is no error: it, too, needs a byte for its end.
TEST(DbgCliPrint, AnEmptyTextWithoutAnyRoomLeftSendsWhatIsThere)
{
    LineBuffer line(8);
    memcpy(line.array.get(), "12345678", 8);
    line.cursor = line.array.get() + 8;
    line.remaining = 0;
    EXPECT_EQ(0, line.print("%s", ""));
    EXPECT_EQ(Shown({{7, "1234567"}}), shown);
    EXPECT_EQ("", line.text());
    EXPECT_EQ(8U, line.remaining);
}

TEST(DbgCliPrint, AnArrayOfNoBytesTakesNothing)
{
    LineBuffer line(0);
    EXPECT_EQ(2, line.print("ab"));
    EXPECT_EQ(0, line.print("%s", ""));
    EXPECT_EQ(0U, line.remaining);
    EXPECT_EQ(line.array.get(), line.cursor);
    EXPECT_TRUE(shown.empty());
}

TEST(DbgCliPrint, AnArrayOfOneByteSendsNothingAndKeepsNothing)
{
    LineBuffer line(1);
    EXPECT_EQ(1, line.print("a"));
    EXPECT_EQ(0, line.print("%s", ""));
    EXPECT_EQ(1U, line.remaining);
    EXPECT_TRUE(shown.empty());
}

TEST(DbgCliPrint, AllocatesNothing)
{
    LineBuffer line(64, 0);
    printf("%s", ""); // standard output has its buffer now
    FailAllocation failing(1);
    for (int i = 0; i < 10; ++i)
        line.print("%d,", i);
    EXPECT_FALSE(failing.happened());
}

// The model: texts that fit are appended, a text that does not sends the buffer first, one that never fits is dropped.
TEST(DbgCliPrintModel, AgreesOnAnySequenceOfTexts)
{
    const unsigned first = std::random_device()();
    for (unsigned seed = first; seed < first + 300; ++seed) {
        std::mt19937 random(seed);
        LineBuffer line(1 + random() % 40);
        std::string collected;
        Shown expected;
        for (int step = 0; step < 60; ++step) {
            const std::string text(random() % (random() % 8 == 0 ? 50 : 12), static_cast<char>('a' + step % 26));
            if (text.size() < line.size) {
                if (collected.size() + text.size() >= line.size) {
                    expected.emplace_back(7, collected);
                    collected.clear();
                }
                collected += text;
            }
            ASSERT_EQ(static_cast<int>(text.size()), line.print("%s", text.c_str())) << "seed " << seed;
            ASSERT_EQ(collected, line.text()) << "seed " << seed;
            ASSERT_EQ(line.size - collected.size(), line.remaining) << "seed " << seed;
        }
        ASSERT_EQ(expected, shown) << "seed " << seed;
    }
}

TEST(LogEarly, PrintsModuleLevelAndText)
{
    int result = 0;
    EXPECT_EQ("2|5: x\n", printedBy([&] { result = logEarly(2, 5, "%s", "x"); }));
    EXPECT_EQ(1, result);
    EXPECT_EQ("2|0: queue 7 full\n", printedBy([&] { result = logEarly(2, 0, "queue %d %s", 7, "full"); }));
    EXPECT_EQ(12, result);
}

TEST(LogEarly, SuppressesLevelsAbove5)
{
    for (int level : {6, 7, 0x7FFFFFFF})
        EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0, logEarly(2, level, "%s", "x")); })) << level;
}

TEST(LogEarly, PrintsLevels0To5AndNegativeOnesAsUnsigned)
{
    for (int level = 0; level <= 5; ++level)
        EXPECT_EQ(formatted("1|%d: x\n", level), printedBy([&] { EXPECT_EQ(1, logEarly(1, level, "x")); }));
    EXPECT_EQ("4294967295|4294967294: x\n", printedBy([] { EXPECT_EQ(1, logEarly(-1, -2, "x")); }));
}

TEST(LogEarly, AnEmptyTextIsALineOfItsOwn)
{
    EXPECT_EQ("2|1: \n", printedBy([] { EXPECT_EQ(0, logEarly(2, 1, "%s", "")); }));
}

TEST(LogEarly, CutsLongTextsTo1023Characters)
{
    for (size_t length : {1022U, 1023U, 1024U, 5000U}) {
        const std::string text(length, 'y');
        int result = 0;
        const std::string printed = printedBy([&] { result = logEarly(2, 4, "%s", text.c_str()); });
        EXPECT_EQ("2|4: " + text.substr(0, 1023) + "\n", printed) << length;
        EXPECT_EQ(static_cast<int>(std::min<size_t>(length, 1023)), result) << length;
    }
}

TEST(LogEarly, AFormattingErrorPrintsAnEmptyTextAndReturns1023)
{
    int result = 0;
    EXPECT_EQ("2|4: \n", printedBy([&] { result = logEarly(2, 4, "before%ls", Unprintable); }));
    EXPECT_EQ(1023, result);
}

TEST(LogEarly, LinesOfSeveralThreadsStayWhole)
{
    constexpr int threads = 4, lines = 200;
    const std::string printed = printedBy([] {
        std::vector<std::thread> running;
        for (int i = 0; i < threads; ++i)
            running.emplace_back([i] {
                for (int line = 0; line < lines; ++line)
                    logEarly(i, 1, "%0*d", 40, line);
            });
        for (auto &thread : running)
            thread.join();
    });
    std::vector<int> next(threads);
    size_t start = 0, end;
    for (; (end = printed.find('\n', start)) != std::string::npos; start = end + 1) {
        const auto thread = static_cast<size_t>(printed[start] - '0');
        ASSERT_LT(thread, size_t{threads});
        ASSERT_EQ(formatted("%zu|1: %040d", thread, next[thread]++), printed.substr(start, end - start));
    }
    EXPECT_EQ(printed.size(), start);
    EXPECT_EQ(std::vector<int>(threads, lines), next);
}

TEST(SysPhysMemTop, IsAllOnes)
{
    EXPECT_EQ(~uintptr_t{0}, reinterpret_cast<uintptr_t>(sysPhysMemTop()));
}

TEST(FastMemset, UsesTheLow8BitsOfTheValue)
{
    unsigned char bytes[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_EQ(bytes + 1, fast_memset(bytes + 1, 0x141, 4));
    const unsigned char expected[6] = {1, 0x41, 0x41, 0x41, 0x41, 1};
    EXPECT_EQ(0, memcmp(expected, bytes, 6));
    EXPECT_EQ(bytes, fast_memset(bytes, 7, 0));
    EXPECT_EQ(1, bytes[0]);
}

TEST(FastBzero, ClearsAndReturnsTheDestination)
{
    unsigned char bytes[4] = {1, 2, 3, 4};
    EXPECT_EQ(bytes + 1, fast_bzero(bytes + 1, 2));
    const unsigned char expected[4] = {1, 0, 0, 4};
    EXPECT_EQ(0, memcmp(expected, bytes, 4));
}

TEST(FastMemcpy, CopiesAndReturnsTheDestination)
{
    char bytes[6] = "-----";
    EXPECT_EQ(bytes + 1, fast_memcpy(bytes + 1, "abc", 3));
    EXPECT_STREQ("-abc-", bytes);
    EXPECT_EQ(bytes, fast_memcpy(bytes, "zzz", 0));
    EXPECT_STREQ("-abc-", bytes);
}

TEST(FastMemcmp, ComparesAsUnsignedBytes)
{
    EXPECT_EQ(0, fast_memcmp("abc", "abd", 2));
    EXPECT_GT(0, fast_memcmp("abc", "abd", 3));
    EXPECT_LT(0, fast_memcmp("\xFF", "\x01", 1));
    EXPECT_EQ(0, fast_memcmp("a", "b", 0));
}
