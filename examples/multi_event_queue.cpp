// Batching: a burst of events wakes the receiver once; an urgent one ends the holding back for all of them.
#include <cstdio>
#include <memory>
#include <queues.h>
#include <string>
#include <thread>

namespace
{
// Waits for a batch. The queue gives its external flag once a batch, when all of it can be received; whoever waits in
// recv() instead may find a part of it, because the timer task hands the events out one by one.
std::string batch(SMultiEventQ &queue)
{
    std::string text;
    while (text.empty()) { // a receive that leaves something gives the flag too, so a wake-up may find nothing
        semTake(queue.externalFlag, WAIT_FOREVER);
        unsigned short event = 0;
        unsigned int data = 0;
        while (queue.recv(event, data, NO_WAIT) != -1)
            text += ' ' + std::to_string(event) + '=' + std::to_string(data);
    }
    return text;
}
} // namespace

int main()
{
    kel_utils_init();
    constexpr unsigned allBits = 0xFFFFFFFF;
    constexpr int urgent = 2;
    constexpr int threshold = 100, delay_ticks = 5;
    const SEM_ID flag = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    auto queue = std::make_unique<SMultiEventQ32>(64, 0, threshold, delay_ticks, flag);

    const uint32_t start = tickGet();
    for (unsigned short port = 1; port <= 5; ++port)
        queue->send(port, port * 100000u, allBits, allBits, 0);
    printf("by time:%s\n", batch(*queue).c_str());
    printf("held back: %s\n", tickGet() - start + 1 >= delay_ticks ? "yes" : "no");

    std::thread alarm([&queue] {
        queue->send(7, 1, allBits, allBits, 0);
        queue->send(8, 2, allBits, allBits, urgent);
    });
    alarm.join(); // so that both are there
    printf("by urgency:%s\n", batch(*queue).c_str());
    queue.reset(); // the flag outlives it
    semDelete(flag);
}

/* Prints:
by time: 1=100000 2=200000 3=300000 4=400000 5=500000
held back: yes
by urgency: 7=1 8=2
*/
