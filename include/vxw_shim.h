/**
 * @file vxw_shim.h
 * VxWorks-style semaphores, tasks, ticks and message queues on POSIX threads; datagram and output helpers.
 *
 * Result codes of this family:
 * 1. The semaphore and task calls return 0 or an errno value (EINVAL for a null handle), never -1.
 * 2. msgQSend() returns 0 or 1; msgQReceive() a byte count or 0xFFFFFFFF.
 * 3. recvfrom_wdst() and sendto_wsrc() return what recvmsg() and sendmsg() return, with errno.
 * 4. dbgCliPrint() and logEarly() return character counts.
 *
 * A tick is 10 ms. A time-out is an unsigned 32-bit count of ticks: 0xFFFFFFFF waits without limit, 0 does not wait.
 * Time-outs end at a deadline on the wall clock (CLOCK_REALTIME), so a step of that clock moves them; tickGet() counts
 * on the monotonic clock. Tick counts above 214748 (35 minutes) wrap in the conversion to a deadline.
 */
#ifndef VXW_SHIM_H
#define VXW_SHIM_H

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>

/* Lock annotations: checked by clang's -Wthread-safety in C++, nothing elsewhere. */
/** @cond annotations */
#if defined(__clang__) && defined(__cplusplus)
#define KEL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KEL_THREAD_ANNOTATION(x)
#endif
#define KEL_CAPABILITY(name) KEL_THREAD_ANNOTATION(capability(name))
#define KEL_SCOPED_CAPABILITY KEL_THREAD_ANNOTATION(scoped_lockable)
#define KEL_GUARDED_BY(sem) KEL_THREAD_ANNOTATION(guarded_by(sem))
#define KEL_PT_GUARDED_BY(sem) KEL_THREAD_ANNOTATION(pt_guarded_by(sem))
#define KEL_REQUIRES(sem) KEL_THREAD_ANNOTATION(requires_capability(sem))
#define KEL_ACQUIRE(sem) KEL_THREAD_ANNOTATION(acquire_capability(sem))
#define KEL_RELEASE(sem) KEL_THREAD_ANNOTATION(release_capability(sem))
#define KEL_UNCHECKED_LOCKING KEL_THREAD_ANNOTATION(no_thread_safety_analysis)
/** @endcond */

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/* Constants that ported code spells; enumerators, because a macro OK or ERROR breaks other headers. */
#ifndef KEL_NO_VX_NAMES
typedef int STATUS; /**< OK or ERROR, in the interface that ported code was written against */
enum {
#ifndef OK
    OK = 0,
#endif
#ifndef ERROR
    ERROR = -1,
#endif
#ifndef NO_WAIT
    NO_WAIT = 0,
#endif
#ifndef WAIT_FOREVER
    WAIT_FOREVER = -1,
#endif
#ifndef SEM_EMPTY
    SEM_EMPTY = 0,
#endif
#ifndef SEM_FULL
    SEM_FULL = 1,
#endif
#ifndef SEM_Q_FIFO
    SEM_Q_FIFO = 0x0,
#endif
#ifndef SEM_Q_PRIORITY
    SEM_Q_PRIORITY = 0x1,
#endif
#ifndef SEM_DELETE_SAFE
    SEM_DELETE_SAFE = 0x4,
#endif
#ifndef SEM_INVERSION_SAFE
    SEM_INVERSION_SAFE = 0x8,
#endif
#ifndef MSG_Q_FIFO
    MSG_Q_FIFO = 0x0,
#endif
#ifndef MSG_Q_PRIORITY
    MSG_Q_PRIORITY = 0x1,
#endif
#ifndef MSG_PRI_NORMAL
    MSG_PRI_NORMAL = 0,
#endif
#ifndef MSG_PRI_URGENT
    MSG_PRI_URGENT = 1,
#endif
    KEL_VX_NAMES_END /* so that the list is never empty */
};
#endif

/** A semaphore. The record outlives semDelete(): it is never freed, so that a stale handle reads defined memory. */
struct KEL_CAPABILITY("semaphore") mutex_sem {
    int kind;   /**< 0 mutual exclusion, 1 binary, 2 counting; set at creation */
    void *impl; /**< heap pthread_mutex_t (kind 0) or sem_t (kinds 1 and 2); owned */
};
typedef struct mutex_sem *SEM_ID; /**< the handle of a semaphore */

/** A record that nothing reads or writes; it stays because processes linked earlier import its name. */
extern struct mutex_sem mutex_sem_t;

/** Entry routine of a task. It is called with one null argument. */
#ifdef __cplusplus
typedef int (*FUNCPTR)(...);
#else
typedef int (*FUNCPTR)(); /* NOLINT: any argument list, as in the interface that ported code was written against */
#endif

/**
 * Creates a binary semaphore.
 *
 * It is a plain counting semaphore underneath and is not capped at 1: two gives let two takes through.
 *
 * @param options       ignored
 * @param initialState  initial count: SEM_EMPTY or SEM_FULL; larger counts are taken as they are
 * @return the semaphore, to be ended with semDelete(); null when memory is short or the count is above SEM_VALUE_MAX
 * @blocking no    @locks nothing    @context any thread
 */
SEM_ID semBCreate(int options, unsigned int initialState);

/**
 * Creates a counting semaphore.
 *
 * @param options       ignored
 * @param initialCount  takes that go through before the first give
 * @return the semaphore, to be ended with semDelete(); null when memory is short or the count is above SEM_VALUE_MAX
 * @blocking no    @locks nothing    @context any thread
 */
SEM_ID semCCreate(int options, unsigned int initialCount);

/**
 * Creates a mutual-exclusion semaphore: recursive, free, owned by the thread that takes it.
 *
 * @param options  ignored; there is no priority inheritance and no deletion safety
 * @return the semaphore, to be ended with semDelete(); null when memory is short
 * @blocking no    @locks nothing    @context any thread
 */
SEM_ID semMCreate(int options);

/**
 * Gives a semaphore: adds 1 to a count, or undoes one take of a mutual-exclusion semaphore.
 *
 * @param sem  from semBCreate(), semCCreate() or semMCreate(), and not deleted
 * @retval 0          given
 * @retval EINVAL     @p sem is null (a line on standard output says so) or has no lock behind it
 * @retval EPERM      a mutual-exclusion semaphore that the calling thread does not own
 * @retval EOVERFLOW  the count is at SEM_VALUE_MAX
 * @blocking no    @locks nothing    @context any thread; for counts a signal handler as well
 */
int semGive(SEM_ID sem);

/**
 * Takes a semaphore, waiting at most @p timeout ticks for it.
 *
 * A mutual-exclusion semaphore is recursive: its owner gives it as often as it took it.
 *
 * @param sem      from semBCreate(), semCCreate() or semMCreate(), and not deleted
 * @param timeout  ticks of 10 ms; 0 tries once, WAIT_FOREVER has no limit. Above 214748 (35 minutes) it wraps: a
 *                 product of ticks and 10,000 that is negative as a 32-bit number is a deadline in the past.
 * @retval 0          taken
 * @retval EINVAL     @p sem is null (a line on standard output says so) or is a mutex without a lock behind it
 * @retval EBUSY      tried once: another thread owns the mutual-exclusion semaphore
 * @retval EAGAIN     tried once: the count is 0; or the owner took a mutual-exclusion semaphore too often
 * @retval ETIMEDOUT  nobody gave it in time
 * @retval EINTR      a signal handler ran while waiting for a count; the wait is not restarted
 * @blocking unless timeout is 0    @locks nothing    @context any thread
 */
int semTake(SEM_ID sem, unsigned int timeout);

/**
 * Ends a semaphore. Nobody may be waiting for it, and the handle must not be used again.
 *
 * @param sem  from semBCreate(), semCCreate() or semMCreate(), and not deleted
 * @retval 0       ended; the record itself stays allocated on purpose
 * @retval EINVAL  @p sem is null (nothing is printed) or is a mutex without a lock behind it
 * @retval EBUSY   a mutual-exclusion semaphore that was still held; its memory is released all the same
 * @blocking no    @locks nothing    @context any thread
 */
int semDelete(SEM_ID sem);

/**
 * Shows nothing: kept for code that calls it. @p sem and @p level are ignored.
 *
 * @blocking no    @locks nothing    @context any thread
 */
void semShow(SEM_ID sem, int level);

/**
 * Starts a task: a joinable POSIX thread that nobody joins.
 *
 * The thread library keeps the stack of a task that has returned; after about 32,000 finished tasks no more start.
 *
 * @param name,priority,options  ignored
 * @param stackSize  bytes; three times as much (a signed 32-bit product) is requested, 0 asks for the default. A size
 *                   that the thread library refuses gives the default stack: on arm64 a product below 128 KiB,
 *                   everywhere one that is too large or negative.
 * @param entry      runs in the new thread, with one null argument; its result is ignored
 * @param arg1,arg2,arg3,arg4,arg5,arg6,arg7,arg8,arg9,arg10  ignored
 * @retval 0       started; this is not a task identifier
 * @retval EAGAIN  no memory or too many threads
 * @blocking no    @locks nothing    @context any thread
 */
int taskSpawn(const char *name, int priority, int options, int stackSize, FUNCPTR entry, int arg1, int arg2, int arg3,
              int arg4, int arg5, int arg6, int arg7, int arg8, int arg9, int arg10);

/**
 * Sleeps.
 *
 * @param ticks  ticks of 10 ms; the microseconds are a 32-bit product, so counts above 429496 wrap
 * @return always 0, also when a signal handler ended the sleep early
 * @blocking yes    @locks nothing    @context any thread
 */
int taskDelay(unsigned int ticks);

/**
 * Returns the ticks in a second: always 100.
 *
 * @blocking no    @locks nothing    @context any thread
 */
int sysClkRateGet(void);

/**
 * Reads the tick clock.
 *
 * @return ticks of 10 ms on the monotonic clock, counted from an arbitrary origin (usually boot); wraps after 497 days;
 *         0 when the clock cannot be read
 * @blocking no    @locks nothing    @context any thread, signal handlers too
 */
uint32_t tickGet(void);

/** A fixed-size message queue: a bounded ring of slots for messages up to one length. Opaque. */
typedef struct msg_q *MSG_Q_ID;

/**
 * Creates a fixed-size message queue. It lives until the process ends: no call deletes it.
 *
 * The memory of all slots, maxMessages * (maxMessageLength + 4) bytes, is taken here. That product is a signed 32-bit
 * number: one that wraps to a positive value gives memory for the first slots only, and a message that would go into
 * another slot is refused.
 *
 * @param maxMessages       messages it holds, above 0
 * @param maxMessageLength  bytes of the longest message, above 0
 * @param options           ignored; messages leave in the order in which they came
 * @return the queue; null when a number is not above 0, when the product is negative and when memory is short
 * @blocking no    @locks nothing    @context any thread
 */
MSG_Q_ID msgQCreate(int maxMessages, int maxMessageLength, int options);

/**
 * Sends a message, waiting at most @p timeout ticks for a free slot.
 *
 * @param queue     from msgQCreate(); not checked for null
 * @param message   copied; not read when @p bytes is 0
 * @param bytes     0 up to the queue's longest message
 * @param timeout   ticks of 10 ms, as for semTake(): 0 tries once, WAIT_FOREVER has no limit
 * @param priority  ignored
 * @retval 0  sent
 * @retval 1  not sent: the message is too long (at once, whatever the time-out), the queue stayed full, or the slot has
 *            no memory behind it
 * @blocking unless timeout is 0    @locks the queue    @context any thread
 */
int msgQSend(MSG_Q_ID queue, const void *message, unsigned int bytes, unsigned int timeout, int priority);

/**
 * Receives the oldest message, waiting at most @p timeout ticks for one.
 *
 * @param queue    from msgQCreate(); not checked for null
 * @param buffer   out: the message's first bytes; the rest of a longer message is lost
 * @param size     bytes of @p buffer
 * @param timeout  ticks of 10 ms, as for semTake(): 0 tries once, WAIT_FOREVER has no limit
 * @return the bytes copied, 0 for an empty message; 0xFFFFFFFF when no message came
 * @blocking unless timeout is 0    @locks the queue    @context any thread
 */
unsigned int msgQReceive(MSG_Q_ID queue, void *buffer, unsigned int size, unsigned int timeout);

/**
 * Prints a queue's fields and what is wrong with them on standard output. An empty message is reported as an error.
 *
 * @param queue  from msgQCreate(); not checked for null
 * @return the result of unlocking: 0
 * @blocking as standard output does    @locks the queue    @context any thread
 */
int msgQDumpDebug(MSG_Q_ID queue);

/**
 * The local side of a datagram: interface and address, laid out as the platform's packet information.
 *
 * | Family | bytes 0-3       | 4-7                     | 8-11         | 12-15         | 16-19           |
 * |--------|-----------------|-------------------------|--------------|---------------|-----------------|
 * | IPv4   | interface index | 0 (not used on sending) | address      | 0             | 0               |
 * | IPv6   | address 0-3     | address 4-7             | address 8-11 | address 12-15 | interface index |
 *
 * Interface indexes are in native byte order, addresses in network order. The address is where a received packet was
 * sent to, and where a packet that is sent comes from. As in in_pktinfo (12 bytes, then zeros) and in6_pktinfo.
 */
union packet_info {
    struct {
        uint32_t ifindex;
        uint8_t specific_destination[4];
        uint8_t address[4];
        uint8_t zero[8];
    } ipv4; /**< of an IPv4 packet */
    struct {
        uint8_t address[16];
        uint32_t ifindex;
    } ipv6;            /**< of an IPv6 packet */
    uint8_t bytes[20]; /**< of either */
};

/**
 * Receives a datagram, and the local address and interface it arrived on.
 *
 * The caller has enabled IP_PKTINFO or IPV6_RECVPKTINFO on the socket; no option is set here. The family of the record
 * is that of the source address, so without @p source there is no record.
 *
 * @param socket       a datagram socket
 * @param buffer       out: the datagram
 * @param length       bytes of @p buffer; must not be negative
 * @param flags        as for recvmsg()
 * @param source       out: where the datagram came from; may be null. At least its sa_family must be readable.
 * @param sourceBytes  in: bytes of @p source; out: bytes of the address. May be null, which counts as 0 bytes.
 * @param info         out: cleared, then filled; untouched when nothing was received, when @p source is null, when no
 *                     control data came or when it was truncated. May be null.
 * @return the result of recvmsg(): the bytes received, or negative with errno set
 * @blocking as recvmsg()    @locks nothing    @context any thread
 */
ssize_t recvfrom_wdst(int socket, void *buffer, int length, int flags, struct sockaddr *source, socklen_t *sourceBytes,
                      union packet_info *info);

/**
 * Sends a datagram from a chosen local address and interface.
 *
 * Which bytes of the record count depends on the destination: the IPv4 line of its table for an IPv4 address; for an
 * IPv6 address the IPv6 line. For an IPv4-mapped IPv6 address it is the IPv6 line as well, of whose address the last
 * four bytes are the IPv4 address. Linux chooses the source from the specific destination of IPv4 packet information,
 * which a plain IPv4 destination leaves 0: there the interface is chosen, and the address only on the mapped way.
 *
 * @param socket            a datagram socket
 * @param buffer            the datagram
 * @param length            bytes of @p buffer; must not be negative
 * @param flags             as for sendmsg()
 * @param destination       where to; may be null on a connected socket, and then @p info is not looked at
 * @param destinationBytes  bytes of @p destination
 * @param info              where from; null leaves that to the kernel
 * @return the result of sendmsg(): the bytes sent, or negative with errno set
 * @blocking as sendmsg()    @locks nothing    @context any thread
 */
ssize_t sendto_wsrc(int socket, const void *buffer, int length, int flags, const struct sockaddr *destination,
                    socklen_t destinationBytes, const union packet_info *info);

/**
 * Formats a text into a line buffer; a full buffer is sent first, to standard output or to a CLI session.
 *
 * The caller owns all state: it zero-fills the array, starts with `*cursor == buf` and `*remaining == bufSize`, and
 * after its last call sends what is left (when `*remaining < bufSize`).
 *
 * @param buf        array of @p bufSize bytes; holds a zero-terminated text at any time
 * @param bufSize    bytes, terminator included
 * @param cursor     in, out: next free byte of @p buf
 * @param remaining  in, out: bytes from the cursor to the end of @p buf
 * @param cli        0: standard output; otherwise a session for the platform's cmNotifyCLI()
 * @param format     as for printf
 * @return the characters of the text as formatted last; negative on a formatting error, with nothing changed. A text of
 *         @p bufSize characters or more never fits: it is dropped and the cursor stays.
 *         After the full buffer was sent the text is formatted again. That gives 0 for one that has grown too long
 *         meanwhile; then, and when only this formatting fails, the buffer counts as empty.
 * @blocking as the output does    @locks nothing    @context any thread, one at a time for a buffer
 */
int dbgCliPrint(char *buf, size_t bufSize, char **cursor, size_t *remaining, int cli, const char *format, ...)
    __attribute__((format(printf, 6, 7)));

/**
 * memset() with a signed count.
 *
 * @param destination  array of at least @p count bytes
 * @param value        only its low 8 bits are used
 * @param count        bytes; must not be negative
 * @return @p destination
 * @blocking no    @locks nothing    @context any thread
 */
void *fast_memset(void *destination, int value, int count);

/**
 * Clears @p count bytes, which must not be negative. Unlike bzero() it returns @p destination.
 *
 * @blocking no    @locks nothing    @context any thread
 */
void *fast_bzero(void *destination, int count);

/**
 * memcpy() with a signed @p count of bytes, which must not be negative; returns @p destination. No overlap.
 *
 * @blocking no    @locks nothing    @context any thread
 */
void *fast_memcpy(void *destination, const void *source, int count);

/**
 * memcmp() with a signed @p count of bytes, which must not be negative; returns below, equal to or above 0.
 *
 * @blocking no    @locks nothing    @context any thread
 */
int fast_memcmp(const void *left, const void *right, int count);

#ifdef __cplusplus
}

/**
 * Prints one line "module|level: text" on standard output.
 *
 * @param module  number of the part that reports; the library itself is 2
 * @param level   0 gravest to 5; above 5 nothing is printed
 * @param format  as for printf; the text is cut to 1023 characters
 * @return the characters of the text, at most 1023; 1023 on a formatting error (an empty text is printed); 0 if
 *         suppressed
 * @blocking as standard output does    @locks nothing    @context any thread; a line is one printf
 */
int logEarly(int module, int level, const char *format, ...) __attribute__((format(printf, 3, 4)));

/**
 * Returns the end of physical memory: all ones, because there is no memory map to report.
 *
 * @blocking no    @locks nothing    @context any thread
 */
char *sysPhysMemTop();

static_assert(sizeof(packet_info) == 20, "processes linked earlier rely on it");
static_assert(sizeof(mutex_sem) == 16 && offsetof(mutex_sem, impl) == 8, "processes linked earlier rely on it");
#endif
#pragma GCC visibility pop

#endif
