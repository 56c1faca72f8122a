// porting_test.cpp: the figures and the differences that docs/porting.md tells people who port code, measured.
#include "vxw_shim.h"

#include "queues.h"

#include "harness/instrumented.h"
#include "harness/time_of.h"
#include "models/fixed_msg_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <errno.h>
#include <filesystem>
#include <fstream>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{
constexpr unsigned Forever = 0xFFFFFFFF;

int endAtOnce(...)
{
    return 0;
}

SEM_ID stackNoted;
std::atomic<size_t> stackBytes;

int noteStack(...)
{
    pthread_attr_t attributes;
    size_t bytes = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &bytes);
    pthread_attr_destroy(&attributes);
    stackBytes = bytes;
    semGive(stackNoted);
    return 0;
}

// The stack of a task that asks for `bytes`.
size_t stackOfATask(int bytes)
{
    stackNoted = semBCreate(0, SEM_EMPTY);
    EXPECT_EQ(0, taskSpawn("tStack", 0, 0, bytes, noteStack, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(0, semTake(stackNoted, Forever));
    return stackBytes;
}

// What `code` returns in a process of its own; 255 at most.
template <class Code>
int inAnotherProcess(Code code)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(code());
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status)) << status;
    return WEXITSTATUS(status);
}

std::atomic<int> handled;

// A handler that restarts what it interrupts, for one test.
class RestartingHandler
{
public:
    RestartingHandler()
    {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++handled; };
        action.sa_flags = SA_RESTART;
        handled = 0;
        sigaction(SIGUSR1, &action, &before_);
    }
    ~RestartingHandler()
    {
        sigaction(SIGUSR1, &before_, nullptr);
    }
    RestartingHandler(const RestartingHandler &) = delete;
    RestartingHandler &operator=(const RestartingHandler &) = delete;

private:
    struct sigaction before_ = {};
};

// Lets handlers run in `thread` until `enough()`.
template <class Enough>
void interrupt(std::thread &thread, Enough enough)
{
    while (!enough()) {
        pthread_kill(thread.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
}

size_t threadsOfThisProcess()
{
    size_t threads = 0;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator("/proc/self/task"))
        ++threads;
    return threads;
}
} // namespace

#if defined(__aarch64__)
TEST(Porting, AStackOfUpTo43690BytesIsTheDefaultOneOnArm64)
{
    const size_t whole = stackOfATask(0);
    EXPECT_EQ(whole, stackOfATask(4096));
    EXPECT_EQ(whole, stackOfATask(43690));
    EXPECT_GT(whole, stackOfATask(43691));
}
#else
TEST(Porting, AStackOf16384BytesIsGrantedThreeTimesElsewhere)
{
    EXPECT_LT(stackOfATask(16384), stackOfATask(0));
}
#endif

#ifdef KEL_EMULATED
constexpr bool Emulated = true;
#else
constexpr bool Emulated = false;
#endif

// Each finished task keeps its stack, two mappings, and a process may have some 65,530 of them.
TEST(Porting, AfterAbout32000FinishedTasksNoMoreStart)
{
    int mappings = 0;
    std::ifstream("/proc/sys/vm/max_map_count") >> mappings;
    if (mappings != 65530 || Emulated || UnderAddressSanitizer || UnderThreadSanitizer)
        GTEST_SKIP() << "SKIPPED: another limit of mappings (" << mappings << "), or something that maps on its own";
    const int thousands = inAnotherProcess([] {
        int started = 0;
        while (started < 50000 && taskSpawn("tShort", 0, 0, 0, endAtOnce, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) == 0)
            ++started;
        return started / 1000;
    });
    EXPECT_GE(thousands, 31);
    EXPECT_LE(thousands, 33);
}

TEST(Porting, AWaitOf214749TicksIsOverAtOnce)
{
    SEM_ID empty = semBCreate(0, SEM_EMPTY);
    EXPECT_LT(timeOf([&] { EXPECT_EQ(ETIMEDOUT, semTake(empty, 214749)); }), 5s);
    EXPECT_EQ(0, semDelete(empty));
}

TEST(Porting, ATimedWaitForACountEndsEarlyWith4ThoughTheHandlerRestarts)
{
    const RestartingHandler handler;
    SEM_ID empty = semBCreate(0, SEM_EMPTY);
    std::atomic<int> result{-1};
    std::thread waiting([&] { result = semTake(empty, 100000); });
    interrupt(waiting, [&] { return result != -1; });
    waiting.join();
    EXPECT_EQ(EINTR, result);
    EXPECT_EQ(0, semDelete(empty));
}

TEST(Porting, AWaitWithoutLimitForACountGoesOnWhenTheHandlerRestarts)
{
    const RestartingHandler handler;
    SEM_ID empty = semBCreate(0, SEM_EMPTY);
    std::atomic<int> result{-1};
    std::thread waiting([&] { result = semTake(empty, Forever); });
    interrupt(waiting, [] { return handled >= 20; });
    EXPECT_EQ(-1, result);
    EXPECT_EQ(0, semGive(empty));
    waiting.join();
    EXPECT_EQ(0, result);
    EXPECT_EQ(0, semDelete(empty));
}

TEST(Porting, ABinarySemaphoreIsEmptiedByTakesThatDoNotWait)
{
    SEM_ID flag = semBCreate(0, SEM_EMPTY);
    semGive(flag);
    semGive(flag);
    int taken = 0;
    while (semTake(flag, NO_WAIT) == OK)
        ++taken;
    EXPECT_EQ(2, taken);
    EXPECT_EQ(0, semDelete(flag));
}

TEST(Porting, AFailedReceiveIsErrorAsAnInt)
{
    MSG_Q_ID queue = msgQCreate(1, 8, MSG_Q_FIFO);
    char buffer[8];
    EXPECT_EQ(ERROR, static_cast<int>(msgQReceive(queue, buffer, sizeof buffer, NO_WAIT)));
    releaseQueue(queue);
}

TEST(Porting, TheChildOfAForkHasNoTimerTask)
{
    if (UnderThreadSanitizer)
        GTEST_SKIP() << "SKIPPED: the thread sanitizer has threads of its own";
    EXPECT_EQ(1, inAnotherProcess([] {
                  kel_utils_init();
                  const auto threads = static_cast<int>(threadsOfThisProcess());
                  return threads - inAnotherProcess([] { return static_cast<int>(threadsOfThisProcess()); });
              }));
}
