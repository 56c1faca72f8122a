// vxw_shim_faults.cpp: semaphores, tasks, ticks, fixed-size queues, datagrams and output under faults.
#include "fault_table.h"

#include "vxw_shim.h"

#include "vxw_shim/fixed_msg_queue.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

using namespace faults;

namespace
{
constexpr unsigned Forever = 0xFFFFFFFF;

// A count that cannot be had gives null, silently; one that can works.
template <class Create>
void createsACount(Injection &injection, Create create)
{
    const SEM_ID sem = injection.during(create);
    EXPECT_EQ(injection.failed(), sem == nullptr);
    if (sem == nullptr)
        return;
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(EAGAIN, semTake(sem, 0));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semDelete(sem));
}

void createsAMutex(Injection &injection)
{
    const SEM_ID sem = injection.during([] { return semMCreate(0); });
    EXPECT_EQ(injection.failed(), sem == nullptr);
    if (sem == nullptr)
        return;
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_EQ(0, semTake(sem, 0));
    EXPECT_FALSE(isFree(sem));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_EQ(0, semGive(sem));
    EXPECT_TRUE(isFree(sem));
    EXPECT_EQ(0, semDelete(sem));
}

void gives(Injection &injection)
{
    const SEM_ID sem = semBCreate(0, SEM_EMPTY);
    const int result = injection.during([&] { return semGive(sem); });
    EXPECT_EQ(injection.failed() ? EOVERFLOW : 0, result);
    EXPECT_EQ(injection.failed() ? EAGAIN : 0, semTake(sem, 0));
    EXPECT_EQ(0, semDelete(sem));
}

// A clock that cannot be read makes a deadline in the past: what is there is taken, for the rest nobody waits.
void takes(Injection &injection)
{
    const SEM_ID full = semBCreate(0, SEM_FULL);
    const SEM_ID mutex = semMCreate(0);
    const SEM_ID empty = semCCreate(0, 0);
    int results[3] = {-1, -1, -1};
    injection.during([&] {
        results[0] = semTake(full, 100);
        results[1] = semTake(mutex, 100);
        results[2] = semTake(empty, 1);
    });
    EXPECT_EQ(0, results[0]);
    EXPECT_EQ(0, results[1]);
    EXPECT_EQ(ETIMEDOUT, results[2]);
    EXPECT_EQ(0, semGive(mutex));
    for (const SEM_ID sem : {full, mutex, empty})
        EXPECT_EQ(0, semDelete(sem));
}

void deletesAndShows(Injection &injection)
{
    const SEM_ID count = semCCreate(0, 3);
    const SEM_ID mutex = semMCreate(0);
    injection.during([&] {
        semShow(count, 1);
        EXPECT_EQ(0, semDelete(count));
        EXPECT_EQ(0, semDelete(mutex));
    });
}

SEM_ID taskRan;

int task(...)
{
    semGive(taskRan);
    return 0;
}

// Whatever is wrong with the stack request, the task starts on the default stack.
void spawns(Injection &injection)
{
    injection.keepsMemory(); // a task is never joined
    taskRan = semBCreate(0, SEM_EMPTY);
    const int result =
        injection.during([] { return taskSpawn("task", 1, 0, 1 << 17, task, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0); });
    const bool neverStarts = injection.failed(Call::ThreadCreate) && injection.fromThenOn() && injection.nth() == 1;
    // The thread library may need memory of its own for a stack, or may have one left.
    const bool mayStart = injection.failed(Call::Allocate) && injection.fromThenOn();
    EXPECT_TRUE(result == (neverStarts ? EAGAIN : 0) || (mayStart && result == EAGAIN)) << result;
    if (result == 0) {
        EXPECT_EQ(0, semTake(taskRan, Forever));
    }
    // The task may still be on its way out of semGive(): the semaphore stays.
}

void spawnsOnTheDefaultStack(Injection &injection)
{
    injection.keepsMemory();
    taskRan = semBCreate(0, SEM_EMPTY);
    const int result = injection.during([] { return taskSpawn("task", 1, 0, 0, task, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0); });
    EXPECT_TRUE(result == (injection.failed(Call::ThreadCreate) ? EAGAIN : 0) ||
                (injection.failed(Call::Allocate) && result == EAGAIN))
        << result;
    if (result == 0) {
        EXPECT_EQ(0, semTake(taskRan, Forever));
    }
}

void readsTheTickClock(Injection &injection)
{
    const uint32_t before = tickGet();
    const uint32_t ticks = injection.during([] { return tickGet(); });
    EXPECT_LT(injection.failed() ? ticks : ticks - before, injection.failed() ? 1U : 6000U);
}

void sleeps(Injection &injection)
{
    EXPECT_EQ(0, injection.during([] { return taskDelay(1); }));
    EXPECT_EQ(100, sysClkRateGet());
}

void release(MSG_Q_ID queue)
{
    free(queue->queue_mem);
    free(queue);
}

// Memory that cannot be had gives null. The results of initialising the lock and the conditions are not looked at:
// the record is cleared, which is what they start as.
void createsAFixedQueue(Injection &injection)
{
    const MSG_Q_ID queue = injection.during([] { return msgQCreate(2, 4, 0); });
    EXPECT_EQ(injection.failed(Call::Allocate), queue == nullptr);
    if (queue == nullptr)
        return;
    char text[4];
    EXPECT_EQ(0, msgQSend(queue, "abc", 4, 0, 0));
    EXPECT_EQ(4U, msgQReceive(queue, text, 4, 0));
    EXPECT_STREQ("abc", text);
    release(queue);
}

void sendsToAFixedQueue(Injection &injection)
{
    const MSG_Q_ID queue = msgQCreate(1, 4, 0);
    int results[2] = {-1, -1};
    injection.during([&] {
        results[0] = msgQSend(queue, "abc", 4, 100, 0);
        results[1] = msgQSend(queue, "def", 4, 1, 0);
    });
    EXPECT_EQ(0, results[0]);
    EXPECT_EQ(1, results[1]);
    EXPECT_EQ(1, queue->num_requests);
    EXPECT_EQ(0, pthread_mutex_trylock(&queue->lock));
    EXPECT_EQ(0, pthread_mutex_unlock(&queue->lock));
    release(queue);
}

void receivesFromAFixedQueue(Injection &injection)
{
    const MSG_Q_ID queue = msgQCreate(1, 4, 0);
    EXPECT_EQ(0, msgQSend(queue, "abc", 4, 0, 0));
    char text[4] = "";
    unsigned int results[2] = {};
    injection.during([&] {
        results[0] = msgQReceive(queue, text, 4, 100);
        results[1] = msgQReceive(queue, text, 4, 1);
    });
    EXPECT_EQ(4U, results[0]);
    EXPECT_EQ(0xFFFFFFFF, results[1]);
    EXPECT_STREQ("abc", text);
    EXPECT_EQ(0, pthread_mutex_trylock(&queue->lock));
    EXPECT_EQ(0, pthread_mutex_unlock(&queue->lock));
    release(queue);
}

void dumpsAFixedQueue(Injection &injection)
{
    const MSG_Q_ID queue = msgQCreate(1, 4, 0);
    EXPECT_EQ(0, injection.during([&] { return msgQDumpDebug(queue); }));
    release(queue);
}

// A datagram socket on the loopback interface that sends to itself.
class Loopback
{
public:
    Loopback() : descriptor(socket(AF_INET, SOCK_DGRAM, 0))
    {
        const int on = 1;
        setsockopt(descriptor, IPPROTO_IP, IP_PKTINFO, &on, sizeof on);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(descriptor, asSockaddr(), sizeof address);
        socklen_t bytes = sizeof address;
        getsockname(descriptor, asSockaddr(), &bytes);
    }
    ~Loopback()
    {
        close(descriptor);
    }
    sockaddr *asSockaddr()
    {
        return reinterpret_cast<sockaddr *>(&address);
    }
    sockaddr_in address{};
    int descriptor;
};

void receivesADatagram(Injection &injection)
{
    Loopback own;
    EXPECT_EQ(1, sendto(own.descriptor, "x", 1, 0, own.asSockaddr(), sizeof own.address));
    char buffer[1] = {};
    sockaddr_in source{};
    socklen_t sourceBytes = sizeof source;
    packet_info info;
    memset(&info, 0x77, sizeof info);
    errno = 0;
    int reason = 0;
    const ssize_t received = injection.during([&] {
        const ssize_t result =
            recvfrom_wdst(own.descriptor, buffer, 1, 0, reinterpret_cast<sockaddr *>(&source), &sourceBytes, &info);
        reason = errno;
        return result;
    });
    EXPECT_EQ(injection.failed() ? -1 : 1, received);
    EXPECT_EQ(injection.failed() ? ENOBUFS : 0, reason);
    EXPECT_EQ(injection.failed() ? 0x77 : 127, info.ipv4.address[0]);
    EXPECT_EQ(injection.failed() ? 0 : AF_INET, source.sin_family);
    EXPECT_EQ(sizeof source, sourceBytes);
}

void sendsADatagram(Injection &injection)
{
    Loopback own;
    packet_info info{};
    errno = 0;
    int reason = 0;
    const ssize_t sent = injection.during([&] {
        const ssize_t result = sendto_wsrc(own.descriptor, "x", 1, 0, own.asSockaddr(), sizeof own.address, &info);
        reason = errno;
        return result;
    });
    EXPECT_EQ(injection.failed() ? -1 : 1, sent);
    EXPECT_EQ(injection.failed() ? ENOBUFS : 0, reason);
    char buffer[1];
    EXPECT_EQ(injection.failed() ? -1 : 1, recv(own.descriptor, buffer, 1, MSG_DONTWAIT));
}

void printsAndCopies(Injection &injection)
{
    char buffer[8] = "";
    char *cursor = buffer;
    size_t remaining = sizeof buffer;
    char copy[4];
    injection.during([&] {
        EXPECT_EQ(5, dbgCliPrint(buffer, sizeof buffer, &cursor, &remaining, 0, "%s", "first"));
        EXPECT_EQ(6, dbgCliPrint(buffer, sizeof buffer, &cursor, &remaining, 0, "%s", "second"));
        EXPECT_EQ(4, logEarly(2, 0, "%s", "text"));
        EXPECT_EQ(copy, fast_memset(copy, 1, 4));
        EXPECT_EQ(copy, fast_bzero(copy, 4));
        EXPECT_EQ(copy, fast_memcpy(copy, "abc", 4));
        EXPECT_EQ(0, fast_memcmp(copy, "abc", 4));
        EXPECT_EQ(UINTPTR_MAX, reinterpret_cast<uintptr_t>(sysPhysMemTop()));
    });
}

const Row rows[] = {
    {"semBCreate", [](Injection &injection) { createsACount(injection, [] { return semBCreate(0, SEM_FULL); }); }},
    {"semCCreate", [](Injection &injection) { createsACount(injection, [] { return semCCreate(0, 1); }); }},
    {"semMCreate", createsAMutex},
    {"semGive", gives},
    {"semTake", takes},
    {"semDelete\n"
     "semShow",
     deletesAndShows, Row::ReachesNothing},
    {"taskSpawn", spawns},
    {"taskSpawn", spawnsOnTheDefaultStack},
    {"tickGet", readsTheTickClock},
    {"taskDelay\n"
     "sysClkRateGet",
     sleeps, Row::ReachesNothing},
    {"msgQCreate", createsAFixedQueue},
    {"msgQSend", sendsToAFixedQueue},
    {"msgQReceive", receivesFromAFixedQueue},
    {"msgQDumpDebug", dumpsAFixedQueue, Row::ReachesNothing},
    {"recvfrom_wdst", receivesADatagram},
    {"sendto_wsrc", sendsADatagram},
    {"dbgCliPrint\n"
     "logEarly(int, int, char const*, ...)\n"
     "fast_memset\n"
     "fast_bzero\n"
     "fast_memcpy\n"
     "fast_memcmp\n"
     "sysPhysMemTop()",
     printsAndCopies, Row::ReachesNothing},
};
} // namespace

TEST(VxwShimFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    runTable(rows);
}
