// fixed_msg_queue.h: the record behind a MSG_Q_ID.
#pragma once

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

// A slot: how many bytes its message has (native byte order, at any alignment), then room for max_data_len bytes. A
// slot that holds no message has length 0.
struct msg_q {
    pthread_mutex_t lock;    // guards front, num_requests and the slots; not recursive
    pthread_cond_t notEmpty; // broadcast after each send
    pthread_cond_t notFull;  // broadcast after each receive
    int max_size_queue;      // slots; set once, above 0
    char *queue_mem;         // the slots; set once, owned
    int front;               // slot of the oldest message; under lock
    int num_requests;        // messages held; under lock
    int max_data_len;        // bytes a message may have; set once, above 0
    size_t allocated;        // bytes behind queue_mem: less than all slots take when their product wrapped; set once
};

static_assert(offsetof(msg_q, notEmpty) == sizeof(pthread_mutex_t));
static_assert(offsetof(msg_q, notFull) == offsetof(msg_q, notEmpty) + sizeof(pthread_cond_t));
static_assert(offsetof(msg_q, max_size_queue) == offsetof(msg_q, notFull) + sizeof(pthread_cond_t));
static_assert(offsetof(msg_q, queue_mem) == offsetof(msg_q, max_size_queue) + 8);
static_assert(offsetof(msg_q, front) == offsetof(msg_q, queue_mem) + 8);
static_assert(offsetof(msg_q, num_requests) == offsetof(msg_q, front) + 4);
static_assert(offsetof(msg_q, max_data_len) == offsetof(msg_q, front) + 8);
#if defined(__x86_64__)
static_assert(offsetof(msg_q, max_size_queue) == 136 && offsetof(msg_q, max_data_len) == 160);
#elif defined(__aarch64__)
static_assert(offsetof(msg_q, max_size_queue) == 144 && offsetof(msg_q, max_data_len) == 168);
#endif
