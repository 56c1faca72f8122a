/* listener.c: the one who hears of ports.
 *
 * Locking:    listenerLock guards the listener and the count of its calls under way; it is not held during a call.
 * Invariants: callsUnderWay counts the calls of all threads, callsOfThisThread those of one; a thread that replaces the
 *             listener waits for the others' calls alone.
 */
#include "listener.h"

#include "kel_standin.h"

#include <pthread.h>
#include <string.h>

static pthread_mutex_t listenerLock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t callReturned = PTHREAD_COND_INITIALIZER;
static kelStandinListener listener; /* under listenerLock */
static unsigned callsUnderWay;      /* under listenerLock */
static _Thread_local unsigned callsOfThisThread;

static kelStandinListener enterListener(void)
{
    pthread_mutex_lock(&listenerLock);
    const kelStandinListener current = listener;
    ++callsUnderWay;
    pthread_mutex_unlock(&listenerLock);
    ++callsOfThisThread;
    return current;
}

static void leaveListener(void)
{
    --callsOfThisThread;
    pthread_mutex_lock(&listenerLock);
    --callsUnderWay;
    pthread_cond_broadcast(&callReturned);
    pthread_mutex_unlock(&listenerLock);
}

void tellAppeared(portInstance_t instance)
{
    const kelStandinListener current = enterListener();
    if (current.appeared != NULL)
        current.appeared(current.user, instance);
    leaveListener();
}

void tellDisappeared(portInstance_t instance)
{
    const kelStandinListener current = enterListener();
    if (current.disappeared != NULL)
        current.disappeared(current.user, instance);
    leaveListener();
}

void tellLinkChanged(portInstance_t instance, int up)
{
    const kelStandinListener current = enterListener();
    if (current.linkChanged != NULL)
        current.linkChanged(current.user, instance, up);
    leaveListener();
}

void kelStandinSetListener(const kelStandinListener *replacement)
{
    pthread_mutex_lock(&listenerLock);
    if (replacement != NULL)
        listener = *replacement;
    else
        memset(&listener, 0, sizeof listener);
    while (callsUnderWay > callsOfThisThread)
        pthread_cond_wait(&callReturned, &listenerLock);
    pthread_mutex_unlock(&listenerLock);
}
