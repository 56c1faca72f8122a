/* blocked_senders.pml: senders of the variable-length queue who wait for room, and the receiver who lets them go on.
 *
 * Mirrors src/queues/msg_queue_x.cpp. A line that ends in [source: text] does what that text does there; the check
 * fails when the source no longer says so.
 *
 * Promise:    no sender sleeps while there is room: at rest, one sleeps only while more than txThreshold messages are
 *             in the ring, or the ring is full.
 * Also:       the ring never holds more than its slots, and while nobody has to wait a turn is there or in someone's
 *             hands.
 * Explored:   every threshold from 0 to the ring's size; three senders, each free to wait without limit, with one or
 *             not at all, for each message; four messages (six with FULL_EFFORT); a receiver that stops wherever it likes
 *             and may look once for nothing.
 * Left out:   the messages themselves, front insertion (the same count), aging (held_back_gives.pml).
 *
 * [at rest some may sleep on]
 * [control RECEIVE_PASSES_NO_TURN: the receiver clears txBlocking and gives nothing]
 * [control STORE_PASSES_NO_TURN: a sender keeps the turn after it has stored its message]
 * [control DRAINED_TOO_STRICTLY: senders are let go below the threshold, not at it]
 * [control FULL_RING_PASSES_THE_TURN: the sender that fills the ring does not say that senders have to wait]
 */
#define SLOTS 2
#ifdef FULL_EFFORT
#define MESSAGES 2
#else
#define MESSAGES 1
#endif

/* What happens under SBaseQ::lockSem is one atomic step: outside it only txBlocking is read, and that is one word. */
byte messages;      /* in the ring */
byte given;         /* count of cflag */
byte sendFlag = 1;  /* count; not capped */
bool txBlocking;
byte txThreshold;

byte turnsHeld;     /* taken from sendFlag by a sender that has not yet stored or given up */
byte asleep;        /* senders in a wait without limit that has not ended */

/* A sender's wait for its turn. Waits with a limit end whenever they like. */
inline waitWithoutLimit()
{
    atomic {
        asleep++;
        if
        :: sendFlag > 0
        fi;
        sendFlag--; turnsHeld++; asleep--
    }
}

inline store(tookTurn)
{
    messages++;                                 /* [source: putLast(queue, msg, len)] */
    assert(messages <= SLOTS);
    if
    :: messages == SLOTS ->                     /* [source: if (queues::isFull(queue))] */
#ifndef FULL_RING_PASSES_THE_TURN
        txBlocking = true                       /* [source: writeUnlocked(queue.txBlocking, true);] */
#else
        skip
#endif
    :: else ->
        if
        :: !txBlocking ->                       /* [source: else if (!queue.txBlocking && (stored || tookTurn))] */
#ifndef STORE_PASSES_NO_TURN
            sendFlag++                          /* [source: semGive(queue.sendFlag);] */
#else
            skip
#endif
        :: else
        fi
    fi;
    if
    :: tookTurn -> turnsHeld--
    :: else
    fi
}

/* sendQ() for each kind of time-out, then the give of send(), which comes without the lock. */
proctype Sender(byte left)
{
    do
    :: left > 0 ->
        left--;
        if
        :: true ->                                /* timeout == WithoutLimit */
            waitWithoutLimit();                   /* [source: return semTake(queue.sendFlag, static_cast<uint32_t>(timeout)) == 0;] */
            do
            :: d_step {
                    messages != SLOTS ->          /* [source: if (!queues::isFull(*this))] */
                    store(true)                   /* [source: return store(*this, msg, len, timeout, front == 1);] */
                };
                given++;                          /* signalling.h, without aging: one give */
                break
            :: d_step {
                    messages == SLOTS ->
#ifndef FULL_RING_PASSES_THE_TURN
                    txBlocking = true;            /* [source: writeUnlocked(txBlocking, true);] */
#endif
                    turnsHeld--
                };
                waitWithoutLimit()                /* [source: semTake(sendFlag, vxw_shim::WaitForever) != 0] */
            od
        :: true ->                                /* with a limit: waits for its turn only, and may keep it */
            if
            :: atomic { sendFlag > 0 -> sendFlag--; turnsHeld++ };
                if
                :: d_step { messages != SLOTS -> store(true) }; given++
                :: d_step { messages == SLOTS -> txBlocking = true; turnsHeld-- } /* [source: if (timeout != WithoutLimit ||] */
                fi
            :: true                               /* not in time */
            fi
        :: true ->                                /* timeout == 0 */
            if
            :: !txBlocking ->                     /* [source: return !readUnlocked(queue.txBlocking);] */
                if
                :: d_step { messages != SLOTS -> store(false) }; given++
                :: d_step { messages == SLOTS -> txBlocking = true }
                fi
            :: txBlocking
            fi
        fi
    :: else -> break
    od
}

inline recvQ()
{
    d_step {
        if
        :: messages == 0                          /* [source: const int result = empty ? Failed : takeFirst(*this, buf, maxLen);] */
        :: else -> messages--
        fi;
        if
#ifndef DRAINED_TOO_STRICTLY
        :: txThreshold >= messages ->             /* [source: if (txThreshold >= queues::messageCount(*this)) {] */
#else
        :: txThreshold > messages ->
#endif
            txBlocking = false;                   /* [source: writeUnlocked(txBlocking, false);] */
#ifndef RECEIVE_PASSES_NO_TURN
            sendFlag++                            /* [source: semGive(sendFlag);] */
#endif
        :: else
        fi
    }
}

proctype Receiver()
{
    bool mayLookForNothing = true;
end:
    do
    :: atomic { given > 0 -> given-- }; recvQ()
    :: mayLookForNothing -> mayLookForNothing = false; recvQ()
    :: break                                      /* does not receive any more */
    od
}

/* At rest: nothing but this can happen. */
proctype AtRest()
{
    timeout;
    assert(asleep == 0 || messages > txThreshold || messages == SLOTS);
    assert(txBlocking || sendFlag > 0 || turnsHeld > 0);
    assert(asleep == 0 || txBlocking)
}

/* Senders that the receiver left behind a full ring sleep on, rightly: not an end that is wrong. */
init {
    select(txThreshold : 0 .. SLOTS);
    atomic {
        run Sender(2); run Sender(MESSAGES); run Sender(MESSAGES);
        run Receiver();
        run AtRest()
    }
}
