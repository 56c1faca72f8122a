// hostile_arguments_test.cpp: every argument of every C entry point takes null, a wrong type mark, 0, 1, -1, the ends
// of the integers or overlapping buffers, wherever the result is documented.
//
// Each case names the call and the argument. someInts() and never() stand for values whose result is undefined on
// purpose: docs/reliability.md lists them, and tests/contract/hostile.py holds both against the headers.
#include "harness/instrumented.h"
#include "harness/printed_by.h"

#include "ipaddr.h"
#include "queues.h"
#include "sysport.h"
#include "vxw_shim.h"

#include "vxw_shim/fixed_msg_queue.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace
{
constexpr int Ends[] = {0, 1, -1, INT_MIN, INT_MAX, static_cast<int>(UINT_MAX)};
constexpr unsigned Forever = 0xFFFFFFFF;
constexpr unsigned Nothing = 0xFFFFFFFF;

std::string named(const char *call, const char *argument, int value)
{
    return formatted("%s(%s = %d)", call, argument, value);
}

template <class Check>
void ints(const char *call, const char *argument, Check check)
{
    for (const int value : Ends) {
        SCOPED_TRACE(named(call, argument, value));
        check(value);
    }
}

template <class Check>
void someInts(const char *call, const char *argument, std::initializer_list<int> values, Check check)
{
    for (const int value : values) {
        SCOPED_TRACE(named(call, argument, value));
        check(value);
    }
}

template <class Check>
void null(const char *call, const char *argument, Check check)
{
    SCOPED_TRACE(formatted("%s(%s = null)", call, argument));
    check();
}

// Arguments of which nothing hostile has a documented result.
void never(const char *, const char *) {}

// Null, a queue of another kind, and memory that is no queue at all.
template <class Queue, class Check>
void handle(const char *call, Check check)
{
    SMultiEventQ *events = meqCreate(1, 2, nullptr);
    SMsgQueueX *messages = msgQxCreate(2, 4, 0, 0, 0, nullptr);
    SBaseQ base(2, 0, 0, 0, nullptr);
    std::vector<unsigned char> zeros(512);
    void *const other = std::is_same_v<Queue, SMsgQueueX> ? static_cast<void *>(events) : messages;
    for (void *queue :
         {static_cast<void *>(nullptr), other, static_cast<void *>(&base), static_cast<void *>(zeros.data())}) {
        SCOPED_TRACE(formatted("%s(queue = %p)", call, queue));
        check(static_cast<Queue *>(queue));
    }
    EXPECT_EQ(0, meqSend(events, 1, 1)); // whatever was refused did no harm
    EXPECT_EQ(0, msgQxSend(messages, "abc", 4, 0, 0));
    meqDelete(events);
    msgQxDelete(messages);
}

int doNothing(...)
{
    return 0;
}

int spawn(int priority, int options, int stack, int argument)
{
    return taskSpawn(nullptr, priority, options, stack, doNothing, argument, argument, argument, argument, argument,
                     argument, argument, argument, argument, argument);
}

bool isPast(int ticks)
{
    return static_cast<int>(static_cast<unsigned>(ticks) * 10000U) <= 0;
}

class Queues : public testing::Test
{
protected:
    Queues()
    {
        SBaseQ::lockSem = semMCreate(0);
        SBaseQ::timerSig = semBCreate(0, SEM_EMPTY);
    }
    ~Queues() override
    {
        semDelete(SBaseQ::lockSem);
        semDelete(SBaseQ::timerSig);
        SBaseQ::lockSem = nullptr;
        SBaseQ::timerSig = nullptr;
    }
};
using HostileMultiEventQ = Queues;
using HostileMsgQueueX = Queues;
using HostileQueueShow = Queues;
} // namespace

TEST(HostileSemaphore, Creation)
{
    const auto ends = [](SEM_ID sem) {
        ASSERT_NE(nullptr, sem);
        EXPECT_EQ(0, semDelete(sem));
    };
    ints("semBCreate", "options", [&](int value) { ends(semBCreate(value, 0)); });
    ints("semCCreate", "options", [&](int value) { ends(semCCreate(value, 0)); });
    ints("semMCreate", "options", [&](int value) { ends(semMCreate(value)); });
    const auto counts = [&](SEM_ID sem, int value) {
        EXPECT_EQ(value < 0, sem == nullptr);
        if (sem == nullptr)
            return;
        EXPECT_EQ(value == INT_MAX ? EOVERFLOW : 0, semGive(sem));
        EXPECT_EQ(0, semTake(sem, 0));
        ends(sem);
    };
    ints("semBCreate", "initialState", [&](int value) { counts(semBCreate(0, static_cast<unsigned>(value)), value); });
    ints("semCCreate", "initialCount", [&](int value) { counts(semCCreate(0, static_cast<unsigned>(value)), value); });
}

TEST(HostileSemaphore, Handles)
{
    null("semGive", "sem",
         [] { EXPECT_EQ("semGive: error giving sem\n", printedBy([] { EXPECT_EQ(EINVAL, semGive(nullptr)); })); });
    null("semTake", "sem", [] {
        EXPECT_EQ("semTake: error taking sem\n", printedBy([] { EXPECT_EQ(EINVAL, semTake(nullptr, Forever)); }));
    });
    null("semDelete", "sem", [] { EXPECT_EQ("", printedBy([] { EXPECT_EQ(EINVAL, semDelete(nullptr)); })); });
    null("semShow", "sem", [] { semShow(nullptr, 0); });
    ints("semShow", "level", [](int value) { semShow(nullptr, value); });
}

TEST(HostileSemaphoreDeathTest, AHandleOfAnUnknownKindEndsTheProcess)
{
    mutex_sem unknown{7, nullptr};
    EXPECT_DEATH(semGive(&unknown), "src/vxw_shim.c:1057: semGive");
    EXPECT_DEATH(semTake(&unknown, 0), "src/vxw_shim.c:1088: semTake");
    EXPECT_DEATH(semDelete(&unknown), "src/vxw_shim.c:1118: semDelete");
}

TEST(HostileSemaphore, TimeOuts)
{
    const SEM_ID full = semCCreate(0, 1);
    const SEM_ID empty = semCCreate(0, 0);
    ints("semTake", "timeout", [&](int value) {
        const auto ticks = static_cast<unsigned>(value);
        EXPECT_EQ(0, semTake(full, ticks));
        EXPECT_EQ(0, semGive(full));
        if (ticks != Forever) {
            EXPECT_EQ(ticks == 0 ? EAGAIN : ETIMEDOUT, semTake(empty, ticks));
        }
    });
    semDelete(full);
    semDelete(empty);
}

TEST(HostileTask, Spawning)
{
    null("taskSpawn", "name", [] { EXPECT_EQ(0, spawn(0, 0, 0, 0)); });
    ints("taskSpawn", "priority", [](int value) { EXPECT_EQ(0, spawn(value, 0, 0, 0)); });
    ints("taskSpawn", "options", [](int value) { EXPECT_EQ(0, spawn(0, value, 0, 0)); });
    ints("taskSpawn", "arg1", [](int value) { EXPECT_EQ(0, spawn(0, 0, 0, value)); });
    ints("taskSpawn", "stackSize", [](int value) {
        // The sanitizers write the shadow of a whole stack, here of one of 2 GiB.
        if (value != INT_MAX || !(UnderAddressSanitizer || UnderThreadSanitizer)) {
            EXPECT_EQ(0, spawn(0, 0, value, 0));
        }
    });
    never("taskSpawn", "entry");
}

// Delays that wrap to more than an hour are ended by a signal, and return 0 all the same.
TEST(HostileTask, Delays)
{
    struct sigaction handler {
    };
    struct sigaction before {
    };
    handler.sa_handler = [](int) {};
    sigaction(SIGALRM, &handler, &before);
    const itimerval often{{0, 20000}, {0, 20000}};
    const itimerval off{};
    setitimer(ITIMER_REAL, &often, nullptr);
    ints("taskDelay", "ticks", [](int value) { EXPECT_EQ(0, taskDelay(static_cast<unsigned>(value))); });
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &before, nullptr);
}

namespace
{
// No call ends a fixed-size queue.
void release(MSG_Q_ID queue)
{
    if (queue == nullptr)
        return;
    free(queue->queue_mem);
    free(queue);
}
} // namespace

TEST(HostileFixedMsgQueue, EveryArgument)
{
    const auto makes = [](MSG_Q_ID queue, bool valid) {
        EXPECT_EQ(valid, queue != nullptr);
        release(queue);
    };
    ints("msgQCreate", "maxMessages", [&](int value) { makes(msgQCreate(value, 4, 0), value == 1); });
    ints("msgQCreate", "maxMessageLength", [&](int value) { makes(msgQCreate(1, value, 0), value == 1); });
    ints("msgQCreate", "options", [&](int value) { makes(msgQCreate(1, 4, value), true); });

    const MSG_Q_ID queue = msgQCreate(1, 4, 0);
    char buffer[4];
    const auto drain = [&] { return msgQReceive(queue, buffer, 4, 0); };
    never("msgQSend", "queue");
    never("msgQReceive", "queue");
    never("msgQDumpDebug", "queue");
    null("msgQSend", "message", [&] { EXPECT_EQ(0, msgQSend(queue, nullptr, 0, 0, 0)); });
    EXPECT_EQ(0U, drain());
    ints("msgQSend", "bytes", [&](int value) {
        const bool fits = value == 0 || value == 1;
        EXPECT_EQ(fits ? 0 : 1, msgQSend(queue, "abc", static_cast<unsigned>(value), Forever, 0));
        EXPECT_EQ(fits ? static_cast<unsigned>(value) : Nothing, drain());
    });
    ints("msgQSend", "priority", [&](int value) {
        EXPECT_EQ(0, msgQSend(queue, "abc", 4, 0, value));
        EXPECT_EQ(4U, drain());
    });
    ints("msgQSend", "timeout", [&](int value) {
        const auto ticks = static_cast<unsigned>(value);
        EXPECT_EQ(0, msgQSend(queue, "abc", 4, ticks, 0));
        if (ticks != Forever) {
            EXPECT_EQ(1, msgQSend(queue, "abc", 4, ticks, 0));
        }
        EXPECT_EQ(4U, drain());
    });
    ints("msgQReceive", "timeout", [&](int value) {
        const auto ticks = static_cast<unsigned>(value);
        EXPECT_EQ(0, msgQSend(queue, "abc", 4, 0, 0));
        EXPECT_EQ(4U, msgQReceive(queue, buffer, 4, ticks));
        if (ticks != Forever) {
            EXPECT_EQ(Nothing, msgQReceive(queue, buffer, 4, ticks));
        }
    });
    // What is received is never more than the message, however large the buffer is said to be.
    ints("msgQReceive", "size", [&](int value) {
        EXPECT_EQ(0, msgQSend(queue, "abc", 4, 0, 0));
        EXPECT_EQ(value == 0 || value == 1 ? static_cast<unsigned>(value) : 4U,
                  msgQReceive(queue, buffer, static_cast<unsigned>(value), 0));
    });
    null("msgQReceive", "buffer", [&] {
        EXPECT_EQ(0, msgQSend(queue, "abc", 4, 0, 0));
        EXPECT_EQ(0U, msgQReceive(queue, nullptr, 0, 0));
    });
    release(queue);
}

namespace
{
struct Loopback {
    Loopback() : descriptor(socket(AF_INET, SOCK_DGRAM, 0))
    {
        const int on = 1;
        setsockopt(descriptor, IPPROTO_IP, IP_PKTINFO, &on, sizeof on);
        const timeval soon{1, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof soon);
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(descriptor, address(), sizeof own);
        socklen_t bytes = sizeof own;
        getsockname(descriptor, address(), &bytes);
    }
    ~Loopback()
    {
        close(descriptor);
    }
    sockaddr *address()
    {
        return reinterpret_cast<sockaddr *>(&own);
    }
    void send()
    {
        ASSERT_EQ(2, sendto(descriptor, "xy", 2, 0, address(), sizeof own));
    }
    void drain()
    {
        char byte;
        while (::recv(descriptor, &byte, 1, MSG_DONTWAIT) >= 0) {
        }
    }
    sockaddr_in own{};
    int descriptor;
};

bool isUntouched(const packet_info &info)
{
    for (const uint8_t byte : info.bytes) {
        if (byte != 0x77)
            return false;
    }
    return true;
}
} // namespace

// An emulator copies addresses and buffers on its own, by lengths that are meant to be wrong here.
#ifdef KEL_EMULATED
constexpr bool Emulated = true;
#else
constexpr bool Emulated = false;
#endif

TEST(HostileDatagram, Receiving)
{
    if (Emulated)
        GTEST_SKIP() << "SKIPPED: the emulator itself reads what these arguments say";
    Loopback loopback;
    char buffer[2];
    sockaddr_in source{};
    socklen_t sourceBytes = sizeof source;
    packet_info info;
    const auto receive = [&](int socket, void *into, int length, int flags) {
        memset(&info, 0x77, sizeof info);
        sourceBytes = sizeof source;
        return recvfrom_wdst(socket, into, length, flags, reinterpret_cast<sockaddr *>(&source), &sourceBytes, &info);
    };
    someInts("recvfrom_wdst", "socket", {-1, INT_MIN, INT_MAX}, [&](int value) {
        EXPECT_EQ(-1, receive(value, buffer, 2, 0));
        EXPECT_EQ(EBADF, errno);
        EXPECT_TRUE(isUntouched(info));
    });
    someInts("recvfrom_wdst", "length", {0, 1}, [&](int value) {
        loopback.send();
        EXPECT_EQ(value, receive(loopback.descriptor, buffer, value, 0));
        EXPECT_FALSE(isUntouched(info));
    });
    null("recvfrom_wdst", "buffer", [&] {
        loopback.send();
        EXPECT_EQ(0, receive(loopback.descriptor, nullptr, 0, 0));
    });
    ints("recvfrom_wdst", "flags", [&](int value) {
        loopback.send();
        const ssize_t received = receive(loopback.descriptor, buffer, 2, value);
        EXPECT_TRUE(received >= -1 && received <= 2) << received;
        EXPECT_TRUE(received >= 0 || isUntouched(info));
        loopback.drain();
    });
    null("recvfrom_wdst", "source", [&] {
        loopback.send();
        memset(&info, 0x77, sizeof info);
        EXPECT_EQ(2, recvfrom_wdst(loopback.descriptor, buffer, 2, 0, nullptr, &sourceBytes, &info));
        EXPECT_TRUE(isUntouched(info));
    });
    null("recvfrom_wdst", "sourceBytes", [&] {
        loopback.send();
        EXPECT_EQ(2, recvfrom_wdst(loopback.descriptor, buffer, 2, 0, loopback.address(), nullptr, &info));
    });
    null("recvfrom_wdst", "info", [&] {
        loopback.send();
        EXPECT_EQ(2, recvfrom_wdst(loopback.descriptor, buffer, 2, 0, reinterpret_cast<sockaddr *>(&source),
                                   &sourceBytes, nullptr));
    });
}

TEST(HostileDatagram, Sending)
{
    if (Emulated)
        GTEST_SKIP() << "SKIPPED: the emulator itself reads what these arguments say";
    Loopback loopback;
    const packet_info info{};
    const auto send = [&](int socket, const void *bytes, int length, int flags) {
        return sendto_wsrc(socket, bytes, length, flags, loopback.address(), sizeof loopback.own, &info);
    };
    someInts("sendto_wsrc", "socket", {-1, INT_MIN, INT_MAX}, [&](int value) {
        EXPECT_EQ(-1, send(value, "xy", 2, 0));
        EXPECT_EQ(EBADF, errno);
    });
    someInts("sendto_wsrc", "length", {0, 1},
             [&](int value) { EXPECT_EQ(value, send(loopback.descriptor, "xy", value, 0)); });
    null("sendto_wsrc", "buffer", [&] { EXPECT_EQ(0, send(loopback.descriptor, nullptr, 0, 0)); });
    ints("sendto_wsrc", "flags", [&](int value) {
        const ssize_t sent = send(loopback.descriptor, "xy", 2, value);
        EXPECT_TRUE(sent == -1 || sent == 2) << sent;
    });
    null("sendto_wsrc", "destination",
         [&] { EXPECT_EQ(-1, sendto_wsrc(loopback.descriptor, "xy", 2, 0, nullptr, 0, &info)); });
    someInts("sendto_wsrc", "destinationBytes", {0, 1, -1, INT_MIN}, [&](int value) {
        EXPECT_EQ(
            -1, sendto_wsrc(loopback.descriptor, "xy", 2, 0, loopback.address(), static_cast<socklen_t>(value), &info));
    });
    null("sendto_wsrc", "info", [&] {
        EXPECT_EQ(2, sendto_wsrc(loopback.descriptor, "xy", 2, 0, loopback.address(), sizeof loopback.own, nullptr));
    });
}

TEST(HostileOutput, EveryArgument)
{
    char line[8] = "";
    ints("dbgCliPrint", "cli", [&](int value) {
        char *cursor = line;
        size_t remaining = sizeof line;
        printedBy([&] {
            EXPECT_EQ(5, dbgCliPrint(line, sizeof line, &cursor, &remaining, value, "%s", "first"));
            EXPECT_EQ(6, dbgCliPrint(line, sizeof line, &cursor, &remaining, value, "%s", "second"));
        });
        EXPECT_STREQ("second", line);
    });
    someInts("dbgCliPrint", "bufSize", {0, 1}, [&](int value) {
        char none[1] = "";
        char *cursor = none;
        auto remaining = static_cast<size_t>(value);
        EXPECT_EQ(5, dbgCliPrint(none, static_cast<size_t>(value), &cursor, &remaining, 0, "%s", "first"));
        EXPECT_EQ(none, cursor);
        EXPECT_EQ('\0', none[0]);
    });
    for (const char *argument : {"buf", "cursor", "remaining", "format"})
        never("dbgCliPrint", argument);

    unsigned char bytes[4];
    ints("fast_memset", "value", [&](int value) {
        EXPECT_EQ(bytes, fast_memset(bytes, value, 4));
        EXPECT_EQ(value & 0xFF, bytes[3]);
    });
    someInts("fast_memset", "count", {0, 1}, [&](int value) { EXPECT_EQ(bytes, fast_memset(bytes, 1, value)); });
    someInts("fast_bzero", "count", {0, 1}, [&](int value) { EXPECT_EQ(bytes, fast_bzero(bytes, value)); });
    someInts("fast_memcpy", "count", {0, 1}, [&](int value) { EXPECT_EQ(bytes, fast_memcpy(bytes, "a", value)); });
    someInts("fast_memcmp", "count", {0, 1}, [&](int value) { EXPECT_EQ(0, fast_memcmp(bytes, bytes, value)); });
    const char *const text = "abab";
    EXPECT_GT(0, fast_memcmp(text, text + 1, 2)); // overlapping: both are only read
    never("fast_memset", "destination");
    never("fast_bzero", "destination");
    never("fast_memcpy", "destination");
    never("fast_memcpy", "source");
    never("fast_memcmp", "left");
    never("fast_memcmp", "right");
}

namespace
{
// A queue that was made works; ends it.
void expectEvents(SMultiEventQ *queue, bool valid)
{
    EXPECT_EQ(valid, queue != nullptr);
    if (queue == nullptr)
        return;
    unsigned short event = 9;
    unsigned int data = 9;
    EXPECT_EQ(0, meqSend(queue, 0, 1));
    EXPECT_EQ(0, meqRecv(queue, &event, &data));
    EXPECT_EQ(0, event);
    meqDelete(queue);
}

void expectMessages(SMsgQueueX *queue, bool valid)
{
    EXPECT_EQ(valid, queue != nullptr);
    if (queue == nullptr)
        return;
    char text[4] = "";
    EXPECT_EQ(0, msgQxSend(queue, "abc", 1, 0, 0));
    EXPECT_EQ(1, msgQxRecv(queue, text, 4, 0));
    msgQxDelete(queue);
}

unsigned short asEvent(int value)
{
    return static_cast<unsigned short>(value);
}
} // namespace

TEST_F(HostileMultiEventQ, Creation)
{
    const auto hasWidth = [](int value) { return value == 0 || value == 1; };
    ints("meqCreate", "width", [&](int value) { expectEvents(meqCreate(value, 2, nullptr), hasWidth(value)); });
    ints("meqCreate", "numEvents",
         [](int value) { expectEvents(meqCreate(1, asEvent(value), nullptr), asEvent(value) != 0); });
    null("meqCreate", "externalFlag", [] { expectEvents(meqCreate(1, 2, nullptr), true); });
    ints("meqCreateX", "width",
         [&](int value) { expectEvents(meqCreateX(value, 2, 0, 0, 0, nullptr), hasWidth(value)); });
    ints("meqCreateX", "numEvents",
         [](int value) { expectEvents(meqCreateX(1, asEvent(value), 0, 0, 0, nullptr), asEvent(value) != 0); });
    ints("meqCreateX", "pendOption", [](int value) { expectEvents(meqCreateX(1, 2, value, 0, 0, nullptr), true); });
    ints("meqCreateX", "rxThreshold", [](int value) { expectEvents(meqCreateX(1, 2, 0, value, 10, nullptr), true); });
    ints("meqCreateX", "maxDelay", [](int value) { expectEvents(meqCreateX(1, 2, 0, 5, value, nullptr), true); });
    null("meqCreateX", "externalFlag", [] { expectEvents(meqCreateX(1, 2, 0, 5, 10, nullptr), true); });
}

TEST_F(HostileMultiEventQ, Handles)
{
    handle<SMultiEventQ>("meqDelete", [](SMultiEventQ *queue) { meqDelete(queue); });
    handle<SMultiEventQ>("meqSize", [](SMultiEventQ *queue) { EXPECT_EQ(0U, meqSize(queue)); });
    handle<SMultiEventQ>("meqSnoop", [](SMultiEventQ *queue) { EXPECT_EQ(-1, meqSnoop(queue, 1, nullptr)); });
    handle<SMultiEventQ>("meqRecv", [](SMultiEventQ *queue) { EXPECT_EQ(-1, meqRecv(queue, nullptr, nullptr)); });
    handle<SMultiEventQ>("meqRecvX", [](SMultiEventQ *queue) { EXPECT_EQ(-1, meqRecvX(queue, nullptr, nullptr, -1)); });
    handle<SMultiEventQ>("meqSend", [](SMultiEventQ *queue) { EXPECT_EQ(-1, meqSend(queue, 1, 1)); });
    handle<SMultiEventQ>("meqSendY", [](SMultiEventQ *queue) { EXPECT_EQ(-1, meqSendY(queue, 1, 1, 2)); });
    handle<SMultiEventQ>("meqSendX", [](SMultiEventQ *queue) { EXPECT_EQ(-1, meqSendX(queue, 1, 1, 1, 1)); });
    handle<SMultiEventQ>("meqSendXY", [](SMultiEventQ *queue) { EXPECT_EQ(-1, meqSendXY(queue, 1, 1, 1, 1, 2)); });
}

TEST_F(HostileMultiEventQ, Sending)
{
    SMultiEventQ *queue = meqCreate(4, 2, nullptr);
    unsigned short event = 9;
    unsigned int data = 9;
    const auto expectSent = [&](int result, int sent, unsigned value) {
        const bool known = asEvent(sent) < 2;
        EXPECT_EQ(known ? 0 : -1, result);
        EXPECT_EQ(known ? 0 : -1, meqRecv(queue, &event, &data));
        if (known) {
            EXPECT_EQ(asEvent(sent), event);
            EXPECT_EQ(value, data);
        }
    };
    ints("meqSend", "event", [&](int value) { expectSent(meqSend(queue, asEvent(value), 7), value, 7); });
    ints("meqSendY", "event", [&](int value) { expectSent(meqSendY(queue, asEvent(value), 7, 0), value, 7); });
    ints("meqSendX", "event", [&](int value) { expectSent(meqSendX(queue, asEvent(value), 7, 7, 7), value, 7); });
    ints("meqSendXY", "event", [&](int value) { expectSent(meqSendXY(queue, asEvent(value), 7, 7, 7, 0), value, 7); });

    const auto word = [](int value) { return static_cast<unsigned>(value); };
    ints("meqSend", "data", [&](int value) { expectSent(meqSend(queue, 1, word(value)), 1, word(value)); });
    ints("meqSendY", "data", [&](int value) { expectSent(meqSendY(queue, 1, word(value), 0), 1, word(value)); });
    ints("meqSendX", "data",
         [&](int value) { expectSent(meqSendX(queue, 1, word(value), 7, Forever), 1, word(value)); });
    ints("meqSendXY", "data",
         [&](int value) { expectSent(meqSendXY(queue, 1, word(value), 7, Forever, 0), 1, word(value)); });
    ints("meqSendX", "cmpMask", [&](int value) { expectSent(meqSendX(queue, 1, 7, word(value), 7), 1, 7); });
    ints("meqSendXY", "cmpMask", [&](int value) { expectSent(meqSendXY(queue, 1, 7, word(value), 7, 0), 1, 7); });
    ints("meqSendX", "wrMask",
         [&](int value) { expectSent(meqSendX(queue, 1, 7, 7, word(value)), 1, 7 & word(value)); });
    ints("meqSendXY", "wrMask",
         [&](int value) { expectSent(meqSendXY(queue, 1, 7, 7, word(value), 0), 1, 7 & word(value)); });
    ints("meqSendY", "urgency", [&](int value) { expectSent(meqSendY(queue, 1, 7, value), 1, 7); });
    ints("meqSendXY", "urgency", [&](int value) { expectSent(meqSendXY(queue, 1, 7, 7, 7, value), 1, 7); });
    meqDelete(queue);
}

TEST_F(HostileMultiEventQ, Receiving)
{
    SMultiEventQ *queue = meqCreate(4, 2, nullptr);
    unsigned short event = 9;
    unsigned int data = 9;
    ints("meqSnoop", "event", [&](int value) {
        data = 9;
        EXPECT_EQ(-1, meqSnoop(queue, asEvent(value), &data));
        EXPECT_EQ(asEvent(value) < 2 ? 0U : 9U, data);
    });
    ints("meqRecvX", "timeout", [&](int value) {
        EXPECT_EQ(0, meqSend(queue, 1, 1));
        EXPECT_EQ(0, meqRecvX(queue, &event, &data, value));
        if (value != -1) {
            EXPECT_EQ(-1, meqRecvX(queue, &event, &data, value));
        }
        EXPECT_TRUE(value == 0 || value == 1 || value == -1 || isPast(value)); // or it had waited for weeks
    });
    for (const char *argument : {"event", "data"}) {
        never("meqRecv", argument);
        never("meqRecvX", argument);
    }
    never("meqSnoop", "data");
    meqDelete(queue);
}

TEST_F(HostileMsgQueueX, Creation)
{
    const auto isOne = [](int value) { return value == 1; };
    const auto notNegative = [](int value) { return value >= 0; };
    const auto refuses = [](SMsgQueueX *queue) {
        ASSERT_NE(nullptr, queue); // the size of all slots is negative in 32 bits: creation failed
        EXPECT_EQ(-1, msgQxSend(queue, "a", 1, 0, 0));
        msgQxDelete(queue);
    };
    ints("msgQxCreate", "maxMsgs", [&](int value) {
        printedBy([&] {
            SMsgQueueX *queue = msgQxCreate(value, 4, 0, 0, 0, nullptr);
            value == INT_MAX ? refuses(queue) : expectMessages(queue, isOne(value));
        });
    });
    ints("msgQxCreate", "maxMsgLength", [&](int value) {
        printedBy([&] {
            SMsgQueueX *queue = msgQxCreate(2, value, 0, 0, 0, nullptr);
            value == INT_MAX ? refuses(queue) : expectMessages(queue, isOne(value));
        });
    });
    ints("msgQxCreate", "pendOption", [](int value) { expectMessages(msgQxCreate(2, 4, value, 0, 0, nullptr), true); });
    ints("msgQxCreate", "rxThreshold",
         [](int value) { expectMessages(msgQxCreate(2, 4, 0, value, 10, nullptr), value == 0 || value == 1); });
    ints("msgQxCreate", "maxDelay",
         [&](int value) { expectMessages(msgQxCreate(2, 4, 0, 2, value, nullptr), notNegative(value)); });
    null("msgQxCreate", "externalFlag", [] { expectMessages(msgQxCreate(2, 4, 0, 2, 10, nullptr), true); });

    ints("msgQxCreateX", "maxMsgs", [&](int value) {
        printedBy([&] {
            SMsgQueueX *queue = msgQxCreateX(value, 4, 0, 0, 0, 0, nullptr);
            value == INT_MAX ? refuses(queue) : expectMessages(queue, isOne(value));
        });
    });
    ints("msgQxCreateX", "maxMsgLength", [&](int value) {
        printedBy([&] {
            SMsgQueueX *queue = msgQxCreateX(2, value, 0, 0, 0, 0, nullptr);
            value == INT_MAX ? refuses(queue) : expectMessages(queue, isOne(value));
        });
    });
    ints("msgQxCreateX", "pendOption",
         [](int value) { expectMessages(msgQxCreateX(2, 4, value, 0, 0, 0, nullptr), true); });
    ints("msgQxCreateX", "rxThreshold",
         [](int value) { expectMessages(msgQxCreateX(2, 4, 0, value, 0, 10, nullptr), value == 0 || value == 1); });
    ints("msgQxCreateX", "txThreshold",
         [&](int value) { expectMessages(msgQxCreateX(2, 4, 0, 0, value, 0, nullptr), notNegative(value)); });
    ints("msgQxCreateX", "maxDelay",
         [&](int value) { expectMessages(msgQxCreateX(2, 4, 0, 2, 0, value, nullptr), notNegative(value)); });
    null("msgQxCreateX", "externalFlag", [] { expectMessages(msgQxCreateX(2, 4, 0, 2, 0, 10, nullptr), true); });
}

TEST_F(HostileMsgQueueX, Handles)
{
    handle<SMsgQueueX>("msgQxDelete", [](SMsgQueueX *queue) { msgQxDelete(queue); });
    handle<SMsgQueueX>("msgQxNumMsgs", [](SMsgQueueX *queue) { EXPECT_EQ(0, msgQxNumMsgs(queue)); });
    handle<SMsgQueueX>("msgQxSize", [](SMsgQueueX *queue) { EXPECT_EQ(0U, msgQxSize(queue)); });
    handle<SMsgQueueX>("msgQxSend", [](SMsgQueueX *queue) { EXPECT_EQ(-1, msgQxSend(queue, "a", 1, -1, 0)); });
    handle<SMsgQueueX>("msgQxRecv", [](SMsgQueueX *queue) { EXPECT_EQ(-1, msgQxRecv(queue, nullptr, 1, -1)); });
}

TEST_F(HostileMsgQueueX, SendingAndReceiving)
{
    SMsgQueueX *queue = msgQxCreate(1, 4, 0, 0, 0, nullptr);
    char text[4];
    const auto drain = [&] { return msgQxRecv(queue, text, 4, 0); };
    null("msgQxSend", "msg", [&] { EXPECT_EQ(0, msgQxSend(queue, nullptr, 0, 0, 0)); });
    EXPECT_EQ(0, drain());
    ints("msgQxSend", "len", [&](int value) {
        const bool fits = value == 0 || value == 1;
        EXPECT_EQ(fits ? 0 : -1, msgQxSend(queue, "abc", value, 0, 0));
        EXPECT_EQ(fits ? value : -1, drain());
    });
    ints("msgQxSend", "flags", [&](int value) {
        EXPECT_EQ(0, msgQxSend(queue, "abc", 4, 0, value));
        EXPECT_EQ(4, drain());
    });
    ints("msgQxSend", "timeout", [&](int value) {
        EXPECT_EQ(0, msgQxSend(queue, "abc", 4, value, 0));
        if (value != -1) {
            EXPECT_EQ(-1, msgQxSend(queue, "abc", 4, value, 0)); // the ring is full
        }
        EXPECT_EQ(4, drain());
    });
    ints("msgQxRecv", "timeout", [&](int value) {
        EXPECT_EQ(0, msgQxSend(queue, "abc", 4, 0, 0));
        EXPECT_EQ(4, msgQxRecv(queue, text, 4, value));
        if (value != -1) {
            EXPECT_EQ(-1, msgQxRecv(queue, text, 4, value));
        }
    });
    ints("msgQxRecv", "maxLen", [&](int value) {
        EXPECT_EQ(0, msgQxSend(queue, "abc", 4, 0, 0));
        EXPECT_EQ(value < 0 ? -1 : value == INT_MAX ? 4 : value, msgQxRecv(queue, text, value, 0));
        drain();
    });
    null("msgQxRecv", "buf", [&] {
        EXPECT_EQ(0, msgQxSend(queue, "abc", 4, 0, 0));
        EXPECT_EQ(0, msgQxRecv(queue, nullptr, 0, 0));
    });
    msgQxDelete(queue);
}

// What is no queue is not shown: the state that all queues share is, alone.
TEST_F(HostileQueueShow, EveryArgument)
{
    const std::string shared = printedBy([] { baseQShow(nullptr, 0); });
    EXPECT_NE(std::string::npos, shared.find("Num Queues"));
    const auto lines = [](const std::string &text) { return std::count(text.begin(), text.end(), '\n'); };
    handle<SMultiEventQ>("meqShow", [&](SMultiEventQ *queue) {
        const std::string text = printedBy([&] { EXPECT_LT(0, meqShow(queue, 1)); });
        EXPECT_EQ(std::string::npos, text.find("queuePtr"));
    });
    handle<SMsgQueueX>("msgQxShow", [&](SMsgQueueX *queue) {
        const std::string text = printedBy([&] { EXPECT_LT(0, msgQxShow(queue, 1)); });
        EXPECT_EQ(std::string::npos, text.find("sendFlag"));
    });
    handle<SBaseQ>("baseQShow", [&](SBaseQ *queue) { printedBy([&] { EXPECT_LT(0, baseQShow(queue, 1)); }); });
    for (int (*show)(SBaseQ *, int) : {baseQShow}) {
        ints("baseQShow", "flag",
             [&](int value) { EXPECT_EQ(lines(shared), lines(printedBy([&] { show(nullptr, value); }))); });
    }
    ints("meqShow", "flag",
         [&](int value) { EXPECT_EQ(lines(shared), lines(printedBy([&] { meqShow(nullptr, value); }))); });
    ints("msgQxShow", "flag",
         [&](int value) { EXPECT_EQ(lines(shared), lines(printedBy([&] { msgQxShow(nullptr, value); }))); });
}

TEST(HostileIpAddress, EveryArgument)
{
    char text[64];
    null("get_unmapped_address_string", "text", [&] {
        get_unmapped_address_string(nullptr, text, sizeof text);
        EXPECT_STREQ("UNKNOWN", text);
    });
    null("get_unmapped_address_string", "buf", [] { get_unmapped_address_string("::1", nullptr, 64); });
    someInts("get_unmapped_address_string", "len", {0, 1}, [&](int value) {
        text[0] = text[1] = '#';
        get_unmapped_address_string("::1", text, static_cast<unsigned>(value));
        EXPECT_EQ(value == 0 ? '#' : 'U', text[0]);
        EXPECT_EQ('#', text[1]);
    });
}

TEST(HostilePortMap, UnknownInstancesAreNeitherAddedNorRemoved)
{
    kelSysPortUtilInit();
    ints("kelSysPortUtilAddPifCB", "portInstance",
         [](int value) { EXPECT_EQ(0, kelSysPortUtilAddPifCB(static_cast<uint32_t>(value))); });
    ints("kelSysPortUtilDelPifCB", "portInstance",
         [](int value) { EXPECT_EQ(0, kelSysPortUtilDelPifCB(static_cast<uint32_t>(value))); });
}
