/* trace_ring.h: emptying all trace buffers. */
#ifndef STANDIN_TRACE_RING_H
#define STANDIN_TRACE_RING_H

void dropTraceLines(void);

#endif
