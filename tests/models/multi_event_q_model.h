// multi_event_q_model.h: what a multi-event queue has to hold: a list of events, and the gives that go with it.
//
// A program makes one call at a time on queue and model, without the timer task. Choices come from a Chooser (below()
// and word()), so tests feed them from a seed and fuzzers from their input.
#pragma once

#include "queues.h"

#include "queues/gives_of.h"
#include "vxw_shim/sem_lock.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <vector>

class MultiEventQModel
{
public:
    struct Event {
        unsigned int data = 0;
        bool pending = false;
        bool changed = false;
    };
    std::vector<Event> events;
    std::deque<unsigned short> order;
    int gives = 0;         // of the queue's semaphore
    int externalGives = 0; // of the external flag
    int heldBack = 0;
    int threshold = 0;
    bool delays = false;
    bool hasExternal = false;
    unsigned int width = 0xFFFFFFFF; // the bits that a word keeps

    int send(unsigned short id, unsigned int data, unsigned int cmpMask, unsigned int wrMask, int urgency)
    {
        if (id >= events.size())
            return -1;
        Event &event = events[id];
        if (event.pending) {
            event.changed = event.changed || (data & cmpMask) != (event.data & cmpMask);
            event.data = ((event.data & ~wrMask) | (data & wrMask)) & width;
            return 0;
        }
        event = {data & wrMask & width, true, false};
        order.push_back(id);
        if (delays && urgency < 2 && threshold > static_cast<int>(order.size())) {
            ++heldBack;
        } else {
            flush();
            giveBatch(1);
        }
        return 0;
    }

    int recv(unsigned short &id, unsigned int &data)
    {
        if (gives == 0)
            flush();
        if (gives == 0)
            return -1;
        --gives;
        return recvQ(id, data);
    }

    int recvQ(unsigned short &id, unsigned int &data)
    {
        if (order.empty())
            return -1;
        id = order.front();
        order.pop_front();
        Event &event = events[id];
        data = event.data;
        event.pending = false;
        if (!order.empty() && hasExternal)
            ++externalGives;
        return event.changed ? -2 : 0;
    }

    int snoop(unsigned short id, unsigned int &data) const
    {
        if (id >= events.size())
            return -1;
        data = events[id].data;
        if (!events[id].pending)
            return -1;
        return events[id].changed ? -2 : 0;
    }

private:
    void flush()
    {
        if (heldBack != 0)
            giveBatch(heldBack);
        heldBack = 0;
    }

    void giveBatch(int count)
    {
        gives += count;
        if (hasExternal)
            ++externalGives;
    }
};

class MultiEventQProgram
{
public:
    template <class Chooser>
    explicit MultiEventQProgram(Chooser &choose)
    {
        static constexpr unsigned int widths[] = {0, 0xFF, 0xFFFF, 0xFFFFFFFF};
        static constexpr int bytes[] = {0, 1, 2, 4};
        const unsigned int width = choose.below(4);
        const auto numEvents = static_cast<unsigned short>(1 + choose.below(choose.below(4) == 0 ? 100 : 6));
        const int delay = choose.below(2) == 0 ? 0 : 100000;
        const auto threshold = static_cast<int>(choose.below(5));
        if (choose.below(2) == 0)
            external_ = semCCreate(SEM_Q_FIFO, 0);
        queue_ = meqCreateX(bytes[width], numEvents, 0, threshold, delay, external_);
        model.events.resize(numEvents);
        model.width = widths[width];
        model.threshold = threshold;
        model.delays = delay != 0;
        model.hasExternal = external_ != nullptr;
    }

    ~MultiEventQProgram()
    {
        meqDelete(queue_);
        if (external_ != nullptr)
            semDelete(external_);
    }

    MultiEventQProgram(const MultiEventQProgram &) = delete;
    MultiEventQProgram &operator=(const MultiEventQProgram &) = delete;

    // Makes one call; returns what is wrong after it, or null.
    template <class Chooser>
    const char *step(Chooser &choose)
    {
        const auto ids = static_cast<unsigned int>(model.events.size());
        const auto id = static_cast<unsigned short>(choose.below(ids + (choose.below(20) == 0 ? 2 : 0)));
        unsigned short event = 0;
        unsigned short expectedEvent = 0;
        unsigned int data = 0;
        unsigned int expectedData = 0;
        bool same = true;
        switch (choose.below(8)) {
        case 0:
        case 1:
        case 2: {
            const unsigned int value = choose.below(4) == 0 ? choose.word() : choose.below(3);
            const unsigned int cmpMask = mask(choose);
            const unsigned int wrMask = mask(choose);
            const int urgency = static_cast<int>(choose.below(5)) - 1;
            same = meqSendXY(queue_, id, value, cmpMask, wrMask, urgency) ==
                   model.send(id, value, cmpMask, wrMask, urgency);
            break;
        }
        case 3:
        case 4:
        case 5: {
            const int result = model.recv(expectedEvent, expectedData);
            same = meqRecv(queue_, &event, &data) == result && (result == -1 || event == expectedEvent);
            break;
        }
        case 6: {
            const int result = model.recvQ(expectedEvent, expectedData);
            same = queue_->recvQ(event, data) == result && (result == -1 || event == expectedEvent);
            break;
        }
        default:
            same = meqSnoop(queue_, id, &data) == model.snoop(id, expectedData);
        }
        if (!same)
            return "another result";
        if (data != expectedData)
            return "other data";
        return difference();
    }

    // Names the first difference between queue and model; null when they agree.
    const char *difference()
    {
        SemLock hold(SBaseQ::lockSem);
        if (queue_->empty != (model.order.empty() ? 1 : 0))
            return "empty tells otherwise";
        int slot = queue_->pRead;
        for (unsigned short id : model.order) {
            if (queue_->queuePtr[slot] != id)
                return "another event is next";
            slot = slot + 1 == queue_->queueSize ? 0 : slot + 1;
        }
        if (slot != queue_->pWrite)
            return "another number of events";
        for (unsigned short id = 0; id < model.events.size(); ++id) {
            unsigned int data = 0;
            unsigned int expected = 0;
            if (queue_->snoop(id, data) != model.snoop(id, expected) || data != expected)
                return "an event looks otherwise";
        }
        if (givesOf(queue_->cflag) != model.gives)
            return "another number of gives";
        if (queue_->delayedGives != model.heldBack || queue_->aging != (model.heldBack != 0))
            return "another number is held back";
        if (external_ != nullptr && givesOf(external_) != model.externalGives)
            return "another number of external gives";
        return nullptr;
    }

    SMultiEventQ &queue()
    {
        return *queue_;
    }

    MultiEventQModel model;

private:
    template <class Chooser>
    static unsigned int mask(Chooser &choose)
    {
        return choose.below(3) == 0 ? choose.word() : 0xFFFFFFFF;
    }

    SEM_ID external_ = nullptr;
    SMultiEventQ *queue_;
};
