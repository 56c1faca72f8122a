/* trace_ring.c: bounded trace buffers of time-stamped lines; a new line drops the oldest ones.
 *
 * Locking:    a buffer's lock is held to copy one line in or out, never for more: a writer waits for a few hundred
 *             bytes at most, however long a reader takes. registryLock guards the list of buffers, which only grows.
 * Invariants: `tail` and `head` count the bytes since the start, so that a reader knows when its place was dropped;
 *             whole lines stand between them, each a line_header and its text; head - tail never exceeds the size.
 * Cost:       one formatting on the stack and two copies a line; nothing allocates after the opening.
 */
#include "trace_ring.h"
#include "fault.h"
#include "inventory.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct line_header {
    int64_t time;
    size_t length; /* of the text, without a zero */
};

struct trace_ring {
    pthread_mutex_t lock;
    uint64_t tail; /* under lock: where the oldest line begins */
    uint64_t head; /* under lock: behind the newest line */
    size_t size;
    char *bytes; /* under lock */
    char name[KEL_STANDIN_NAME_SIZE];
};

static pthread_mutex_t registryLock = PTHREAD_MUTEX_INITIALIZER;
static struct trace_ring *rings[KEL_STANDIN_MAX_TRACE_BUFFERS]; /* under registryLock; never closed */

static void copyIn(struct trace_ring *ring, uint64_t at, const void *from, size_t length)
{
    const size_t place = (size_t)(at % ring->size);
    const size_t first = length < ring->size - place ? length : ring->size - place;
    memcpy(ring->bytes + place, from, first);
    memcpy(ring->bytes, (const char *)from + first, length - first);
}

static void copyOut(const struct trace_ring *ring, uint64_t at, void *to, size_t length)
{
    const size_t place = (size_t)(at % ring->size);
    const size_t first = length < ring->size - place ? length : ring->size - place;
    memcpy(to, ring->bytes + place, first);
    memcpy((char *)to + first, ring->bytes, length - first);
}

static void dropOldest(struct trace_ring *ring)
{
    struct line_header header;
    copyOut(ring, ring->tail, &header, sizeof header);
    ring->tail += sizeof header + header.length;
}

static void append(struct trace_ring *ring, const char *text, size_t length)
{
    pthread_mutex_lock(&ring->lock);
    const struct line_header header = {.time = wallClock(), .length = length};
    while (ring->head - ring->tail + sizeof header + length > ring->size)
        dropOldest(ring);
    copyIn(ring, ring->head, &header, sizeof header);
    copyIn(ring, ring->head + sizeof header, text, length);
    ring->head += sizeof header + length;
    pthread_mutex_unlock(&ring->lock);
}

/* ---- Opening ---- */

static struct trace_ring *newRing(const char *name, unsigned size)
{
    enum { ONE_LINE = sizeof(struct line_header) + KEL_STANDIN_TRACE_LINE_SIZE };
    struct trace_ring *ring = calloc(1, sizeof *ring);
    if (ring == NULL)
        return NULL;
    ring->size = size < ONE_LINE ? (size_t)ONE_LINE : size;
    ring->bytes = malloc(ring->size);
    if (ring->bytes == NULL) {
        free(ring);
        return NULL;
    }
    pthread_mutex_init(&ring->lock, NULL);
    copyText(ring->name, sizeof ring->name, name);
    return ring;
}

/* The buffer with that name; a new one in the first free place when `size` is not 0. */
static struct trace_ring *findRing(const char *name, unsigned size)
{
    char cut[KEL_STANDIN_NAME_SIZE];
    copyText(cut, sizeof cut, name);
    pthread_mutex_lock(&registryLock);
    size_t place = 0;
    while (place < KEL_STANDIN_MAX_TRACE_BUFFERS && rings[place] != NULL && strcmp(rings[place]->name, cut) != 0)
        ++place;
    struct trace_ring *ring = NULL;
    if (place < KEL_STANDIN_MAX_TRACE_BUFFERS) {
        if (rings[place] == NULL && size != 0)
            rings[place] = newRing(cut, size);
        ring = rings[place];
    }
    pthread_mutex_unlock(&registryLock);
    return ring;
}

void *emsInitTraceBuffer(const char *name, unsigned size, int flags)
{
    (void)flags;
    const struct trouble trouble = troubleOf(KEL_CALL_TRACE_INIT, size);
    return trouble.handOut == KEL_HAND_OUT_TRUE ? findRing(name, size) : NULL;
}

/* ---- Writing and reading ---- */

void emsTraceLogf(void *buffer, int level, const char *format, ...)
{
    (void)level;
    (void)troubleOf(KEL_CALL_TRACE_LOG, 0);
    if (buffer == NULL)
        return;
    char line[KEL_STANDIN_TRACE_LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const int formatted = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (formatted < 0)
        return;
    size_t length = (size_t)formatted < sizeof line ? (size_t)formatted : sizeof line - 1;
    if (length > 0 && line[length - 1] == '\n')
        --length;
    append(buffer, line, length);
}

/* Copies the line at `*at`, or the oldest one when that was dropped, and moves `*at` behind it. */
static bool takeLine(struct trace_ring *ring, uint64_t *at, uint64_t end, int64_t *time, char *line)
{
    struct line_header header;
    pthread_mutex_lock(&ring->lock);
    if (*at < ring->tail)
        *at = ring->tail;
    const bool taken = *at < end;
    if (taken) {
        copyOut(ring, *at, &header, sizeof header);
        copyOut(ring, *at + sizeof header, line, header.length);
        line[header.length] = '\0';
        *time = header.time;
        *at += sizeof header + header.length;
    }
    pthread_mutex_unlock(&ring->lock);
    return taken;
}

int kelStandinReadTrace(const char *name, kelStandinTraceReader reader, void *user)
{
    struct trace_ring *ring = findRing(name, 0);
    if (ring == NULL || reader == NULL)
        return -1;
    pthread_mutex_lock(&ring->lock);
    uint64_t at = ring->tail;
    const uint64_t end = ring->head;
    pthread_mutex_unlock(&ring->lock);

    int lines = 0;
    int64_t time;
    char line[KEL_STANDIN_TRACE_LINE_SIZE];
    while (takeLine(ring, &at, end, &time, line)) {
        ++lines;
        if (reader(user, time, line) == 0)
            break;
    }
    return lines;
}

void dropTraceLines(void)
{
    pthread_mutex_lock(&registryLock);
    for (size_t place = 0; place < KEL_STANDIN_MAX_TRACE_BUFFERS && rings[place] != NULL; ++place) {
        pthread_mutex_lock(&rings[place]->lock);
        rings[place]->tail = rings[place]->head;
        pthread_mutex_unlock(&rings[place]->lock);
    }
    pthread_mutex_unlock(&registryLock);
}
