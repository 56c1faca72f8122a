// port_tables.h: the port map as tables of a management interface.
//
// Policy: rows are read afresh from the port map, the platform and the board, and walked with the map's own get-next
//         calls, so a port is there exactly while the map has it. What is not known is left out, not made up.
#pragma once

#include "mib_table.h"
#include "port_board.h"

#include <cstdint>

// dot1dBasePortTable of BRIDGE-MIB (RFC 4188), 1.3.6.1.2.1.17.1.4: bridge port, ifIndex, circuit. A row for every
// bridge port that the map's walk gives: slot ports, of a trunk's members the master alone. The two discard counters
// are left out: the platform does not count discards.
MibTable bridgePortTable();

// kelSysPortTable of KEL-SYSPORT-MIB (mibs/KEL-SYSPORT-MIB.txt): all numbers and the state of every system port. The
// board outlives the table.
MibTable systemPortTable(const PortBoard &board);

// The module's objects that a notification about a system port carries.
namespace kelSysPortMib
{
SuOID portChanged(); // the notification
SuOID name(uint32_t systemPort);
SuOID state(uint32_t systemPort);
SuOctetString stateBits(uint32_t word, uint32_t portInstance); // kelSysPortState, of a port that may be gone
} // namespace kelSysPortMib
