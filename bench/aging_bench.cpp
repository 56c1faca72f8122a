// aging_bench.cpp: 20,000 messages a second, each of which may be 20 ms late, from one thread to another.
//
// A run lasts as long as 8,000 messages take. Its figures are the CPU time of a message, which is that of the sends and
// of every thread but the sender's, and the times a second that any thread but the sender's went to sleep.
#include "queues.h"

#include <benchmark/benchmark.h>
#include <ev.h>
#include <uv.h>

#include <pthread.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace
{
constexpr int Messages = 8000, MessagesAMillisecond = 20;
constexpr int DelayTicks = 2, DelayMilliseconds = 20;
constexpr int64_t NanosecondsPerSecond = 1'000'000'000;

struct Message {
    char bytes[64];
};

// ---- The contenders: send(), and run() for the receiving thread until it has seen all messages ----

// The receiver waits on an external flag, which goes once for all that was held back, and comes back as often as the
// queue tells it to: so nobody waits on the semaphore that is given for each message. Without a flag it waits on the
// queue itself, and the first give of a batch wakes it while the others are still to come.
template <bool WithFlag>
class OurQueue
{
public:
    ~OurQueue()
    {
        msgQxDelete(queue_);
        if (WithFlag)
            semDelete(flag_);
    }
    void send(const Message &message)
    {
        msgQxSend(queue_, message.bytes, sizeof message, -1, 0);
    }
    void run()
    {
        Message message;
        for (int received = 0; received < Messages; ++received) {
            if (WithFlag)
                semTake(flag_, WAIT_FOREVER);
            msgQxRecv(queue_, message.bytes, sizeof message, -1);
        }
    }

private:
    static constexpr int Slots = 2048;
    SEM_ID flag_ = WithFlag ? semCCreate(SEM_Q_FIFO, 0) : nullptr;
    SMsgQueueX *queue_ = msgQxCreate(Slots, sizeof(Message), 0, Slots, DelayTicks, flag_);
};

// What the queue cannot do without: the senders' turn, a lock for the ring and another for what is held back, a timer
// thread that the first message wakes, one give for each message, and one of the flag for each that is left.
template <bool WithFlag>
class Floor
{
public:
    Floor()
    {
        sem_init(&turns_, 0, 1);
        sem_init(&timer_, 0, 0);
        sem_init(&messages_, 0, 0);
        sem_init(&flag_, 0, 0);
        thread_ = std::thread([this] { deliver(); });
    }
    ~Floor()
    {
        stop_ = true;
        sem_post(&timer_);
        thread_.join();
    }
    void send(const Message &message)
    {
        sem_wait(&turns_);
        pthread_mutex_lock(&lock_);
        ring_[write_++ % Slots] = message;
        sem_post(&turns_);
        pthread_mutex_unlock(&lock_);
        pthread_mutex_lock(&lock_);
        const bool first = held_++ == 0;
        pthread_mutex_unlock(&lock_);
        if (first)
            sem_post(&timer_);
    }
    void run()
    {
        Message message;
        for (int received = 0; received < Messages; ++received) {
            if (WithFlag)
                sem_wait(&flag_);
            sem_wait(&messages_);
            pthread_mutex_lock(&lock_);
            message = ring_[read_++ % Slots];
            if (--due_ != 0 && WithFlag)
                sem_post(&flag_);
            sem_post(&turns_);
            pthread_mutex_unlock(&lock_);
            benchmark::DoNotOptimize(message);
        }
    }

private:
    static constexpr unsigned Slots = 2048;
    void deliver()
    {
        for (;;) {
            sem_wait(&timer_);
            if (stop_)
                return;
            timespec due;
            clock_gettime(CLOCK_REALTIME, &due);
            due.tv_nsec += DelayMilliseconds * 1'000'000;
            if (due.tv_nsec >= NanosecondsPerSecond) {
                due.tv_nsec -= NanosecondsPerSecond;
                ++due.tv_sec;
            }
            while (sem_timedwait(&timer_, &due) == 0) {
            }
            pthread_mutex_lock(&lock_);
            const int gives = std::exchange(held_, 0);
            due_ += gives;
            pthread_mutex_unlock(&lock_);
            for (int given = 0; given < gives; ++given)
                sem_post(&messages_);
            sem_post(&flag_);
        }
    }
    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
    sem_t turns_, timer_, messages_, flag_;
    std::vector<Message> ring_{Slots};
    unsigned read_ = 0, write_ = 0;
    int held_ = 0, due_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// What the three loops share: messages in a vector, taken out all together.
class Held
{
public:
    // Returns whether it is the first one.
    bool put(const Message &message)
    {
        const std::lock_guard hold(lock_);
        messages_.push_back(message);
        return messages_.size() == 1;
    }
    // Returns whether all that there will ever be were seen.
    bool takeAll()
    {
        {
            const std::lock_guard hold(lock_);
            taken_.swap(messages_);
        }
        for (const Message &message : taken_)
            benchmark::DoNotOptimize(message);
        seen_ += static_cast<int>(taken_.size());
        taken_.clear();
        return seen_ == Messages;
    }

private:
    std::mutex lock_;
    std::vector<Message> messages_, taken_;
    int seen_ = 0;
};

// The sender of the first message sets the timer on which the receiver waits.
class TimerfdLoop
{
public:
    ~TimerfdLoop()
    {
        close(timer_);
    }
    void send(const Message &message)
    {
        if (!held_.put(message))
            return;
        itimerspec due{};
        due.it_value.tv_nsec = DelayMilliseconds * 1'000'000;
        timerfd_settime(timer_, 0, &due, nullptr);
    }
    void run()
    {
        uint64_t expiries;
        do {
            if (read(timer_, &expiries, sizeof expiries) != sizeof expiries)
                return;
        } while (!held_.takeAll());
    }

private:
    int timer_ = timerfd_create(CLOCK_MONOTONIC, 0);
    Held held_;
};

// The sender of the first message wakes the loop, which starts its timer.
class LibuvLoop
{
public:
    LibuvLoop()
    {
        uv_loop_init(&loop_);
        uv_async_init(&loop_, &first_, [](uv_async_t *first) {
            auto *self = static_cast<LibuvLoop *>(first->data);
            uv_update_time(&self->loop_);
            uv_timer_start(&self->timer_, &due, DelayMilliseconds, 0);
        });
        uv_timer_init(&loop_, &timer_);
        first_.data = this;
        timer_.data = this;
    }
    ~LibuvLoop()
    {
        uv_close(reinterpret_cast<uv_handle_t *>(&first_), nullptr);
        uv_close(reinterpret_cast<uv_handle_t *>(&timer_), nullptr);
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }
    void send(const Message &message)
    {
        if (held_.put(message))
            uv_async_send(&first_);
    }
    void run()
    {
        uv_run(&loop_, UV_RUN_DEFAULT);
    }

private:
    static void due(uv_timer_t *timer)
    {
        auto *self = static_cast<LibuvLoop *>(timer->data);
        if (self->held_.takeAll())
            uv_stop(&self->loop_);
    }
    uv_loop_t loop_;
    uv_async_t first_;
    uv_timer_t timer_;
    Held held_;
};

class LibevLoop
{
public:
    LibevLoop()
    {
        first_.data = this;
        timer_.data = this;
        ev_async_init(&first_, [](struct ev_loop *loop, ev_async *first, int) {
            auto *self = static_cast<LibevLoop *>(first->data);
            ev_timer_set(&self->timer_, DelayMilliseconds / 1000.0, 0.);
            ev_timer_start(loop, &self->timer_);
        });
        ev_init(&timer_, [](struct ev_loop *loop, ev_timer *timer, int) {
            if (static_cast<LibevLoop *>(timer->data)->held_.takeAll())
                ev_break(loop, EVBREAK_ALL);
        });
        ev_async_start(loop_, &first_);
    }
    ~LibevLoop()
    {
        ev_loop_destroy(loop_);
    }
    void send(const Message &message)
    {
        if (held_.put(message))
            ev_async_send(loop_, &first_);
    }
    void run()
    {
        ev_run(loop_, 0);
    }

private:
    struct ev_loop *loop_ = ev_loop_new(EVFLAG_AUTO);
    ev_async first_;
    ev_timer timer_;
    Held held_;
};

// ---- The measurement ----

struct Usage {
    int64_t cpu_ns;
    int64_t sleeps;
};

Usage usageOf(clockid_t clock, int who)
{
    timespec cpu;
    clock_gettime(clock, &cpu);
    rusage usage;
    getrusage(who, &usage);
    return {cpu.tv_sec * NanosecondsPerSecond + cpu.tv_nsec, usage.ru_nvcsw};
}

// Of all threads but the calling one.
Usage usageOfOthers()
{
    const Usage all = usageOf(CLOCK_PROCESS_CPUTIME_ID, RUSAGE_SELF);
    const Usage own = usageOf(CLOCK_THREAD_CPUTIME_ID, RUSAGE_THREAD);
    return {all.cpu_ns - own.cpu_ns, all.sleeps - own.sleeps};
}

int64_t ownCpu()
{
    return usageOf(CLOCK_THREAD_CPUTIME_ID, RUSAGE_THREAD).cpu_ns;
}

// Sends at the pace, from the calling thread; returns the CPU time of the sends.
template <class Queue>
int64_t sendAll(Queue &queue)
{
    const Message message{};
    int64_t cpu_ns = 0;
    timespec next;
    clock_gettime(CLOCK_MONOTONIC, &next);
    for (int sent = 0; sent < Messages; sent += MessagesAMillisecond) {
        next.tv_nsec += 1'000'000;
        if (next.tv_nsec >= NanosecondsPerSecond) {
            next.tv_nsec -= NanosecondsPerSecond;
            ++next.tv_sec;
        }
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
        const int64_t start = ownCpu();
        for (int i = 0; i < MessagesAMillisecond; ++i)
            queue.send(message);
        cpu_ns += ownCpu() - start;
    }
    return cpu_ns;
}

template <class Queue, bool CountsWakeUps>
void agedStream(benchmark::State &state)
{
    for (auto _ : state) {
        Queue queue;
        std::thread receiver([&] { queue.run(); });
        const Usage before = usageOfOthers();
        const int64_t sends_ns = sendAll(queue);
        receiver.join();
        const Usage after = usageOfOthers();
        constexpr double seconds = static_cast<double>(Messages) / MessagesAMillisecond / 1000;
        state.counters["figure"] = CountsWakeUps
                                       ? static_cast<double>(after.sleeps - before.sleeps) / seconds
                                       : static_cast<double>(after.cpu_ns - before.cpu_ns + sends_ns) / Messages;
        state.SetLabel(CountsWakeUps ? "a second" : "ns a message");
    }
}

template <class Queue>
void add(const std::string &family, const std::string &who)
{
    benchmark::RegisterBenchmark((family + "cpu/" + who).c_str(), agedStream<Queue, false>)
        ->Iterations(1)
        ->UseRealTime();
    benchmark::RegisterBenchmark((family + "wake_ups/" + who).c_str(), agedStream<Queue, true>)
        ->Iterations(1)
        ->UseRealTime();
}

const bool added = [] {
    kel_utils_init();
    add<OurQueue<true>>("aging_", "ours");
    add<Floor<true>>("aging_", "floor");
    add<TimerfdLoop>("aging_", "timerfd_loop");
    add<LibuvLoop>("aging_", "libuv");
    add<LibevLoop>("aging_", "libev");
    add<OurQueue<false>>("aging_without_flag_", "ours");
    add<Floor<false>>("aging_without_flag_", "floor");
    return true;
}();
} // namespace
