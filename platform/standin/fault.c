/* fault.c: trouble on demand, one fault a call.
 *
 * Locking: faultLock guards the faults; it is not held while a hook runs. The counts and the marks of the calls that
 * have a fault are relaxed atomics, so that a call without trouble takes no lock here.
 */
#include "fault.h"

#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <string.h>

static pthread_mutex_t faultLock = PTHREAD_MUTEX_INITIALIZER;
static kelStandinFault faults[KEL_CALL_COUNT]; /* under faultLock */
static bool endless[KEL_CALL_COUNT];           /* under faultLock: troubles all calls from now on */
static atomic_bool armed[KEL_CALL_COUNT];
static atomic_uint_least64_t counts[KEL_CALL_COUNT];

static void disarm(kelStandinCall call)
{
    atomic_store_explicit(&armed[call], false, memory_order_relaxed);
}

/* Copies the fault when this call is one of those that it troubles. */
static bool takeTurn(kelStandinCall call, kelStandinFault *turn)
{
    kelStandinFault *fault = &faults[call];
    if (!atomic_load_explicit(&armed[call], memory_order_relaxed))
        return false;
    if (fault->skip > 0) {
        --fault->skip;
        return false;
    }
    *turn = *fault;
    if (!endless[call] && --fault->times == 0)
        disarm(call);
    return true;
}

struct trouble troubleOf(kelStandinCall call, uint32_t asked)
{
    const struct trouble none = {.handOut = KEL_HAND_OUT_TRUE};
    atomic_fetch_add_explicit(&counts[call], 1, memory_order_relaxed);
    if (!atomic_load_explicit(&armed[call], memory_order_relaxed))
        return none;
    kelStandinFault turn;
    pthread_mutex_lock(&faultLock);
    const bool troubled = takeTurn(call, &turn);
    pthread_mutex_unlock(&faultLock);
    if (!troubled)
        return none;
    if (turn.hook != NULL)
        turn.hook(turn.user, asked);
    return (struct trouble){.replaceResult = turn.replaceResult != 0, .result = turn.result, .handOut = turn.handOut};
}

int kelStandinSetFault(kelStandinCall call, const kelStandinFault *fault)
{
    if ((unsigned)call >= KEL_CALL_COUNT)
        return EINVAL;
    pthread_mutex_lock(&faultLock);
    if (fault != NULL) {
        faults[call] = *fault;
        endless[call] = fault->times == 0;
        atomic_store_explicit(&armed[call], true, memory_order_relaxed);
    } else {
        disarm(call);
    }
    pthread_mutex_unlock(&faultLock);
    return 0;
}

uint64_t kelStandinCallCount(kelStandinCall call)
{
    return (unsigned)call < KEL_CALL_COUNT ? atomic_load_explicit(&counts[call], memory_order_relaxed) : 0;
}

void clearFaults(void)
{
    pthread_mutex_lock(&faultLock);
    for (unsigned call = 0; call < KEL_CALL_COUNT; ++call) {
        disarm((kelStandinCall)call);
        atomic_store_explicit(&counts[call], 0, memory_order_relaxed);
    }
    pthread_mutex_unlock(&faultLock);
}
