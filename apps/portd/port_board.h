// port_board.h: what is known about every system port, also after the platform forgot it.
//
// Policy:  a system port that was freed keeps the identity of its last interface until the next one takes it, and that
//          one keeps its predecessor's, so that an event that is still queued can be told in full.
// Locking: everything is under `lock`; what is handed out are copies.
// Cost:    one row a system port up to the highest seen; they are handed out lowest first, so few.
#pragma once

#include "port_state.h"
#include "task_lock.h"

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

// One interface under all its numbers. 0 is none.
struct PortIdentity {
    uint32_t systemPort = 0;
    uint32_t ifIndex = 0;
    uint32_t bridgePort = 0;
    uint32_t portInstance = 0;
    std::string name;
};

struct PortRow {
    PortIdentity identity;    // of the interface that has, or last had, the system port
    uint32_t word = 0;        // its state, as in port_state.h
    uint32_t linkChanges = 0; // of this interface, since it appeared
    timespec lastChange = {}; // wall clock; of the last appearance, disappearance or link change
    PortIdentity before;      // the interface before this one
    uint32_t beforeGeneration = 0;
};

class PortBoard
{
public:
    // An interface took the system port. Returns the state word to send.
    uint32_t appeared(const PortIdentity &identity, bool linkUp);

    // The interface is gone; `name` is what it was called at the end (empty: as before).
    std::optional<uint32_t> disappeared(uint32_t systemPort, const std::string &name);

    // The link changed, of what is called `name` by now (empty: as before). Nothing to send when the state was known
    // already or no interface has the port.
    std::optional<uint32_t> linkChanged(uint32_t systemPort, bool up, const std::string &name);

    // The port is held down, or let go. Nothing to send when no interface has the port.
    std::optional<uint32_t> heldDown(uint32_t systemPort, bool held);

    // The row of a system port that was ever in use.
    std::optional<PortRow> row(uint32_t systemPort) const;

    uint32_t portsPresent() const;
    uint32_t portsUp() const;

private:
    PortRow *present(uint32_t systemPort) KEL_REQUIRES(lock);
    uint32_t countWith(uint32_t flags) const;

    mutable TaskLock lock;
    std::vector<PortRow> rows KEL_GUARDED_BY(lock); // by system port
};
