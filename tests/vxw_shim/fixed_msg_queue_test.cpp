#include "vxw_shim.h"

#include "harness/fail_allocation.h"
#include "harness/instrumented.h"
#include "harness/printed_by.h"
#include "harness/time_of.h"
#include "models/fixed_msg_queue.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <malloc.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

// The library waits and wakes through the dynamic linker, so these come first: a test can stand in for the moment.
namespace
{
thread_local std::function<int(pthread_cond_t *, pthread_mutex_t *, const timespec *)> instead;
thread_local std::function<void(pthread_cond_t *)> whenBroadcasting;

template <class Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
} // namespace

extern "C" {
int pthread_cond_timedwait(pthread_cond_t *changed, pthread_mutex_t *lock, const timespec *deadline)
{
    static auto *const real =
        next<int(pthread_cond_t *, pthread_mutex_t *, const timespec *)>("pthread_cond_timedwait");
    return instead ? instead(changed, lock, deadline) : real(changed, lock, deadline);
}

int pthread_cond_broadcast(pthread_cond_t *changed) noexcept
{
    static auto *const real = next<int(pthread_cond_t *)>("pthread_cond_broadcast");
    if (whenBroadcasting)
        whenBroadcasting(changed);
    return real(changed);
}
}

namespace
{
constexpr unsigned Forever = 0xFFFFFFFF;
constexpr unsigned Nothing = 0xFFFFFFFF;
constexpr unsigned PastDeadlines[] = {214749, 300000, 429496, 0xFFFFFFFE}; // a negative product

// A queue that ends with the test.
class Queue
{
public:
    Queue(int maxMessages, int maxMessageLength) : queue_(msgQCreate(maxMessages, maxMessageLength, 0)) {}
    ~Queue()
    {
        instead = nullptr;
        whenBroadcasting = nullptr;
        releaseQueue(queue_);
    }
    Queue(const Queue &) = delete;
    Queue &operator=(const Queue &) = delete;
    operator MSG_Q_ID() const
    {
        return queue_;
    }
    MSG_Q_ID operator->() const
    {
        return queue_;
    }

    int send(const std::string &message, unsigned timeout = 0) const
    {
        return msgQSend(queue_, message.data(), static_cast<unsigned>(message.size()), timeout, 0);
    }

    // The message received, or "nothing".
    std::string receive(unsigned timeout = 0) const
    {
        std::string buffer(static_cast<size_t>(queue_->max_data_len), '-');
        const unsigned copied = msgQReceive(queue_, buffer.data(), static_cast<unsigned>(buffer.size()), timeout);
        return copied == Nothing ? "nothing" : buffer.substr(0, copied);
    }

    std::string dump() const
    {
        return printedBy([this] { EXPECT_EQ(0, msgQDumpDebug(queue_)); });
    }

    // The dump's first lines, which depend on the fields only.
    std::string fields() const
    {
        return formatted("\n"
                         "Dumping out internal structure of message queue %p\n"
                         "Entry size = %zd\n"
                         "int max_size_queue = %d\n"
                         "char * queue_mem   = %p\n"
                         "int front          = %d\n"
                         "int num_requests   = %d\n"
                         "int max_data_len   = %d\n",
                         static_cast<void *>(queue_), static_cast<ssize_t>(queue_->max_data_len) + 4,
                         queue_->max_size_queue, static_cast<void *>(queue_->queue_mem), queue_->front,
                         queue_->num_requests, queue_->max_data_len);
    }

private:
    MSG_Q_ID queue_;
};

const std::string NoProblems = "***************************\n"
                               "NO problems found in queue structure\n"
                               "***************************\n"
                               "\n";
const std::string Errors = "***************************\n"
                           "ERRORS found in queue structure\n"
                           "***************************\n"
                           "\n";
} // namespace

TEST(FixedMsgQueue, IsNotCreatedForNoMessagesOrForMessagesWithoutBytes)
{
    EXPECT_EQ("", printedBy([] {
                  EXPECT_EQ(nullptr, msgQCreate(0, 10, 0));
                  EXPECT_EQ(nullptr, msgQCreate(4, 0, 0));
                  EXPECT_EQ(nullptr, msgQCreate(-1, 10, 0));
                  EXPECT_EQ(nullptr, msgQCreate(4, -1, 0));
                  EXPECT_EQ(nullptr, msgQCreate(-4, -10, 0));
              }));
}

TEST(FixedMsgQueue, StartsEmptyWithClearSlots)
{
    Queue queue(4, 10);
    EXPECT_EQ(4, queue->max_size_queue);
    EXPECT_EQ(10, queue->max_data_len);
    EXPECT_EQ(0, queue->front);
    EXPECT_EQ(0, queue->num_requests);
    EXPECT_EQ(std::string(4 * 14, '\0'), std::string(queue->queue_mem, 4 * 14));
    EXPECT_EQ("nothing", queue.receive());
}

TEST(FixedMsgQueue, CreationFailsWithEachAllocationAndFreesWhatItHad)
{
    int allocations = 0;
    for (int nth = 1;; ++nth) {
        FailAllocation failing(nth);
        MSG_Q_ID queue = msgQCreate(4, 10, 0);
        if (!failing.happened()) {
            releaseQueue(queue);
            break;
        }
        EXPECT_EQ(nullptr, queue) << "allocation " << nth;
        allocations = nth;
    }
    EXPECT_EQ(2, allocations);
    if (!UnderAddressSanitizer && !UnderThreadSanitizer) {
        const auto failManyTimes = [] {
            for (int i = 0; i < 100; ++i) {
                FailAllocation failing(2);
                ASSERT_EQ(nullptr, msgQCreate(4, 10, 0));
            }
        };
        failManyTimes(); // fills the allocator's own caches
        const auto before = mallinfo2().uordblks;
        failManyTimes();
        EXPECT_EQ(before, mallinfo2().uordblks);
    }
}

TEST(FixedMsgQueue, DeliversInTheOrderSentAndExactlyTheBytes)
{
    Queue queue(3, 5);
    EXPECT_EQ(0, queue.send("one"));
    EXPECT_EQ(0, queue.send(std::string("\0\xFF\x80", 3)));
    EXPECT_EQ(0, queue.send("three"));
    EXPECT_EQ("one", queue.receive());
    EXPECT_EQ(std::string("\0\xFF\x80", 3), queue.receive());
    EXPECT_EQ("three", queue.receive());
    EXPECT_EQ("nothing", queue.receive());
}

TEST(FixedMsgQueue, IgnoresOptionsAndPriorities)
{
    MSG_Q_ID queue = msgQCreate(2, 4, -1);
    ASSERT_NE(nullptr, queue);
    char byte = 0;
    EXPECT_EQ(0, msgQSend(queue, "a", 1, 0, MSG_PRI_NORMAL));
    EXPECT_EQ(0, msgQSend(queue, "b", 1, 0, MSG_PRI_URGENT));
    EXPECT_EQ(1U, msgQReceive(queue, &byte, 1, 0));
    EXPECT_EQ('a', byte);
    releaseQueue(queue);
}

TEST(FixedMsgQueue, ASendToAFullQueueIsRefusedAtOnceOrAfterItsTimeOut)
{
    Queue queue(2, 4);
    queue.send("a");
    queue.send("b");
    EXPECT_EQ(1, queue.send("c", 0));
    const auto waited = timeOf([&] { EXPECT_EQ(1, queue.send("c", 10)); });
    EXPECT_GE(waited, 99ms);
    EXPECT_LT(waited, 5s);
    EXPECT_EQ("a", queue.receive());
    EXPECT_EQ("b", queue.receive());
    EXPECT_EQ("nothing", queue.receive());
}

TEST(FixedMsgQueue, AReceiveFromAnEmptyQueueEndsAtOnceOrAfterItsTimeOut)
{
    Queue queue(2, 4);
    char buffer[4] = "abc";
    EXPECT_EQ(0xFFFFFFFFU, msgQReceive(queue, buffer, 4, 0));
    const auto waited = timeOf([&] { EXPECT_EQ(0xFFFFFFFFU, msgQReceive(queue, buffer, 4, 10)); });
    EXPECT_GE(waited, 99ms);
    EXPECT_LT(waited, 5s);
    EXPECT_STREQ("abc", buffer);
}

TEST(FixedMsgQueue, AMessageLongerThanTheLongestIsRefusedThoughSlotsAreFree)
{
    Queue queue(2, 4);
    EXPECT_EQ(1, queue.send("12345"));
    EXPECT_EQ(1, msgQSend(queue, "", 0xFFFFFFFF, 0, 0)) << "lengths have no sign";
    EXPECT_EQ(0, queue->num_requests);
    EXPECT_EQ(0, queue.send("1234"));
    EXPECT_EQ("1234", queue.receive());
}

TEST(FixedMsgQueue, AMessageLongerThanTheLongestIsRefusedAtOnceWhateverTheTimeOut)
{
    Queue queue(1, 4);
    queue.send("full");
    for (unsigned timeout : {0U, 100000U, Forever})
        EXPECT_EQ(1, queue.send("12345", timeout));
}

TEST(FixedMsgQueue, AShortBufferGetsTheFirstBytesAndTheRestIsGone)
{
    Queue queue(2, 10);
    queue.send("0123456789");
    queue.send("next");
    char buffer[6] = "-----";
    EXPECT_EQ(4U, msgQReceive(queue, buffer, 4, 0));
    EXPECT_STREQ("0123-", buffer);
    EXPECT_EQ("next", queue.receive());
}

TEST(FixedMsgQueue, ABufferOfNoBytesStillTakesTheMessage)
{
    Queue queue(2, 10);
    queue.send("abc");
    EXPECT_EQ(0U, msgQReceive(queue, nullptr, 0, 0));
    EXPECT_EQ("nothing", queue.receive());
}

TEST(FixedMsgQueue, TheSizeOfTheBufferHasNoSign)
{
    Queue queue(2, 10);
    queue.send("abc");
    char buffer[10];
    EXPECT_EQ(3U, msgQReceive(queue, buffer, 0xFFFFFFFF, 0));
}

TEST(FixedMsgQueue, AnEmptyMessageIsSentAndReceived)
{
    Queue queue(2, 10);
    EXPECT_EQ(0, msgQSend(queue, nullptr, 0, 0, 0));
    EXPECT_EQ(1, queue->num_requests);
    EXPECT_EQ("", queue.receive());
    EXPECT_EQ("nothing", queue.receive());
}

TEST(FixedMsgQueue, ReceiveClearsTheLengthOfItsSlotAndLeavesTheData)
{
    Queue queue(2, 4);
    queue.send("abcd");
    EXPECT_EQ(4U, slotLength(queue, 0));
    queue.receive();
    EXPECT_EQ(0U, slotLength(queue, 0));
    EXPECT_EQ("abcd", std::string(queue->queue_mem + 4, 4));
    EXPECT_EQ(1, queue->front);
}

TEST(FixedMsgQueue, WrapsAroundItsSlotsAndTheDumpStaysContent)
{
    Queue queue(3, 4);
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(0, queue.send(formatted("a%d", round)));
        EXPECT_EQ(0, queue.send(formatted("b%d", round)));
        EXPECT_EQ(2 * round % 3, queue->front);
        EXPECT_EQ(queue.fields() + NoProblems, queue.dump());
        EXPECT_EQ(formatted("a%d", round), queue.receive());
        EXPECT_EQ(formatted("b%d", round), queue.receive());
    }
}

TEST(FixedMsgQueue, LengthWordsAreReadAtAnyAlignment)
{
    Queue queue(4, 3);
    for (const char *text : {"a", "bc", "def", "g"})
        EXPECT_EQ(0, queue.send(text));
    for (const char *text : {"a", "bc", "def", "g"})
        EXPECT_EQ(text, queue.receive());
}

// A message that arrives together with the time-out is taken.
TEST(FixedMsgQueue, AMessageThatArrivesWithTheTimeOutIsTaken)
{
    Queue queue(2, 4);
    instead = [&](pthread_cond_t *, pthread_mutex_t *lock, const timespec *) {
        pthread_mutex_unlock(lock);
        queue.send("late");
        pthread_mutex_lock(lock);
        return ETIMEDOUT;
    };
    EXPECT_EQ("late", queue.receive(10));
}

TEST(FixedMsgQueue, ASlotThatFreesUpWithTheTimeOutIsUsed)
{
    Queue queue(1, 4);
    queue.send("old");
    instead = [&](pthread_cond_t *, pthread_mutex_t *lock, const timespec *) {
        pthread_mutex_unlock(lock);
        queue.receive();
        pthread_mutex_lock(lock);
        return ETIMEDOUT;
    };
    EXPECT_EQ(0, queue.send("new", 10));
    EXPECT_EQ("new", queue.receive());
}

// Broadcasts wake everybody, and most find nothing: they go on waiting to the same deadline.
TEST(FixedMsgQueue, WakingForNothingWaitsOnToTheSameDeadline)
{
    Queue queue(1, 4);
    std::vector<timespec> deadlines;
    pthread_cond_t *waitedFor = nullptr;
    instead = [&](pthread_cond_t *changed, pthread_mutex_t *lock, const timespec *deadline) {
        EXPECT_EQ(&queue->lock, lock);
        waitedFor = changed;
        deadlines.push_back(*deadline);
        return deadlines.size() < 3 ? 0 : ETIMEDOUT;
    };
    EXPECT_EQ("nothing", queue.receive(1000));
    EXPECT_EQ(&queue->notEmpty, waitedFor);
    ASSERT_EQ(3U, deadlines.size());
    EXPECT_EQ(0, memcmp(&deadlines[0], &deadlines[2], sizeof(timespec)));

    queue.send("full");
    deadlines.clear();
    EXPECT_EQ(1, queue.send("more", 1000));
    EXPECT_EQ(&queue->notFull, waitedFor);
    ASSERT_EQ(3U, deadlines.size());
    EXPECT_EQ(0, memcmp(&deadlines[0], &deadlines[2], sizeof(timespec)));
}

TEST(FixedMsgQueue, WakesTheOtherSideAfterItLetGoOfTheLock)
{
    Queue queue(2, 4);
    std::vector<pthread_cond_t *> woken;
    whenBroadcasting = [&](pthread_cond_t *changed) {
        woken.push_back(changed);
        EXPECT_EQ(0, pthread_mutex_trylock(&queue->lock));
        pthread_mutex_unlock(&queue->lock);
    };
    queue.send("a");
    EXPECT_EQ(std::vector{&queue->notEmpty}, woken);
    queue.receive();
    EXPECT_EQ((std::vector{&queue->notEmpty, &queue->notFull}), woken);
    queue.receive();
    queue.send("too long");
    EXPECT_EQ(2U, woken.size()) << "nothing sent or received wakes nobody";
}

TEST(FixedMsgQueue, ADeadlineInThePastEndsAWaitAtOnce)
{
    for (unsigned timeout : PastDeadlines) {
        Queue queue(1, 4);
        EXPECT_LT(timeOf([&] { EXPECT_EQ("nothing", queue.receive(timeout)); }), 5s);
        EXPECT_EQ(0, queue.send("a", timeout)) << "a free slot is used all the same";
        EXPECT_LT(timeOf([&] { EXPECT_EQ(1, queue.send("b", timeout)); }), 5s);
        EXPECT_EQ("a", queue.receive(timeout)) << "a waiting message is taken all the same";
    }
}

// A deadline that the thread library took for no time at all would be asked for again and again, under the lock.
TEST(FixedMsgQueue, ADeadlineInThePastIsWaitedForOnce)
{
    for (unsigned timeout : PastDeadlines) {
        Queue queue(1, 4);
        int waits = 0;
        instead = [&](pthread_cond_t *changed, pthread_mutex_t *lock, const timespec *deadline) {
            EXPECT_GE(deadline->tv_nsec, 0);
            EXPECT_LT(deadline->tv_nsec, 1000000000);
            ++waits;
            return pthread_cond_clockwait(changed, lock, CLOCK_REALTIME, deadline);
        };
        EXPECT_EQ("nothing", queue.receive(timeout));
        EXPECT_EQ(1, waits);
    }
}

TEST(FixedMsgQueue, AProductThatIsNegativeGivesNoQueue)
{
    EXPECT_EQ("", printedBy([] {
                  EXPECT_EQ(nullptr, msgQCreate(1, 0x7FFFFFFC, 0));  // 0x80000000
                  EXPECT_EQ(nullptr, msgQCreate(1, 0x7FFFFFFF, 0));  // 0x80000003
                  EXPECT_EQ(nullptr, msgQCreate(0x20000000, 1, 0));  // 0xA0000000
                  EXPECT_EQ(nullptr, msgQCreate(0x7FFFFFFF, 12, 0)); // -16
              }));
}

TEST(FixedMsgQueue, TakesTheMemoryOfItsSlotsAndNoMore)
{
    Queue queue(1000, 60);
    const size_t bytes = malloc_usable_size(queue->queue_mem);
    EXPECT_LE(64000U, bytes);
    EXPECT_GT(64000U + 4096U, bytes); // the C library rounds up
}

TEST(FixedMsgQueue, AProductThatWrapsToAPositiveSizeGivesMemoryForTheFirstSlotsOnly)
{
    constexpr int length = 0x10000 - 4; // 0x10003 slots of 0x10000 bytes: 3 slots' worth
    Queue queue(0x10003, length);
    ASSERT_NE(nullptr, static_cast<MSG_Q_ID>(queue));
    const std::string longest(length, 'x');
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(0, queue.send(longest));
    for (unsigned timeout : {0U, 1000000U, Forever})
        EXPECT_EQ(1, queue.send("x", timeout)) << "at once: the queue is not full";
    EXPECT_EQ(3, queue->num_requests);
    EXPECT_EQ(queue.fields() + NoProblems, queue.dump());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(longest, queue.receive());
    EXPECT_EQ(1, queue.send("x")) << "the front has left the memory";
    EXPECT_EQ("nothing", queue.receive());
    EXPECT_EQ(queue.fields() + NoProblems, queue.dump());
}

TEST(FixedMsgQueue, AProductThatWrapsToLessThanASlotGivesAQueueThatTakesNothing)
{
    struct {
        int slots, length;
    } const shapes[] = {{0x10000, 0x10000 - 4}, {0x33333334, 1}, {2, 0x7FFFFFFF}}; // 0, 4 and 6 bytes
    for (const auto &shape : shapes) {
        Queue queue(shape.slots, shape.length);
        ASSERT_NE(nullptr, static_cast<MSG_Q_ID>(queue));
        EXPECT_EQ(1, queue.send("x"));
        EXPECT_EQ(1, queue.send(""));
        EXPECT_EQ(queue.fields() + NoProblems, queue.dump());
    }
}

TEST(FixedMsgQueueDump, PrintsEveryFieldOfAnEmptyAndOfAFullQueue)
{
    Queue queue(2, 10);
    EXPECT_EQ(
        formatted("\nDumping out internal structure of message queue %p\nEntry size = 14\nint max_size_queue = 2\n"
                  "char * queue_mem   = %p\nint front          = 0\nint num_requests   = 0\n"
                  "int max_data_len   = 10\n***************************\nNO problems found in queue structure\n"
                  "***************************\n\n",
                  static_cast<void *>(queue), static_cast<void *>(queue->queue_mem)),
        queue.dump());
    queue.send("abc");
    queue.send("0123456789");
    EXPECT_EQ(queue.fields() + NoProblems, queue.dump());
}

TEST(FixedMsgQueueDump, AFieldOutOfRangeIsTheOnlyThingItReports)
{
    Queue queue(3, 10);
    setSlotLength(queue, 0, 5);
    struct {
        int front, messages;
    } const wrong[] = {{-1, 0}, {3, 0}, {0, -1}, {0, 4}, {INT32_MIN, 0}, {INT32_MAX, INT32_MAX}, {0, INT32_MIN}};
    for (const auto &each : wrong) {
        queue->front = each.front;
        queue->num_requests = each.messages;
        EXPECT_EQ(queue.fields() + "ERROR found validating queue data values\n", queue.dump());
        EXPECT_EQ(0, pthread_mutex_trylock(&queue->lock)) << "unlocked again";
        pthread_mutex_unlock(&queue->lock);
    }
}

TEST(FixedMsgQueueDump, ReportsLengthsOutsideTheMessages)
{
    Queue queue(4, 10);
    queue.send("a");
    queue.send("b");
    queue.receive(); // slot 1 holds the message
    setSlotLength(queue, 0, 1);
    setSlotLength(queue, 3, 0xFFFFFFFE);
    EXPECT_EQ(queue.fields() +
                  "ERROR: index 0 (OUT OF QUEUE) msg size 1 invalid. Should be = 0\n"
                  "ERROR: index 3 (OUT OF QUEUE) msg size -2 invalid. Should be = 0\n" +
                  Errors,
              queue.dump());
}

TEST(FixedMsgQueueDump, ReportsLengthsInsideTheMessages)
{
    Queue queue(4, 10);
    for (int i = 0; i < 4; ++i)
        queue.send("abc");
    setSlotLength(queue, 0, 10);
    setSlotLength(queue, 1, 11);
    setSlotLength(queue, 2, 0);
    setSlotLength(queue, 3, 0xFFFFFFFF);
    EXPECT_EQ(queue.fields() +
                  "ERROR: index 1 (IN QUEUE) msg size 11 invalid. Should be <= than 10\n"
                  "ERROR: index 2 (IN QUEUE) msg size 0 invalid. Should be > than 0\n"
                  "ERROR: index 3 (IN QUEUE) msg size -1 invalid. Should be <= than 10\n" +
                  Errors,
              queue.dump());
}

TEST(FixedMsgQueueDump, ReportsALegalEmptyMessage)
{
    Queue queue(2, 10);
    queue.send("");
    EXPECT_EQ(queue.fields() + "ERROR: index 0 (IN QUEUE) msg size 0 invalid. Should be > than 0\n" + Errors,
              queue.dump());
}

// Every place of the messages in the ring: the slots that are said to hold one are those that do.
TEST(FixedMsgQueueDump, KnowsTheSlotsInUseWhereverTheFrontIs)
{
    constexpr int slots = 5;
    for (int front = 0; front < slots; ++front) {
        for (int messages = 0; messages <= slots; ++messages) {
            Queue queue(slots, 4);
            queue->front = front;
            queue->num_requests = messages;
            std::string expected = queue.fields();
            for (int i = 0; i < slots; ++i) {
                const bool inQueue = (i - front + slots) % slots < messages;
                setSlotLength(queue, i, 9);
                expected += inQueue
                                ? formatted("ERROR: index %d (IN QUEUE) msg size 9 invalid. Should be <= than 4\n", i)
                                : formatted("ERROR: index %d (OUT OF QUEUE) msg size 9 invalid. Should be = 0\n", i);
            }
            EXPECT_EQ(expected + Errors, queue.dump()) << "front " << front << ", " << messages << " messages";
        }
    }
}

// More slots than there is memory for: a damaged record.
TEST(FixedMsgQueueDump, ReadsNothingOutsideItsMemory)
{
    Queue queue(3, 10);
    queue->max_size_queue = 1000000;
    setSlotLength(queue, 2, 7);
    EXPECT_EQ(queue.fields() + "ERROR: index 2 (OUT OF QUEUE) msg size 7 invalid. Should be = 0\n" + Errors,
              queue.dump());
    queue->max_data_len = INT32_MAX;
    EXPECT_EQ(queue.fields() + NoProblems, queue.dump());
}

TEST(FixedMsgQueueDeathTest, ImpossibleCountsEndTheProcessWithAFixedText)
{
    Queue queue(2, 4);
    queue->num_requests = 3;
    EXPECT_DEATH(queue.send("x"),
                 "src/vxw_shim\\.c:303: add_queue_entry: Assertion `q->num_requests < q->max_size_queue' failed\\.");
    queue->num_requests = -1;
    EXPECT_DEATH(queue.receive(),
                 "src/vxw_shim\\.c:257: remove_queue_entry: Assertion `q->num_requests > 0' failed\\.");
    queue->num_requests = 0;
}

TEST(FixedMsgQueueThreads, AWaitingReceiveEndsWithTheSend)
{
    Queue queue(1, 4);
    for (unsigned timeout : {Forever, 100000U}) {
        std::atomic<bool> started{false};
        std::thread receiver([&] {
            started = true;
            EXPECT_EQ("word", queue.receive(timeout));
        });
        while (!started)
            std::this_thread::yield();
        EXPECT_EQ(0, queue.send("word"));
        receiver.join();
    }
}

TEST(FixedMsgQueueThreads, AWaitingSendEndsWithTheReceive)
{
    Queue queue(1, 4);
    for (unsigned timeout : {Forever, 100000U}) {
        ASSERT_EQ(0, queue.send("old"));
        std::atomic<bool> started{false};
        std::thread sender([&] {
            started = true;
            EXPECT_EQ(0, queue.send("new", timeout));
        });
        while (!started)
            std::this_thread::yield();
        EXPECT_EQ("old", queue.receive());
        sender.join();
        EXPECT_EQ("new", queue.receive());
    }
}

TEST(FixedMsgQueueModel, AgreesAfterAnyProgram)
{
    const unsigned first = std::random_device()();
    for (unsigned seed = first; seed < first + static_cast<unsigned>(scaled(500)); ++seed)
        ASSERT_EQ("", runRandomQueueProgram(seed)) << "seed " << seed;
}

// The model test is worth something only if it is seen to fail.
TEST(FixedMsgQueueModel, NoticesWhatChangesBehindItsBack)
{
    const std::function<void(msg_q *)> changes[] = {
        [](msg_q *q) { setSlotLength(q, 0, 7); },
        [](msg_q *q) { setSlotLength(q, 1, 3); },
        [](msg_q *q) { q->queue_mem[12 + 4] ^= 1; },
        [](msg_q *q) { q->num_requests = 1; },
        [](msg_q *q) { q->front = 3; },
        [](msg_q *q) { q->front = 4; },
        [](msg_q *q) { q->num_requests = -1; },
        [](msg_q *q) { setSlotLength(q, 2, 100); },
    };
    for (size_t i = 0; i < std::size(changes); ++i) {
        FixedMsgQueueAndModel both(4, 8);
        for (const char *text : {"gone", "ab", "cd"})
            both.send(text, 0);
        both.receive(8, 0);
        ASSERT_EQ("", both.difference);
        changes[i](both.queue);
        both.compare();
        EXPECT_NE("", both.difference) << "change " << i;
    }
}
