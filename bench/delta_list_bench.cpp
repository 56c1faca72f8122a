// delta_list_bench.cpp: the delta list beside the timers of event loops and an ordered map, with 10 to 100,000 timers.
//
// A unit of time is a millisecond. The list has its lock, and so has the map; a loop belongs to one thread.
#include "deltalist.h"

#include <benchmark/benchmark.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <ev.h>
#include <uv.h>

#include <pthread.h>

#include <chrono>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace
{
// Far enough that nothing expires unasked.
constexpr unsigned TailTime = 1'000'000'000;
unsigned fired;

// ---- The contenders: numbered timers; pass() looks whether any is due ----

struct OurEntry : CDeltaListEntry {
    OurEntry()
    {
        CDeltaListEntry::zero();
    }
    void aged() override
    {
        ++fired;
    }
};

struct OurList : CDeltaList {
    OurList()
    {
        initSem(nullptr);
        init(TailTime, 1, false);
    }
};

class DeltaList
{
public:
    explicit DeltaList(size_t timers) : entries_(timers) {}
    void start(size_t which, unsigned time)
    {
        list_.add(&entries_[which], time);
    }
    void startAtTailTime(size_t which)
    {
        list_.add(&entries_[which], 0);
    }
    void startDue(size_t which)
    {
        list_.add(&entries_[which], 1);
    }
    void stop(size_t which)
    {
        list_.del(&entries_[which]);
    }
    void touch(size_t which)
    {
        list_.touch(&entries_[which], 0);
    }
    void pass()
    {
        list_.tic(1);
    }

private:
    OurList list_;
    std::deque<OurEntry> entries_;
};

// What the list cannot do without: its lock for each call, and two virtual calls for each entry that expires.
class Floor
{
public:
    explicit Floor(size_t timers) : entries_(timers)
    {
        pthread_mutexattr_t recursive;
        pthread_mutexattr_init(&recursive);
        pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&lock_, &recursive);
    }
    void start(size_t, unsigned)
    {
        lockOnce();
    }
    void startAtTailTime(size_t)
    {
        lockOnce();
    }
    void startDue(size_t which)
    {
        due_ = which + 1;
    }
    void stop(size_t)
    {
        lockOnce();
    }
    void touch(size_t)
    {
        lockOnce();
        lockOnce();
    }
    void pass()
    {
        pthread_mutex_lock(&lock_);
        for (size_t which = 0; which < due_; ++which) {
            CDeltaListEntry &entry = entries_[which];
            benchmark::DoNotOptimize(entry);
            entry.zero();
            entry.aged();
        }
        pthread_mutex_unlock(&lock_);
    }

private:
    void lockOnce()
    {
        pthread_mutex_lock(&lock_);
        pthread_mutex_unlock(&lock_);
    }
    pthread_mutex_t lock_;
    std::deque<OurEntry> entries_;
    size_t due_ = 0;
};

class LibuvTimers
{
public:
    explicit LibuvTimers(size_t timers) : timers_(timers)
    {
        uv_loop_init(&loop_);
        for (auto &timer : timers_)
            uv_timer_init(&loop_, &timer);
    }
    ~LibuvTimers()
    {
        for (auto &timer : timers_)
            uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }
    LibuvTimers(const LibuvTimers &) = delete;
    LibuvTimers &operator=(const LibuvTimers &) = delete;
    void start(size_t which, unsigned time)
    {
        uv_timer_start(
            &timers_[which], [](uv_timer_t *) { ++fired; }, time, 0);
    }
    void startAtTailTime(size_t which)
    {
        start(which, TailTime);
    }
    void startDue(size_t which)
    {
        start(which, 0);
    }
    void stop(size_t which)
    {
        uv_timer_stop(&timers_[which]);
    }
    void touch(size_t which)
    {
        start(which, TailTime);
    }
    void pass()
    {
        uv_run(&loop_, UV_RUN_NOWAIT);
    }

private:
    uv_loop_t loop_;
    std::vector<uv_timer_t> timers_;
};

class LibevTimers
{
public:
    explicit LibevTimers(size_t timers) : timers_(timers)
    {
        for (auto &timer : timers_)
            ev_init(&timer, [](struct ev_loop *, ev_timer *, int) { ++fired; });
    }
    ~LibevTimers()
    {
        ev_loop_destroy(loop_);
    }
    LibevTimers(const LibevTimers &) = delete;
    LibevTimers &operator=(const LibevTimers &) = delete;
    void start(size_t which, unsigned time)
    {
        ev_timer_set(&timers_[which], time / 1000., 0.);
        ev_timer_start(loop_, &timers_[which]);
    }
    void startAtTailTime(size_t which)
    {
        start(which, TailTime);
    }
    void startDue(size_t which)
    {
        start(which, 0);
    }
    void stop(size_t which)
    {
        ev_timer_stop(loop_, &timers_[which]);
    }
    void touch(size_t which)
    {
        timers_[which].repeat = TailTime / 1000.;
        ev_timer_again(loop_, &timers_[which]);
    }
    void pass()
    {
        ev_run(loop_, EVRUN_NOWAIT);
    }

private:
    struct ev_loop *loop_ = ev_loop_new(EVFLAG_AUTO);
    std::vector<ev_timer> timers_;
};

// A timer that is stopped still has its handler called, with an error, so the loop has to run now and then.
class AsioTimers
{
public:
    explicit AsioTimers(size_t timers)
    {
        for (size_t which = 0; which < timers; ++which)
            timers_.emplace_back(context_);
    }
    void start(size_t which, unsigned time)
    {
        wait(which, time);
        reapStopped();
    }
    void startAtTailTime(size_t which)
    {
        start(which, TailTime);
    }
    void startDue(size_t which)
    {
        wait(which, 0);
    }
    void stop(size_t which)
    {
        timers_[which].cancel();
    }
    void touch(size_t which)
    {
        start(which, TailTime); // which stops it first
    }
    void pass()
    {
        context_.restart();
        context_.poll();
    }

private:
    void wait(size_t which, unsigned time)
    {
        timers_[which].expires_after(std::chrono::milliseconds(time));
        timers_[which].async_wait([](const boost::system::error_code &error) { fired += error ? 0U : 1U; });
    }
    void reapStopped()
    {
        constexpr unsigned now_and_then = 64;
        if (++started_ % now_and_then == 0)
            pass();
    }
    boost::asio::io_context context_;
    std::deque<boost::asio::steady_timer> timers_;
    unsigned started_ = 0;
};

class OrderedMap
{
public:
    explicit OrderedMap(size_t timers) : places_(timers, timers_.end()) {}
    void start(size_t which, unsigned time)
    {
        const std::lock_guard hold(lock_);
        places_[which] = timers_.emplace(now_ + time, which);
    }
    void startAtTailTime(size_t which)
    {
        const std::lock_guard hold(lock_);
        places_[which] = timers_.emplace_hint(timers_.end(), now_ + TailTime, which);
    }
    void startDue(size_t which)
    {
        start(which, 1);
    }
    void stop(size_t which)
    {
        const std::lock_guard hold(lock_);
        timers_.erase(places_[which]);
    }
    void touch(size_t which)
    {
        const std::lock_guard hold(lock_);
        timers_.erase(places_[which]);
        places_[which] = timers_.emplace_hint(timers_.end(), now_ + TailTime, which);
    }
    void pass()
    {
        const std::lock_guard hold(lock_);
        ++now_;
        while (!timers_.empty() && timers_.begin()->first <= now_) {
            timers_.erase(timers_.begin());
            ++fired;
        }
    }

private:
    std::mutex lock_;
    uint64_t now_ = 0;
    std::multimap<uint64_t, size_t> timers_;
    std::vector<std::multimap<uint64_t, size_t>::iterator> places_;
};

// ---- The operations; `size` timers run all the time, spread over the tail time, and one more is there ----

template <class Timers>
Timers &spread(Timers &timers, size_t size)
{
    for (size_t which = 0; which < size; ++which)
        timers.start(which, TailTime / 2 + static_cast<unsigned>((which + 1) * (TailTime / 2) / size) - 1);
    return timers;
}

template <class Timers>
void addAtTailTime(benchmark::State &state)
{
    const auto size = static_cast<size_t>(state.range());
    Timers timers(size + 1);
    spread(timers, size);
    for (auto _ : state) {
        timers.startAtTailTime(size);
        timers.stop(size);
    }
}

template <class Timers>
void addAtRandom(benchmark::State &state)
{
    const auto size = static_cast<size_t>(state.range());
    Timers timers(size + 1);
    spread(timers, size);
    std::minstd_rand random(1);
    for (auto _ : state) {
        timers.start(size, TailTime / 2 + static_cast<unsigned>(random()) % (TailTime / 2));
        timers.stop(size);
    }
}

template <class Timers>
void touch(benchmark::State &state)
{
    const auto size = static_cast<size_t>(state.range());
    Timers timers(size);
    spread(timers, size);
    size_t which = 0;
    for (auto _ : state) {
        timers.touch(which);
        which = which + 1 == size ? 0 : which + 1;
    }
}

template <class Timers>
void idleTic(benchmark::State &state)
{
    const auto size = static_cast<size_t>(state.range());
    Timers timers(size);
    spread(timers, size);
    for (auto _ : state)
        timers.pass();
}

// Time of one timer, with all of them due at once. Only the pass is measured.
template <class Timers>
void expiry(benchmark::State &state)
{
    using Clock = std::chrono::steady_clock;
    const auto size = static_cast<size_t>(state.range());
    Timers timers(size);
    while (state.KeepRunningBatch(state.range())) {
        for (size_t which = 0; which < size; ++which)
            timers.startDue(which);
        fired = 0;
        const auto start = Clock::now();
        while (fired < size)
            timers.pass();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
}

template <class Timers>
void add(const std::string &who)
{
    const auto sized = [&](const std::string &operation, void (*run)(benchmark::State &)) {
        return benchmark::RegisterBenchmark((operation + "/" + who).c_str(), run)->Arg(10)->Arg(1000)->Arg(100000);
    };
    sized("timer_add_at_tail_time", addAtTailTime<Timers>);
    sized("timer_touch", touch<Timers>);
    if (!std::is_same_v<Timers, Floor>)
        sized("timer_add_at_random", addAtRandom<Timers>);
    sized("timer_expiry", expiry<Timers>)->UseManualTime();
    sized("timer_idle_tic", idleTic<Timers>);
}

const bool added = [] {
    add<DeltaList>("ours");
    add<Floor>("floor");
    add<LibuvTimers>("libuv");
    add<LibevTimers>("libev");
    add<AsioTimers>("boost_asio");
    add<OrderedMap>("std_multimap");
    return true;
}();
} // namespace
