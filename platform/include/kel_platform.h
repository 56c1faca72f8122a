/**
 * @file kel_platform.h
 * Everything that libkel_utils asks of the switch platform, and nothing else. A switch vendor implements this header.
 *
 * libkel_utils leaves these functions undefined (the two bit scans aside) and takes them through the dynamic linker, so
 * a definition in the executable wins over the one in the platform library. All have C linkage.
 *
 * Port instances: the platform's 32-bit port handles. The top byte is the interface type: 0 slot port, 1 trunk. A slot
 * port is `slot << 16 | port`; a DmPortMask has the same form. 0 is no port.
 * Records handed out must stay readable while the process lives. They are read without a lock: a platform whose ports
 * change hands out another record (the stand-in does), or changes a record in whole aligned words.
 * Unless said otherwise a call comes from any thread, holding no lock of the library; the dump of the port map alone
 * calls while it holds the port map's lock, so no call may wait for a thread that is inside the library.
 */
#ifndef KEL_PLATFORM_H
#define KEL_PLATFORM_H

#include <stddef.h>
#include <stdint.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t portInstance_t; /**< the platform's handle of an interface; 0 none */

/** A physical interface or a trunk. */
typedef struct pif_ {
    portInstance_t portInstance;       /**< type in the top byte: 0 slot port, 1 trunk */
    uint32_t ifIndex;                  /**< SNMP interface index; 0 none */
    portInstance_t trunkPortInstance;  /**< non-zero: member of that trunk */
    portInstance_t masterPortInstance; /**< trunks: the member that stands for the trunk */
    uint16_t slot;                     /**< 1 and up; 0 none */
    uint16_t port;                     /**< 1 to 128 within the slot; 0 none */
} pif_;

/** A set of ports, as the platform passes it around. Port p of a slot is bit (p - 1) % 32, counted from the most
 * significant, of word (offset - 1) + ((p - 1) / 32) % 4. */
typedef struct portlist_t {
    uint8_t header[4];       /**< the platform's own; the library leaves it alone */
    uint8_t slotOffset[256]; /**< by slot number: 1-based index of the slot's first word; 0 none reserved */
    uint32_t words[4 * 64];  /**< 4 words (128 ports) a reserved slot */
} portlist_t;

/** Finds an interface by port instance. Called by the port callbacks (on the platform's thread), the conversions, the
 * name calls, the port-list calls and the dump; 0 may be asked.
 * @param instance  a port instance
 * @param record    out: the interface's record, or null
 * @return non-zero when found; 0 counts as "no such port" */
int vlanLibGetLifByPortInstance(portInstance_t instance, pif_ **record);

/** Finds an interface by ifIndex; null when there is none. Called by the conversions, the name calls and the dump;
 * 0 may be asked. */
pif_ *vlanLibGetLifFromIfIndex(uint32_t ifIndex);

/** Finds an interface by slot and port. Called by the conversions, the name calls and the dump.
 * @param slot,port  1 and up; slot 1 with port 0 may be asked
 * @param record     out: the interface's record, or null
 * @return 1 when found; one caller takes nothing but exactly 1 for success */
int vlanLibGetLifBySlotPort(uint32_t slot, uint32_t port, pif_ **record);

/** Finds a physical interface by port instance or DmPortMask; results as vlanLibGetLifByPortInstance(). Called by the
 * conversions from a DmPortMask. */
int vlanLibGetPifByPortInstance(portInstance_t instanceOrMask, pif_ **record);

/** Walks the interfaces of one type in the order of their port instances. Called by the get-next calls and the dump.
 * @param key   a port instance, which need not exist; 0 starts
 * @param type  top byte of the instances wanted; the library asks for 0
 * @return the first record behind @p key, or null at the end */
pif_ *vlanLibGetNextPifByType(portInstance_t key, int type);

/** Writes an interface's name, zero-terminated, into @p buf of @p len bytes (at least 1). Called by the name calls, the
 * add callback and the dump.
 * @return @p buf; an empty text when the name is unknown. Null counts as empty. */
char *vlanGetNameForPif(const pif_ *record, char *buf, size_t len);

/** Finds a trunk's record, whose masterPortInstance is then read. Called by getMasterPortInstance_t().
 * @return exactly 1 on success; anything else counts as failure */
int getPifByPortInstance(portInstance_t trunk, pif_ **record);

/** Returns exactly 1 when this trunk member stands for its trunk; anything else counts as no. Called for records
 * with a trunkPortInstance, by getBestPortInstanceForPif(), the conversions from a DmPortMask, the get-next calls and
 * the dump. */
int isPortMasterOfTrunk(const pif_ *record);

/** Walks the ports of a list in the order of their port instances. Called by getSystemPortsFromPortList().
 * @param list      a list
 * @param previous  the port instance found last; 0xFFFFFFFF starts
 * @return the next port instance; 0xFFFFFFFF at the end */
portInstance_t PORTLIST_GETNEXTPORT(portlist_t *list, portInstance_t previous);

/** Reserves a slot's four words in a list; the caller stores the result as the slot's offset. Called by the calls that
 * add to a port list, for slots up to 255 that have none.
 * @return the 1-based index of the slot's first word; 0 when there is no room */
unsigned plRsrvSlotBitOffset(portlist_t *list, unsigned slot, const pif_ *record);

/** Opens a trace buffer that keeps the latest @p size bytes of lines. Called by the port map's constructor, once a
 * table.
 * @param name   of the buffer
 * @param size   bytes of lines it keeps
 * @param flags  0
 * @return a handle for emsTraceLogf(); null is passed on as it is */
void *emsInitTraceBuffer(const char *name, unsigned size, int flags);

/** Appends one line to a trace buffer (a null buffer takes nothing). Called by addPortInst() and the port callbacks.
 * Must not block. */
void emsTraceLogf(void *buffer, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));

/** Shows a text on a management command-line session. Called by dbgCliPrint(), so also in the middle of the
 * port map's dump, and at its end. Must not block for long, however slow the session is.
 * @param cli   the session; never 0
 * @param text  zero-terminated
 * @return ignored */
int cmNotifyCLI(int cli, const char *text);

/** Returns the leading zeros of a non-zero word: the first set bit, counted from the most significant. */
static inline int bitarray_scanbit(uint32_t word)
{
    return __builtin_clz(word);
}

/** Returns the leading ones of a word that is not all ones: the first clear bit, counted from the most significant. */
static inline int bitarray_scanclrbit(uint32_t word)
{
    return __builtin_clz(~word);
}

#ifdef __cplusplus
}
static_assert(sizeof(pif_) == 20 && offsetof(portlist_t, words) == 260, "the list's layout is the platform's");
#endif
#pragma GCC visibility pop

#endif
