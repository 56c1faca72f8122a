// queues_faults.cpp: the event and message queues under faults, without a timer task: what is held back stays so until
// a sender or receiver asks for it.
#include "fault_table.h"

#include "queues.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>

using namespace faults;

namespace
{
constexpr unsigned AllBits = 0xFFFFFFFF;
constexpr int Urgent = 2;

// Room for an object whose constructor is under test: the object's own memory is not a part of that.
template <class Queue>
struct Room {
    alignas(Queue) unsigned char bytes[sizeof(Queue)];
};

// Without its count a queue keeps events and cannot signal them.
void sendsAndTakesBack(SMultiEventQ &queue)
{
    unsigned short event = 0;
    unsigned int data = 0;
    EXPECT_EQ(0, queue.send(1, 5, AllBits, AllBits, 0));
    if (queue.cflag != nullptr) {
        EXPECT_EQ(0, queue.recv(event, data, 0));
    } else {
        EXPECT_EQ(-1, queue.recv(event, data, 0));
        EXPECT_EQ(0, queue.recvQ(event, data));
    }
    EXPECT_EQ(1, event);
    EXPECT_EQ(-1, queue.recvQ(event, data));
}

// The count comes first: a record and a sem_t. Memory that lacks for anything else lets the exception pass.
void expectEventQueue(Injection &injection, SMultiEventQ *queue, int before)
{
    const bool noCount = injection.failed(Call::SemInit) || injection.failedOnce(Call::Allocate, before + 1) ||
                         injection.failedOnce(Call::Allocate, before + 2);
    EXPECT_EQ(injection.failed() && !noCount, injection.threw());
    EXPECT_EQ(injection.threw(), queue == nullptr);
    if (queue == nullptr)
        return;
    EXPECT_EQ(noCount, queue->cflag == nullptr);
    sendsAndTakesBack(*queue);
}

template <class Queue>
void constructsEventQueue(Injection &injection)
{
    Room<Queue> room;
    Queue *queue = injection.during([&] { return new (room.bytes) Queue(3, 0, 0, 0, nullptr); });
    expectEventQueue(injection, queue, 0);
    if (queue != nullptr)
        queue->~Queue();
}

template <int Width>
void createsEventQueue(Injection &injection)
{
    SMultiEventQ *queue = injection.during([] { return meqCreateX(Width, 3, 0, 0, 0, nullptr); });
    expectEventQueue(injection, queue, 1);
    meqDelete(queue);
}

void createsPlainEventQueue(Injection &injection)
{
    SMultiEventQ *queue = injection.during([] { return meqCreate(4, 3, nullptr); });
    expectEventQueue(injection, queue, 1);
    meqDelete(queue);
}

// Two counts and two arrays; a queue without memory for its messages refuses everything.
void expectMessageQueue(Injection &injection, SMsgQueueX *queue, int before)
{
    const int nth = injection.nth() - before;
    const bool allocating = injection.failed(Call::Allocate);
    const bool forGood = injection.fromThenOn();
    EXPECT_EQ(allocating && nth < 1, injection.threw());
    EXPECT_EQ(injection.threw(), queue == nullptr);
    if (queue == nullptr)
        return;
    const bool initialising = injection.failed(Call::SemInit);
    EXPECT_EQ((allocating && nth <= 2) || (initialising && injection.nth() == 1), queue->cflag == nullptr);
    EXPECT_EQ((allocating && (nth == 3 || nth == 4 || (forGood && nth < 3))) ||
                  (initialising && (injection.nth() == 2 || forGood)),
              queue->sendFlag == nullptr);
    const bool refuses = allocating && (nth >= 5 || forGood);
    EXPECT_EQ(refuses, queue->msgQ == nullptr);
    char text[4] = "";
    EXPECT_EQ(refuses ? -1 : 0, queue->send("abc", 4, 0, 0));
    EXPECT_EQ(refuses || queue->cflag == nullptr ? -1 : 4, queue->recv(text, 4, 0));
    if (!refuses && queue->cflag == nullptr) {
        EXPECT_EQ(4, queue->recvQ(text, 4));
    }
    EXPECT_STREQ(refuses ? "" : "abc", text);
}

void constructsMessageQueue(Injection &injection)
{
    Room<SMsgQueueX> room;
    SMsgQueueX *queue = injection.during([&] { return new (room.bytes) SMsgQueueX(2, 4, 0, 0, 2, 0, nullptr); });
    expectMessageQueue(injection, queue, 0);
    queue->~SMsgQueueX();
}

template <SMsgQueueX *(*Create)()>
void createsMessageQueue(Injection &injection)
{
    SMsgQueueX *queue = injection.during(Create);
    expectMessageQueue(injection, queue, 1);
    msgQxDelete(queue);
}

SMsgQueueX *createMessageQueue()
{
    return msgQxCreate(2, 4, 0, 0, 0, nullptr);
}

SMsgQueueX *createMessageQueueX()
{
    return msgQxCreateX(2, 4, 0, 0, 1, 0, nullptr);
}

void constructsBaseQueue(Injection &injection)
{
    Room<SBaseQ> room;
    SBaseQ *queue = injection.during([&] { return new (room.bytes) SBaseQ(2, 0, 0, 0, nullptr); });
    ASSERT_NE(nullptr, queue);
    EXPECT_EQ(injection.failed(), queue->cflag == nullptr);
    queue->age_start(1); // what it cannot signal it can hold back all the same
    queue->~SBaseQ();
}

// A queue that holds back, with an external flag.
struct HoldingBack {
    SEM_ID flag = semBCreate(0, SEM_EMPTY);
    std::unique_ptr<SMultiEventQ> events = std::make_unique<SMultiEventQ16>(4, 0, 5, 100, flag);
    std::unique_ptr<SMsgQueueX> messages = std::make_unique<SMsgQueueX>(4, 4, 0, 4, 2, 100, flag);
    ~HoldingBack()
    {
        events.reset();
        messages.reset();
        semDelete(flag);
    }
};

void startsToAge(Injection &injection)
{
    HoldingBack queues;
    injection.during([&] {
        queues.events->age_start(1);
        queues.events->age_start(1);
    });
    // Both are still held back, whatever the clock said.
    EXPECT_NE(0, semTake(queues.events->cflag, 0));
    queues.events->age_stop(2);
    EXPECT_EQ(0, semTake(queues.events->cflag, 0));
    EXPECT_EQ(0, semTake(queues.events->cflag, 0));
    EXPECT_EQ(0, semTake(queues.flag, 0));
}

// A give that is lost is lost alone: the other of the two and the flag's still come.
void stopsAging(Injection &injection)
{
    HoldingBack queues;
    queues.events->age_start(1);
    queues.events->age_start(1);
    injection.during([&] { queues.events->age_stop(1); });
    int gives = 0;
    while (semTake(queues.events->cflag, 0) == 0)
        ++gives;
    while (semTake(queues.flag, 0) == 0)
        ++gives;
    const int lost = !injection.failed() ? 0 : injection.fromThenOn() ? 4 - injection.nth() : 1;
    EXPECT_EQ(3 - lost, gives);
    queues.events->age_stop(1);
    EXPECT_NE(0, semTake(queues.events->cflag, 0));
}

void destroysQueuesThatHoldBack(Injection &injection)
{
    auto base = std::make_unique<SBaseQ>(2, 0, 100, 5, nullptr);
    auto plain = std::make_unique<SMultiEventQ>(2, 0, 5, 100, nullptr);
    auto with8 = std::make_unique<SMultiEventQ8>(2, 0, 5, 100, nullptr);
    auto with16 = std::make_unique<SMultiEventQ16>(2, 0, 5, 100, nullptr);
    auto with32 = std::make_unique<SMultiEventQ32>(2, 0, 5, 100, nullptr);
    auto messages = std::make_unique<SMsgQueueX>(2, 4, 0, 2, 2, 100, nullptr);
    base->age_start(1);
    for (SMultiEventQ *queue : {plain.get(), static_cast<SMultiEventQ *>(with8.get()),
                                static_cast<SMultiEventQ *>(with16.get()), static_cast<SMultiEventQ *>(with32.get())})
        EXPECT_EQ(0, queue->send(1, 1, AllBits, AllBits, 0));
    EXPECT_EQ(0, messages->send("a", 1, 0, 0));
    injection.during([&] {
        base.reset();
        plain.reset();
        with8.reset();
        with16.reset();
        with32.reset();
        messages.reset();
    });
}

void deletesByHandle(Injection &injection)
{
    SMultiEventQ *events = meqCreateX(1, 2, 0, 5, 100, nullptr);
    SMsgQueueX *messages = msgQxCreate(2, 4, 0, 2, 100, nullptr);
    EXPECT_EQ(0, meqSend(events, 1, 1));
    EXPECT_EQ(0, msgQxSend(messages, "a", 1, 0, 0));
    injection.during([&] {
        meqDelete(events);
        msgQxDelete(messages);
    });
}

// Two events are held back, then an urgent one gives all three. Every one is queued, whatever becomes of its signal.
template <int (*Send)(SMultiEventQ &, unsigned short, int)>
void sendsEvents(Injection &injection)
{
    HoldingBack queues;
    int results[4] = {-1, -1, -1, 7};
    injection.during([&] {
        for (unsigned short event = 0; event < 3; ++event)
            results[event] = Send(*queues.events, event, event == 2 ? Urgent : 0);
        results[3] = Send(*queues.events, 2, 0); // merged
    });
    for (const int result : results)
        EXPECT_EQ(0, result);
    unsigned short event = 0;
    unsigned int data = 0;
    for (unsigned short expected = 0; expected < 3; ++expected) {
        EXPECT_EQ(0, queues.events->recvQ(event, data));
        EXPECT_EQ(expected, event);
    }
    EXPECT_EQ(-1, queues.events->recvQ(event, data));
}

int sendByMethod(SMultiEventQ &queue, unsigned short event, int urgency)
{
    return queue.send(event, 9, AllBits, AllBits, urgency);
}
int sendPlainly(SMultiEventQ &queue, unsigned short event, int)
{
    return meqSend(&queue, event, 9);
}
int sendUrgently(SMultiEventQ &queue, unsigned short event, int urgency)
{
    return meqSendY(&queue, event, 9, urgency);
}
int sendMasked(SMultiEventQ &queue, unsigned short event, int)
{
    return meqSendX(&queue, event, 9, AllBits, AllBits);
}
int sendMaskedUrgently(SMultiEventQ &queue, unsigned short event, int urgency)
{
    return meqSendXY(&queue, event, 9, AllBits, AllBits, urgency);
}

// Nothing is signalled, so the receiver takes what is held back; when its own give is lost, the event stays queued.
template <int (*Receive)(SMultiEventQ *, unsigned short *, unsigned int *, int)>
void receivesEvents(Injection &injection)
{
    auto queue = std::make_unique<SMultiEventQ8>(2, 0, 5, 100, nullptr);
    EXPECT_EQ(0, queue->send(1, 7, AllBits, AllBits, 0));
    unsigned short event = 9;
    unsigned int data = 9;
    int results[2] = {};
    injection.during([&] {
        results[0] = Receive(queue.get(), &event, &data, 1);
        results[1] = Receive(queue.get(), &event, &data, 1);
    });
    const bool lost = injection.failed(Call::SemPost);
    EXPECT_EQ(lost ? -1 : 0, results[0]);
    EXPECT_EQ(-1, results[1]);
    EXPECT_EQ(lost ? 9 : 1, event);
    EXPECT_EQ(lost ? 9U : 7U, data);
    EXPECT_EQ(lost ? 0 : -1, queue->recvQ(event, data));
}

int receiveByMethod(SMultiEventQ *queue, unsigned short *event, unsigned int *data, int timeout)
{
    return queue->recv(*event, *data, timeout);
}
int receiveAtOnce(SMultiEventQ *queue, unsigned short *event, unsigned int *data, int)
{
    return meqRecv(queue, event, data);
}

// With more behind it, taking an event gives the external flag again; a lost one changes nothing here.
void takesEvents(Injection &injection)
{
    HoldingBack queues;
    EXPECT_EQ(0, queues.events->send(0, 1, AllBits, AllBits, 0));
    EXPECT_EQ(0, queues.events->send(1, 1, AllBits, AllBits, 0));
    unsigned short event = 9;
    unsigned int data = 0;
    EXPECT_EQ(0, injection.during([&] { return queues.events->recvQ(event, data); }));
    EXPECT_EQ(0, event);
    EXPECT_EQ(injection.failed() ? EAGAIN : 0, semTake(queues.flag, 0));
}

template <class Queue>
void looksAndCounts(Injection &injection)
{
    auto queue = std::make_unique<Queue>(2, 0, 0, 0, nullptr);
    unsigned int data = 0;
    injection.during([&] {
        EXPECT_EQ(-1, queue->snoop(1, data));
        EXPECT_EQ(-1, meqSnoop(queue.get(), 1, &data));
        queue->writeData(1, 3, 1);
        queue->readData(1);
        queue->dataPointer();
        EXPECT_EQ(queue->size(), meqSize(queue.get()));
        EXPECT_EQ(sizeof(SBaseQ), queue->SBaseQ::size());
        SBaseQ::lock();
        SBaseQ::unLock();
    });
}

void showsQueues(Injection &injection)
{
    HoldingBack queues;
    injection.during([&] {
        EXPECT_LT(0, baseQShow(queues.events.get(), 1));
        EXPECT_LT(0, meqShow(queues.events.get(), 1));
        EXPECT_LT(0, msgQxShow(queues.messages.get(), 1));
    });
}

// Fills the ring; the last sender finds it full and gives up.
template <int (*Send)(SMsgQueueX &, const char *, int)>
void sendsMessages(Injection &injection)
{
    auto queue = std::make_unique<SMsgQueueX>(2, 4, 0, 2, 2, 100, nullptr);
    int results[3] = {};
    injection.during([&] {
        results[0] = Send(*queue, "a", 100);
        results[1] = Send(*queue, "b", 0);
        results[2] = Send(*queue, "c", 1);
    });
    EXPECT_EQ(0, results[0]);
    EXPECT_EQ(0, results[1]);
    EXPECT_EQ(-1, results[2]);
    EXPECT_EQ(2, msgQxNumMsgs(queue.get()));
    char text[4];
    EXPECT_EQ(1, queue->recvQ(text, 4));
    EXPECT_EQ('a', text[0]);
    EXPECT_EQ(1, queue->recvQ(text, 4));
    EXPECT_EQ('b', text[0]);
}

int sendMessage(SMsgQueueX &queue, const char *text, int timeout)
{
    return queue.send(text, 1, timeout, 0);
}
int queueMessage(SMsgQueueX &queue, const char *text, int timeout)
{
    return queue.sendQ(text, 1, timeout, 0);
}
int sendMessageByHandle(SMsgQueueX &queue, const char *text, int timeout)
{
    return msgQxSend(&queue, text, 1, timeout, 0);
}

template <int (*Receive)(SMsgQueueX *, char *, int, int)>
void receivesMessages(Injection &injection)
{
    auto queue = std::make_unique<SMsgQueueX>(2, 4, 0, 2, 2, 100, nullptr);
    EXPECT_EQ(0, queue->send("a", 1, 0, 0));
    char text[4] = "";
    int results[2] = {};
    injection.during([&] {
        results[0] = Receive(queue.get(), text, 4, 1);
        results[1] = Receive(queue.get(), text, 4, 1);
    });
    // The first give is the message's own; the others pass the senders' turn on.
    const bool lost = injection.failed(Call::SemPost) && injection.nth() == 1;
    EXPECT_EQ(lost ? -1 : 1, results[0]);
    EXPECT_EQ(-1, results[1]);
    EXPECT_EQ(lost ? 1 : -1, queue->recvQ(text, 4));
}

int receiveMessage(SMsgQueueX *queue, char *text, int bytes, int timeout)
{
    return queue->recv(text, bytes, timeout);
}

void takesMessages(Injection &injection)
{
    HoldingBack queues;
    EXPECT_EQ(0, queues.messages->send("a", 1, 0, 0));
    EXPECT_EQ(0, queues.messages->send("b", 1, 0, 0));
    char text[4];
    EXPECT_EQ(1, injection.during([&] { return queues.messages->recvQ(text, 4); }));
    EXPECT_EQ(1, queues.messages->recvQ(text, 4));
}

void countsMessages(Injection &injection)
{
    HoldingBack queues;
    injection.during([&] {
        EXPECT_EQ(0, msgQxNumMsgs(queues.messages.get()));
        EXPECT_EQ(queues.messages->size(), msgQxSize(queues.messages.get()));
    });
}

void feedsTheTestQueue(Injection &injection)
{
    SMsgQueueX *queue = msgQxCreate(4, 4, 0, 0, 0, nullptr);
    msg_q_x_test_id = queue;
    EXPECT_EQ(2, injection.during([] { return msg_q_x_test_inject(2, 0, 5); }));
    msg_q_x_test_id = nullptr;
    EXPECT_EQ(2, msgQxNumMsgs(queue));
    msgQxDelete(queue);
}

const Row rows[] = {
    {"SBaseQ::SBaseQ(int, int, int, int, mutex_sem*)", constructsBaseQueue},
    {"SMultiEventQ::SMultiEventQ(unsigned short, int, int, int, mutex_sem*)", constructsEventQueue<SMultiEventQ>},
    {"SMultiEventQ8::SMultiEventQ8(unsigned short, int, int, int, mutex_sem*)", constructsEventQueue<SMultiEventQ8>},
    {"SMultiEventQ16::SMultiEventQ16(unsigned short, int, int, int, mutex_sem*)", constructsEventQueue<SMultiEventQ16>},
    {"SMultiEventQ32::SMultiEventQ32(unsigned short, int, int, int, mutex_sem*)", constructsEventQueue<SMultiEventQ32>},
    {"meqCreate", createsPlainEventQueue},
    {"meqCreateX", createsEventQueue<0>},
    {"meqCreateX", createsEventQueue<1>},
    {"meqCreateX", createsEventQueue<2>},
    {"meqCreateX", createsEventQueue<4>},
    {"SMsgQueueX::SMsgQueueX(int, int, int, int, int, int, mutex_sem*)", constructsMessageQueue},
    {"msgQxCreate", createsMessageQueue<createMessageQueue>},
    {"msgQxCreateX", createsMessageQueue<createMessageQueueX>},
    {"SBaseQ::age_start(int)", startsToAge},
    {"SBaseQ::age_stop(int)", stopsAging},
    {"SBaseQ::~SBaseQ()\n"
     "SMultiEventQ::~SMultiEventQ()\n"
     "SMultiEventQ8::~SMultiEventQ8()\n"
     "SMultiEventQ16::~SMultiEventQ16()\n"
     "SMultiEventQ32::~SMultiEventQ32()\n"
     "SMsgQueueX::~SMsgQueueX()",
     destroysQueuesThatHoldBack},
    {"meqDelete\n"
     "msgQxDelete",
     deletesByHandle},
    {"SMultiEventQ::send(unsigned short, unsigned int, unsigned int, unsigned int, int)", sendsEvents<sendByMethod>},
    {"meqSend", sendsEvents<sendPlainly>},
    {"meqSendY", sendsEvents<sendUrgently>},
    {"meqSendX", sendsEvents<sendMasked>},
    {"meqSendXY", sendsEvents<sendMaskedUrgently>},
    {"SMultiEventQ::recv(unsigned short&, unsigned int&, int)", receivesEvents<receiveByMethod>},
    {"meqRecv", receivesEvents<receiveAtOnce>},
    {"meqRecvX", receivesEvents<meqRecvX>},
    {"SMultiEventQ::recvQ(unsigned short&, unsigned int&)", takesEvents},
    {"SBaseQ::lock()\n"
     "SBaseQ::unLock()\n"
     "SBaseQ::size()\n"
     "SMultiEventQ::snoop(unsigned short, unsigned int&)\n"
     "meqSnoop\n"
     "meqSize\n"
     "SMultiEventQ::readData(unsigned short)\n"
     "SMultiEventQ::writeData(unsigned short, unsigned int, unsigned int)\n"
     "SMultiEventQ::dataPointer()\n"
     "SMultiEventQ::size()",
     looksAndCounts<SMultiEventQ>, Row::ReachesNothing},
    {"SMultiEventQ8::readData(unsigned short)\n"
     "SMultiEventQ8::writeData(unsigned short, unsigned int, unsigned int)\n"
     "SMultiEventQ8::dataPointer()\n"
     "SMultiEventQ8::size()",
     looksAndCounts<SMultiEventQ8>, Row::ReachesNothing},
    {"SMultiEventQ16::readData(unsigned short)\n"
     "SMultiEventQ16::writeData(unsigned short, unsigned int, unsigned int)\n"
     "SMultiEventQ16::dataPointer()\n"
     "SMultiEventQ16::size()",
     looksAndCounts<SMultiEventQ16>, Row::ReachesNothing},
    {"SMultiEventQ32::readData(unsigned short)\n"
     "SMultiEventQ32::writeData(unsigned short, unsigned int, unsigned int)\n"
     "SMultiEventQ32::dataPointer()\n"
     "SMultiEventQ32::size()",
     looksAndCounts<SMultiEventQ32>, Row::ReachesNothing},
    {"baseQShow\n"
     "meqShow\n"
     "msgQxShow",
     showsQueues, Row::ReachesNothing},
    {"SMsgQueueX::send(char const*, int, int, int)", sendsMessages<sendMessage>},
    {"SMsgQueueX::sendQ(char const*, int, int, int)", sendsMessages<queueMessage>},
    {"msgQxSend", sendsMessages<sendMessageByHandle>},
    {"SMsgQueueX::recv(char*, int, int)", receivesMessages<receiveMessage>},
    {"msgQxRecv", receivesMessages<msgQxRecv>},
    {"SMsgQueueX::recvQ(char*, int)", takesMessages},
    {"msgQxNumMsgs\n"
     "msgQxSize\n"
     "SMsgQueueX::size()",
     countsMessages, Row::ReachesNothing},
    {"msg_q_x_test_inject(int, int, int)", feedsTheTestQueue},
};
} // namespace

TEST(QueuesFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    SBaseQ::lockSem = semMCreate(0);
    SBaseQ::timerSig = semBCreate(0, SEM_EMPTY);
    runTable(rows);
    EXPECT_EQ(0, semDelete(SBaseQ::timerSig));
    EXPECT_EQ(0, semDelete(SBaseQ::lockSem));
    SBaseQ::timerSig = nullptr;
    SBaseQ::lockSem = nullptr;
}
