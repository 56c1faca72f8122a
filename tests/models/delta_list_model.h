// delta_list_model.h: what must hold of a delta list, a model of one, and a list that is driven together with its
// model.
//
// One thread at a time: nothing here locks. Shared by the tests, the stress tests and the fuzzers.
#pragma once

#include "deltalist.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#ifdef __clang__ // the tests look into lists that no other thread knows
#pragma clang diagnostic ignored "-Wthread-safety"
#endif

// The first invariant of the kill list that does not hold, or null.
inline const char *brokenKillListInvariant(const CDeltaList &list)
{
    if ((list.killHead == nullptr) != (list.killTail == nullptr))
        return "killHead and killTail are null together";
    if (list.killHead != nullptr && list.killHead->prev != nullptr)
        return "nothing is in front of killHead";
    for (const CDeltaListEntry *entry = list.killHead; entry != nullptr; entry = entry->next) {
        if (entry->time != 0)
            return "nothing that waits for aged() holds time";
        if (entry->next == nullptr ? list.killTail != entry : entry->next->prev != entry)
            return "the kill list hangs together";
    }
    return nullptr;
}

// The first invariant that does not hold, or null. The caller holds dbID or is alone.
inline const char *brokenInvariant(const CDeltaList &list)
{
    if ((list.head == nullptr) != (list.tail == nullptr))
        return "head and tail are null together";
    if (list.head != nullptr && list.head->prev != nullptr)
        return "nothing is in front of the head";
    uint64_t expiry = 0;
    unsigned int entries = 0;
    for (const CDeltaListEntry *entry = list.head; entry != nullptr; entry = entry->next) {
        if (++entries > list.numEntries)
            return "numEntries counts the entries";
        if (entry->next == nullptr ? list.tail != entry : entry->next->prev != entry)
            return "neighbours name each other";
        expiry += entry->time;
    }
    if (entries != list.numEntries)
        return "numEntries counts the entries";
    if (expiry > 0xFFFFFFFF)
        return "no expiry is out of range";
    if (expiry != list.totalTime)
        return "the deltas add up to totalTime";
    return brokenKillListInvariant(list);
}

// A client's semaphore for one list, which goes first and leaves it taken.
class ClientSemaphore
{
public:
    ClientSemaphore() = default;
    ~ClientSemaphore()
    {
        semGive(sem);
        semDelete(sem);
    }
    ClientSemaphore(const ClientSemaphore &) = delete;
    ClientSemaphore &operator=(const ClientSemaphore &) = delete;

    const SEM_ID sem = semMCreate(0);
};

// Timers by absolute expiry. A multimap keeps what has the same key in the order in which it was added.
class DeltaListModel
{
public:
    using ByExpiry = std::multimap<uint64_t, size_t>;

    explicit DeltaListModel(size_t timers) : places_(timers, byExpiry_.end()) {}
    DeltaListModel(const DeltaListModel &) = delete;
    DeltaListModel &operator=(const DeltaListModel &) = delete;

    void add(size_t id, uint64_t time)
    {
        places_[id] = byExpiry_.emplace(now_ + time, id);
    }
    void del(size_t id)
    {
        byExpiry_.erase(places_[id]);
        places_[id] = byExpiry_.end();
    }
    // Lets time pass; returns what has expired, in order.
    std::vector<size_t> tic(uint64_t time)
    {
        now_ += time;
        std::vector<size_t> expired;
        while (!byExpiry_.empty() && byExpiry_.begin()->first <= now_) {
            expired.push_back(byExpiry_.begin()->second);
            del(expired.back());
        }
        return expired;
    }

    bool has(size_t id) const
    {
        return places_[id] != byExpiry_.end();
    }
    uint64_t left(size_t id) const
    {
        return places_[id]->first - now_;
    }
    uint64_t headTime() const
    {
        return byExpiry_.empty() ? 0 : byExpiry_.begin()->first - now_;
    }
    uint64_t totalTime() const
    {
        return byExpiry_.empty() ? 0 : byExpiry_.rbegin()->first - now_;
    }
    uint64_t now() const
    {
        return now_;
    }
    const ByExpiry &byExpiry() const
    {
        return byExpiry_;
    }

private:
    uint64_t now_ = 0;
    ByExpiry byExpiry_;
    std::vector<ByExpiry::iterator> places_; // by id; end() when the timer is not on the list
};

// A list and its model, given the same calls. Each result is compared at once; differs() compares everything.
class DeltaListAndModel
{
public:
    static constexpr uint64_t Longest = 0xFFFFFFFF;

    class List : private ClientSemaphore, public CDeltaList
    {
    public:
        List()
        {
            initSem(sem);
        }
        unsigned int getDeltaT() override
        {
            return elapsed;
        }
        void awaken() override
        {
            ++awakened;
        }
        unsigned int elapsed = 0;
        uint64_t awakened = 0;
    };

    class Timer : public CDeltaListEntry
    {
    public:
        Timer(DeltaListAndModel &both, size_t id) : both_(both), id_(id) {}
        void aged() override
        {
            both_.aged(id_);
        }
        size_t id() const
        {
            return id_;
        }

    private:
        DeltaListAndModel &both_;
        size_t id_;
    };

    explicit DeltaListAndModel(size_t size, unsigned int tailTime, unsigned int ticSize, bool astable)
        : model(size), waiting_(size)
    {
        list.init(tailTime, ticSize, astable);
        for (size_t id = 0; id < size; ++id)
            timers.push_back(std::make_unique<Timer>(*this, id));
    }

    // Only for a timer that is neither on the list nor waiting for its aged() call.
    void add(size_t id, unsigned int time)
    {
        modelAdd(id, time);
        expect(list.add(timers[id].get(), time) == model.headTime(), "add returns the head time");
        expect(list.awakened == awakened_, "awaken is called for a new head, and only then");
    }
    // Only for a timer that is on the list.
    void del(size_t id)
    {
        model.del(id);
        expect(list.del(timers[id].get()) == model.headTime(), "del returns the head time");
    }
    // Only for a timer that is on the list.
    void touch(size_t id, unsigned int time)
    {
        model.del(id);
        modelAdd(id, time);
        expect(list.touch(timers[id].get(), time) == model.headTime(), "touch returns the head time");
    }
    void tic(unsigned int ticks)
    {
        const unsigned int passed = ticks == 0 ? list.ticSize : ticks;
        upTime_ += passed;
        expire(passed);
        const unsigned int headTime = list.tic(ticks);
        expect(headTime == model.headTime(), "tic returns the head time");
        expect(expired_.empty(), "everything that has expired is aged");
        expect(list.upTime == upTime_, "upTime counts what tic advances");
    }
    void setTailTime(unsigned int tailTime, bool adjust)
    {
        const uint64_t total = model.totalTime();
        const bool adjusted = adjust && tailTime < total;
        if (adjusted)
            expire(total - tailTime);
        const unsigned int result = list.setTailTime(tailTime, adjust);
        expect(result == (adjusted ? model.headTime() : total), "setTailTime returns the total or the head time");
        expect(expired_.empty(), "everything that is older than the tail time is aged");
    }
    void replace(size_t id)
    {
        timers[id] = std::make_unique<Timer>(*this, id);
    }

    bool onList(size_t id) const
    {
        return model.has(id);
    }
    bool isFree(size_t id) const
    {
        return !model.has(id) && !waiting_[id];
    }

    // What each aged() does, on top of being checked: any of the calls above, on timers that do not wait for theirs.
    std::function<void(size_t id)> inAged;

    // The first difference seen so far or now, or null.
    const char *differs() const
    {
        if (difference_ != nullptr)
            return difference_;
        if (const char *broken = brokenInvariant(list))
            return broken;
        const CDeltaListEntry *entry = list.head;
        uint64_t expiry = model.now();
        for (const auto &[modelExpiry, id] : model.byExpiry()) {
            if (entry == nullptr)
                return "no timer is missing";
            expiry += entry->time;
            if (entry != timers[id].get())
                return "the timers are in order of expiry, then of adding";
            if (expiry != modelExpiry)
                return "each timer expires when it is due";
            entry = entry->next;
        }
        return entry == nullptr ? nullptr : "no timer is left over";
    }

    List list;
    DeltaListModel model;
    std::vector<std::unique_ptr<Timer>> timers;

private:
    void expect(bool holds, const char *what)
    {
        if (!holds && difference_ == nullptr)
            difference_ = what;
    }
    void modelAdd(size_t id, unsigned int time)
    {
        const uint64_t wanted = uint64_t{time == 0 ? list.tailTime : time} + list.elapsed;
        model.add(id, wanted < Longest ? wanted : Longest);
        if (model.byExpiry().begin()->second == id)
            ++awakened_;
    }
    void expire(uint64_t time)
    {
        for (size_t id : model.tic(time)) {
            expired_.push_back(id);
            waiting_[id] = true;
        }
    }
    void aged(size_t id)
    {
        const bool inTurn = !expired_.empty() && expired_.front() == id;
        expect(inTurn, "timers age in order of expiry, then of adding");
        if (!inTurn)
            return;
        expired_.pop_front();
        waiting_[id] = false;
        expect(timers[id]->next == nullptr && timers[id]->prev == nullptr && timers[id]->time == 0,
               "a timer is free when it ages");
        if (inAged)
            inAged(id); // may destroy the timer, not this object
        if (list.astable)
            modelAdd(id, 0);
    }

    std::deque<size_t> expired_; // by the model, and not aged yet
    std::vector<bool> waiting_;  // by id: is in expired_
    unsigned int upTime_ = 0;
    uint64_t awakened_ = 0;
    const char *difference_ = nullptr;
};

// Calls on a list and its model; what aged() does is part of the program. Choices come from a Chooser (below()), so
// tests feed them from a seed and fuzzers from their input.
template <class Chooser>
class DeltaListProgram
{
public:
    explicit DeltaListProgram(Chooser &choose)
        : choose_(choose), both_{Timers, below(3) == 0 ? 0xFFFFFFF0 : 1 + below(30), 1 + below(5), below(3) == 0}
    {
        if (below(2) == 0)
            both_.inAged = [this](size_t id) { act(id); };
    }

    // Makes one call; returns what is wrong after it, or null.
    const char *step()
    {
        if (below(16) == 0)
            both_.list.elapsed = below(2) == 0 ? 0 : below(4) == 0 ? 0xFFFFFFFF - below(5) : below(10);
        if (below(4) == 0)
            advance();
        else
            change(below(Timers));
        return both_.differs();
    }

private:
    static constexpr unsigned Timers = 24;

    unsigned below(unsigned limit)
    {
        return choose_.below(limit);
    }

    unsigned anyTime()
    {
        switch (below(8)) {
        case 0:
            return 0;
        case 1:
            return 0xFFFFFFFF - below(3);
        case 2:
            return 0x7FFFFFFF + below(3);
        default:
            return 1 + below(20);
        }
    }

    void advance()
    {
        switch (below(8)) {
        case 0:
            both_.tic(0);
            break;
        case 1:
            both_.tic(static_cast<unsigned>(both_.model.totalTime()));
            break;
        case 2:
            both_.setTailTime(1 + below(40), below(2) == 0);
            break;
        default:
            both_.tic(1 + below(8));
        }
    }

    // One call on a timer that does not wait for its aged().
    void change(size_t id)
    {
        if (both_.isFree(id))
            both_.add(id, anyTime());
        else if (both_.onList(id))
            below(2) == 0 ? both_.del(id) : both_.touch(id, anyTime());
    }

    // The body of aged(): a few calls on other timers, on this one, and its end; seldom a tic inside the tic.
    void act(size_t id)
    {
        for (unsigned i = below(3); i > 0; --i) {
            const size_t other = below(Timers);
            if (other != id)
                change(other);
        }
        if (both_.list.astable)
            return;
        switch (below(6)) {
        case 0:
            both_.add(id, anyTime());
            break;
        case 1:
            both_.replace(id);
            break;
        case 2:
            if (!nested_) {
                nested_ = true;
                both_.tic(1 + below(8));
                nested_ = false;
            }
            break;
        default:
            break;
        }
    }

    Chooser &choose_;
    bool nested_ = false;
    DeltaListAndModel both_;
};
