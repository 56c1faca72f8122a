#include "captured_output.h"

#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <unistd.h>

TEST(CapturedOutput, IsWhatWasPrintedAndNothingElse)
{
    std::string captured;
    const std::string around = printedBy([&] {
        printf("before ");
        captured = capturedOutput([] { printf("inside\n"); });
        printf("after\n");
    });
    EXPECT_EQ("inside\n", captured);
    EXPECT_EQ("before after\n", around);
}

TEST(CapturedOutput, MayBeLongOrEmpty)
{
    EXPECT_EQ("", capturedOutput([] {}));
    const std::string much = capturedOutput([] {
        for (int i = 0; i < 100'000; ++i)
            printf("%d\n", i);
    });
    EXPECT_EQ(588'890u, much.size());
}

// The daemon's own lines go to a duplicate of standard output and are never caught.
TEST(CapturedOutput, LeavesDuplicatesOfStandardOutputAlone)
{
    const int own = dup(STDOUT_FILENO);
    EXPECT_EQ("", capturedOutput([own] { EXPECT_EQ(0, write(own, "", 0)); }));
    EXPECT_EQ("shown", capturedOutput([] { printf("shown"); }));
    close(own);
}
