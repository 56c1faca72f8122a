// aging_list_model.h: what the aging list has to hold: queues with the tick at which each is due, in order.
//
// Times in the model count from sleepStart, each on its own, so there are no deltas that could go wrong. A program
// makes one call at a time on list and model; the clock readings are part of the program. Choices come from a Chooser
// (below()), so tests feed them from a seed and fuzzers from their input.
#pragma once

#include "queues.h"

#include "queues/aging_list.h"
#include "vxw_shim/sem_lock.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

// Names the first invariant of the aging list that does not hold; null when all do.
inline const char *brokenInvariant() KEL_REQUIRES(SBaseQ::lockSem)
{
    if ((SBaseQ::head == nullptr) != (SBaseQ::tail == nullptr))
        return "there is a head exactly when there is a tail";
    if (SBaseQ::head == nullptr)
        return SBaseQ::headTime != 0 || SBaseQ::tailTime != 0 ? "an empty list has no times" : nullptr;
    if (SBaseQ::headTime != SBaseQ::head->ageTtl)
        return "headTime is the head's ageTtl";
    int64_t sum = 0;
    const SBaseQ *before = nullptr;
    for (const SBaseQ *queue = SBaseQ::head; queue != nullptr; queue = queue->ageNext) {
        if (queue->agePrev != before)
            return "each queue names the one before it";
        if (!queue->aging || queue->expired)
            return "a linked queue is aging and not expired";
        if (queue->delayedGives < 1)
            return "a linked queue holds a give back";
        if (before != nullptr && queue->ageTtl < 0)
            return "nothing expires before the queue before it";
        sum += queue->ageTtl;
        before = queue;
    }
    if (SBaseQ::tail != before)
        return "the tail is the last queue";
    return SBaseQ::tailTime != sum ? "tailTime is the sum of all deltas" : nullptr;
}

class AgingListModel
{
public:
    struct Entry {
        const SBaseQ *queue;
        int64_t due; // ticks from sleepStart
    };
    std::vector<Entry> entries;
    int64_t sleepStart = 0;

    // Moves all on to `now`, but the first not past its expiry; counting starts again at `start`.
    void add(const SBaseQ &queue, int64_t now, int64_t start)
    {
        if (!entries.empty())
            moveOn(std::min(entries.front().due, now - sleepStart));
        sleepStart = start;
        auto place = entries.begin();
        if (!entries.empty() && queue.maxDelay > entries.front().due)
            while (place != entries.end() && place->due <= queue.maxDelay)
                ++place;
        entries.insert(place, {&queue, queue.maxDelay});
    }

    void remove(const SBaseQ &queue)
    {
        std::erase_if(entries, [&](const Entry &entry) { return entry.queue == &queue; });
    }

    // The queues that are due, the last first.
    std::vector<const SBaseQ *> expire(int64_t now)
    {
        const int64_t elapsed = now - sleepStart;
        std::vector<const SBaseQ *> expired;
        while (!entries.empty() && entries.front().due <= elapsed) {
            expired.insert(expired.begin(), entries.front().queue);
            entries.erase(entries.begin());
        }
        moveOn(elapsed);
        return expired;
    }

    // Names the first difference between the list and the model; null when they agree.
    const char *difference() const KEL_REQUIRES(SBaseQ::lockSem)
    {
        if (SBaseQ::sleepStart != sleepStart)
            return "counting starts at another tick";
        int64_t due = 0;
        const SBaseQ *queue = SBaseQ::head;
        for (const Entry &entry : entries) {
            if (queue != entry.queue)
                return "another queue is at this place";
            due += queue->ageTtl;
            if (due != entry.due)
                return "a queue is due at another tick";
            queue = queue->ageNext;
        }
        return queue != nullptr ? "the list is longer" : nullptr;
    }

private:
    void moveOn(int64_t ticks)
    {
        for (Entry &entry : entries)
            entry.due -= ticks;
    }
};

// Queues, the list and the model, and random calls on all of them.
class AgingListProgram
{
public:
    static constexpr int Queues = 10;

    template <class Chooser>
    explicit AgingListProgram(Chooser &choose)
    {
        for (int i = 0; i < Queues; ++i) // short and equal delays, so that ties are frequent
            queues_.push_back(std::make_unique<SBaseQ>(1, 0, static_cast<int>(choose.below(12)), 0, nullptr));
        now_ = static_cast<int64_t>(choose.below(1000));
        startSleep();
    }

    // Makes one call; returns what is wrong after it, or null.
    template <class Chooser>
    const char *step(Chooser &choose)
    {
        SemLock hold(SBaseQ::lockSem);
        SBaseQ &queue = *queues_[choose.below(Queues)];
        switch (choose.below(5)) {
        case 0:
            now_ += choose.below(8);
            break;
        case 1:
        case 2:
            start(queue, choose.below(2));
            break;
        case 3:
            stop(queue);
            break;
        default:
            if (const char *wrong = runTimer(choose.below(4) == 0))
                return wrong;
        }
        const char *broken = brokenInvariant();
        return broken != nullptr ? broken : model.difference();
    }

    AgingListModel model;

private:
    void startSleep()
    {
        SemLock hold(SBaseQ::lockSem);
        queues::aging_list::startSleep(static_cast<uint32_t>(now_));
        model.sleepStart = now_;
    }

    void start(SBaseQ &queue, int64_t between) KEL_REQUIRES(SBaseQ::lockSem)
    {
        if (queue.aging)
            return;
        queues::aging_list::rebase(static_cast<uint32_t>(now_));
        const int64_t first = now_;
        now_ += between; // the clock may tick between the two readings
        SBaseQ::sleepStart = static_cast<int>(now_);
        queues::aging_list::insert(queue);
        model.add(queue, first, now_);
    }

    void stop(SBaseQ &queue) KEL_REQUIRES(SBaseQ::lockSem)
    {
        if (!queue.aging)
            return;
        queues::aging_list::remove(queue);
        queue.delayedGives = 0;
        model.remove(queue);
    }

    // A pass of the timer task. Another queue may start before the task counts from a new tick.
    const char *runTimer(bool overtaken) KEL_REQUIRES(SBaseQ::lockSem)
    {
        SBaseQ *chain = queues::aging_list::takeExpired(static_cast<uint32_t>(now_));
        for (const SBaseQ *expected : model.expire(now_)) {
            if (chain != expected)
                return "another queue expired";
            if (chain->aging || !chain->expired || chain->ageTtl != 0)
                return "an expired queue is off the list, with no time left";
            SBaseQ *const next = chain->ageNext;
            chain->expired = false;
            chain->ageNext = nullptr;
            chain->delayedGives = 0;
            chain = next;
        }
        if (chain != nullptr)
            return "more queues expired";
        if (overtaken)
            start(*queues_[0], 0);
        startSleep();
        return nullptr;
    }

    std::vector<std::unique_ptr<SBaseQ>> queues_;
    int64_t now_ = 0;
};
