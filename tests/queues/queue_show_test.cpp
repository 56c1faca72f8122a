#include "queues.h"

#include "harness/printed_by.h"
#include "vxw_shim/sem_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>

namespace
{
char *memoryTop = reinterpret_cast<char *>(UINTPTR_MAX);
}

// Takes the place of the library's own.
char *sysPhysMemTop()
{
    return memoryTop;
}

namespace
{
class QueueShow : public testing::Test
{
protected:
    QueueShow()
    {
        SBaseQ::lockSem = semMCreate(SEM_Q_PRIORITY);
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
        external = semCCreate(SEM_Q_FIFO, 0);
    }
    ~QueueShow() override
    {
        memoryTop = reinterpret_cast<char *>(UINTPTR_MAX);
        semDelete(external);
        for (SEM_ID *sem : {&SBaseQ::timerSig, &SBaseQ::lockSem}) {
            semDelete(*sem);
            *sem = nullptr;
        }
    }

    static const void *address(const void *of)
    {
        return of;
    }

    // The seven values that all queues share, with the aging list as it is now.
    static std::string shared()
    {
        SemLock hold(SBaseQ::lockSem);
        return formatted("Head (age)      = %-10p\tTail (age)      = %-10p\n", address(SBaseQ::head),
                         address(SBaseQ::tail)) +
               formatted("HeadTime        = %-10d\tTailTime        = %-10d\n", SBaseQ::headTime, SBaseQ::tailTime) +
               formatted("Num Queues      = %-10u\tNULL Timeouts   = %-10u\n", SBaseQ::numQueues, SBaseQ::timeoutNull) +
               formatted("timerSig(SEM_ID)= %p\n", address(SBaseQ::timerSig));
    }

    SEM_ID external = nullptr;
};
} // namespace

TEST_F(QueueShow, EmptyListIsShownByteForByte)
{
    SemLock hold(SBaseQ::lockSem);
    SBaseQ::numQueues = 7;
    SBaseQ::timeoutNull = 12;
    SEM_ID timerSig = SBaseQ::timerSig;
    SBaseQ::timerSig = nullptr;
    EXPECT_EQ("Head (age)      = (nil)     \tTail (age)      = (nil)     \n"
              "HeadTime        = 0         \tTailTime        = 0         \n"
              "Num Queues      = 7         \tNULL Timeouts   = 12        \n"
              "timerSig(SEM_ID)= (nil)\n",
              printedBy([] { baseQShow(nullptr, 1); }));
    SBaseQ::timerSig = timerSig;
}

TEST_F(QueueShow, NullShowsOnlyWhatAllQueuesShare)
{
    for (int flag : {0, 1}) {
        EXPECT_EQ(shared(), printedBy([&] { baseQShow(nullptr, flag); }));
        EXPECT_EQ(shared(), printedBy([&] { meqShow(nullptr, flag); }));
        EXPECT_EQ(shared(), printedBy([&] { msgQxShow(nullptr, flag); }));
    }
}

TEST_F(QueueShow, BaseQueueIsShownWithItsColumns)
{
    SBaseQ queue(5, 0, 20, 3, external);
    queue.pRead = 4;
    queue.pWrite = 1;
    queue.empty = 0;
    const std::string expected =
        shared() + formatted("cflag   (SEM_ID)= %-10p\tQueue Size      = 5         \n", address(queue.cflag)) +
        "pRead           = 4         \tpWrite          = 1         \n"
        "Num Msgs Q'd    = 2         \tEmpty           = N         \n" +
        formatted("External Flag   = %-10p\tMax Delay       = 20        \n", address(external)) +
        formatted("Queue ID        = %-10u\tRxThreshold     = 3         \n", queue.queueId);
    EXPECT_EQ(expected, printedBy([&] { baseQShow(&queue, 0); }));
    EXPECT_EQ(expected, printedBy([&] { baseQShow(&queue, 2); })); // only exactly 1 shows more
    EXPECT_EQ(expected, printedBy([&] { baseQShow(&queue, -1); }));
    EXPECT_EQ(expected, printedBy([&] { meqShow(reinterpret_cast<SMultiEventQ *>(&queue), 0); }));
}

TEST_F(QueueShow, FlagOneAddsTheAging)
{
    SBaseQ queue(5, 0, 20, 3, nullptr);
    const std::string idle = "Aging           = N         \tExpired         = N         \n"
                             "Prev (age)      = (nil)     \tNext (age)      = (nil)     \n"
                             "TTL  (age)      = 0         \tdelayedGives    = 0         \n";
    EXPECT_EQ(printedBy([&] { baseQShow(&queue, 0); }) + idle, printedBy([&] { baseQShow(&queue, 1); }));
}

TEST_F(QueueShow, AgingQueuesAreShownWithTheirNeighbours)
{
    SBaseQ first(5, 0, 20, 3, nullptr);
    SBaseQ second(5, 0, 50000, 3, nullptr);
    SBaseQ::lock();
    first.age_start(1);
    first.age_start(1);
    second.age_start(1);
    const std::string ttl = formatted("%-10d", second.ageTtl);
    SBaseQ::unLock();
    const std::string printed = printedBy([&] { baseQShow(&second, 1); });
    EXPECT_EQ(0U, printed.find(shared()));
    EXPECT_NE(std::string::npos, printed.find("Aging           = Y         \tExpired         = N         \n" +
                                              formatted("Prev (age)      = %-10p\t", address(&first)) +
                                              "Next (age)      = (nil)     \n"
                                              "TTL  (age)      = " +
                                              ttl + "\tdelayedGives    = 1         \n"));
    EXPECT_NE(std::string::npos,
              printedBy([&] { baseQShow(&first, 1); }).find(formatted("Next (age)      = %-10p\n", address(&second))));
}

TEST_F(QueueShow, ExpiredQueueIsShownAsSuch)
{
    SBaseQ queue(5, 0, 20, 3, nullptr);
    SBaseQ::lock();
    queue.expired = true;
    SBaseQ::unLock();
    EXPECT_NE(std::string::npos, printedBy([&] {
                                     baseQShow(&queue, 1);
                                 }).find("Aging           = N         \tExpired         = Y         \n"));
    SBaseQ::lock();
    queue.expired = false;
    SBaseQ::unLock();
}

TEST_F(QueueShow, MultiEventQueueAddsItsArraysAndCounts)
{
    SMultiEventQ16 queue(100, 0, 0, 0, nullptr);
    for (unsigned short event : std::initializer_list<unsigned short>{0, 31, 32, 99})
        queue.send(event, 1, 0xFFFFFFFF, 0xFFFFFFFF, 0);
    queue.send(31, 2, 0xFFFFFFFF, 0xFFFFFFFF, 0);
    SemLock hold(SBaseQ::lockSem);
    const std::string own = formatted("queuePtr        = %-10p\t", address(queue.queuePtr)) +
                            formatted("dataPtr         = %-10p\n", address(queue.dataPtr)) +
                            "inUse           = 4         \tmultiUse        = 1         \n";
    for (int flag : {0, 1})
        EXPECT_EQ(printedBy([&] { baseQShow(&queue, flag); }) + own, printedBy([&] { meqShow(&queue, flag); }));
}

TEST_F(QueueShow, MultiEventQueueWithoutDataShowsANullPointer)
{
    SMultiEventQ queue(100, 0, 0, 0, nullptr);
    EXPECT_NE(std::string::npos, printedBy([&] {
                                     meqShow(&queue, 0);
                                 }).find("dataPtr         = (nil)     \ninUse           = 0         \t"));
}

TEST_F(QueueShow, VariableQueueAddsItsFields)
{
    SMsgQueueX queue(3, 40, 0, 1, 2, 0, nullptr);
    for (bool blocking : {false, true}) {
        queue.txBlocking = blocking;
        const std::string own =
            formatted("sendFlag(SEM_ID)= %-10p\tMax Msg Length  = 40        \n", address(queue.sendFlag)) +
            formatted("msgQ    (UINT8*)= %-10p\t", address(queue.msgQ)) +
            formatted("msgLen (UINT16*)= %-10p\n", address(queue.msgLen)) +
            formatted("TxThreshold     = 2         \tTxBlocking      = %-10c\n", blocking ? 'Y' : 'N');
        for (int flag : {0, 1})
            EXPECT_EQ(printedBy([&] { baseQShow(&queue, flag); }) + own, printedBy([&] { msgQxShow(&queue, flag); }));
    }
}

TEST_F(QueueShow, MeqShowOfAVariableQueuePrintsTheBaseLinesAndStops)
{
    SMsgQueueX messages(3, 40, 0, 1, 2, 0, nullptr);
    SMultiEventQ8 events(3, 0, 0, 0, nullptr);
    EXPECT_EQ(printedBy([&] { baseQShow(&messages, 1); }),
              printedBy([&] { meqShow(reinterpret_cast<SMultiEventQ *>(&messages), 1); }));
    EXPECT_EQ(printedBy([&] { baseQShow(&events, 1); }),
              printedBy([&] { msgQxShow(reinterpret_cast<SMsgQueueX *>(&events), 1); }));
}

TEST_F(QueueShow, MemoryThatIsNoQueueShowsOnlyWhatAllQueuesShare)
{
    alignas(SMsgQueueX) unsigned char memory[sizeof(SMsgQueueX)];
    memset(memory, 0xFD, sizeof memory);
    EXPECT_EQ(shared(), printedBy([&] { baseQShow(reinterpret_cast<SBaseQ *>(memory), 1); }));
    EXPECT_EQ(shared(), printedBy([&] { meqShow(reinterpret_cast<SMultiEventQ *>(memory), 1); }));
    EXPECT_EQ(shared(), printedBy([&] { msgQxShow(reinterpret_cast<SMsgQueueX *>(memory), 1); }));
}

// A board that knows its memory refuses pointers beyond it.
TEST_F(QueueShow, PointerAboveTheMemoryTopIsNotLookedAt)
{
    SMultiEventQ8 events(3, 0, 0, 0, nullptr);
    SMsgQueueX messages(3, 40, 0, 1, 2, 0, nullptr);
    memoryTop = reinterpret_cast<char *>(16);
    EXPECT_EQ(shared(), printedBy([&] { baseQShow(&events, 1); }));
    EXPECT_EQ(shared(), printedBy([&] { meqShow(&events, 1); }));
    EXPECT_EQ(shared(), printedBy([&] { msgQxShow(&messages, 1); }));
}

TEST_F(QueueShow, ResultIsThatOfThePrint)
{
    SMultiEventQ8 queue(3, 0, 0, 0, nullptr);
    int result = 0;
    const std::string printed = printedBy([&] { result = meqShow(&queue, 1); });
    EXPECT_EQ(static_cast<int>(printed.size()), result);
}

TEST_F(QueueShow, WidestValuesFit)
{
    SMultiEventQ8 queue(3, 0, 0, 0, nullptr);
    queue.pRead = queue.pWrite = queue.delayedGives = -1000000000;
    queue.empty = 0;
    const std::string printed = printedBy([&] { meqShow(&queue, 1); });
    EXPECT_NE(std::string::npos, printed.find("multiUse        = 0         \n"));
    queue.pRead = queue.pWrite = queue.delayedGives = 0;
}

TEST_F(QueueShow, MayBeCalledWhileOthersSendAndReceive)
{
    SMultiEventQ8 events(64, 0, 0, 0, nullptr);
    SMsgQueueX messages(8, 4, 0, 0, 8, 0, nullptr);
    std::atomic<bool> running = true;
    std::thread client([&] {
        unsigned short event;
        unsigned int data;
        char bytes[4];
        while (running) {
            events.send(5, 1, 0xFFFFFFFF, 0xFFFFFFFF, 0);
            messages.send("abc", 3, 0, 0);
            events.recv(event, data, 0);
            messages.recv(bytes, 4, 0);
        }
    });
    printedBy([&] {
        for (int i = 0; i < 200; ++i) {
            meqShow(&events, 1);
            msgQxShow(&messages, 1);
            baseQShow(&messages, 1);
        }
    });
    running = false;
    client.join();
}
