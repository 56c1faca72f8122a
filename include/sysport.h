/**
 * @file sysport.h
 * The system port map: one table a process that gives every front-panel port and trunk a small dense number.
 *
 * Result codes of this family:
 * 1. A look-up or conversion returns 0 for "no such port"; 0 is never a valid number in any numbering.
 * 2. addPortInst() and delPortInst() return a system port, or 0xFFFFFFFF on failure.
 * 3. The port-list conversions and the C callbacks return 1 for success and 0 for failure.
 * 4. The name calls return the caller's buffer, or null.
 *
 * The numberings, all unsigned 32-bit:
 * - system port: 1 to 32767, handed out lowest free first
 * - port instance: the platform's handle; the top byte is the interface type (0 slot port, 1 trunk). The map forms
 *   the key of a slot port as `slot << 16 | port`.
 * - ifIndex: the SNMP interface index (IF-MIB), as the platform's record gives it
 * - bridge port: `(slot - 1) * 128 + port`, with ports 1 to 128 of slots from 1 (dot1dBasePort of BRIDGE-MIB)
 * - DmPortMask: `slot << 16 | port`
 *
 * The table holds only which system port belongs to which port instance. Every other conversion asks the platform for
 * the interface's record and then requires that the port instance in it is bound here.
 */
#ifndef SYSPORT_H
#define SYSPORT_H

#include "vxw_shim.h"

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/**
 * Creates the map's semaphore and its one table; does nothing when they exist.
 *
 * When no semaphore can be made, "v2lin must be initialized before kelSysPortUtilInit" goes to standard output and
 * nothing else happens. When memory for the table is short the allocator's exception passes through; the call may
 * then be repeated. Call it before the platform learns of the two callbacks, from one thread at a time.
 * @blocking for the map's lock    @locks mSem    @context any thread, one at a time
 */
void kelSysPortUtilInit(void);

/**
 * The same as kelSysPortUtilInit(), under the name that start-up tables list.
 * @blocking for the map's lock    @locks mSem    @context any thread, one at a time
 */
void kelSysPortUtilInitWrapper(void);

/**
 * Tells the map that an interface has appeared, which binds it to the lowest free system port.
 *
 * One line in the map's trace buffer says what came of it.
 *
 * @param portInstance  the platform's handle; the platform must know its record, and the type in that record must be
 *                      slot port or trunk
 * @retval 1  bound
 * @retval 0  unknown to the platform, of another type, bound already, no number left, or no table yet
 * @blocking for the map's lock    @locks mSem, never while calling the platform    @context the platform's thread
 */
int kelSysPortUtilAddPifCB(uint32_t portInstance);

/**
 * Tells the map that an interface is going away, which frees its system port. The platform must still know it.
 *
 * @param portInstance  as for kelSysPortUtilAddPifCB()
 * @retval 1  unbound; also for an interface that was not bound while another one is in the same hash bucket
 * @retval 0  unknown to the platform, of another type, not bound, or no table yet
 * @blocking for the map's lock    @locks mSem, never while calling the platform    @context the platform's thread
 */
int kelSysPortUtilDelPifCB(uint32_t portInstance);

/**
 * Prints the verbose self-checking dump on standard output: kelSysPortUtil::DumpDebugInfo(true, 0).
 * @blocking for the map's lock and as the output does    @locks mSem, as DumpDebugInfo()    @context any thread
 */
void kelSysPortUtilDumpDebugInfo(void);

#ifdef __cplusplus
}

class CBitMask;    /* bitset.h */
struct pif_;       /* the platform's record of an interface, kel_platform.h */
struct portlist_t; /* the platform's set of ports, kel_platform.h */

/**
 * The table, made by kelSysPortUtilInit() and reached through localPtr.
 *
 * Any thread may call any method. add, del and the two raw look-ups hold mSem for the whole of their table access; all
 * other methods hold it only inside those. Only the dump calls the platform while it holds mSem. Where mSem is null
 * everything works without a lock. The table must not be destroyed while another thread is in a method of it.
 *
 * "bound" below means that portInst2SystemPort() of the port instance is not 0. A platform look-up has failed when it
 * returns 0 or leaves no record.
 */
class kelSysPortUtil
{
public:
    enum : uint32_t {
        maxSystemPorts = 32768, /**< records and bits; system port 0 is never bound */
        numHashKeys = 32767     /**< buckets, keys 0 to 32766; there is no bucket for key 32767, which is refused */
    };

    /** A binding. All zero when its system port is free. */
    struct portRecord {
        uint32_t portInst;   /**< port instance; 0 empty */
        uint32_t systemPort; /**< the record's own index; 0 empty */
        portRecord *next;    /**< next record of the same bucket; null at the end */
    };

    static kelSysPortUtil *localPtr;   /**< the one table; written under mSem, also read without it; null: no table */
    static SEM_ID mSem;                /**< guards the table; recursive; set once by kelSysPortUtilInit() */
    static uint32_t badHashKey;        /**< adds and dels refused for key 32767; relaxed atomic, no lock; never reset */
    static uint32_t idxOutOfBounds;    /**< adds and dels that met a system port above 32767; never reset */
    static uint32_t entryAlreadyInUse; /**< adds whose chosen record was not empty; never reset */

    portRecord portRecords[maxSystemPorts] KEL_GUARDED_BY(mSem); /**< by system port */
    portRecord *hashBuckets[numHashKeys] KEL_GUARDED_BY(mSem);   /**< newest record of each hash key; null none */
    CBitMask *usedSystemPort; /**< bit s: system port s is bound; owned, set once; bits written under mSem, also read
                                 without it */

    /**
     * Makes an empty table and opens the map's trace buffer. kelSysPortUtilInit() is its caller.
     * @blocking no    @locks nothing    @context any thread
     */
    kelSysPortUtil();

    /**
     * Clears localPtr, whichever table it names, and frees the bits. mSem stays.
     * @blocking for the map's lock    @locks mSem    @context any thread, when no other is in a method
     */
    ~kelSysPortUtil();

    kelSysPortUtil(const kelSysPortUtil &) = delete;
    kelSysPortUtil &operator=(const kelSysPortUtil &) = delete;

    /**
     * Binds a port instance to the lowest free system port. A line in the trace buffer says so before anything else.
     *
     * @return the system port, 1 to 32767. 0xFFFFFFFF: bound already; or, with a message on standard output (without
     *         a newline) and a counter raised: its hash key is 32767 (badHashKey), no number is free (idxOutOfBounds),
     *         the record of the chosen number is not empty (entryAlreadyInUse)
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t addPortInst(uint32_t portInst);

    /**
     * Frees the system port of a port instance.
     *
     * @return the system port that was freed. 0: not bound, but its hash bucket holds others. 0xFFFFFFFF: not bound
     *         and its bucket is empty; its hash key is 32767 (badHashKey); the record is damaged (idxOutOfBounds)
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t delPortInst(uint32_t portInst);

    /**
     * Returns the port instance of a system port; 0 when it is free or above 32767.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t systemPort2PortInst(uint32_t systemPort);

    /**
     * Returns the system port of a port instance; 0 when it is not bound.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t portInst2SystemPort(uint32_t portInst);

    /**
     * Returns the system port itself when it is bound, else 0.
     * @blocking no    @locks nothing    @context any thread
     */
    uint32_t getSystemPort(uint32_t systemPort);

    /**
     * Returns the port instance itself when it is bound, else 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getPortInstance_t(uint32_t portInst);

    /**
     * Returns the ifIndex itself when its interface exists and is bound, else 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getIfIndex(uint32_t ifIndex);

    /**
     * Returns the bridge port itself when the platform's look-up returns exactly 1 and the interface is bound, else 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getBridgePort(uint32_t bridgePort);

    /**
     * Converts a bound port instance; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getIfIndexFromPortInst(uint32_t portInst);

    /**
     * Converts a bound port instance; 0 when there is none or its record has slot 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getBridgePortFromPortInst(uint32_t portInst);

    /**
     * Converts a system port; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getIfIndexFromSystemPort(uint32_t systemPort);

    /**
     * Converts a system port; 0 when there is none or its record has slot 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getBridgePortFromSystemPort(uint32_t systemPort);

    /**
     * Converts an ifIndex whose own port instance is bound; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getSystemPortFromIfIndex(uint32_t ifIndex);

    /**
     * Converts a bridge port whose own port instance is bound; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getSystemPortFromBridgePort(uint32_t bridgePort);

    /**
     * Converts a bridge port whose own port instance is bound; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getIfIndexFromBridgePort(uint32_t bridgePort);

    /**
     * Converts an ifIndex whose own port instance is bound; 0 when there is none or it has slot 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getBridgePortFromIfIndex(uint32_t ifIndex);

    /**
     * Returns the master port instance of a bound trunk, and any other bound port instance itself; 0 when it is not
     * bound. A trunk whose record the platform does not give (with exactly 1) stands for itself.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getMasterPortInstance_t(uint32_t portInst);

    /**
     * Converts a DmPortMask whose best port instance is bound; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getIfIndexFromDmPortMask(uint32_t dmPortMask);

    /**
     * Converts a DmPortMask whose best port instance is bound; 0 when there is none. Slot 0 is not refused here: it
     * gives port + 0xFFFFFF80.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getBridgePortFromDmPortMask(uint32_t dmPortMask);

    /**
     * Converts a DmPortMask whose best port instance is bound; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getSystemPortFromDmPortMask(uint32_t dmPortMask);

    /**
     * Converts a system port; 0 when the platform does not know its port instance. A free system port asks the platform
     * for port instance 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getDmPortMaskFromSystemPort(uint32_t systemPort);

    /**
     * Converts a bridge port; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getDmPortMaskFromBridgePort(uint32_t bridgePort);

    /**
     * Converts an ifIndex; 0 when there is none.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getDmPortMaskFromIfIndex(uint32_t ifIndex);

    /**
     * Returns the next bound system port above @p systemPort; 0 at the end. 0xFFFFFFFF starts over.
     * @blocking no    @locks nothing    @context any thread
     */
    uint32_t getNextSystemPort(uint32_t systemPort);

    /**
     * Returns the next bound slot port behind @p portInst in the platform's order; 0 at the end.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getNextPortInstance_t(uint32_t portInst);

    /**
     * Returns the ifIndex of the next slot port in the platform's order that has an ifIndex above @p ifIndex and whose
     * best port instance is bound; 0 at the end. The walk starts at slot ifIndex / 1000, port ifIndex % 1000.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getNextIfIndex(uint32_t ifIndex);

    /**
     * Returns the bridge port of the next slot port in the platform's order that has one above @p bridgePort and whose
     * best port instance is bound; 0 at the end.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    uint32_t getNextBridgePort(uint32_t bridgePort);

    /**
     * Writes an interface's name; the port need not be bound.
     *
     * @param ifIndex  of any interface that the platform knows
     * @param buf  receives the zero-terminated name; an empty text when the call fails with a usable buffer
     * @param len  bytes of @p buf
     * @return @p buf; null when @p buf is null or @p len is 0 (nothing is touched), @p ifIndex is 0, the platform does
     *         not know the interface, or its name is empty
     * @blocking no    @locks nothing    @context any thread
     */
    char *getIfNameFromIfIndex(uint32_t ifIndex, char *buf, unsigned long len);

    /**
     * The same by bridge port; bridge port 0 gives null.
     * @blocking no    @locks nothing    @context any thread
     */
    char *getIfNameFromBridgePort(uint32_t bridgePort, char *buf, unsigned long len);

    /**
     * The same by system port. A free system port asks the platform for port instance 0.
     * @blocking for the map's lock    @locks mSem    @context any thread
     */
    char *getIfNameFromSystemPort(uint32_t systemPort, char *buf, unsigned long len);

    /**
     * Returns the port instance that represents a physical interface: its trunk's for the member that the platform
     * names as the trunk's master (with exactly 1), 0 for any other member and for a null record, else its own.
     * @blocking no    @locks nothing    @context any thread
     */
    uint32_t getBestPortInstanceForPif(pif_ *pif) const;

    /**
     * Adds a port to a port list, reserving words for its slot when it has none.
     *
     * A port whose slot cannot be reserved (no words left, or a slot or offset the list has no room for) is not added,
     * and that counts as success.
     *
     * @param list  changed in place; null gives 0
     * @param systemPort  a system port; a free one asks the platform for port instance 0
     * @retval 1  added, or its slot cannot be reserved
     * @retval 0  null list, or the platform does not know the port
     * @blocking for the map's lock    @locks mSem; nothing guards the list    @context any thread, one at a time a list
     */
    uint32_t getPortListFromSystemPort(portlist_t *list, uint32_t systemPort);

    /**
     * The same by bridge port; 0 also when no bound port has it.
     * @blocking for the map's lock    @locks mSem; nothing guards the list    @context any thread, one at a time a list
     */
    uint32_t getPortListFromBridgePort(portlist_t *list, uint32_t bridgePort);

    /**
     * The same by ifIndex; 0 also when no bound port has it.
     * @blocking for the map's lock    @locks mSem; nothing guards the list    @context any thread, one at a time a list
     */
    uint32_t getPortListFromIfIndex(portlist_t *list, uint32_t ifIndex);

    /**
     * Adds a set of system ports to a port list. Ports whose slot cannot be reserved are left out.
     *
     * @param list   changed in place; must not be null unless @p ports is empty
     * @param ports  bit s: system port s; must not be null
     * @retval 1  all done
     * @retval 0  the platform does not know one of the ports; those before it are in the list
     * @blocking for the map's lock    @locks mSem; nothing guards the list    @context any thread, one at a time a list
     */
    uint32_t getPortListFromSystemPorts(portlist_t *list, const CBitMask *ports);

    /**
     * Sets the bit of each port of a port list.
     *
     * @param ports  bit s: system port s; bits set before stay; must not be null. A port that is not bound sets bit 0.
     * @param list   passed to the platform's list walk
     * @retval 1  all set; also for an empty list
     * @retval 0  a bit was set already or is outside @p ports; the ports before it are set
     * @blocking for the map's lock    @locks mSem; nothing guards @p ports    @context any thread, one at a time a mask
     */
    uint32_t getSystemPortsFromPortList(CBitMask *ports, portlist_t *list);

    /**
     * Prints the whole map with six passes that check its conversions against each other.
     *
     * Lines are collected in a 128-byte buffer; a line that can never fit it is left out. On standard output the
     * semaphore and the bits are printed directly, so they appear before what is still in the buffer.
     *
     * @param verbose  lists the buckets in use, what is wrong and every bound port
     * @param cli      0: standard output; otherwise a session for the platform's cmNotifyCLI()
     * @blocking for the map's lock and as the output does    @locks mSem, for its whole length and while calling the
     *           platform    @context any thread
     */
    static void DumpDebugInfo(bool verbose, uint32_t cli);
};

static_assert(sizeof(kelSysPortUtil::portRecord) == 16 && offsetof(kelSysPortUtil::portRecord, systemPort) == 4 &&
                  offsetof(kelSysPortUtil::portRecord, next) == 8,
              "processes linked earlier rely on it");
static_assert(offsetof(kelSysPortUtil, portRecords) == 0 && offsetof(kelSysPortUtil, hashBuckets) == 524288 &&
                  offsetof(kelSysPortUtil, usedSystemPort) == 786424 && sizeof(kelSysPortUtil) == 786432,
              "processes linked earlier rely on it");
#endif
#pragma GCC visibility pop

#endif
