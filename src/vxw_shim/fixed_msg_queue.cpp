// fixed_msg_queue.cpp: a bounded ring of fixed-size slots.
//
// Policy:     first in, first out; a message is refused whole or taken whole, a short receive loses the rest.
// Locking:    one mutex for the ring. Waits end at a deadline on the wall clock. Each send wakes all receivers and
//             each receive all senders, after the unlock, so that they do not wake into a held lock.
// Invariants: 0 <= front < max_size_queue; 0 <= num_requests <= max_size_queue; slot i holds a message exactly when
//             it is one of the num_requests slots from front on, circularly; every other slot has length 0.
// Cost:       one copy in, one copy out; nothing allocates after creation.
#include "vxw_shim/fixed_msg_queue.h"

#include "vxw_shim.h"

#include "vxw_shim/assertion.h"
#include "vxw_shim/probe.h"
#include "vxw_shim/tick_deadline.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace
{
using vxw_shim::ticksToAbsTime;
using vxw_shim::WaitForever;

constexpr int Sent = 0;
constexpr int NotSent = 1;
constexpr uint32_t NothingReceived = 0xFFFFFFFF;
constexpr size_t LengthBytes = sizeof(uint32_t);

size_t slotBytes(const msg_q *q)
{
    return static_cast<size_t>(q->max_data_len) + LengthBytes;
}

// The first byte of a slot, or null when the slots' memory ends before this one does.
char *slotAt(const msg_q *q, uint32_t index)
{
    const size_t start = index * slotBytes(q);
    return start + slotBytes(q) <= q->allocated ? q->queue_mem + start : nullptr;
}

// A slot number that went on by no more than one round. A division would cost as much as the lock.
uint32_t wrapped(const msg_q *q, uint32_t index)
{
    const auto slots = static_cast<uint32_t>(q->max_size_queue);
    return index < slots ? index : index - slots;
}

uint32_t lengthOf(const char *slot)
{
    uint32_t length;
    memcpy(&length, slot, LengthBytes);
    return length;
}

void setLength(char *slot, uint32_t length)
{
    memcpy(slot, &length, LengthBytes);
}

// Waits, releasing the lock meanwhile, until `ready` holds; returns whether it does. What became ready together with
// the deadline counts.
template <class Ready>
bool waitUntil(Ready ready, msg_q *q, pthread_cond_t *changed, uint32_t timeout)
{
    if (timeout == WaitForever) {
        while (!ready())
            pthread_cond_wait(changed, &q->lock);
    } else if (timeout != 0 && !ready()) {
        const timespec deadline = ticksToAbsTime(timeout);
        while (!ready() && pthread_cond_timedwait(changed, &q->lock, &deadline) != ETIMEDOUT) {
        }
    }
    return ready();
}

// Appends a message that is not too long to a queue that is not full. Returns false when its slot has no memory.
bool addEntry(msg_q *q, const void *message, uint32_t bytes)
{
    if (q->num_requests >= q->max_size_queue)
        vxw_shim::endProcess(vxw_shim::QueueFullOnAdd);
    char *const slot = slotAt(q, wrapped(q, static_cast<uint32_t>(q->front) + static_cast<uint32_t>(q->num_requests)));
    if (slot == nullptr)
        return false;
    setLength(slot, bytes);
    if (bytes != 0)
        memcpy(slot + LengthBytes, message, bytes);
    ++q->num_requests;
    return true;
}

// Takes the oldest message of a queue that is not empty. Returns the bytes copied.
uint32_t removeEntry(msg_q *q, void *buffer, uint32_t size)
{
    if (q->num_requests <= 0)
        vxw_shim::endProcess(vxw_shim::QueueEmptyOnRemove);
    char *const slot = slotAt(q, static_cast<uint32_t>(q->front));
    const uint32_t copied = size < lengthOf(slot) ? size : lengthOf(slot);
    if (copied != 0)
        memcpy(buffer, slot + LengthBytes, copied);
    --q->num_requests;
    q->front = static_cast<int>(wrapped(q, static_cast<uint32_t>(q->front) + 1));
    setLength(slot, 0);
    return copied;
}

bool isPlausible(const msg_q *q)
{
    return q->front >= 0 && q->front < q->max_size_queue && q->num_requests >= 0 &&
           q->num_requests <= q->max_size_queue;
}

// Whether slot i is one of those that hold a message, in a plausible queue.
bool isInQueue(const msg_q *q, int i)
{
    const int64_t end = int64_t{q->front} + q->num_requests;
    if (end <= q->max_size_queue)
        return q->front <= i && i < end;
    return i >= q->front || i < end % q->max_size_queue;
}

// Prints what is wrong with the length of slot i; returns whether anything is.
bool complainAboutLength(const msg_q *q, int i, uint32_t length)
{
    const int shown = static_cast<int>(length);
    if (!isInQueue(q, i)) {
        if (length == 0)
            return false;
        printf("ERROR: index %d (OUT OF QUEUE) msg size %d invalid. Should be = %d\n", i, shown, 0);
    } else if (length > static_cast<uint32_t>(q->max_data_len)) {
        printf("ERROR: index %d (IN QUEUE) msg size %d invalid. Should be <= than %d\n", i, shown, q->max_data_len);
    } else if (length == 0) {
        // Kept: an empty message is legal, yet reported (FixedMsgQueueDump.ReportsALegalEmptyMessage).
        printf("ERROR: index %d (IN QUEUE) msg size %d invalid. Should be > than %d\n", i, shown, 0);
    } else {
        return false;
    }
    return true;
}

void dumpFields(const msg_q *q)
{
    printf("\n");
    printf("Dumping out internal structure of message queue %p\n", static_cast<const void *>(q));
    printf("Entry size = %zd\n", static_cast<ssize_t>(slotBytes(q)));
    printf("int max_size_queue = %d\n", q->max_size_queue);
    printf("char * queue_mem   = %p\n", static_cast<void *>(q->queue_mem));
    printf("int front          = %d\n", q->front);
    printf("int num_requests   = %d\n", q->num_requests);
    printf("int max_data_len   = %d\n", q->max_data_len);
}

void dumpSlots(const msg_q *q)
{
    bool anyError = false;
    for (int i = 0; i < q->max_size_queue; ++i) {
        const char *const slot = slotAt(q, static_cast<uint32_t>(i));
        if (slot == nullptr)
            break; // nor has any slot behind it memory
        anyError |= complainAboutLength(q, i, lengthOf(slot));
    }
    printf("***************************\n");
    printf("%s found in queue structure\n", anyError ? "ERRORS" : "NO problems");
    printf("***************************\n");
    printf("\n");
}
} // namespace

// Kept: the size of all slots is a 32-bit product, then sign-extended. A negative one is memory that nobody has; one
// that wrapped to a positive number creates a queue with memory for its first slots only, and a message for any other
// slot is refused (FixedMsgQueue.AProductThatWrapsToAPositiveSizeGivesMemoryForTheFirstSlotsOnly).
MSG_Q_ID msgQCreate(int maxMessages, int maxMessageLength, int)
{
    if (maxMessageLength <= 0 || maxMessages <= 0)
        return nullptr;
    auto *q = static_cast<msg_q *>(calloc(1, sizeof(msg_q)));
    if (q == nullptr)
        return nullptr;
    const auto bytes =
        static_cast<int32_t>((static_cast<uint32_t>(maxMessageLength) + 4U) * static_cast<uint32_t>(maxMessages));
    q->queue_mem = bytes < 0 ? nullptr : static_cast<char *>(calloc(1, static_cast<size_t>(bytes)));
    if (q->queue_mem == nullptr) {
        free(q);
        return nullptr;
    }
    pthread_mutex_init(&q->lock, nullptr);
    pthread_cond_init(&q->notEmpty, nullptr);
    pthread_cond_init(&q->notFull, nullptr);
    q->max_size_queue = maxMessages;
    q->max_data_len = maxMessageLength;
    q->allocated = static_cast<size_t>(bytes);
    return q;
}

int msgQSend(MSG_Q_ID q, const void *message, unsigned int bytes, unsigned int timeout, int)
{
    const auto hasRoom = [q] { return q->num_requests != q->max_size_queue; };
    pthread_mutex_lock(&q->lock);
    const bool sent = bytes <= static_cast<uint32_t>(q->max_data_len) && waitUntil(hasRoom, q, &q->notFull, timeout) &&
                      addEntry(q, message, bytes);
    pthread_mutex_unlock(&q->lock);
    if (!sent) {
        KEL_PROBE(msg_full, q, bytes);
        return NotSent;
    }
    KEL_PROBE(msg_send, q, bytes);
    pthread_cond_broadcast(&q->notEmpty);
    return Sent;
}

unsigned int msgQReceive(MSG_Q_ID q, void *buffer, unsigned int size, unsigned int timeout)
{
    const auto hasMessage = [q] { return q->num_requests != 0; };
    pthread_mutex_lock(&q->lock);
    const bool received = waitUntil(hasMessage, q, &q->notEmpty, timeout);
    const uint32_t copied = received ? removeEntry(q, buffer, size) : NothingReceived;
    pthread_mutex_unlock(&q->lock);
    if (received) {
        KEL_PROBE(msg_receive, q, copied);
        pthread_cond_broadcast(&q->notFull);
    }
    return copied;
}

int msgQDumpDebug(MSG_Q_ID q)
{
    pthread_mutex_lock(&q->lock);
    dumpFields(q);
    if (isPlausible(q))
        dumpSlots(q);
    else
        printf("ERROR found validating queue data values\n");
    return pthread_mutex_unlock(&q->lock);
}
