/* reset.c: emptying everything, for tests. */
#include "cli_session.h"
#include "fault.h"
#include "inventory.h"
#include "trace_ring.h"

void kelStandinReset(void)
{
    kelStandinSetListener(NULL);
    clearFaults();
    lockInventory();
    for (struct port_entry *entry = entryFrom(0); entry != NULL; entry = entryAfter(entry)) {
        clearExtras(entry);
        delist(entry);
    }
    unlockInventory();
    closeSessions();
    dropTraceLines();
}
