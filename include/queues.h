/**
 * @file queues.h
 * Event and message queues whose wake-ups can be held back and delivered in batches by one timer task.
 *
 * Result codes of this family:
 * 1. Sends return 0, or -1 when nothing was queued.
 * 2. A multi-event receive or look returns 0; -1 when there is nothing; -2 when there is something and its data changed
 *    while it was queued.
 * 3. A variable-length receive returns the bytes copied, or -1.
 * 4. C entry points that are given null or a queue of another kind return -1; sizes and counts return 0, creators null.
 * 5. kel_utils_init() returns 0 or the errno value of a failed spawn.
 *
 * Times are in ticks of 10 ms; a time-out of -1 waits without limit, 0 does not wait. One lock of the process,
 * SBaseQ::lockSem, guards all queues: every call may be made from any thread at any time, except that a queue is
 * deleted once, when nobody else uses it any more, and not by a caller that holds that lock.
 *
 * Batching: a queue with a maximum delay holds its wake-ups back until as many messages are queued as its receive
 * threshold says, or until the delay since the first of them is over. The receiver then gets all of them at once.
 */
#ifndef QUEUES_H
#define QUEUES_H

#include "vxw_shim.h"

/* From the first mention of a class on: a class that is hidden when first named stays hidden. */
#pragma GCC visibility push(default)
#ifdef __cplusplus
class CBitMask;
class SBaseQ;
class SMultiEventQ;
class SMsgQueueX;
#else
typedef struct SBaseQ SBaseQ;
typedef struct SMultiEventQ SMultiEventQ;
typedef struct SMsgQueueX SMsgQueueX;
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Starts the library: creates the queues' lock and spawns their timer task. A client calls it once, before its first
 * queue; without it queues work unlocked and nothing that is held back is ever delivered by time.
 *
 * Memory that is short for the lock or the task's semaphore is not reported: queues then work unlocked, or the task
 * never sleeps, delivers nothing and prints a line each time.
 *
 * @retval 0       the timer task runs
 * @retval EAGAIN  the timer task could not be spawned
 * @blocking no    @locks nothing    @context one thread, before any other uses the library
 */
int kel_utils_init(void);

/**
 * Creates a multi-event queue with batching.
 *
 * @param width         bytes of data an event carries: 0, 1, 2 or 4
 * @param numEvents     event ids are 0 to @p numEvents - 1
 * @param pendOption    order in which waiting tasks are served; without effect
 * @param rxThreshold   queued events that end the holding back; 1 or less: never held back
 * @param maxDelay      ticks for which a wake-up may be held back; 0: never held back; negative: until the timer task
 *                      runs. Above 214748 (35 minutes), where tick products wrap, that task polls instead of sleeping.
 * @param externalFlag  also given when the receiver is to wake; null: none. The caller's: it must outlive the queue.
 * @return the queue, to be ended with meqDelete(); null for another @p width or no events. A failed allocation lets the
 *         allocator's exception pass, so C callers are compiled with -fexceptions.
 * @blocking no    @locks the queues' lock    @context any thread
 */
SMultiEventQ *meqCreateX(int width, unsigned short numEvents, int pendOption, int rxThreshold, int maxDelay,
                         SEM_ID externalFlag);

/**
 * Creates a multi-event queue that holds nothing back; parameters and result as for meqCreateX().
 *
 * @blocking no    @locks the queues' lock    @context any thread
 */
SMultiEventQ *meqCreate(int width, unsigned short numEvents, SEM_ID externalFlag);

/**
 * Ends a queue. Nobody may be waiting on it, or use it again. Does nothing for null or another kind of queue.
 *
 * @blocking until the timer task is done with it    @locks the queues' lock    @context any that does not hold the lock
 */
void meqDelete(SMultiEventQ *queue);

/**
 * Returns the bytes a queue occupies, or 0 for null or another kind of queue.
 *
 * @blocking no    @locks the queues' lock    @context any thread
 */
unsigned int meqSize(SMultiEventQ *queue);

/**
 * Looks at an event without receiving it.
 *
 * @param queue  from meqCreate() or meqCreateX()
 * @param event  an event id
 * @param data   out: its data as stored, also when it is not queued; untouched for an id that is out of range
 * @retval 0   queued
 * @retval -1  not queued, out of range, or not such a queue
 * @retval -2  queued, and its data changed meanwhile
 * @blocking no    @locks the queues' lock    @context any thread
 */
int meqSnoop(SMultiEventQ *queue, unsigned short event, unsigned int *data);

/**
 * Receives the oldest event without waiting: meqRecvX() with a time-out of 0.
 *
 * @blocking no    @locks the queues' lock    @context any thread
 */
int meqRecv(SMultiEventQ *queue, unsigned short *event, unsigned int *data);

/**
 * Receives the oldest event.
 *
 * A receiver that finds nothing signalled takes what is being held back, so polling sees events at once.
 *
 * @param queue    from meqCreate() or meqCreateX()
 * @param event    out: its id; untouched when nothing was signalled
 * @param data     out: its data, 0 for a queue of width 0; untouched unless an event is received
 * @param timeout  ticks; -1 waits without limit. With an external flag it never waits: the caller has waited on that.
 * @retval 0   received
 * @retval -1  nothing in time, a signal handler ran, or not such a queue
 * @retval -2  received, and its data changed while it was queued
 * @blocking unless @p timeout is 0 or there is an external flag    @locks the queues' lock    @context any thread
 */
int meqRecvX(SMultiEventQ *queue, unsigned short *event, unsigned int *data, int timeout);

/**
 * Sends an event: meqSendXY() with all bits compared and written, and no urgency.
 *
 * @blocking no    @locks the queues' lock    @context any thread
 */
int meqSend(SMultiEventQ *queue, unsigned short event, unsigned int data);

/**
 * Sends an event with urgency: meqSendXY() with all bits compared and written.
 *
 * @blocking no    @locks the queues' lock    @context any thread
 */
int meqSendY(SMultiEventQ *queue, unsigned short event, unsigned int data, int urgency);

/**
 * Sends an event under two masks: meqSendXY() without urgency.
 *
 * @blocking no    @locks the queues' lock    @context any thread
 */
int meqSendX(SMultiEventQ *queue, unsigned short event, unsigned int data, unsigned int cmpMask, unsigned int wrMask);

/**
 * Sends an event. One that is still queued is not queued again: its data is updated in place and nobody is woken.
 *
 * @param queue    from meqCreate() or meqCreateX()
 * @param event    0 to one less than the queue's number of events
 * @param data     cut to the queue's width when stored
 * @param cmpMask  bits that count as a change of the data of an event that is still queued
 * @param wrMask   bits that replace those of an event that is still queued; a newly queued event stores 0 elsewhere
 * @param urgency  2 or more wakes the receiver at once, with all that is held back
 * @retval 0   queued, or merged into the queued one
 * @retval -1  no such event, or not such a queue
 * @blocking no    @locks the queues' lock    @context any thread
 */
int meqSendXY(SMultiEventQ *queue, unsigned short event, unsigned int data, unsigned int cmpMask, unsigned int wrMask,
              int urgency);

/**
 * Creates a variable-length message queue whose blocked senders go on after every receive.
 *
 * @param maxMsgs       messages it holds, at least 1
 * @param maxMsgLength  bytes a message may have, at least 1. Lengths are kept in 16 bits: of a message above 65535
 * bytes the receiver gets the length modulo 65536. The product with @p maxMsgs is taken in 32 bits: a negative one
 * gives a queue on which everything fails, a wrapped one a queue whose last slots refuse their message.
 * @param pendOption    order in which waiting tasks are served; without effect
 * @param rxThreshold   queued messages that end the holding back, at most @p maxMsgs; 0 or 1: never held back
 * @param maxDelay      ticks for which a wake-up may be held back; 0: never held back. Above 214748 (35 minutes), where
 *                      tick products wrap, the timer task polls instead of sleeping.
 * @param externalFlag  also given when the receiver is to wake; null: none. The caller's: it must outlive the queue.
 * @return the queue, to be ended with msgQxDelete(); null for a parameter out of range. Memory for the messages that is
 *         not to be had prints a line and gives a queue on which everything fails; for the queue object itself it lets
 *         the allocator's exception pass, so C callers are compiled with -fexceptions.
 * @blocking no    @locks the queues' lock    @context any thread
 */
SMsgQueueX *msgQxCreate(int maxMsgs, int maxMsgLength, int pendOption, int rxThreshold, int maxDelay,
                        SEM_ID externalFlag);

/**
 * Creates a variable-length message queue whose blocked senders go on when it has drained far enough.
 *
 * @copydetails msgQxCreate
 * @param txThreshold  once the queue was full, senders go on when it has drained to this many messages; above
 *                     @p maxMsgs it means @p maxMsgs, negative values are refused
 */
SMsgQueueX *msgQxCreateX(int maxMsgs, int maxMsgLength, int pendOption, int rxThreshold, int txThreshold, int maxDelay,
                         SEM_ID externalFlag);

/**
 * Ends a queue. Nobody may be waiting on it, or use it again. Does nothing for null or another kind of queue.
 *
 * @blocking until the timer task is done with it    @locks the queues' lock    @context any that does not hold the lock
 */
void msgQxDelete(SMsgQueueX *queue);

/**
 * Returns the messages queued at some moment of the call, or 0 for null or another kind of queue; takes no lock.
 *
 * @blocking no    @locks nothing    @context any thread
 */
int msgQxNumMsgs(SMsgQueueX *queue);

/**
 * Returns the bytes a queue occupies, or 0 for null or another kind of queue; takes no lock.
 *
 * @blocking no    @locks nothing    @context any thread
 */
unsigned int msgQxSize(SMsgQueueX *queue);

/**
 * Sends a message; its bytes are copied.
 *
 * @param queue    from msgQxCreate() or msgQxCreateX()
 * @param msg      @p len bytes
 * @param len      0 to the queue's maximum length
 * @param timeout  ticks for which to wait for the senders' turn; only -1 also waits for room in a full queue
 * @param flags    bit 0: the message goes to the front and is received next; 2 or more: wakes the receiver at once
 * @retval 0   queued
 * @retval -1  refused, no turn or no room in time, a signal handler ran, or not such a queue
 * @blocking unless @p timeout is 0    @locks the queues' lock    @context any thread
 */
int msgQxSend(SMsgQueueX *queue, const char *msg, int len, int timeout, int flags);

/**
 * Receives the first message. One that is longer than @p maxLen is cut, and the rest is lost.
 *
 * A receiver that finds nothing signalled takes what is being held back, so polling sees messages at once.
 *
 * @param queue    from msgQxCreate() or msgQxCreateX()
 * @param buf      room for @p maxLen bytes; untouched beyond those copied
 * @param maxLen   bytes wanted at most; negative ones are refused
 * @param timeout  ticks; -1 waits without limit. With an external flag it never waits: the caller has waited on that.
 * @return bytes copied; -1 when there was nothing in time, a signal handler ran, or it is not such a queue
 * @blocking unless @p timeout is 0 or there is an external flag    @locks the queues' lock    @context any thread
 */
int msgQxRecv(SMsgQueueX *queue, char *buf, int maxLen, int timeout);

/**
 * Prints the state that all queues share, then that of one queue, on standard output.
 *
 * @param queue  any queue; null prints the shared state only
 * @param flag   1 adds the queue's place in the aging list
 * @return the last printf() result
 * @blocking as standard output does    @locks the queues' lock, not while printing    @context any thread
 */
int baseQShow(SBaseQ *queue, int flag);

/**
 * Prints what baseQShow() prints and, for a multi-event queue, its own state; parameters and result as there.
 *
 * @blocking as the output does    @locks the queues' lock    @context any thread
 */
int meqShow(SMultiEventQ *queue, int flag);

/**
 * Prints what baseQShow() prints and, for a variable-length queue, its own state; parameters and result as there.
 *
 * @blocking as the output does    @locks the queues' lock    @context any thread
 */
int msgQxShow(SMsgQueueX *queue, int flag);

extern SMsgQueueX *msg_q_x_test_id; /**< the queue of msg_q_x_test_start(); null until started */
extern SEM_ID msg_q_x_test_sem;     /**< its external flag */

#ifdef __cplusplus
} // extern "C"

/**
 * What all queues share: the receiver's semaphore, the ring indices, and a place in the aging list.
 *
 * Batching by time works through one list of all queues that hold something back, in order of expiry. Each queue keeps
 * the ticks by which it expires after the one before it; the timer task sleeps until the first is due, takes all that
 * are due off the list and gives their semaphores.
 *
 * May run together: everything but construction and destruction. A queue that is being destroyed is used by nobody
 * else.
 */
class SBaseQ
{
public:
    SEM_ID cflag;                       /**< one give for each message that the receiver may take; owned, set once */
    mutex_sem *externalFlag;            /**< given once for each batch of gives; null: none. The creator's; set once */
    int empty;                          /**< 1: nothing is queued; under lockSem, also read without it */
    int queueSize;                      /**< slots of the ring; set once */
    int pRead;                          /**< slot to be read next; under lockSem, also read without it */
    int pWrite;                         /**< slot to be written next; under lockSem, also read without it */
    int rxThreshold;                    /**< queued messages that end the holding back; set once */
    int maxDelay;                       /**< ticks for which gives may be held back; 0: not at all. Set once */
    uint32_t magic;                     /**< which kind of queue this is; set once */
    bool aging KEL_GUARDED_BY(lockSem); /**< it is in the aging list */
    bool expired KEL_GUARDED_BY(lockSem);    /**< the timer task has taken it off the list and is giving */
    SBaseQ *agePrev KEL_GUARDED_BY(lockSem); /**< while aging: the queue before, null for the first; else stale */
    SBaseQ *ageNext; /**< while aging: the queue behind, under lockSem; while expired: the timer task's; else stale */
    int ageTtl
        KEL_GUARDED_BY(lockSem); /**< while aging: ticks after agePrev's expiry, or after sleepStart; else stale */
    int delayedGives; /**< gives of cflag held back; under lockSem, but the timer task's alone while expired */
    uint32_t queueId; /**< serial number, from 1; set once */

    static SEM_ID lockSem;                               /**< guards all queues and the aging list; recursive */
    static SEM_ID timerSig;                              /**< wakes the timer task before its time; set once */
    static int taskId;                                   /**< result of spawning the timer task; set once */
    static SBaseQ *head KEL_GUARDED_BY(lockSem);         /**< first to expire; null when nothing ages */
    static SBaseQ *tail KEL_GUARDED_BY(lockSem);         /**< last to expire; null when nothing ages */
    static int headTime KEL_GUARDED_BY(lockSem);         /**< ticks from sleepStart to head's expiry; 0 when empty */
    static int tailTime KEL_GUARDED_BY(lockSem);         /**< ticks from sleepStart to tail's expiry; 0 when empty */
    static int sleepStart KEL_GUARDED_BY(lockSem);       /**< tick from which the list's times count */
    static uint32_t numQueues KEL_GUARDED_BY(lockSem);   /**< queues ever made; only grows */
    static uint32_t timeoutNull KEL_GUARDED_BY(lockSem); /**< times the timer task had nothing to sleep for */

    /**
     * Makes an empty queue without a ring. A semaphore that cannot be created prints a line and leaves a queue that
     * cannot signal.
     *
     * @param slots,pendOption,delay,threshold,flag  as for msgQxCreate(): the maximum delay before the threshold
     * @blocking no    @locks lockSem    @context any thread
     */
    SBaseQ(int slots, int pendOption, int delay, int threshold, mutex_sem *flag);

    SBaseQ(const SBaseQ &) = delete;
    SBaseQ &operator=(const SBaseQ &) = delete;

    /**
     * Takes the queue off the aging list, delivers what it holds back, and ends its semaphore. Leaves the external
     * flag.
     *
     * @blocking until the timer task has let go of the queue    @locks lockSem    @context any that does not hold it
     */
    virtual ~SBaseQ();

    /** Returns the bytes that the queue occupies; derived queues add their arrays. */
    virtual unsigned int size();

    /** Takes the lock of all queues, without limit; recursive. Does nothing before init(). */
    static void lock() KEL_ACQUIRE(lockSem);
    /** Gives the lock of all queues. Does nothing before init(). */
    static void unLock() KEL_RELEASE(lockSem);

    /** Creates the lock and the timer's semaphore and spawns the timer task; see kel_utils_init(). */
    static int init();

    /**
     * Holds one give back: puts the queue on the aging list if it is not there. While the timer task is delivering the
     * queue, gives at once instead.
     *
     * @param caller  1: a sender; without effect
     * @blocking no    @locks lockSem    @context any thread
     */
    void age_start(int caller);

    /**
     * Takes the queue off the aging list and gives all that was held back; leaves that to the timer task while it is
     * delivering the queue.
     *
     * @param caller  0: the destructor, 1: a sender, 2: a receiver; without effect
     * @blocking no    @locks lockSem    @context any thread
     */
    void age_stop(int caller);

    /**
     * The timer task: sleeps until the first queue is due, then delivers all that are. Never returns.
     *
     * @param unused  without effect
     * @blocking yes    @locks lockSem, not while giving    @context its own thread; init() starts it
     */
    [[noreturn]] static int timer_callback(int unused);
};

/**
 * A queue of numbered events, each pending at most once, in the order first sent. This one carries no data; the derived
 * classes add a word of 8, 16 or 32 bits to each event.
 */
class SMultiEventQ : public SBaseQ
{
public:
    uint16_t *queuePtr KEL_PT_GUARDED_BY(lockSem); /**< ring of event ids, queueSize of them; owned */
    CBitMask *inUse KEL_PT_GUARDED_BY(lockSem);    /**< ids that are queued; owned */
    CBitMask *multiUse KEL_PT_GUARDED_BY(lockSem); /**< ids whose data changed while queued; owned */

    /**
     * Makes an empty queue; parameters as for meqCreateX(). An allocation that fails lets the allocator's exception
     * pass, after all that was made is freed.
     */
    SMultiEventQ(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag);
    ~SMultiEventQ() override;

    unsigned int size() override;

    /** Returns the stored data of an event below queueSize. @locks nothing: the caller holds lockSem */
    virtual unsigned int readData(unsigned short event);
    /** Replaces the bits @p mask of an event's data; returns the word as stored. @locks nothing, as readData() */
    virtual unsigned int writeData(unsigned short event, unsigned int value, unsigned int mask);
    /** Returns the data words, or null when there are none. */
    virtual void *dataPointer();

    /** Sends; see meqSendXY(). */
    int send(unsigned short event, unsigned int data, unsigned int cmpMask, unsigned int wrMask, int urgency);
    /** Receives; see meqRecvX(). */
    int recv(unsigned short &event, unsigned int &data, int timeout);

    /**
     * Takes the oldest event without waiting and without its signal.
     *
     * @param event  out: its id; also written when there is none
     * @param data   out: its data; untouched when there is none
     * @retval 0   taken
     * @retval -1  there is none
     * @retval -2  taken, and its data changed while it was queued
     * @blocking no    @locks lockSem    @context any thread
     */
    int recvQ(unsigned short &event, unsigned int &data);
    /** Looks; see meqSnoop(). */
    int snoop(unsigned short event, unsigned int &data);
};

/** Events with 8 bits of data. */
class SMultiEventQ8 : public SMultiEventQ
{
public:
    uint8_t *dataPtr; /**< by event id; owned; the words are under lockSem */

    /** As SMultiEventQ. */
    SMultiEventQ8(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag);
    ~SMultiEventQ8() override;
    unsigned int size() override;
    unsigned int readData(unsigned short event) override;
    unsigned int writeData(unsigned short event, unsigned int value, unsigned int mask) override;
    void *dataPointer() override;
};

/** Events with 16 bits of data. */
class SMultiEventQ16 : public SMultiEventQ
{
public:
    uint16_t *dataPtr; /**< by event id; owned; the words are under lockSem */

    /** As SMultiEventQ. */
    SMultiEventQ16(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag);
    ~SMultiEventQ16() override;
    unsigned int size() override;
    unsigned int readData(unsigned short event) override;
    unsigned int writeData(unsigned short event, unsigned int value, unsigned int mask) override;
    void *dataPointer() override;
};

/** Events with 32 bits of data. */
class SMultiEventQ32 : public SMultiEventQ
{
public:
    uint32_t *dataPtr; /**< by event id; owned; the words are under lockSem */

    /** As SMultiEventQ. */
    SMultiEventQ32(unsigned short numEvents, int pendOption, int threshold, int delay, mutex_sem *flag);
    ~SMultiEventQ32() override;
    unsigned int size() override;
    unsigned int readData(unsigned short event) override;
    unsigned int writeData(unsigned short event, unsigned int value, unsigned int mask) override;
    void *dataPointer() override;
};

/**
 * A bounded queue of byte messages of varying length. Senders of a full queue wait, and go on when it has drained to
 * its transmit threshold.
 */
class SMsgQueueX : public SBaseQ
{
public:
    int txThreshold;  /**< messages at or below which blocked senders go on; set once */
    bool txBlocking;  /**< senders must wait; under lockSem, also read without it */
    SEM_ID sendFlag;  /**< the senders' turns: free at first, its count may rise above 1; owned, set once */
    int maxMsgLength; /**< bytes of a slot; set once */
    uint8_t *msgQ;    /**< message bodies, slot i from byte i * maxMsgLength; null: creation failed. Owned */
    uint16_t *msgLen; /**< bytes of the message in each slot, cut to 16 bits; owned; the words are under lockSem */

    /** Makes an empty queue; parameters as for msgQxCreateX(), none of them checked. */
    SMsgQueueX(int maxMsgs, int maxLength, int pendOption, int threshold, int drained, int delay, mutex_sem *flag);
    ~SMsgQueueX() override;

    unsigned int size() override;

    /** Sends; see msgQxSend(). */
    int send(const char *msg, int len, int timeout, int flags);

    /**
     * Puts a message into the ring without waking the receiver.
     *
     * @param msg,len,timeout  as for msgQxSend()
     * @param front            1: to the front; anything else: to the back
     * @retval 0   queued
     * @retval -1  refused, no turn or no room in time, or a signal handler ran
     * @blocking unless @p timeout is 0    @locks lockSem    @context any thread
     */
    int sendQ(const char *msg, int len, int timeout, int front);

    /** Receives; see msgQxRecv(). */
    int recv(char *buf, int maxLen, int timeout);

    /**
     * Takes the first message without waiting and without its signal, and lets blocked senders go on if the queue has
     * drained far enough.
     *
     * @param buf     room for @p maxLen bytes
     * @param maxLen  bytes wanted at most, not negative
     * @return bytes copied, or -1 when there is no message
     * @blocking no    @locks lockSem    @context any thread
     */
    int recvQ(char *buf, int maxLen);
};

/**
 * Exercises byte-order access, the memory functions and both kinds of queues, and prints what it finds on standard
 * output. Takes about ten seconds; needs kel_utils_init(), else it waits without end.
 *
 * @blocking yes    @locks the queues' lock    @context any thread, one at a time
 */
void test_utils();

/**
 * Creates the test queue and serves it: prints each 32-bit value sent to it. The calling task becomes the consumer.
 *
 * @param maxMsgs,pendOption,rxThreshold,txThreshold,maxDelay  as for msgQxCreateX()
 * @return the test queue, at once, if there is one already; null if it could not be created; a queue that nobody serves
 *         if its external flag could not be created; otherwise never
 * @blocking yes    @locks the queues' lock    @context a task of its own
 */
SMsgQueueX *msg_q_x_test_start(int maxMsgs, int pendOption, int rxThreshold, int txThreshold, int maxDelay);

/**
 * Sends the values 0 to @p count - 1 to the test queue, without waiting for room.
 *
 * @param count  values
 * @param delay  ticks to sleep before the first value and again after every @p burst + 1 values
 * @param burst  values sent in a row, less one
 * @return @p count; 0 without a test queue or without values
 * @blocking for the delays    @locks the queues' lock    @context any thread
 */
int msg_q_x_test_inject(int count, int delay, int burst);

#if defined(__x86_64__) || defined(__aarch64__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(SBaseQ, cflag) == 8 && offsetof(SBaseQ, externalFlag) == 16 && offsetof(SBaseQ, empty) == 24 &&
                  offsetof(SBaseQ, queueSize) == 28 && offsetof(SBaseQ, pRead) == 32 &&
                  offsetof(SBaseQ, pWrite) == 36 && offsetof(SBaseQ, rxThreshold) == 40 &&
                  offsetof(SBaseQ, maxDelay) == 44 && offsetof(SBaseQ, magic) == 48 && offsetof(SBaseQ, aging) == 52 &&
                  offsetof(SBaseQ, expired) == 53 && offsetof(SBaseQ, agePrev) == 56 &&
                  offsetof(SBaseQ, ageNext) == 64 && offsetof(SBaseQ, ageTtl) == 72 &&
                  offsetof(SBaseQ, delayedGives) == 76 && offsetof(SBaseQ, queueId) == 80 && sizeof(SBaseQ) == 88,
              "processes linked earlier rely on it");
static_assert(offsetof(SMultiEventQ, queuePtr) == 88 && offsetof(SMultiEventQ, inUse) == 96 &&
                  offsetof(SMultiEventQ, multiUse) == 104 && sizeof(SMultiEventQ) == 112,
              "processes linked earlier rely on it");
static_assert(offsetof(SMultiEventQ8, dataPtr) == 112 && sizeof(SMultiEventQ8) == 120 &&
                  offsetof(SMultiEventQ16, dataPtr) == 112 && sizeof(SMultiEventQ16) == 120 &&
                  offsetof(SMultiEventQ32, dataPtr) == 112 && sizeof(SMultiEventQ32) == 120,
              "processes linked earlier rely on it");
static_assert(offsetof(SMsgQueueX, txThreshold) == 84 && offsetof(SMsgQueueX, txBlocking) == 88 &&
                  offsetof(SMsgQueueX, sendFlag) == 96 && offsetof(SMsgQueueX, maxMsgLength) == 104 &&
                  offsetof(SMsgQueueX, msgQ) == 112 && offsetof(SMsgQueueX, msgLen) == 120 && sizeof(SMsgQueueX) == 128,
              "processes linked earlier rely on it");
#pragma GCC diagnostic pop
#endif
#endif
#pragma GCC visibility pop

#endif
