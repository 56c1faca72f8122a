// queue_descriptor.cpp: lends queues a file descriptor, for threads that wait for sockets as well.
#include "queue_descriptor.h"

#include <cerrno>
#include <new>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

QueueDescriptor::QueueDescriptor()
    : sem(semBCreate(SEM_Q_PRIORITY, SEM_EMPTY)), event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (event < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    if (sem == nullptr)
        throw std::bad_alloc();
    relay = std::thread(&QueueDescriptor::run, this);
}

QueueDescriptor::~QueueDescriptor()
{
    stopping = true;
    semGive(sem);
    relay.join();
    close(event);
    semDelete(sem);
}

void QueueDescriptor::clear() const
{
    eventfd_t wakeUps;
    eventfd_read(event, &wakeUps);
}

void QueueDescriptor::run() const
{
    constexpr uint32_t forever = 0xFFFFFFFF;
    for (;;) {
        semTake(sem, forever);
        if (stopping)
            return;
        eventfd_write(event, 1);
    }
}
