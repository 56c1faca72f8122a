// queues.cpp: variable-length and multi-event queues, with gives held back for the timer task and without.
#include "subsystem.h"

#include "models/aging_list_model.h"
#include "vxw_shim/sem_lock.h"

#include <array>
#include <cstring>

namespace
{
using namespace soak;

const char *brokenAgingList()
{
    SemLock hold(SBaseQ::lockSem);
    return brokenInvariant();
}

class MsgQueues : public Subsystem
{
public:
    MsgQueues() : Subsystem("variable-length queues") {}
    ~MsgQueues() override
    {
        for (SMsgQueueX *queue : queues_)
            msgQxDelete(queue);
    }

    void round(Random &random, unsigned) override
    {
        SMsgQueueX *queue = queues_[random.below(static_cast<unsigned>(queues_.size()))];
        for (int i = 0; i < 20; ++i) {
            if (random.oneIn(2))
                send(queue, random);
            else
                receive(queue, static_cast<int>(random.ticks()));
        }
        mustHold(brokenAgingList());
        if (random.oneIn(200))
            deleteWhileHoldingBack();
    }
    void settle() override
    {
        for (SMsgQueueX *queue : queues_) {
            while (receive(queue, 1)) { // a tick, since what was given for one message may have let another through
            }
            must(msgQxNumMsgs(queue) == 0, "a queue that gives nothing is empty");
        }
        must(sent_ == received_ && sentSum_ == receivedSum_, "every message sent is received, once");
    }

private:
    static constexpr int MaxLength = 40;

    void send(SMsgQueueX *queue, Random &random)
    {
        char bytes[MaxLength];
        const uint32_t number = random.word();
        const auto length = static_cast<int>(4 + number % (MaxLength - 3));
        memset(bytes, static_cast<int>(number), sizeof bytes);
        memcpy(bytes, &number, 4);
        did();
        if (msgQxSend(queue, bytes, length, static_cast<int>(random.ticks()), static_cast<int>(random.below(4))) != 0)
            return;
        ++sent_;
        sentSum_ += number;
    }
    bool receive(SMsgQueueX *queue, int timeout)
    {
        char bytes[MaxLength] = {};
        uint32_t number = 0;
        did();
        const int length = msgQxRecv(queue, bytes, sizeof bytes, timeout);
        if (length == -1)
            return false;
        memcpy(&number, bytes, 4);
        bool whole = length == static_cast<int>(4 + number % (MaxLength - 3));
        for (int i = 4; i < length; ++i)
            whole = whole && bytes[i] == static_cast<char>(number);
        must(whole, "a message arrives whole");
        ++received_;
        receivedSum_ += number;
        return true;
    }
    // The timer task may be about to deliver.
    void deleteWhileHoldingBack()
    {
        SMsgQueueX *queue = msgQxCreateX(4, 8, 0, 3, 2, 1, nullptr);
        must(msgQxSend(queue, "held", 4, 0, 0) == 0, "an empty queue takes a message");
        msgQxDelete(queue);
        recordsLeft += 2;
        did(3);
    }

    std::array<SMsgQueueX *, 3> queues_{msgQxCreateX(16, MaxLength, 0, 8, 8, 2, nullptr),
                                        msgQxCreateX(16, MaxLength, 0, 0, 0, 0, nullptr),
                                        msgQxCreateX(5, MaxLength, 0, 4, 5, 7, nullptr)};
    std::atomic<uint64_t> sent_{0}, received_{0}, sentSum_{0}, receivedSum_{0};
};

// Each event belongs to one worker, who sends it with values 1, 2, 3 ... Values that meet in the queue are merged into
// the latest one, so the last value sent is the last one received.
class EventQueues : public Subsystem
{
public:
    EventQueues() : Subsystem("multi-event queues") {}
    ~EventQueues() override
    {
        for (SMultiEventQ *queue : queues_)
            meqDelete(queue);
    }

    void round(Random &random, unsigned worker) override
    {
        const unsigned chosen = random.below(Queues);
        for (int i = 0; i < 20; ++i) {
            if (random.oneIn(2))
                send(chosen, worker * EventsOfEach + random.below(EventsOfEach), random.oneIn(50) ? 2 : 0);
            else
                receive(chosen, static_cast<int>(random.ticks()));
        }
        mustHold(brokenAgingList());
        if (random.oneIn(200))
            deleteWhileHoldingBack();
    }
    void settle() override
    {
        for (unsigned queue = 0; queue < Queues; ++queue) {
            while (receive(queue, 1)) {
            }
            for (unsigned event = 0; event < Events; ++event)
                must(last_[queue][event] == sent_[queue][event], "the last value sent of an event is received");
        }
        must(receives_ <= sends_, "no event is received more often than it was sent");
    }

private:
    static constexpr unsigned Queues = 3, EventsOfEach = 4, Events = Workers * EventsOfEach;

    void send(unsigned queue, unsigned event, int urgency)
    {
        const unsigned value = sent_[queue][event] + 1;
        sent_[queue][event] = value;
        ++sends_;
        must(meqSendY(queues_[queue], static_cast<unsigned short>(event), value, urgency) == 0, "an event is sent");
        did();
    }
    bool receive(unsigned queue, int timeout)
    {
        unsigned short event = 0;
        unsigned value = 0;
        did();
        if (meqRecvX(queues_[queue], &event, &value, timeout) == -1)
            return false;
        must(event < Events && value >= 1 && value <= sent_[queue][event], "what is received was sent");
        ++receives_;
        unsigned last = last_[queue][event];
        while (last < value && !last_[queue][event].compare_exchange_weak(last, value)) {
        }
        return true;
    }
    void deleteWhileHoldingBack()
    {
        SMultiEventQ *queue = meqCreateX(4, 4, 0, 3, 1, nullptr);
        must(meqSend(queue, 1, 1) == 0, "an event is sent");
        meqDelete(queue);
        ++recordsLeft;
        did(3);
    }

    std::array<SMultiEventQ *, Queues> queues_{meqCreateX(4, Events, 0, 8, 2, nullptr),
                                               meqCreateX(4, Events, 0, 0, 0, nullptr),
                                               meqCreateX(4, Events, 0, 30, 5, nullptr)};
    std::array<std::array<std::atomic<unsigned>, Events>, Queues> sent_{}, last_{};
    std::atomic<uint64_t> sends_{0}, receives_{0};
};
} // namespace

void soak::addQueues(Subsystems &all)
{
    all.push_back(std::make_unique<MsgQueues>());
    all.push_back(std::make_unique<EventQueues>());
}
