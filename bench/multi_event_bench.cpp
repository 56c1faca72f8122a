// multi_event_bench.cpp: the multi-event queue beside what users write for merged events.
#include "queues.h"

#include "beside.h"

#include <benchmark/benchmark.h>

#include <pthread.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <queue>
#include <vector>

namespace
{
constexpr unsigned short Events = 64;

struct Event {
    unsigned short id = 0;
    unsigned int data = 0;
    bool changed = false;
};

class OurQueue
{
public:
    ~OurQueue()
    {
        meqDelete(queue_);
    }
    void send(unsigned short id, unsigned int data)
    {
        meqSend(queue_, id, data);
    }
    Event receive()
    {
        Event event;
        event.changed = meqRecvX(queue_, &event.id, &event.data, -1) == -2;
        return event;
    }

private:
    SMultiEventQ *queue_ = meqCreate(4, Events, nullptr);
};

// What the queue cannot do without: the recursive lock of all queues, taken once more for what may be held back, and
// the receiver's semaphore.
class Floor
{
public:
    Floor()
    {
        pthread_mutexattr_t recursive;
        pthread_mutexattr_init(&recursive);
        pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&lock_, &recursive);
        sem_init(&events_, 0, 0);
    }
    void send(unsigned short id, unsigned int data)
    {
        pthread_mutex_lock(&lock_);
        data_[id] = data;
        if (!pending_[id]) {
            pending_[id] = true;
            order_[write_++ % Events] = id;
            pthread_mutex_lock(&lock_);
            pthread_mutex_unlock(&lock_);
            sem_post(&events_);
        }
        pthread_mutex_unlock(&lock_);
    }
    Event receive()
    {
        sem_wait(&events_);
        pthread_mutex_lock(&lock_);
        const unsigned short id = order_[read_++ % Events];
        pending_[id] = false;
        const Event event{id, data_[id]};
        pthread_mutex_unlock(&lock_);
        return event;
    }

private:
    pthread_mutex_t lock_;
    sem_t events_;
    unsigned short order_[Events] = {};
    unsigned int data_[Events] = {}, read_ = 0, write_ = 0;
    bool pending_[Events] = {};
};

// Pending events in a map, and their order in a queue.
class MergedEvents
{
public:
    // Returns whether the event was not pending.
    bool put(unsigned short id, unsigned int data)
    {
        const auto [event, isNew] = pending_.try_emplace(id, Event{id, data});
        if (isNew) {
            order_.push(id);
        } else {
            event->second.changed |= event->second.data != data;
            event->second.data = data;
        }
        return isNew;
    }
    bool empty() const
    {
        return order_.empty();
    }
    Event takeFirst()
    {
        const auto event = pending_.extract(order_.front());
        order_.pop();
        return event.mapped();
    }

private:
    std::map<unsigned short, Event> pending_;
    std::queue<unsigned short> order_;
};

class MapAndCondvar
{
public:
    void send(unsigned short id, unsigned int data)
    {
        const std::lock_guard hold(lock_);
        if (events_.put(id, data))
            arrived_.notify_one();
    }
    Event receive()
    {
        std::unique_lock hold(lock_);
        arrived_.wait(hold, [this] { return !events_.empty(); });
        return events_.takeFirst();
    }

private:
    std::mutex lock_;
    std::condition_variable arrived_;
    MergedEvents events_;
};

class MapAndEventfd
{
public:
    ~MapAndEventfd()
    {
        close(arrived_);
    }
    void send(unsigned short id, unsigned int data)
    {
        const std::lock_guard hold(lock_);
        if (events_.put(id, data))
            eventfd_write(arrived_, 1);
    }
    Event receive()
    {
        eventfd_t one;
        eventfd_read(arrived_, &one);
        const std::lock_guard hold(lock_);
        return events_.takeFirst();
    }

private:
    std::mutex lock_;
    int arrived_ = eventfd(0, EFD_SEMAPHORE);
    MergedEvents events_;
};

template <class Queue>
void coalescedSend(benchmark::State &state)
{
    Queue queue;
    unsigned int data = 0;
    queue.send(5, data);
    for (auto _ : state)
        queue.send(5, ++data);
}

template <class Queue>
void sendReceive(benchmark::State &state)
{
    Queue queue;
    for (auto _ : state) {
        queue.send(5, 1);
        benchmark::DoNotOptimize(queue.receive());
    }
}

template <class Queue>
void burst(benchmark::State &state)
{
    Queue queue;
    while (state.KeepRunningBatch(Events)) {
        for (unsigned short id = 0; id < Events; ++id)
            queue.send(id, id);
        for (unsigned short id = 0; id < Events; ++id)
            benchmark::DoNotOptimize(queue.receive());
    }
}

template <class Queue>
void echo(benchmark::State &state)
{
    const beside::OnOneCpu oneCpu;
    Queue there, back;
    beside::Loop partner([&] {
        const Event event = there.receive();
        back.send(event.id, event.data);
    });
    for (auto _ : state) {
        there.send(5, 1);
        benchmark::DoNotOptimize(back.receive());
    }
    partner.stop();
    there.send(5, 1);
}

template <class Queue>
void add(const std::string &who)
{
    benchmark::RegisterBenchmark(("event_coalesced_send/" + who).c_str(), coalescedSend<Queue>);
    benchmark::RegisterBenchmark(("event_send_receive/" + who).c_str(), sendReceive<Queue>);
    benchmark::RegisterBenchmark(("event_burst_of_64/" + who).c_str(), burst<Queue>);
    benchmark::RegisterBenchmark(("event_echo/" + who).c_str(), echo<Queue>)
        ->UseRealTime()
        ->Iterations(beside::RoundTrips);
}

const bool added = [] {
    kel_utils_init();
    add<OurQueue>("ours");
    add<Floor>("floor");
    add<MapAndCondvar>("map_and_condvar");
    add<MapAndEventfd>("map_and_eventfd");
    return true;
}();
} // namespace
