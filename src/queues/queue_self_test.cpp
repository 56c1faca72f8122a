// queue_self_test.cpp: exercises byte order, the memory functions and the queues; a consumer to be fed by hand.
//
// Everything here prints on standard output for a person to read. Addresses that are not aligned are only ever accessed
// byte by byte.
#include "queues.h"

#include "vxw_shim/tick_deadline.h"

#include <algorithm>
#include <memory>
#include <stdio.h>
#include <string.h>

SMsgQueueX *msg_q_x_test_id;
SEM_ID msg_q_x_test_sem;

namespace
{
using Bytes = unsigned char *;

constexpr size_t BufferBytes = 16;
constexpr int FilledBytes = 8;
constexpr int Offsets = 4;

template <class Word>
bool isAligned(const unsigned char *ptr)
{
    return reinterpret_cast<uintptr_t>(ptr) % sizeof(Word) == 0;
}

// A whole word where the address allows it, else byte by byte; host order either way.
template <class Word>
Word readHost(const unsigned char *from)
{
    Word value;
    if (isAligned<Word>(from))
        memcpy(&value, std::assume_aligned<sizeof(Word)>(from), sizeof value);
    else
        std::copy_n(from, sizeof value, reinterpret_cast<unsigned char *>(&value));
    return value;
}

template <class Word>
void writeHost(unsigned char *to, Word value)
{
    if (isAligned<Word>(to))
        memcpy(std::assume_aligned<sizeof(Word)>(to), &value, sizeof value);
    else
        std::copy_n(reinterpret_cast<const unsigned char *>(&value), sizeof value, to);
}

template <class Word>
Word readBigEndian(const unsigned char *from)
{
    unsigned int value = 0;
    for (size_t i = 0; i < sizeof(Word); ++i)
        value = value << 8 | from[i];
    return static_cast<Word>(value);
}

template <class Word>
void writeBigEndian(unsigned char *to, Word value)
{
    unsigned int rest = value;
    for (size_t i = sizeof(Word); i > 0; --i) {
        to[i - 1] = static_cast<unsigned char>(rest);
        rest >>= 8;
    }
}

void printFour(const char *label, const unsigned char *bytes)
{
    printf("%s: %2x %2x %2x %2x\n", label, bytes[0], bytes[1], bytes[2], bytes[3]);
}

void printPointer(const char *label, const void *ptr)
{
    printf("%s= %p\n", label, ptr);
}

void testHostOrder(Bytes ptr)
{
    printf("*******");
    printPointer("ptr ", ptr);
    const auto word = readHost<uint32_t>(ptr);
    printf("READ_32 : %8x\n", word);
    writeHost(ptr, word);
    printFour("WRITE_32", ptr);
    const auto half = readHost<uint16_t>(ptr);
    printf("READ_16 : %4x\n", half);
    writeHost(ptr, half);
    printFour("WRITE_16", ptr);
    const auto byte = readHost<uint8_t>(ptr);
    printf("READ_8 : %4x\n", byte);
    writeHost(ptr, byte);
    printFour("WRITE_8", ptr);
}

void testNetworkOrder(Bytes ptr)
{
    printf("*******");
    printPointer("ptr ", ptr);
    const auto word = readBigEndian<uint32_t>(ptr);
    printf("NET_READ_32 : %8x\n", word);
    writeBigEndian(ptr, word);
    printFour("NET_WRITE_32", ptr);
    const auto half = readBigEndian<uint16_t>(ptr);
    printf("NET_READ_16 : %4x\n", half);
    writeBigEndian(ptr, half);
    printFour("NET_WRITE_16", ptr);
    const auto byte = readBigEndian<uint8_t>(ptr);
    printf("NET_READ_8 : %4x\n", byte);
    writeBigEndian(ptr, byte);
    printFour("NET_WRITE_8", ptr);
}

void testByteOrder(Bytes first)
{
    constexpr unsigned char pattern[FilledBytes] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0};
    memcpy(first, pattern, sizeof pattern);
    printFour("Initial ", pattern);
    for (int offset = 0; offset < Offsets; ++offset) {
        testHostOrder(first + offset);
        testNetworkOrder(first + offset);
    }
}

void testMemoryFunctions(Bytes first, Bytes second)
{
    constexpr int lowestFill = 15;
    for (int offset = 0; offset < Offsets; ++offset) {
        unsigned char *const ptr = first + offset;
        unsigned char *const ptr2 = second + offset;
        printf("*******");
        printPointer("ptr ", ptr);
        printPointer("ptr2", ptr2);
        memset(ptr2, lowestFill + offset, FilledBytes);
        printFour("FAST_MEMSET(ptr2) ", ptr2);
        printf("%d\n", memcmp(ptr2, ptr, FilledBytes));
        printf("%d\n", memcmp(ptr, ptr2, FilledBytes));
        memcpy(ptr, ptr2, FilledBytes);
        printFour("FAST_MEMCPY(ptr ) ", ptr);
        printf("%d\n", memcmp(ptr2, ptr, FilledBytes));
    }
}

constexpr int Sent = 10;
constexpr int MessageBytes = sizeof(uint32_t);
constexpr int Forever = -1;

// A queue that is deleted at the end of the scope, also when memory for the next one runs out.
template <auto Delete>
struct Deleter {
    template <class Queue>
    void operator()(Queue *queue) const
    {
        Delete(queue);
    }
};
template <class Queue, auto Delete>
using Owned = std::unique_ptr<Queue, Deleter<Delete>>;

void sendTo(SMsgQueueX *queue, uint32_t value, int timeout)
{
    char message[MessageBytes];
    memcpy(message, &value, sizeof message);
    msgQxSend(queue, message, MessageBytes, timeout, 0);
}

int receiveMessages(SMsgQueueX *queue, int timeout)
{
    char message[MessageBytes];
    int received = 0;
    while (received < Sent && msgQxRecv(queue, message, MessageBytes, timeout) != -1)
        ++received;
    return received;
}

// The threshold is above what is sent, so everything is held back: the first receiver's time-out falls back to it, the
// other two wait for the timer task.
void testMsgQueues()
{
    constexpr int capacity = Sent + 1;
    constexpr int maxDelay = 1000;
    constexpr int shortWait = 5;
    puts("Test MSG_QX ");
    Owned<SMsgQueueX, msgQxDelete> queue[3];
    for (auto &each : queue) {
        each.reset(msgQxCreate(capacity, MessageBytes, 0, capacity, maxDelay, nullptr));
        printf("queue created %p\n", static_cast<void *>(each.get()));
    }
    for (uint32_t value = 0; value < Sent; ++value)
        for (const auto &each : queue)
            sendTo(each.get(), value, Forever);
    printf("%d x3 sends done\n", Sent);
    printf("%d msgQ3 recvs done\n", receiveMessages(queue[2].get(), shortWait));
    printf("%d msgQ2 recvs done\n", receiveMessages(queue[1].get(), Forever));
    printf("%d msgQ1 recvs done\n", receiveMessages(queue[0].get(), Forever));
}

int receiveEvents(SMultiEventQ *queue)
{
    unsigned short event;
    unsigned int data;
    int received = 0;
    while (received < Sent && meqRecv(queue, &event, &data) != -1)
        ++received;
    return received;
}

void testMultiEventQueues()
{
    constexpr int dataBytes = 1;
    constexpr unsigned short events = Sent + 1;
    puts("Test MEQ ");
    Owned<SMultiEventQ, meqDelete> queue[3];
    for (auto &each : queue) {
        each.reset(meqCreate(dataBytes, events, nullptr));
        printf("queue created %p\n", static_cast<void *>(each.get()));
    }
    for (unsigned short value = 0; value < Sent; ++value)
        for (const auto &each : queue)
            meqSend(each.get(), value, value);
    printf("%d x3 sends done\n", Sent);
    printf("%d meqQ3 recvs done\n", receiveEvents(queue[2].get()));
    printf("%d meqQ2 recvs done\n", receiveEvents(queue[1].get()));
    printf("%d meqQ1 recvs done\n", receiveEvents(queue[0].get()));
}

// The feeding tasks find the queue through the global, so a queue is complete before it is seen there.
SMsgQueueX *testQueue()
{
    return __atomic_load_n(&msg_q_x_test_id, __ATOMIC_ACQUIRE);
}

[[noreturn]] void consume(SMsgQueueX *queue)
{
    constexpr unsigned int atMost = 1000;
    for (;;) {
        semTake(msg_q_x_test_sem, atMost);
        uint32_t value;
        char message[MessageBytes];
        while (msgQxRecv(queue, message, MessageBytes, 0) == MessageBytes) {
            memcpy(&value, message, sizeof value);
            printf("%d\n", static_cast<int>(value));
        }
    }
}
} // namespace

void test_utils()
{
    alignas(uint32_t) unsigned char first[BufferBytes] = {};
    alignas(uint32_t) unsigned char second[BufferBytes] = {};
    testByteOrder(first);
    testMemoryFunctions(first, second);
    testMsgQueues();
    testMultiEventQueues();
}

SMsgQueueX *msg_q_x_test_start(int maxMsgs, int pendOption, int rxThreshold, int txThreshold, int maxDelay)
{
    if (testQueue() != nullptr)
        return testQueue();
    msg_q_x_test_sem = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    SMsgQueueX *const queue =
        msgQxCreateX(maxMsgs, MessageBytes, pendOption, rxThreshold, txThreshold, maxDelay, msg_q_x_test_sem);
    __atomic_store_n(&msg_q_x_test_id, queue, __ATOMIC_RELEASE);
    if (queue == nullptr || msg_q_x_test_sem == nullptr)
        return queue;
    consume(queue);
}

int msg_q_x_test_inject(int count, int delay, int burst)
{
    SMsgQueueX *const queue = testQueue();
    if (queue == nullptr || count <= 0)
        return 0;
    int left = 0; // in the burst
    for (int value = 0; value < count; ++value) {
        if (left < 1) {
            left = burst;
            taskDelay(static_cast<unsigned int>(delay));
        } else {
            --left;
        }
        sendTo(queue, static_cast<uint32_t>(value), 0);
    }
    return count;
}
