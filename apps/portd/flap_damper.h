// flap_damper.h: keeps a flapping port from flooding everybody.
//
// Policy:     the first link change of a port starts its window. More than `limit` changes before the window is over
//             hold the port down: its changes are noted but not passed on. A port that changed no more than that while
//             it was held is released when its hold is over; any other is held once more.
// Locking:    everything, both lists included, is under `lock`, which is recursive. Lock order: this lock, then the
//             board's, then the queues'. The port map's lock is never taken under it.
// Cost:       a port's timer is made with its first change and kept; a change moves one list entry.
#pragma once

#include "deltalist.h"
#include "task_lock.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

class FlapDamper
{
public:
    struct Settings {
        uint32_t limit;        // changes in a window that are still fine; 0: nothing is ever held
        uint32_t window_ticks; // at least 1
        uint32_t hold_ticks;   // at least 1
    };
    // Called when a port is released, on the timer's thread, with the lock held.
    using OnRelease = std::function<void(uint32_t systemPort)>;

    FlapDamper(const Settings &settings, OnRelease onRelease);
    ~FlapDamper();
    FlapDamper(const FlapDamper &) = delete;
    FlapDamper &operator=(const FlapDamper &) = delete;

    // To be held from the change of a port's state until it is passed on, so that a release cannot come between.
    TaskLock &order() KEL_THREAD_ANNOTATION(lock_returned(lock))
    {
        return lock;
    }

    enum class Verdict {
        pass,   // tell it
        hold,   // tell that the port is held down from now on
        swallow // it is held down: tell nothing
    };
    Verdict changed(uint32_t systemPort);

    // The port is gone: neither counted nor held any more.
    void forget(uint32_t systemPort);

    // A port that is counted or held.
    struct Row {
        uint32_t systemPort;
        bool held;
        uint32_t changes; // since the window, or the hold, began
        uint32_t left_ticks;
    };
    std::vector<Row> rows();

    // Both lists, as they print themselves on standard output.
    void printLists();

private:
    // A list whose entries' times count from now, though it is advanced only when something is due.
    class TimerList : public CDeltaList
    {
    public:
        TimerList(const char *listName, FlapDamper &listOwner) : CDeltaList(listName), owner(listOwner) {}
        unsigned int getDeltaT() override;
        void awaken() override;

    private:
        FlapDamper &owner;
    };

    class PortTimer : public CDeltaListSmartEntry
    {
    public:
        PortTimer(FlapDamper &timerOwner, uint32_t timerPort)
            : CDeltaListSmartEntry(timerOwner.lock.handle()), owner(timerOwner), systemPort(timerPort)
        {
        }
        void aged() override;

        FlapDamper &owner;
        uint32_t systemPort;
        uint32_t changes = 0;
        bool held = false;
    };

    void run();
    uint32_t advance(); // returns the ticks until something is due
    PortTimer &timer(uint32_t systemPort) KEL_REQUIRES(lock);

    Settings settings;
    OnRelease release;
    TaskLock lock;
    SEM_ID wake;                                                         // binary: something is due earlier, or stop
    uint32_t lastTick;                                                   // when the lists were advanced; under lock
    std::optional<TimerList> windows;                                    // dbID is the lock
    std::optional<TimerList> holds;                                      // dbID is the lock
    std::vector<std::unique_ptr<PortTimer>> timers KEL_GUARDED_BY(lock); // by system port
    std::atomic<bool> stopping = false;
    std::thread thread;
};
