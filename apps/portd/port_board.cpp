// port_board.cpp: what is known about every system port, also after the platform forgot it.
#include "port_board.h"

namespace
{
constexpr uint32_t systemPortLimit = 32768;

timespec wallClock()
{
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

uint32_t withFlag(uint32_t word, uint32_t flag, bool on)
{
    return on ? word | flag : word & ~flag;
}
} // namespace

PortRow *PortBoard::present(uint32_t systemPort)
{
    if (systemPort >= rows.size() || !(rows[systemPort].word & statePresent))
        return nullptr;
    return &rows[systemPort];
}

uint32_t PortBoard::appeared(const PortIdentity &identity, bool linkUp)
{
    if (identity.systemPort >= systemPortLimit)
        return 0;
    TaskGuard guard(lock);
    if (identity.systemPort >= rows.size())
        rows.resize(identity.systemPort + 1);
    PortRow &row = rows[identity.systemPort];
    row.before = row.identity;
    row.beforeGeneration = generationOf(row.word);
    row.identity = identity;
    row.word = stateWord(row.beforeGeneration + 1, statePresent | (linkUp ? stateLinkUp : 0));
    row.linkChanges = 0;
    row.lastChange = wallClock();
    return row.word;
}

std::optional<uint32_t> PortBoard::disappeared(uint32_t systemPort, const std::string &name)
{
    TaskGuard guard(lock);
    PortRow *row = present(systemPort);
    if (row == nullptr)
        return std::nullopt;
    if (!name.empty())
        row->identity.name = name;
    row->word = stateWord(generationOf(row->word), 0);
    row->lastChange = wallClock();
    return row->word;
}

std::optional<uint32_t> PortBoard::linkChanged(uint32_t systemPort, bool up, const std::string &name)
{
    TaskGuard guard(lock);
    PortRow *row = present(systemPort);
    if (row == nullptr || up == ((row->word & stateLinkUp) != 0))
        return std::nullopt;
    if (!name.empty())
        row->identity.name = name;
    row->word = withFlag(row->word, stateLinkUp, up);
    ++row->linkChanges;
    row->lastChange = wallClock();
    return row->word;
}

std::optional<uint32_t> PortBoard::heldDown(uint32_t systemPort, bool held)
{
    TaskGuard guard(lock);
    PortRow *row = present(systemPort);
    if (row == nullptr)
        return std::nullopt;
    row->word = withFlag(row->word, stateHeldDown, held);
    return row->word;
}

std::optional<PortRow> PortBoard::row(uint32_t systemPort) const
{
    TaskGuard guard(lock);
    if (systemPort >= rows.size() || rows[systemPort].identity.systemPort == 0)
        return std::nullopt;
    return rows[systemPort];
}

uint32_t PortBoard::countWith(uint32_t flags) const
{
    TaskGuard guard(lock);
    uint32_t count = 0;
    for (const PortRow &row : rows)
        count += (row.word & flags) == flags ? 1 : 0;
    return count;
}

uint32_t PortBoard::portsPresent() const
{
    return countWith(statePresent);
}

uint32_t PortBoard::portsUp() const
{
    return countWith(statePresent | stateLinkUp);
}
