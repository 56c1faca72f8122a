// real_time.cpp: semaphores, tasks and ticks, the fixed-size queue, datagrams.
#include "subsystem.h"

#include "models/fixed_msg_queue.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace
{
using namespace soak;

constexpr auto Forever = static_cast<unsigned int>(WAIT_FOREVER);

class Semaphores : public Subsystem
{
public:
    Semaphores() : Subsystem("semaphores") {}

    void round(Random &random, unsigned) override
    {
        for (int i = 0; i < 20; ++i) {
            if (random.oneIn(2))
                exclude(1 + random.below(3));
            else
                count(random);
        }
        if (random.oneIn(200))
            createAndDelete();
    }
    void settle() override
    {
        must(guarded_ == entered_, "a mutual-exclusion semaphore lets one in at a time");
        while (semTake(count_, 0) == 0)
            ++takes_;
        must(takes_ == gives_, "as many takes went through as there were gives");
    }

private:
    void exclude(unsigned depth)
    {
        for (unsigned i = 0; i < depth; ++i)
            must(semTake(mutex_, Forever) == 0, "an unlimited take succeeds");
        ++guarded_;
        ++entered_;
        for (unsigned i = 0; i < depth; ++i)
            must(semGive(mutex_) == 0, "its owner gives it");
        did(2 * depth);
    }
    void count(Random &random)
    {
        must(semGive(count_) == 0, "a count is given");
        ++gives_;
        const int result = semTake(count_, random.ticks());
        must(result == 0 || result == EAGAIN || result == ETIMEDOUT, "a take has a documented result");
        takes_ += result == 0 ? 1U : 0U;
        did(2);
    }
    void createAndDelete()
    {
        SEM_ID sem = semBCreate(SEM_Q_FIFO, SEM_FULL);
        must(sem != nullptr && semTake(sem, 0) == 0 && semTake(sem, 0) == EAGAIN && semDelete(sem) == 0,
             "a full semaphore is taken once");
        ++recordsLeft;
        did(4);
    }

    SEM_ID mutex_ = semMCreate(0);
    SEM_ID count_ = semCCreate(SEM_Q_FIFO, 0);
    uint64_t guarded_ = 0; // under mutex_
    std::atomic<uint64_t> entered_{0}, gives_{0}, takes_{0};
};

class Tasks : public Subsystem
{
public:
    Tasks() : Subsystem("tasks and ticks") {}

    void round(Random &random, unsigned) override
    {
        uint32_t before = tickGet();
        for (int i = 0; i < 20; ++i) {
            const uint32_t now = tickGet();
            must(now - before < 0x80000000U, "ticks do not run backward");
            before = now;
        }
        did(20);
        if (random.oneIn(100)) {
            taskDelay(1);
            must(tickGet() - before >= 1, "a delay is never short");
            did();
        }
        if (random.oneIn(200) && spawned_ < MostTasks - Workers) {
            ++spawned_;
            must(taskSpawn("soak", 100, 0, 65536, run, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) == 0, "a task starts");
            did();
        }
    }
    void settle() override
    {
        while (ran != spawned_)
            taskDelay(1);
    }

private:
    static constexpr unsigned MostTasks = 300; // the thread library keeps the stack of each

    static int run(...)
    {
        return static_cast<int>(++ran);
    }

    static inline std::atomic<unsigned> ran{0};
    std::atomic<unsigned> spawned_{0};
};

class FixedQueue : public Subsystem
{
public:
    FixedQueue() : Subsystem("fixed-size queue") {}

    void round(Random &random, unsigned worker) override
    {
        for (int i = 0; i < 20; ++i) {
            if (random.oneIn(2))
                send(random, worker);
            else
                receive(random.ticks());
        }
        pthread_mutex_lock(&queue_->lock);
        const char *broken = brokenInvariant(queue_);
        pthread_mutex_unlock(&queue_->lock);
        mustHold(broken);
    }
    void settle() override
    {
        if (planted == Plant::LostMessage) {
            Random random(0);
            char bytes[sizeof(Message)];
            send(random, 0);
            msgQReceive(queue_, bytes, sizeof bytes, 0);
        }
        while (receive(0)) {
        }
        must(sent_ == received_ && sentSum_ == receivedSum_, "every message sent is received, once");
    }

private:
    struct Message {
        uint32_t worker, number, check;
    };

    void send(Random &random, unsigned worker)
    {
        const uint32_t number = random.word();
        const Message message{worker, number, worker ^ ~number};
        did();
        if (msgQSend(queue_, &message, sizeof message, random.ticks(), 0) != 0)
            return;
        ++sent_;
        sentSum_ += number;
    }
    bool receive(unsigned timeout)
    {
        Message message{};
        did();
        const unsigned size = msgQReceive(queue_, &message, sizeof message, timeout);
        if (size == 0xFFFFFFFF)
            return false;
        must(size == sizeof message && message.check == (message.worker ^ ~message.number), "a message arrives whole");
        ++received_;
        receivedSum_ += message.number;
        return true;
    }

    MSG_Q_ID queue_ = msgQCreate(32, sizeof(Message), 0);
    std::atomic<uint64_t> sent_{0}, received_{0}, sentSum_{0}, receivedSum_{0};
};

// Each worker sends to itself, from the address that it says.
class Datagrams : public Subsystem
{
public:
    Datagrams() : Subsystem("datagrams")
    {
        for (Socket &each : sockets_) {
            each.fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            each.address.sin_family = AF_INET;
            each.address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            socklen_t bytes = sizeof each.address;
            const int on = 1;
            must(bind(each.fd, reinterpret_cast<sockaddr *>(&each.address), bytes) == 0 &&
                     getsockname(each.fd, reinterpret_cast<sockaddr *>(&each.address), &bytes) == 0 &&
                     setsockopt(each.fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) == 0,
                 "a socket on the loopback can be used");
        }
    }
    ~Datagrams() override
    {
        for (const Socket &each : sockets_)
            close(each.fd);
    }

    void round(Random &random, unsigned worker) override
    {
        Socket &own = sockets_[worker];
        const uint32_t number = random.word();
        must(sendto_wsrc(own.fd, &number, sizeof number, 0, reinterpret_cast<sockaddr *>(&own.address),
                         sizeof own.address, nullptr) == sizeof number,
             "a datagram is sent");
        uint32_t received = 0;
        sockaddr_in source{};
        socklen_t bytes = sizeof source;
        packet_info info{};
        must(recvfrom_wdst(own.fd, &received, sizeof received, 0, reinterpret_cast<sockaddr *>(&source), &bytes,
                           &info) == sizeof received &&
                 received == number && source.sin_port == own.address.sin_port,
             "the datagram is received");
        must(memcmp(info.ipv4.address, &own.address.sin_addr, 4) == 0, "it was sent to the loopback");
        did(2);
    }

private:
    struct Socket {
        int fd = -1;
        sockaddr_in address{};
    };
    std::array<Socket, Workers> sockets_;
};
} // namespace

void soak::addRealTime(Subsystems &all)
{
    all.push_back(std::make_unique<Semaphores>());
    all.push_back(std::make_unique<Tasks>());
    all.push_back(std::make_unique<FixedQueue>());
    all.push_back(std::make_unique<Datagrams>());
}
