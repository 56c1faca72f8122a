/* pool_waiters.pml: threads that wait for a block of a pool, and threads that free one.
 *
 * Mirrors src/mempool/fixed_size_mem_pool.cpp. A line that ends in [source: text] does what that text does there; the
 * check fails when the source no longer says so.
 *
 * Promise:    nobody sleeps while a block is free.
 * Also:       there are never more blocks out than there are; availSem and the waiters that have taken a give from it
 *             and not yet looked are together never less than the free blocks.
 * Explored:   one and two blocks; three threads that each allocate twice, every time free to wait without limit, with
 *             one or not at all, and free the block or keep it for good.
 * Left out:   which block it is, the bitmap and refused pointers (tested), the clock: a wait with a limit ends when it
 *             likes, before or after its give, with or without time left.
 *
 * [at rest some may sleep on]
 * [control FREE_GIVES_NOTHING: a block enters the list and nobody is told]
 * [control CAPPED_AT_ONE: availSem is a binary semaphore that forgets a second give]
 * [control EVERY_REMOVAL_TAKES_A_GIVE: not only the removal of the last block]
 * [control LATE_WAITER_DOES_NOT_LOOK: a waiter whose time is up keeps its give and returns at once]
 */
#define THREADS 3
#define ROUNDS 2

bool listLocked;
byte blockCount;
byte freeCount;
byte availSem;

byte asleep;    /* waits without limit that have not ended */
byte looking;   /* waiters that took a give and have not yet looked at the list */

inline lock()   { atomic { !listLocked -> listLocked = true } }   /* [source: const ListLock lock(listLock);] */
inline unlock() { listLocked = false }

inline enough() { assert(availSem + looking >= freeCount) }

inline addNode()
{
    d_step {
        assert(freeCount < blockCount);         /* [source: if (freeCount == blockCount)] */
        freeCount++;                            /* [source: writeUnlocked(freeCount, freeCount + 1);] */
#ifdef CAPPED_AT_ONE
        availSem = 1
#else
#ifndef FREE_GIVES_NOTHING
        availSem++;                             /* [source: semGive(availSem);] */
#endif
#endif
    }
}

inline removeNode()
{
    d_step {
        if
        :: freeCount == 0 -> got = false        /* [source: if (freeCount == 0 || vxMemCheckOut(freeHead) != Done)] */
        :: else ->
            freeCount--;                        /* [source: writeUnlocked(freeCount, freeCount - 1);] */
            got = true;
            if
#ifndef EVERY_REMOVAL_TAKES_A_GIVE
            :: freeCount == 0 && availSem > 0 -> availSem--  /* [source: semTake(availSem, 0);] */
#else
            :: availSem > 0 -> availSem--
#endif
            :: else
            fi
        fi;
        if
        :: woken -> looking--; woken = false
        :: else
        fi
    }
}

proctype Thread()
{
    byte round = ROUNDS;
    bool got, woken;
    byte wait;          /* 0 none, 1 with a limit, 2 without */
    do
    :: round > 0 ->
        round--;
        select(wait : 0 .. 2);
        do
        :: lock();
            removeNode();                       /* [source: if (unsigned char *block = vxRemoveNode())] */
            unlock();
            if
            :: got -> break
            :: !got && wait == 0 -> break       /* [source: (wait < 1 && wait != WAIT_FOREVER)] */
            :: !got && wait == 1 ->
                if                              /* [source: semTake(availSem, static_cast<uint32_t>(wait)) != 0)] */
                :: atomic { availSem > 0 -> availSem--; looking++; woken = true };
                    if
                    :: true                     /* [source: wait = nextWait(last, wait);] */
                    :: wait = 0;                /* no time is left: looks once more */
#ifdef LATE_WAITER_DOES_NOT_LOOK
                        atomic { looking--; woken = false };
                        break
#endif
                    fi
                :: true -> break                /* not in time */
                fi
            :: !got && wait == 2 ->
                atomic { asleep++; availSem > 0 -> availSem--; looking++; woken = true; asleep-- }
            fi
        od;
        if
        :: got -> lock(); addNode(); unlock()   /* [source: return vxAddNode(static_cast<unsigned char *>(block));] */
        :: true                                 /* keeps what it has */
        fi;
        got = false
    :: else -> break
    od
}

/* At rest: nothing but this can happen. Waiters of a pool whose blocks are all kept sleep on, rightly. */
proctype AtRest()
{
    timeout;
    enough();
    assert(asleep == 0 || freeCount == 0)
}

/* Asked in every state, not only at rest. */
proctype Always()
{
end:
    do
    :: atomic { !listLocked && availSem + looking < freeCount -> assert(false) }
    od
}

init {
    select(blockCount : 1 .. 2);
    atomic {
        availSem = 1;                           /* [source: availSem = semBCreate(SEM_Q_FIFO, SEM_FULL);] */
        do
        :: freeCount < blockCount -> addNode()  /* [source: vxAddNode(memBase + size_t{i} * blockSize);] */
        :: else -> break
        od;
        run Thread(); run Thread(); run Thread();
        run Always();
        run AtRest()
    }
}
