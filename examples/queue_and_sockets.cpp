// A class that lends queues a descriptor, and one epoll loop over two queues and a socket.
//
// A queue gives a semaphore of its creator, its external flag, whenever its receiver is to wake: once a batch. Several
// queues may share one. A relay thread waits for the flag and writes an eventfd, which epoll, poll and every event
// library can wait for. Receiving then never waits, and goes on until there is nothing more.
#include <atomic>
#include <cstdio>
#include <queues.h>
#include <string>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace
{
class QueueDescriptor
{
public:
    QueueDescriptor() : relay([this] { run(); }) {}
    // The queues that were made with flag() are gone by now.
    ~QueueDescriptor()
    {
        stopping = true;
        semGive(sem);
        relay.join();
        close(event);
        semDelete(sem);
    }
    QueueDescriptor(const QueueDescriptor &) = delete;
    QueueDescriptor &operator=(const QueueDescriptor &) = delete;

    // For the creation of queues: their external flag.
    SEM_ID flag() const
    {
        return sem;
    }
    // Readable when a queue may have something. clear() it first, then receive from every queue until it is empty.
    int descriptor() const
    {
        return event;
    }
    void clear() const
    {
        eventfd_t wakeUps;
        eventfd_read(event, &wakeUps);
    }

private:
    void run() const
    {
        while (semTake(sem, WAIT_FOREVER) == 0 && !stopping)
            eventfd_write(event, 1);
    }

    SEM_ID sem = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    int event = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::atomic<bool> stopping{false};
    std::thread relay; // last, because it uses the others
};

void waitFor(int loop, int descriptor)
{
    epoll_event wanted = {};
    wanted.events = EPOLLIN;
    wanted.data.fd = descriptor;
    epoll_ctl(loop, EPOLL_CTL_ADD, descriptor, &wanted);
}
} // namespace

int main()
{
    kel_utils_init();
    const QueueDescriptor queues;
    SMultiEventQ8 links(64, 0, 10, 5, queues.flag());      // wakes after 10 changes or 5 ticks
    SMsgQueueX commands(8, 32, 0, 0, 8, 0, queues.flag()); // wakes at once
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
        return 1;
    const int loop = epoll_create1(EPOLL_CLOEXEC);
    waitFor(loop, queues.descriptor());
    waitFor(loop, pair[0]);

    // Each of the three speaks when it has heard the one before.
    links.send(3, 1, 0xFF, 0xFF, 0);
    links.send(7, 1, 0xFF, 0xFF, 0);
    int changes = 0;
    for (bool going = true; going;) {
        epoll_event ready;
        if (epoll_wait(loop, &ready, 1, -1) != 1)
            continue;
        char text[33];
        if (ready.data.fd == pair[0]) {
            const ssize_t bytes = recv(pair[0], text, sizeof text, 0);
            printf("socket: %.*s\n", static_cast<int>(bytes), text);
            commands.send("stop", 4, WAIT_FOREVER, 0);
            continue;
        }
        queues.clear();
        unsigned short port = 0;
        unsigned int up = 0;
        while (links.recv(port, up, NO_WAIT) != -1) {
            printf("event: port %d is %s\n", port, up != 0 ? "up" : "down");
            if (++changes == 2)
                send(pair[1], "both ports are up", 17, 0);
        }
        int bytes = 0;
        while ((bytes = commands.recv(text, sizeof text, NO_WAIT)) >= 0) {
            printf("message: %.*s\n", bytes, text);
            going = std::string(text, static_cast<size_t>(bytes)) != "stop";
        }
    }
    for (const int descriptor : {loop, pair[0], pair[1]})
        close(descriptor);
}

/* Prints:
event: port 3 is up
event: port 7 is up
socket: both ports are up
message: stop
*/
