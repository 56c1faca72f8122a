/* cli_session.c: texts for management command-line sessions, which never wait for a slow or dead reader.
 *
 * Locking:    each session has its lock; a sink runs under it, a socket is only ever sent to without waiting.
 * Invariants: a slot's handle is 0 while it is free; a handle names its slot in the low byte and how many sessions were
 *             opened before in the rest, so that a handle that was closed does not reach the next session of the slot.
 *             A backlog exists only while something is in it; a dead session has none.
 * Cost:       one send a text; memory only for readers that are behind.
 */
#include "cli_session.h"

#include "fault.h"

#include <errno.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>

enum { SLOT_BITS = 8, GENERATIONS = 0x7FFFFF };
_Static_assert(KEL_STANDIN_MAX_SESSIONS == 1 << SLOT_BITS, "a handle's low byte is the slot");

struct session {
    pthread_mutex_t lock;
    int handle; /* 0: the slot is free */
    bool dead;
    int socket; /* -1: the texts go to the sink */
    int (*sink)(void *user, const char *text, size_t length);
    void *user;
    char *backlog; /* KEL_STANDIN_SESSION_BACKLOG bytes, or null */
    size_t backlogLength;
};

static struct session sessions[KEL_STANDIN_MAX_SESSIONS];
static pthread_once_t sessionsReady = PTHREAD_ONCE_INIT;
static atomic_uint openedSoFar;

static void initSessions(void)
{
    for (size_t slot = 0; slot < KEL_STANDIN_MAX_SESSIONS; ++slot)
        pthread_mutex_init(&sessions[slot].lock, NULL);
}

/* ---- Opening and closing ---- */

static int newHandle(size_t slot)
{
    const unsigned generation = atomic_fetch_add_explicit(&openedSoFar, 1, memory_order_relaxed) % GENERATIONS + 1;
    return (int)(generation << SLOT_BITS | (unsigned)slot);
}

/* Fills the first free slot. A slot whose lock is taken is in use, or just being closed: it is passed over. */
static int openSession(int socket, int (*sink)(void *, const char *, size_t), void *user)
{
    pthread_once(&sessionsReady, initSessions);
    int handle = 0;
    for (size_t slot = 0; slot < KEL_STANDIN_MAX_SESSIONS && handle == 0; ++slot) {
        struct session *session = &sessions[slot];
        if (pthread_mutex_trylock(&session->lock) != 0)
            continue;
        if (session->handle == 0) {
            handle = newHandle(slot);
            session->handle = handle;
            session->dead = false;
            session->socket = socket;
            session->sink = sink;
            session->user = user;
        }
        pthread_mutex_unlock(&session->lock);
    }
    return handle;
}

int kelStandinOpenSession(int socket)
{
    int type = 0;
    socklen_t size = sizeof type;
    if (getsockopt(socket, SOL_SOCKET, SO_TYPE, &type, &size) != 0)
        return 0;
    return openSession(socket, NULL, NULL);
}

int kelStandinOpenSink(int (*sink)(void *user, const char *text, size_t length), void *user)
{
    return sink == NULL ? 0 : openSession(-1, sink, user);
}

/* Returns the session with its lock taken; null when it is closed. */
static struct session *lockSession(int handle)
{
    if (handle <= 0)
        return NULL;
    pthread_once(&sessionsReady, initSessions);
    struct session *session = &sessions[handle & (KEL_STANDIN_MAX_SESSIONS - 1)];
    pthread_mutex_lock(&session->lock);
    if (session->handle == handle)
        return session;
    pthread_mutex_unlock(&session->lock);
    return NULL;
}

static void dropBacklog(struct session *session)
{
    free(session->backlog);
    session->backlog = NULL;
    session->backlogLength = 0;
}

int kelStandinCloseSession(int handle)
{
    struct session *session = lockSession(handle);
    if (session == NULL)
        return ENOENT;
    dropBacklog(session);
    session->handle = 0;
    pthread_mutex_unlock(&session->lock);
    return 0;
}

void closeSessions(void)
{
    pthread_once(&sessionsReady, initSessions);
    for (size_t slot = 0; slot < KEL_STANDIN_MAX_SESSIONS; ++slot) {
        pthread_mutex_lock(&sessions[slot].lock);
        dropBacklog(&sessions[slot]);
        sessions[slot].handle = 0;
        pthread_mutex_unlock(&sessions[slot].lock);
    }
}

/* ---- Sending ---- */

static void die(struct session *session)
{
    session->dead = true;
    dropBacklog(session);
}

/* Sends what the socket takes at once and returns how much that was; a peer that is gone makes the session dead. */
static size_t sendNow(struct session *session, const char *text, size_t length)
{
    size_t sent = 0;
    while (sent < length) {
        const ssize_t taken = send(session->socket, text + sent, length - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (taken >= 0) {
            sent += (size_t)taken;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS) {
            break;
        } else if (errno != EINTR) {
            die(session);
            break;
        }
    }
    return sent;
}

static void sendBacklog(struct session *session)
{
    const size_t sent = sendNow(session, session->backlog, session->backlogLength);
    if (session->dead)
        return;
    session->backlogLength -= sent;
    if (session->backlogLength == 0)
        dropBacklog(session);
    else
        memmove(session->backlog, session->backlog + sent, session->backlogLength);
}

static void keep(struct session *session, const char *text, size_t length)
{
    if (session->backlog == NULL)
        session->backlog = malloc(KEL_STANDIN_SESSION_BACKLOG);
    if (session->backlog == NULL || length > KEL_STANDIN_SESSION_BACKLOG - session->backlogLength) {
        die(session);
        return;
    }
    memcpy(session->backlog + session->backlogLength, text, length);
    session->backlogLength += length;
}

static void sendToSocket(struct session *session, const char *text, size_t length)
{
    size_t sent = 0;
    if (session->backlogLength > 0)
        sendBacklog(session);
    if (session->backlogLength == 0 && !session->dead)
        sent = sendNow(session, text, length);
    if (sent < length && !session->dead)
        keep(session, text + sent, length - sent);
}

int cmNotifyCLI(int cli, const char *text)
{
    const struct trouble trouble = troubleOf(KEL_CALL_NOTIFY_CLI, (uint32_t)cli);
    if (trouble.replaceResult || trouble.handOut != KEL_HAND_OUT_TRUE)
        return resultOr(&trouble, -1);
    struct session *session = text == NULL ? NULL : lockSession(cli);
    if (session == NULL)
        return -1;
    if (!session->dead && session->socket >= 0)
        sendToSocket(session, text, strlen(text));
    else if (!session->dead && session->sink(session->user, text, strlen(text)) != 0)
        die(session);
    const int result = session->dead ? -1 : 0;
    pthread_mutex_unlock(&session->lock);
    return result;
}

long kelStandinFlushSession(int handle)
{
    struct session *session = lockSession(handle);
    if (session == NULL)
        return -2;
    if (session->backlogLength > 0)
        sendBacklog(session);
    const long left = session->dead ? -1 : (long)session->backlogLength;
    pthread_mutex_unlock(&session->lock);
    return left;
}
