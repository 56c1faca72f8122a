// A periodic task in C++: it keeps its rhythm by the tick clock, and it is told to stop and waited for.
#include <atomic>
#include <cstdio>
#include <vxw_shim.h>

namespace
{
struct Sampler {
    SEM_ID ended = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    std::atomic<bool> stopping{false};
    std::atomic<int> samples{0};
};
Sampler sampler;

// In C++ an entry routine takes an ellipsis; what it is called with means nothing.
int sample(...)
{
    constexpr uint32_t period_ticks = 2;
    uint32_t due = tickGet() + period_ticks;
    while (!sampler.stopping) {
        const int32_t left = static_cast<int32_t>(due - tickGet()); // right across the wrap of the clock
        if (left > 0)
            taskDelay(static_cast<unsigned>(left));
        ++sampler.samples;
        due += period_ticks; // from the time when it was due, so that delays do not add up
    }
    semGive(sampler.ended);
    return 0;
}
} // namespace

int main()
{
    taskSpawn("sampler", 100, 0, 0, sample, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    while (sampler.samples < 5)
        taskDelay(1);
    sampler.stopping = true;
    semTake(sampler.ended, WAIT_FOREVER); // nobody joins a task; it says itself that it is done
    printf("at least 5 samples: %s\n", sampler.samples >= 5 ? "yes" : "no");
    semDelete(sampler.ended);
}

/* Prints:
at least 5 samples: yes
*/
