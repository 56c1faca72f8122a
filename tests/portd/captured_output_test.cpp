#include "captured_output.h"

#include "harness/printed_by.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

TEST(CapturedOutput, IsWhatWasPrintedAndNothingElse)
{
    std::optional<std::string> captured;
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
    const std::optional<std::string> much = capturedOutput([] {
        for (int i = 0; i < 100'000; ++i)
            printf("%d\n", i);
    });
    ASSERT_TRUE(much);
    EXPECT_EQ(588'890u, much->size());
}

// The daemon's own lines go to a duplicate of standard output and are never caught.
TEST(CapturedOutput, LeavesDuplicatesOfStandardOutputAlone)
{
    const int own = dup(STDOUT_FILENO);
    EXPECT_EQ("", capturedOutput([own] { EXPECT_EQ(0, write(own, "", 0)); }));
    EXPECT_EQ("shown", capturedOutput([] { printf("shown"); }));
    close(own);
}

TEST(CapturedOutput, IsNoneAndNothingIsPrintedWhenNoDescriptorIsFree)
{
    rlimit limit{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &limit));
    const int firstFree = dup(STDIN_FILENO);
    close(firstFree);
    for (const int left : {0, 1}) { // it needs two
        const rlimit few = {static_cast<rlim_t>(firstFree + left), limit.rlim_max};
        bool called = false;
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
        const bool captured = capturedOutput([&called] { called = true; }).has_value();
        ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
        EXPECT_FALSE(captured);
        EXPECT_FALSE(called);
    }
    EXPECT_EQ("shown", capturedOutput([] { printf("shown"); })) << "none was kept";
}
