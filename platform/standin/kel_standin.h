/**
 * @file kel_standin.h
 * The control side of the stand-in platform: what fills, watches and troubles it. The switch services themselves are in
 * kel_platform.h; this header is for feeders (a host's interfaces, a simulated chassis), a daemon's console, and tests.
 *
 * The stand-in keeps one inventory a process: slot ports and trunks, each with its name, link state and more. It
 * answers the calls of kel_platform.h from any thread, in the order of the port instances.
 *
 * Results, where a function returns int and says nothing else:
 *   1. 0        done
 *   2. EINVAL   an argument is out of its range, or null where it must not be
 *   3. ENOENT   there is no such port, trunk, buffer or session
 *   4. EEXIST   there is such a port already, or another has its ifIndex
 *   5. EBUSY    the port is just leaving: its listener call has not returned
 *   6. ENOMEM   no memory; nothing was changed
 *   7. ENOSPC   a fixed limit is reached; nothing was changed
 *
 * Port instances: a slot port is `slot << 16 | port`, slot 1 to 254, port 1 to 128. Trunk n is `1 << 24 | n`, n from 1
 * to 128, and its record says slot 255, port n, so that a trunk has a bridge port and an ifIndex of its own.
 *
 * Records: a pif_ that was handed out is never written again nor freed. A change (a join, another master) publishes
 * another record; contents that a port had before are found again instead of allocated again, so that memory is bounded
 * by the different contents that ports ever had, not by the number of changes.
 *
 * Locks: the inventory, each trace buffer and each session have a lock of their own, held for a few instructions and
 * never while a listener or a hook runs. Lock order: the port map's lock, then any of these. All functions may be
 * called from any thread unless they say otherwise. Changes of one port should come from one thread at a time, or the
 * order in which the listener hears of them is open.
 */
#ifndef KEL_STANDIN_H
#define KEL_STANDIN_H

#include <kel_platform.h>

#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

enum {
    KEL_STANDIN_MAX_SLOT = 254,          /**< slot ports; slot 255 is the trunks' */
    KEL_STANDIN_TRUNK_SLOT = 255,        /**< slot in the records of trunks */
    KEL_STANDIN_MAX_PORT = 128,          /**< ports a slot, and trunks */
    KEL_STANDIN_MAX_VLAN = 4094,         /**< VLAN ids are 1 to 4094 */
    KEL_STANDIN_NAME_SIZE = 64,          /**< bytes, with the terminating zero; longer names are cut */
    KEL_STANDIN_DESCRIPTION_SIZE = 256,  /**< bytes, with the terminating zero; longer ones are cut */
    KEL_STANDIN_MAX_ADDRESSES = 16,      /**< IP addresses a port */
    KEL_STANDIN_TRACE_LINE_SIZE = 512,   /**< bytes of a trace line, with the terminating zero; longer ones are cut */
    KEL_STANDIN_MAX_TRACE_BUFFERS = 16,  /**< trace buffers of different names */
    KEL_STANDIN_MAX_SESSIONS = 256,      /**< sessions open at once */
    KEL_STANDIN_SESSION_BACKLOG = 262144 /**< bytes kept for a session whose reader is behind */
};

/** Returns the port instance of a slot port. */
static inline portInstance_t kelStandinPortInstance(unsigned slot, unsigned port)
{
    return (portInstance_t)(slot << 16 | port);
}

/** Returns the port instance of trunk @p number. */
static inline portInstance_t kelStandinTrunkInstance(unsigned number)
{
    return (portInstance_t)(1u << 24 | number);
}

/* ---- Ports and trunks ------------------------------------------------------------------------------------------- */

/** All that is kept about a slot port or a trunk; a copy, never changed later. */
typedef struct kelStandinPort {
    portInstance_t portInstance;      /**< of the port or trunk */
    uint32_t ifIndex;                 /**< SNMP interface index */
    portInstance_t trunk;             /**< slot ports: the trunk this is a member of; 0 none */
    portInstance_t master;            /**< trunks: the member that stands for the trunk; 0 while there is no member */
    uint16_t slot;                    /**< KEL_STANDIN_TRUNK_SLOT for trunks */
    uint16_t port;                    /**< within the slot; a trunk's number */
    int linkUp;                       /**< 1 up, 0 down */
    uint32_t mtu;                     /**< bytes; 0 unknown */
    uint64_t linkChanges;             /**< link changes since the port appeared */
    int64_t lastChange;               /**< when the port appeared or its link changed last: ns since 1970-01-01 UTC */
    uint8_t mac[6];                   /**< all zero when unknown */
    char name[KEL_STANDIN_NAME_SIZE]; /**< zero-terminated */
    char description[KEL_STANDIN_DESCRIPTION_SIZE]; /**< zero-terminated */
} kelStandinPort;

/**
 * Adds a slot port, link down, member of no trunk, and tells the listener that it appeared.
 *
 * @param slot         1 to KEL_STANDIN_MAX_SLOT
 * @param port         1 to KEL_STANDIN_MAX_PORT
 * @param name         may be empty or null (empty)
 * @param ifIndex      0: 1000 * slot + port
 * @param description  may be empty or null (empty)
 * @return 0, EINVAL, EEXIST, EBUSY, ENOMEM
 * @locks inventory    @context any thread; calls the listener
 */
int kelStandinAddPort(unsigned slot, unsigned port, const char *name, uint32_t ifIndex, const char *description);

/**
 * Adds a trunk without members, link down, and tells the listener that it appeared.
 *
 * @param number       1 to KEL_STANDIN_MAX_PORT
 * @param name         may be empty or null (empty)
 * @param ifIndex      0: 1000 * 255 + number
 * @param description  may be empty or null (empty)
 * @return 0, EINVAL, EEXIST, EBUSY, ENOMEM
 * @locks inventory    @context any thread; calls the listener
 */
int kelStandinAddTrunk(unsigned number, const char *name, uint32_t ifIndex, const char *description);

/**
 * Adds any record as it is, for tests: another type byte, slot 0, ifIndex 0 or one that is in use are all taken. A
 * look-up that several records answer gives the one with the lowest port instance.
 *
 * @param record  copied; its portInstance must not be 0
 * @param name    may be empty or null (empty)
 * @return 0, EINVAL, EEXIST (the port instance is there), EBUSY, ENOMEM
 * @locks inventory    @context any thread; calls the listener
 */
int kelStandinAddRecord(const pif_ *record, const char *name);

/**
 * Removes a slot port or a trunk. It leaves its trunk (a trunk's members become single ports), then the listener hears
 * of it while the port can still be looked up, then it is gone from all VLANs and the inventory.
 *
 * @return 0, ENOENT, EBUSY, ENOMEM (for the record of the trunk's next master)
 * @locks inventory    @context any thread; calls the listener
 */
int kelStandinRemovePort(portInstance_t instance);

/**
 * Makes a slot port a member of a trunk; a member of another trunk leaves that one first. The first member becomes the
 * master.
 *
 * @return 0, ENOENT (no such trunk or port), EINVAL (@p member is a trunk, or @p trunk is not), ENOMEM
 * @locks inventory    @context any thread
 */
int kelStandinJoinTrunk(portInstance_t trunk, portInstance_t member);

/**
 * Takes a slot port out of its trunk; a port that is in none is left as it is. When the master leaves, the member with
 * the lowest port instance becomes the master.
 *
 * @return 0, ENOENT, ENOMEM
 * @locks inventory    @context any thread
 */
int kelStandinLeaveTrunk(portInstance_t member);

/**
 * Makes a member the one that stands for its trunk.
 *
 * @return 0, ENOENT (no such trunk or port), EINVAL (@p member is not in @p trunk), ENOMEM
 * @locks inventory    @context any thread
 */
int kelStandinSetMaster(portInstance_t trunk, portInstance_t member);

/**
 * Sets the link state; the listener hears of a change, and only of a change.
 *
 * @param instance  a port or a trunk
 * @param up        0 down, anything else up
 * @return 0, ENOENT
 * @locks inventory    @context any thread; calls the listener
 */
int kelStandinSetLink(portInstance_t instance, int up);

/** Returns 1 when the link is up, 0 when it is down, -1 when there is no such port.    @locks inventory */
int kelStandinGetLink(portInstance_t instance);

/** Gives a port another name (null: empty). Returns 0 or ENOENT.    @locks inventory */
int kelStandinRename(portInstance_t instance, const char *name);

/** Gives a port another description (null: empty). Returns 0 or ENOENT.    @locks inventory */
int kelStandinSetDescription(portInstance_t instance, const char *description);

/** Sets the station address (null: unknown, all zero). Returns 0 or ENOENT.    @locks inventory */
int kelStandinSetMac(portInstance_t instance, const uint8_t mac[6]);

/** Sets the MTU in bytes. Returns 0 or ENOENT.    @locks inventory */
int kelStandinSetMtu(portInstance_t instance, uint32_t mtu);

/** Copies what is kept about a port into @p port. Returns 0, ENOENT or EINVAL (null).    @locks inventory */
int kelStandinGetPort(portInstance_t instance, kelStandinPort *port);

/** Returns the port instance with that name (the lowest, should several have it); 0 when there is none or the name is
 * empty or null.    @locks inventory */
portInstance_t kelStandinFindPort(const char *name);

/**
 * Copies all ports and trunks, as they are at one moment, in the order of their port instances.
 *
 * @param ports  room for @p max; may be null when @p max is 0
 * @param max    records that @p ports has room for
 * @return how many there are, which may be more than @p max
 * @locks inventory    @context any thread
 */
size_t kelStandinSnapshot(kelStandinPort *ports, size_t max);

/**
 * Empties everything, for tests: ports (the listener hears nothing), listener, faults, call counts, sessions (closed),
 * trace lines. Records and trace buffers that were handed out stay valid.
 *
 * @locks each in turn    @context outside listeners and hooks, while no other thread changes the inventory
 */
void kelStandinReset(void);

/* ---- The listener ----------------------------------------------------------------------------------------------- */

/** Who hears of ports; any function may be null. Called on the thread that makes the change, with no lock held. */
typedef struct kelStandinListener {
    void (*appeared)(void *user, portInstance_t instance);            /**< the port is in the inventory */
    void (*disappeared)(void *user, portInstance_t instance);         /**< the port is still in the inventory */
    void (*linkChanged)(void *user, portInstance_t instance, int up); /**< up: 0 down, 1 up */
    void *user;                                                       /**< handed to each of them */
} kelStandinListener;

/**
 * Sets the one listener, or none when null. Ports that are there already are not told. Returns when no call of the
 * earlier listener is under way on another thread, so that its user pointer may go.
 *
 * @param listener  copied
 * @blocking until the earlier listener has returned    @locks listener
 * @context any thread, holding no lock that a listener takes; also inside a listener, then on one thread at a time
 */
void kelStandinSetListener(const kelStandinListener *listener);

/* ---- VLANs and addresses ---------------------------------------------------------------------------------------- */

/** How a port belongs to a VLAN. */
enum { KEL_STANDIN_VLAN_NONE = 0, KEL_STANDIN_VLAN_TAGGED = 1, KEL_STANDIN_VLAN_UNTAGGED = 2 };

/** Sets how a port belongs to VLAN @p vlan. Returns 0, ENOENT, EINVAL, ENOMEM.    @locks inventory */
int kelStandinSetVlan(portInstance_t instance, unsigned vlan, int membership);

/** Takes a port out of all VLANs. Returns 0 or ENOENT.    @locks inventory */
int kelStandinClearVlans(portInstance_t instance);

/** Returns how a port belongs to a VLAN; KEL_STANDIN_VLAN_NONE also when there is no such port or VLAN.
 * @locks inventory */
int kelStandinGetVlan(portInstance_t instance, unsigned vlan);

/** Returns the lowest VLAN above @p vlan that has members; 0 when there is none. 0 starts.    @locks inventory */
unsigned kelStandinNextVlan(unsigned vlan);

/** Copies the members of a VLAN in the order of their port instances; results as kelStandinSnapshot().
 * @locks inventory */
size_t kelStandinVlanMembers(unsigned vlan, portInstance_t *members, size_t max);

/** An IP address of a port. */
typedef struct kelStandinAddress {
    uint8_t bytes[16];    /**< network order; IPv4 uses the first four, the others are 0 */
    uint8_t family;       /**< AF_INET or AF_INET6 */
    uint8_t prefixLength; /**< bits */
} kelStandinAddress;

/** Adds an address to a port; one that is there already stays as it is. Returns 0, ENOENT, EINVAL, ENOMEM, ENOSPC.
 * @locks inventory */
int kelStandinAddAddress(portInstance_t instance, const kelStandinAddress *address);

/** Takes an address (all fields equal) from a port. Returns 0, ENOENT (no such port or address), EINVAL.
 * @locks inventory */
int kelStandinRemoveAddress(portInstance_t instance, const kelStandinAddress *address);

/** Takes all addresses from a port. Returns 0 or ENOENT.    @locks inventory */
int kelStandinClearAddresses(portInstance_t instance);

/** Copies the addresses of a port, in the order in which they were added; results as kelStandinSnapshot(), 0 when there
 * is no such port.    @locks inventory */
size_t kelStandinGetAddresses(portInstance_t instance, kelStandinAddress *addresses, size_t max);

/* ---- Trace buffers ---------------------------------------------------------------------------------------------- */

/** Gets one trace line: when it was written, in ns since 1970-01-01 UTC, and its text without a line end, which is
 * valid during the call. Returns 0 to stop. */
typedef int (*kelStandinTraceReader)(void *user, int64_t time, const char *text);

/**
 * Hands the lines of a trace buffer to @p reader, the oldest first, up to the line that is the newest at the start.
 * Lines that are dropped meanwhile are passed over. No lock is held while the reader runs.
 *
 * @param name    as given to emsInitTraceBuffer()
 * @param reader  gets each line
 * @param user    handed to the reader
 * @return how many lines were handed over; -1 when there is no such buffer
 * @locks the trace buffer    @context any thread
 */
int kelStandinReadTrace(const char *name, kelStandinTraceReader reader, void *user);

/* ---- CLI sessions ----------------------------------------------------------------------------------------------- */

/**
 * Opens a CLI session on a connected stream socket, which stays the caller's: close the session before the socket.
 *
 * cmNotifyCLI() sends without waiting and without SIGPIPE. What the socket does not take is kept, up to
 * KEL_STANDIN_SESSION_BACKLOG bytes, and goes out with the next text or kelStandinFlushSession(). A session whose peer
 * is gone, or that is further behind, is dead: it takes nothing any more, and its backlog is dropped.
 *
 * @return the session's handle, above 0, never one of a session closed lately; 0 when @p socket is not a socket or too
 *         many sessions are open
 * @locks sessions    @context any thread
 */
int kelStandinOpenSession(int socket);

/**
 * Opens a CLI session whose texts go to a function.
 *
 * @param sink  gets each text (not zero-terminated) on the thread of cmNotifyCLI(), with the session's lock held, so it
 *              must not call session functions; returns 0, or anything else to make the session dead
 * @param user  handed to the function
 * @return as kelStandinOpenSession()
 * @locks sessions    @context any thread
 */
int kelStandinOpenSink(int (*sink)(void *user, const char *text, size_t length), void *user);

/** Closes a session and drops its backlog; when it returns, nothing uses its socket or sink any more. Returns 0 or
 * ENOENT.    @locks sessions, the session */
int kelStandinCloseSession(int session);

/**
 * Sends what a session's socket takes of its backlog, without waiting.
 *
 * @return the bytes still kept: above 0, flush again when the socket is writable; 0 all is sent; -1 the session is
 * dead; -2 there is no such session
 * @locks the session    @context any thread
 */
long kelStandinFlushSession(int session);

/* ---- Failures and what happens between two calls ---------------------------------------------------------------- */

/** The calls of kel_platform.h. */
typedef enum kelStandinCall {
    KEL_CALL_LIF_BY_INSTANCE,   /**< vlanLibGetLifByPortInstance */
    KEL_CALL_LIF_BY_IFINDEX,    /**< vlanLibGetLifFromIfIndex */
    KEL_CALL_LIF_BY_SLOT_PORT,  /**< vlanLibGetLifBySlotPort */
    KEL_CALL_PIF_BY_INSTANCE,   /**< vlanLibGetPifByPortInstance */
    KEL_CALL_NEXT_PIF,          /**< vlanLibGetNextPifByType */
    KEL_CALL_NAME,              /**< vlanGetNameForPif */
    KEL_CALL_TRUNK_BY_INSTANCE, /**< getPifByPortInstance */
    KEL_CALL_IS_MASTER,         /**< isPortMasterOfTrunk */
    KEL_CALL_PORTLIST_NEXT,     /**< PORTLIST_GETNEXTPORT */
    KEL_CALL_PORTLIST_RESERVE,  /**< plRsrvSlotBitOffset */
    KEL_CALL_TRACE_INIT,        /**< emsInitTraceBuffer */
    KEL_CALL_TRACE_LOG,         /**< emsTraceLogf */
    KEL_CALL_NOTIFY_CLI,        /**< cmNotifyCLI */
    KEL_CALL_COUNT              /**< how many there are */
} kelStandinCall;

/** What a call that is troubled hands out as its record, name or handle. */
typedef enum kelStandinHandOut {
    KEL_HAND_OUT_TRUE, /**< what it would otherwise */
    KEL_HAND_OUT_NULL, /**< null: no record, a null name, no trace buffer */
    KEL_HAND_OUT_EMPTY /**< an empty name; a record pointer that is left as the caller had it */
} kelStandinHandOut;

/** Trouble for one call of kel_platform.h. */
typedef struct kelStandinFault {
    unsigned skip;             /**< calls that go well before it begins */
    unsigned times;            /**< calls that are troubled then; 0 all */
    int replaceResult;         /**< not 0: the call returns `result` (where it returns a number) */
    uint32_t result;           /**< "not found" is 0, the end of a port list 0xFFFFFFFF */
    kelStandinHandOut handOut; /**< for the calls that hand out something */
    /** Runs at the start of each troubled call, with no lock held: removes the port just asked for, say, or waits. May
     * be null. @p asked is the port instance, ifIndex, slot << 16 | port, or session of the call. */
    void (*hook)(void *user, uint32_t asked);
    void *user; /**< handed to hook */
} kelStandinFault;

/**
 * Troubles a call, or lets it go well again when @p fault is null. One fault a call; a new one replaces the earlier.
 *
 * @param call   which one
 * @param fault  copied
 * @return 0, EINVAL (no such call)
 * @locks faults    @context any thread
 */
int kelStandinSetFault(kelStandinCall call, const kelStandinFault *fault);

/** Returns how often a call was made since the start or kelStandinReset(), troubled or not; 0 for no such call. */
uint64_t kelStandinCallCount(kelStandinCall call);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#endif
