// message_queue_bench.cpp: the fixed and the variable queue with messages of 64 bytes, beside other queues.
//
// Every contender has the same three calls. Those that know no capacity are left out where it matters.
#include "queues.h"

#include "beside.h"

#include <benchmark/benchmark.h>
#include <concurrentqueue/blockingconcurrentqueue.h>
#include <glib.h>
#include <mqueue.h>
#include <tbb/concurrent_queue.h>

#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace
{
struct Message {
    char bytes[64];
};

// A queue of this kind lives until the process ends, so each run leaves one behind.
class OurFixedQueue
{
public:
    explicit OurFixedQueue(int capacity) : queue_(msgQCreate(capacity, sizeof(Message), MSG_Q_FIFO)) {}
    void send(const Message &message)
    {
        msgQSend(queue_, message.bytes, sizeof message, WAIT_FOREVER, MSG_PRI_NORMAL);
    }
    void receive(Message &message)
    {
        msgQReceive(queue_, message.bytes, sizeof message, WAIT_FOREVER);
    }
    bool poll(Message &message)
    {
        return msgQReceive(queue_, message.bytes, sizeof message, NO_WAIT) != 0xFFFFFFFF;
    }

private:
    MSG_Q_ID queue_;
};

class OurVariableQueue
{
public:
    explicit OurVariableQueue(int capacity) : queue_(msgQxCreate(capacity, sizeof(Message), 0, 0, 0, nullptr)) {}
    ~OurVariableQueue()
    {
        msgQxDelete(queue_);
    }
    OurVariableQueue(const OurVariableQueue &) = delete;
    OurVariableQueue &operator=(const OurVariableQueue &) = delete;
    void send(const Message &message)
    {
        msgQxSend(queue_, message.bytes, sizeof message, WAIT_FOREVER, 0);
    }
    void receive(Message &message)
    {
        msgQxRecv(queue_, message.bytes, sizeof message, WAIT_FOREVER);
    }
    bool poll(Message &message)
    {
        return msgQxRecv(queue_, message.bytes, sizeof message, NO_WAIT) >= 0;
    }

private:
    SMsgQueueX *queue_;
};

// A ring of messages, without locks.
class Ring
{
public:
    explicit Ring(int capacity) : slots_(static_cast<size_t>(capacity)) {}
    bool empty() const
    {
        return count_ == 0;
    }
    bool full() const
    {
        return count_ == slots_.size();
    }
    void push(const Message &message)
    {
        slots_[write_] = message;
        write_ = next(write_);
        ++count_;
    }
    void pop(Message &message)
    {
        message = slots_[read_];
        read_ = next(read_);
        --count_;
    }

private:
    size_t next(size_t slot) const
    {
        return slot + 1 == slots_.size() ? 0 : slot + 1;
    }
    std::vector<Message> slots_;
    size_t read_ = 0, write_ = 0, count_ = 0;
};

// What the fixed queue cannot do without: one lock, one copy, and a broadcast after the unlock for each message.
class FixedQueueFloor
{
public:
    explicit FixedQueueFloor(int capacity) : ring_(capacity) {}
    void send(const Message &message)
    {
        pthread_mutex_lock(&lock_);
        while (ring_.full())
            pthread_cond_wait(&notFull_, &lock_);
        ring_.push(message);
        pthread_mutex_unlock(&lock_);
        pthread_cond_broadcast(&notEmpty_);
    }
    void receive(Message &message)
    {
        pthread_mutex_lock(&lock_);
        while (ring_.empty())
            pthread_cond_wait(&notEmpty_, &lock_);
        ring_.pop(message);
        pthread_mutex_unlock(&lock_);
        pthread_cond_broadcast(&notFull_);
    }
    bool poll(Message &message)
    {
        pthread_mutex_lock(&lock_);
        const bool found = !ring_.empty();
        if (found)
            ring_.pop(message);
        pthread_mutex_unlock(&lock_);
        if (found)
            pthread_cond_broadcast(&notFull_);
        return found;
    }

private:
    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t notEmpty_ = PTHREAD_COND_INITIALIZER, notFull_ = PTHREAD_COND_INITIALIZER;
    Ring ring_;
};

// What the variable queue cannot do without: the senders' turn, the ring under the recursive lock of all queues, a
// second lock for what may be held back, and the receiver's semaphore.
class VariableQueueFloor
{
public:
    explicit VariableQueueFloor(int capacity) : ring_(capacity)
    {
        pthread_mutexattr_t recursive;
        pthread_mutexattr_init(&recursive);
        pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&lock_, &recursive);
        sem_init(&turns_, 0, 1);
        sem_init(&messages_, 0, 0);
    }
    void send(const Message &message)
    {
        sem_wait(&turns_);
        pthread_mutex_lock(&lock_);
        while (ring_.full()) {
            pthread_mutex_unlock(&lock_);
            sem_wait(&turns_);
            pthread_mutex_lock(&lock_);
        }
        ring_.push(message);
        if (!ring_.full())
            sem_post(&turns_);
        pthread_mutex_unlock(&lock_);
        pthread_mutex_lock(&lock_);
        pthread_mutex_unlock(&lock_);
        sem_post(&messages_);
    }
    void receive(Message &message)
    {
        sem_wait(&messages_);
        take(message);
    }
    bool poll(Message &message)
    {
        if (sem_trywait(&messages_) != 0) {
            pthread_mutex_lock(&lock_);
            pthread_mutex_unlock(&lock_);
            if (sem_trywait(&messages_) != 0)
                return false;
        }
        take(message);
        return true;
    }

private:
    void take(Message &message)
    {
        pthread_mutex_lock(&lock_);
        ring_.pop(message);
        sem_post(&turns_);
        pthread_mutex_unlock(&lock_);
    }
    pthread_mutex_t lock_;
    sem_t turns_, messages_;
    Ring ring_;
};

class CondvarRing
{
public:
    explicit CondvarRing(int capacity) : ring_(capacity) {}
    void send(const Message &message)
    {
        std::unique_lock hold(lock_);
        notFull_.wait(hold, [this] { return !ring_.full(); });
        ring_.push(message);
        notEmpty_.notify_one();
    }
    void receive(Message &message)
    {
        std::unique_lock hold(lock_);
        notEmpty_.wait(hold, [this] { return !ring_.empty(); });
        ring_.pop(message);
        notFull_.notify_one();
    }
    bool poll(Message &message)
    {
        const std::lock_guard hold(lock_);
        if (ring_.empty())
            return false;
        ring_.pop(message);
        notFull_.notify_one();
        return true;
    }

private:
    std::mutex lock_;
    std::condition_variable notEmpty_, notFull_;
    Ring ring_;
};

// Carries pointers, so a message is a block of the heap.
class GlibQueue
{
public:
    explicit GlibQueue(int) {}
    ~GlibQueue()
    {
        g_async_queue_unref(queue_);
    }
    GlibQueue(const GlibQueue &) = delete;
    GlibQueue &operator=(const GlibQueue &) = delete;
    void send(const Message &message)
    {
        g_async_queue_push(queue_, g_memdup2(&message, sizeof message));
    }
    void receive(Message &message)
    {
        take(message, g_async_queue_pop(queue_));
    }
    bool poll(Message &message)
    {
        return take(message, g_async_queue_try_pop(queue_));
    }

private:
    static bool take(Message &message, gpointer block)
    {
        if (block == nullptr)
            return false;
        memcpy(&message, block, sizeof message);
        g_free(block);
        return true;
    }
    GAsyncQueue *queue_ = g_async_queue_new_full(g_free);
};

class TbbQueue
{
public:
    explicit TbbQueue(int capacity)
    {
        queue_.set_capacity(capacity);
    }
    void send(const Message &message)
    {
        queue_.push(message);
    }
    void receive(Message &message)
    {
        queue_.pop(message);
    }
    bool poll(Message &message)
    {
        return queue_.try_pop(message);
    }

private:
    tbb::concurrent_bounded_queue<Message> queue_;
};

class MoodycamelQueue
{
public:
    explicit MoodycamelQueue(int capacity) : queue_(static_cast<size_t>(capacity)) {}
    void send(const Message &message)
    {
        queue_.enqueue(message);
    }
    void receive(Message &message)
    {
        queue_.wait_dequeue(message);
    }
    bool poll(Message &message)
    {
        return queue_.try_dequeue(message);
    }

private:
    moodycamel::BlockingConcurrentQueue<Message> queue_;
};

// The kernel allows few messages to users without privileges; then the queue is as long as it may be.
class PosixQueue
{
public:
    explicit PosixQueue(int capacity) : queue_(open(capacity))
    {
        constexpr int everybodys = 10;
        if (queue_ == -1)
            queue_ = open(std::min(capacity, everybodys));
    }
    ~PosixQueue()
    {
        mq_close(queue_);
    }
    PosixQueue(const PosixQueue &) = delete;
    PosixQueue &operator=(const PosixQueue &) = delete;
    void send(const Message &message)
    {
        mq_send(queue_, message.bytes, sizeof message, 0);
    }
    void receive(Message &message)
    {
        mq_receive(queue_, message.bytes, sizeof message, nullptr);
    }
    bool poll(Message &message)
    {
        const timespec past{};
        return mq_timedreceive(queue_, message.bytes, sizeof message, nullptr, &past) >= 0;
    }

private:
    static mqd_t open(int capacity)
    {
        const std::string name = "/kel_bench_" + std::to_string(getpid());
        mq_attr attributes{};
        attributes.mq_maxmsg = capacity;
        attributes.mq_msgsize = sizeof(Message);
        const mqd_t queue = mq_open(name.c_str(), O_CREAT | O_RDWR, 0600, &attributes);
        mq_unlink(name.c_str());
        return queue;
    }
    mqd_t queue_;
};

constexpr int Roomy = 1024, Tight = 4;

// As many as RoundTrips are fixed, for the same reason.
constexpr int StreamMessages = 50000;
using beside::RoundTrips;

// One thread: a message in, the message out.
template <class Queue>
void pair(benchmark::State &state)
{
    Queue queue(Roomy);
    Message message{};
    for (auto _ : state) {
        queue.send(message);
        queue.receive(message);
    }
}

template <class Queue>
void emptyPoll(benchmark::State &state)
{
    Queue queue(Roomy);
    Message message{};
    for (auto _ : state)
        benchmark::DoNotOptimize(queue.poll(message));
}

// Threads that send all the time; the measured one receives.
template <class Queue, int Senders, int Capacity>
void stream(benchmark::State &state)
{
    Queue queue(Capacity);
    std::list<beside::Loop> senders;
    Message message{};
    for (int i = 0; i < Senders; ++i)
        senders.emplace_back([&queue, sent = Message{}] { queue.send(sent); });
    queue.receive(message); // from here on they run
    for (auto _ : state)
        queue.receive(message);
    for (auto &sender : senders)
        sender.stop();
    while (!std::all_of(senders.begin(), senders.end(), [](const auto &sender) { return sender.ended(); }))
        queue.poll(message); // a sender may be waiting for room
}

// A message to another thread, and back from there.
template <class Queue>
void echo(benchmark::State &state)
{
    const beside::OnOneCpu oneCpu;
    Queue there(Roomy), back(Roomy);
    beside::Loop partner([&, message = Message{}]() mutable {
        there.receive(message);
        back.send(message);
    });
    Message message{};
    for (auto _ : state) {
        there.send(message);
        back.receive(message);
    }
    partner.stop();
    there.send(message);
}

enum Bounded : bool { No, Yes };

template <class Queue>
void add(const std::string &family, const std::string &who, Bounded bounded)
{
    const auto named = [&](const char *operation) { return family + operation + "/" + who; };
    benchmark::RegisterBenchmark(named("pair").c_str(), pair<Queue>);
    benchmark::RegisterBenchmark(named("empty_poll").c_str(), emptyPoll<Queue>);
    benchmark::RegisterBenchmark(named("1_to_1").c_str(), stream<Queue, 1, Roomy>)
        ->UseRealTime()
        ->Iterations(StreamMessages);
    benchmark::RegisterBenchmark(named("4_to_1").c_str(), stream<Queue, 4, Roomy>)
        ->UseRealTime()
        ->Iterations(StreamMessages);
    if (bounded)
        benchmark::RegisterBenchmark(named("tight").c_str(), stream<Queue, 1, Tight>)
            ->UseRealTime()
            ->Iterations(RoundTrips);
    benchmark::RegisterBenchmark(named("echo").c_str(), echo<Queue>)->UseRealTime()->Iterations(RoundTrips);
}

template <class Ours, class Floor>
void addFamily(const std::string &family)
{
    add<Ours>(family, "ours", Yes);
    add<Floor>(family, "floor", Yes);
    add<CondvarRing>(family, "condvar_ring", Yes);
    add<GlibQueue>(family, "glib_async_queue", No);
    add<TbbQueue>(family, "tbb_bounded_queue", Yes);
    add<MoodycamelQueue>(family, "moodycamel_blocking", No);
    add<PosixQueue>(family, "posix_mqueue", Yes);
}

const bool added = [] {
    kel_utils_init();
    addFamily<OurFixedQueue, FixedQueueFloor>("fixed_queue_");
    addFamily<OurVariableQueue, VariableQueueFloor>("variable_queue_");
    return true;
}();
} // namespace
