/* held_back_gives.pml: senders whose gives are held back, the timer task that delivers them, and a receiver that takes
 * them, looks for them itself, and at the end deletes the queue at once.
 *
 * Mirrors src/queues/base_q.cpp, src/queues/aging_list.cpp, src/queues/aging_timer.cpp and src/queues/signalling.h. A
 * line that ends in [source: text] does what that text does there; the check fails when the source no longer says so.
 *
 * Promise:    every message is one give of its queue's cflag: none is lost (a receiver that only waits gets them all),
 *             none is doubled (it never takes a give without a message, and none is left at the end).
 * Also:       the timer task touches no queue that is gone; it does not sleep without limit while a queue is aging and
 *             nobody is about to wake it.
 * Explored:   [part ONE_QUEUE] two senders and a receiver on one queue, signalled under the lock (multi-event queue)
 *             or after it (variable-length queue), with an external flag or without; the receiver waits without limit,
 *             with one, or polls, as it likes, anew each time. Two messages (FULL_EFFORT: three), each urgent or not.
 *             [part TWO_QUEUES] two queues with a sender and a receiver each, and delays of one or two ticks in any
 *             combination. Two messages (FULL_EFFORT: three), each urgent or not. Ticks pass whenever they like.
 * Time:       the list counts from sleepStart, so all that matters is how many ticks have passed since: `elapsed`,
 *             which stops where every list is overdue.
 * Locking:    what happens under lockSem is one atomic step; the gives that come after the unlock are one each.
 * Left out:   the second of a sender's two clock readings (at most it makes a delivery late), the ring (a count),
 *             thresholds (an urgent send is the same step), times that wrap (tested).
 *
 * [control SENDER_IGNORES_EXPIRED: age_start links a queue that is being delivered]
 * [control RECEIVER_IGNORES_EXPIRED: age_stop also gives what is being delivered]
 * [control FLUSH_KEEPS_COUNT: age_stop gives what is held and does not forget it]
 * [control TASK_FORGETS_TO_CLEAR: the timer task leaves delayedGives as it was]
 * [control TASK_LETS_GO_FIRST: the timer task marks the queue idle before it has given]
 * [control NEW_HEAD_WAKES_NOBODY: a first queue is linked and the timer task sleeps on]
 * [control DESTRUCTOR_DOES_NOT_WAIT: the queue is gone while the timer task still has it]
 */
#define QUEUES 2
#define NONE 7
#ifdef TWO_QUEUES
#define OVERDUE 3       /* more than the longest delay */
#else
#define OVERDUE 2
#endif

/* SBaseQ */
typedef Queue {
    byte cflag;
    byte external;
    byte messages;
    byte delay;
    bool aging, expired, gone;
    byte agePrev, ageNext, ageTtl;
    byte delayedGives;
    byte sendersLeft
}
Queue q[QUEUES];

byte timerSig;
byte head = NONE, tail = NONE, headTime, tailTime;
byte elapsed;                   /* ticks from sleepStart to now */
byte sleepLeft;                 /* ticks until the timer task's wait is over */
byte asleepForever;             /* the timer task waits without limit */
byte wakersOnTheirWay;          /* senders that have linked a head and are about to give timerSig */
bool external;                  /* queue 0 has an external flag */
bool underLock;                 /* queue 0 is signalled under the lock */

/* Counts are not changed by anybody else between the gives of a batch, so a batch is given one by one. */
inline giveBatch(n)                 /* [source: inline void giveBatch(SEM_ID cflag, SEM_ID externalFlag, int gives)] */
{
    do
    :: n > 0 -> q[me].cflag++; n--  /* [source: semGive(cflag);] */
    :: else -> break
    od;
    if
    :: external && me == 0 -> q[me].external++  /* [source: semGive(externalFlag);] */
    :: else
    fi
}

inline rebase()
{
    d_step {
        if
        :: head != NONE ->
            passed = (headTime < elapsed -> headTime : elapsed); /* [source: const int32_t passed = std::min(SBaseQ::headTime, elapsedTicks(now));] */
            headTime = q[head].ageTtl - passed;
            tailTime = tailTime - passed;
            q[head].ageTtl = headTime
        :: else                     /* [source: if (SBaseQ::head == nullptr)] */
        fi;
        passed = 0
    }
}

/* insert(); two queues, so linkByExpiry() has the head to link behind and nothing else. */
inline insert()
{
    d_step {
        assert(!q[me].aging && !q[me].expired); /* [source: assert(!queue.aging && !queue.expired);] */
        wakes = false;
        if
        :: head == NONE ->                      /* [source: linkAlone(queue);] */
            q[me].agePrev = NONE; q[me].ageNext = NONE; q[me].ageTtl = q[me].delay;
            head = me; tail = me; headTime = q[me].delay; tailTime = q[me].delay;
#ifndef NEW_HEAD_WAKES_NOBODY
            wakes = true                        /* [source: sleepsTooLong = true;] */
#endif
        :: head != NONE && q[me].delay <= headTime -> /* [source: sleepsTooLong = linkAsHead(queue) > 0;] */
            q[head].agePrev = me;
            q[head].ageTtl = headTime - q[me].delay;
            wakes = (headTime - q[me].delay > 0);
            q[me].agePrev = NONE; q[me].ageNext = head; q[me].ageTtl = q[me].delay;
            head = me; headTime = q[me].delay
        :: else ->                              /* [source: linkByExpiry(queue);] */
            assert(head == tail && tailTime == headTime);
            q[me].agePrev = head; q[me].ageTtl = q[me].delay - tailTime;
            q[me].ageNext = NONE; q[head].ageNext = me;
            tail = me; tailTime = tailTime + q[me].ageTtl
        fi;
        q[me].aging = true;                     /* [source: queue.aging = true;] */
        q[me].delayedGives++                    /* [source: queue.delayedGives = sum(queue.delayedGives, 1);] */
    }
}

inline remove()
{
    d_step {
        assert(q[me].aging && !q[me].expired);  /* [source: assert(queue.aging && !queue.expired);] */
        if
        :: q[me].agePrev != NONE ->
            q[q[me].agePrev].ageNext = NONE; tail = q[me].agePrev; tailTime = tailTime - q[me].ageTtl
        :: q[me].agePrev == NONE && q[me].ageNext != NONE ->
            head = q[me].ageNext;
            headTime = headTime + q[head].ageTtl;
            q[head].agePrev = NONE;
            q[head].ageTtl = q[head].ageTtl + q[me].ageTtl
        :: else -> head = NONE; tail = NONE; headTime = 0; tailTime = 0
        fi;
        q[me].aging = false                     /* [source: queue.aging = false;] */
    }
}

inline ageStart()
{
    atomic {
        gives = 0; wakes = false;
        if
#ifndef SENDER_IGNORES_EXPIRED
        :: q[me].expired -> gives = 1           /* [source: return Start::GivesNow;] */
        :: !q[me].expired && q[me].aging ->
#else
        :: q[me].aging ->
#endif
            q[me].delayedGives++                /* [source: queue.delayedGives = static_cast<int>(static_cast<uint32_t>(queue.delayedGives) + 1);] */
        :: else ->
            rebase();                           /* [source: queues::aging_list::rebase(tickGet());] */
            elapsed = 0;                        /* [source: SBaseQ::sleepStart = static_cast<int>(tickGet());] */
            insert();                           /* [source: return queues::aging_list::insert(queue) ? Start::WakesTimer : Start::HeldBack;] */
            if
            :: wakes -> wakersOnTheirWay++
            :: else
            fi
        fi
    };
    if
    :: atomic { wakes -> timerSig++; wakersOnTheirWay--; wakes = false } /* [source: semGive(timerSig);] */
    :: !wakes && gives != 0 -> giveBatch(gives) /* [source: queues::giveBatch(cflag, externalFlag, 1);] */
    :: else
    fi
}

inline ageStop()
{
    atomic {
        if
        :: q[me].aging -> remove()              /* [source: queues::aging_list::remove(queue);] */
        :: else
        fi;
        if
#ifndef RECEIVER_IGNORES_EXPIRED
        :: q[me].expired -> gives = 0           /* [source: if (queue.expired)] */
        :: else ->
#else
        :: true ->
#endif
            gives = q[me].delayedGives;         /* [source: const int gives = queue.delayedGives;] */
#ifndef FLUSH_KEEPS_COUNT
            q[me].delayedGives = 0              /* [source: queue.delayedGives = 0;] */
#endif
        fi
    };
    if
    :: gives != 0 -> giveBatch(gives)           /* [source: queues::giveBatch(cflag, externalFlag, gives > 0 ? gives : 1);] */
    :: else
    fi
}

/* signalSent(): urgent stands for a threshold that is reached as well. */
inline signalSent()
{
    if
    :: true -> ageStart()                       /* [source: queue.age_start(fromSender);] */
    :: true ->
        ageStop();                              /* [source: queue.age_stop(fromSender);] */
        gives = 1;
        giveBatch(gives)                        /* [source: giveBatch(queue.cflag, queue.externalFlag, 1);] */
    fi
}

proctype Sender(byte me; byte left)
{
    byte gives, passed;
    bool wakes;
    do
    :: left > 0 ->
        if
        :: atomic { underLock -> left--; q[me].messages++; signalSent() }
        :: atomic { !underLock -> left--; q[me].messages++ }; signalSent()
        fi
    :: else -> break
    od;
    q[me].sendersLeft--
}

/* takeGive() and recvQ() until all messages are there, then the destructor. */
proctype Receiver(byte me; byte left)
{
    byte gives;
    bool got;
    do
    :: left > 0 ->
        if
        :: external && me == 0 ->
            atomic { q[me].external > 0 -> q[me].external-- }
        :: else
        fi;
        if
        :: atomic { q[me].cflag > 0 -> q[me].cflag--; got = true }
#ifndef TWO_QUEUES
        :: !external -> got = false             /* a wait with a limit that is over, or none */
        :: external && q[me].cflag == 0 -> got = false
#endif
        fi;
        if
        :: got
        :: !got ->
            ageStop();                          /* [source: queue.age_stop(fromReceiver);] */
            atomic {
                if
                :: q[me].cflag > 0 -> q[me].cflag--; got = true /* [source: return semTake(queue.cflag, 0) == 0;] */
                :: else
                fi
            }
        fi;
        if
        :: d_step {
                got ->
                assert(q[me].messages > 0);     /* none doubled */
                q[me].messages--; left--; got = false;
                if                              /* the flag went once for a batch */
                :: external && me == 0 && q[me].messages > 0 -> q[me].external++
                :: else
                fi
            }
        :: else
        fi
    :: else -> break
    od;
    q[me].sendersLeft == 0;                     /* nobody may send to a queue that goes */
    ageStop();                                  /* [source: age_stop(0);] */
#ifndef DESTRUCTOR_DOES_NOT_WAIT
    !q[me].expired;                             /* [source: while (isBeingDelivered(queue))] */
#endif
    q[me].gone = true;
    assert(q[me].cflag == 0 && q[me].messages == 0 && q[me].delayedGives == 0 && !q[me].aging)
}

inline expireHead()
{
    if
    :: head != NONE && q[head].ageTtl <= elapsed -> /* [source: while (SBaseQ::head != nullptr && SBaseQ::head->ageTtl <= elapsed) {] */
        elapsed = elapsed - q[head].ageTtl;
        tailTime = tailTime - q[head].ageTtl;
        me = head;
        head = q[me].ageNext;                   /* [source: SBaseQ::head = queue.ageNext;] */
        if
        :: head != NONE -> q[head].agePrev = NONE
        :: else
        fi;
        q[me].aging = false;
        q[me].expired = true;                   /* [source: queue.expired = true;] */
        q[me].ageTtl = 0;
        q[me].ageNext = chain;                  /* [source: queue.ageNext = chain;] */
        chain = me
    :: else
    fi
}

/* takeExpired(): sleepStart stays, so `elapsed` is put back; what is counted down here is a copy. */
inline takeExpired()
{
    d_step {
        now = elapsed;
        expireHead(); expireHead();
        if
        :: head == NONE -> tail = NONE; headTime = 0; tailTime = 0
        :: else ->
            q[head].ageTtl = q[head].ageTtl - elapsed;
            headTime = q[head].ageTtl;
            tailTime = tailTime - elapsed
        fi;
        elapsed = now;
        now = 0; me = 0
    }
}

proctype TimerTask()
{
    byte me, chain = NONE, next, gives, now;
    do
    :: d_step {
            elapsed = 0;                        /* [source: SBaseQ::sleepStart = static_cast<int32_t>(now);] */
            if
            :: head == NONE -> asleepForever = true /* [source: return vxw_shim::WaitForever;] */
            :: else -> sleepLeft = q[head].ageTtl
            fi
        };
end:
        if                                      /* [source: semTake(timerSig, startSleep());] */
        :: atomic { timerSig > 0 -> timerSig--; asleepForever = false; sleepLeft = 0 }
        :: atomic { !asleepForever && timerSig == 0 && sleepLeft == 0 }
        fi;
        atomic {
            if
            :: head != NONE -> takeExpired()    /* [source: if (SBaseQ::head == nullptr || elapsed < 0)] */
            :: else
            fi
        };
        do
        :: chain != NONE ->                     /* [source: while (chain != nullptr) {] */
            me = chain;
            assert(!q[me].gone);
            gives = q[me].delayedGives;
#ifdef TASK_LETS_GO_FIRST
            d_step { chain = q[me].ageNext; q[me].expired = false; q[me].ageNext = NONE };
            if
            :: gives != 0 -> giveBatch(gives)
            :: else
            fi;
            assert(!q[me].gone);
            q[me].delayedGives = 0
#else
            if
            :: gives != 0 -> giveBatch(gives)   /* [source: queues::giveBatch(chain->cflag, chain->externalFlag, chain->delayedGives);] */
            :: else
            fi;
            d_step {
                assert(!q[me].gone);
                chain = q[me].ageNext;          /* [source: SBaseQ *const next = queue.ageNext;] */
                q[me].expired = false;          /* [source: queue.expired = false;] */
                q[me].ageNext = NONE;           /* [source: queue.ageNext = nullptr;] */
#ifndef TASK_FORGETS_TO_CLEAR
                q[me].delayedGives = 0          /* [source: queue.delayedGives = 0;] */
#endif
            }
#endif
        :: else -> break
        od;
        me = 0
    od
}

/* A tick passes whenever it likes; it does not where that makes no difference any more. */
proctype Clock()
{
end:
    do
    :: d_step {
            (head != NONE && elapsed < OVERDUE) || sleepLeft > 0 ->
            if :: elapsed < OVERDUE -> elapsed++ :: else fi;
            if :: sleepLeft > 0 -> sleepLeft-- :: else fi
        }
    od
}

/* Asked in every state. */
proctype Always()
{
end:
    do
    :: atomic {
            asleepForever && head != NONE && timerSig == 0 && wakersOnTheirWay == 0 -> assert(false)
        }
    od
}

/* Whoever cannot go on when nothing else can is an end that is wrong: a give was lost. */
init {
#ifdef TWO_QUEUES
#ifdef FULL_EFFORT
#define OF_FIRST 2
#else
#define OF_FIRST 1
#endif
    byte ticks = 0;
    select(ticks : 1 .. 2); q[0].delay = ticks;
    select(ticks : 1 .. 2); q[1].delay = ticks;
    atomic {
        q[0].sendersLeft = 1;
        q[1].sendersLeft = 1;
        run Sender(0, OF_FIRST); run Receiver(0, OF_FIRST);
        run Sender(1, 1); run Receiver(1, 1);
#else
#ifdef FULL_EFFORT
#define OF_ONE 2
#else
#define OF_ONE 1
#endif
    q[0].delay = 1;
    if :: external = true :: external = false fi;
    if :: underLock = true :: underLock = false fi;
    atomic {
        q[0].sendersLeft = 2;
        run Sender(0, 1); run Sender(0, OF_ONE); run Receiver(0, 1 + OF_ONE);
#endif
        run TimerTask();
        run Clock();
        run Always()
    }
}
