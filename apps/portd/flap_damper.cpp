// flap_damper.cpp: keeps a flapping port from flooding everybody.
#include "flap_damper.h"

#include <algorithm>
#include <new>

namespace
{
constexpr uint32_t waitForever = 0xFFFFFFFF;
constexpr uint32_t longestWait_ticks = 6000; // the tick conversion of the waits wraps after 35 minutes
} // namespace

unsigned int FlapDamper::TimerList::getDeltaT()
{
    return tickGet() - owner.lastTick;
}

void FlapDamper::TimerList::awaken()
{
    semGive(owner.wake);
}

// Runs with the lock held, as every aged().
void FlapDamper::PortTimer::aged()
{
    if (held && changes > owner.settings.limit) {
        changes = 0;
        add(&*owner.holds, owner.settings.hold_ticks);
        return;
    }
    changes = 0;
    if (!held)
        return;
    held = false;
    owner.release(systemPort);
}

FlapDamper::FlapDamper(const Settings &damperSettings, OnRelease onRelease)
    : settings(damperSettings), release(std::move(onRelease)), wake(semBCreate(0, 0)), lastTick(tickGet())
{
    if (wake == nullptr)
        throw std::bad_alloc();
    for (auto [list, name] : {std::pair{&windows, "flap windows"}, std::pair{&holds, "hold-downs"}}) {
        list->emplace(name, *this);
        (*list)->initSem(lock.handle());
        (*list)->init(0, 0, false);
    }
    thread = std::thread(&FlapDamper::run, this);
}

// A list takes its lock for good when it goes; it is given back here, once a list, because it is not the list's own.
FlapDamper::~FlapDamper() KEL_UNCHECKED_LOCKING
{
    stopping = true;
    semGive(wake);
    thread.join();
    holds.reset();
    lock.give();
    windows.reset();
    lock.give();
    semDelete(wake);
}

FlapDamper::PortTimer &FlapDamper::timer(uint32_t systemPort)
{
    if (systemPort >= timers.size())
        timers.resize(systemPort + 1);
    if (timers[systemPort] == nullptr)
        timers[systemPort] = std::make_unique<PortTimer>(*this, systemPort);
    return *timers[systemPort];
}

FlapDamper::Verdict FlapDamper::changed(uint32_t systemPort)
{
    if (settings.limit == 0)
        return Verdict::pass;
    TaskGuard guard(lock);
    PortTimer &port = timer(systemPort);
    ++port.changes;
    if (port.held)
        return Verdict::swallow;
    if (port.getList() == nullptr)
        port.add(&*windows, settings.window_ticks);
    if (port.changes <= settings.limit)
        return Verdict::pass;
    port.held = true;
    port.changes = 0;
    port.add(&*holds, settings.hold_ticks); // which takes it off its window
    return Verdict::hold;
}

void FlapDamper::forget(uint32_t systemPort)
{
    TaskGuard guard(lock);
    if (systemPort >= timers.size() || timers[systemPort] == nullptr)
        return;
    PortTimer &port = *timers[systemPort];
    port.del();
    port.changes = 0;
    port.held = false;
}

std::vector<FlapDamper::Row> FlapDamper::rows()
{
    TaskGuard guard(lock);
    const uint32_t passed = tickGet() - lastTick; // entries' times count from the last advance
    std::vector<Row> all;
    for (const auto &port : timers) {
        if (port == nullptr || port->getList() == nullptr)
            continue;
        const uint32_t left = port->getEntryAgeOut();
        all.push_back({port->systemPort, port->held, port->changes, left > passed ? left - passed : 0});
    }
    return all;
}

void FlapDamper::printLists()
{
    TaskGuard guard(lock);
    windows->printCDeltaList();
    holds->printCDeltaList();
}

uint32_t FlapDamper::advance()
{
    TaskGuard guard(lock);
    const uint32_t now = tickGet();
    const uint32_t passed = now - lastTick;
    lastTick = now;   // before the lists are advanced: what is added meanwhile counts from now
    if (passed > 0) { // advancing by 0 would mean the lists' own tic size
        windows->tic(passed);
        holds->tic(passed);
    }
    uint32_t next = waitForever;
    for (TimerList *list : {&*windows, &*holds}) {
        if (CDeltaListEntry *first = list->getNext(nullptr); first != nullptr)
            next = std::min({next, list->getEntryAgeOut(first), longestWait_ticks});
    }
    return next;
}

void FlapDamper::run()
{
    for (uint32_t wait = waitForever; !stopping; wait = advance())
        semTake(wake, wait);
}
