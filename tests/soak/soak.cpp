// soak.cpp: all parts of the library at once, from eight tasks, for the minutes given.
//
// The time is cut into phases. Between two of them all tasks rest: then everything that was sent must have been
// received, and the heap must not have grown since the second rest but by the records of deleted semaphores, which stay
// on purpose. `--plant leak`, `lost` or `invariant` breaks something that must be found.
#include "subsystem.h"

#include "harness/instrumented.h"
#include "queues.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#ifdef KEL_UNDER_ASAN
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>

namespace
{
using namespace soak;

// A record is 16 bytes, a block of the heap twice that. Caches of the allocator fill up meanwhile.
constexpr size_t BytesOfARecord = 32, Slack = 512 * 1024;

Subsystems all;
SEM_ID go, rest;
std::atomic<bool> stopping{false};
std::atomic<unsigned> nextWorker{0};

int work(...)
{
    const unsigned worker = nextWorker++;
    Random random(worker + 1);
    for (;;) {
        semTake(go, static_cast<unsigned int>(WAIT_FOREVER));
        while (!stopping)
            all[random.below(static_cast<unsigned>(all.size()))]->round(random, worker);
        semGive(rest);
    }
}

double now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void runPhase(double seconds)
{
    stopping = false;
    for (unsigned i = 0; i < Workers; ++i)
        semGive(go);
    const double end = now() + seconds;
    while (now() < end)
        taskDelay(5);
    stopping = true;
    for (unsigned i = 0; i < Workers; ++i)
        semTake(rest, static_cast<unsigned int>(WAIT_FOREVER));
    for (const auto &subsystem : all)
        subsystem->settle();
}

// Bytes of the heap in use, without the records that stay; 0 where a sanitizer has its own heap, and looks for leaks.
size_t heapInUse()
{
    if (UnderAddressSanitizer || UnderThreadSanitizer)
        return 0;
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd - BytesOfARecord * recordsLeft;
}

size_t residentKib()
{
    size_t pages = 0;
    if (FILE *file = fopen("/proc/self/statm", "re")) {
        if (fscanf(file, "%*u %zu", &pages) != 1)
            pages = 0;
        fclose(file);
    }
    return pages * static_cast<size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

bool isFlat(size_t before, size_t after)
{
#ifdef KEL_UNDER_ASAN
    if (__lsan_do_recoverable_leak_check() != 0)
        return false;
#endif
    return after <= before + Slack;
}

// What the library prints goes nowhere; the figures go where it went before.
FILE *keepStandardOutput()
{
    const int kept = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (kept == -1 || nowhere == -1 || dup2(nowhere, STDOUT_FILENO) == -1)
        return nullptr;
    close(nowhere);
    return fdopen(kept, "w");
}

Plant plantNamed(const std::string &name)
{
    return name == "leak" ? Plant::Leak : name == "lost" ? Plant::LostMessage : Plant::BrokenInvariant;
}
} // namespace

int main(int count, char **arguments)
{
    const double minutes = count > 1 ? atof(arguments[1]) : 0;
    if (!(minutes > 0) || (count > 3 && strcmp(arguments[2], "--plant") != 0)) {
        fprintf(stderr, "usage: soak MINUTES [--plant leak|lost|invariant]\n");
        return 2;
    }
    if (count > 3)
        planted = plantNamed(arguments[3]);
    FILE *report = keepStandardOutput();
    go = semCCreate(SEM_Q_FIFO, 0);
    rest = semCCreate(SEM_Q_FIFO, 0);
    if (report == nullptr || kel_utils_init() != 0)
        return 1;
    for (const auto add : {addRealTime, addQueues, addContainers, addBits, addValues, addPorts})
        add(all);
    for (unsigned i = 0; i < Workers; ++i)
        if (taskSpawn("worker", 100, 0, 0, work, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0) != 0)
            return 1;

    const double seconds = minutes * 60;
    const int phases = std::clamp(static_cast<int>(seconds / 10), 4, 60);
    size_t heapBefore = 0, residentBefore = 0, mostHeap = 0;
    for (int phase = 0; phase < phases; ++phase) {
        runPhase(seconds / phases);
        if (phase == 1) {
            heapBefore = heapInUse();
            residentBefore = residentKib();
        }
        if (phase >= 1)
            mostHeap = std::max(mostHeap, heapInUse());
    }

    uint64_t operations = 0;
    for (const auto &subsystem : all) {
        fprintf(report, "trust: soak, %s | %lu operations\n", subsystem->name,
                static_cast<unsigned long>(subsystem->operations));
        operations += subsystem->operations;
    }
    const bool flat = isFlat(heapBefore, mostHeap);
    fprintf(report, "trust: soak, memory | heap %+ld bytes, resident %+ld KiB after %lu operations in %.0f s, %s\n",
            static_cast<long>(mostHeap - heapBefore), static_cast<long>(residentKib() - residentBefore),
            static_cast<unsigned long>(operations), seconds, flat ? "flat" : "NOT FLAT: failed");
    fflush(report);
    if (!flat)
        fprintf(stderr, "soak: does not hold: memory is flat\n");
    std::_Exit(flat ? 0 : 3); // the workers wait for another phase
}
