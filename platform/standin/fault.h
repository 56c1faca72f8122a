/* fault.h: what the calls of kel_platform.h ask before they answer. */
#ifndef STANDIN_FAULT_H
#define STANDIN_FAULT_H

#include "kel_standin.h"

#include <stdbool.h>

/* How one call is troubled. */
struct trouble {
    bool replaceResult;
    uint32_t result;
    kelStandinHandOut handOut;
};

/* Counts the call, runs the hook of its fault, and says how it is troubled. Called with no lock held. */
struct trouble troubleOf(kelStandinCall call, uint32_t asked);

static inline int resultOr(const struct trouble *trouble, int result)
{
    return trouble->replaceResult ? (int)trouble->result : result;
}

/* Hands out a record to the caller, or what the trouble wants. */
static inline void handOutRecord(const struct trouble *trouble, pif_ **to, pif_ *record)
{
    if (to != NULL && trouble->handOut != KEL_HAND_OUT_EMPTY)
        *to = trouble->handOut == KEL_HAND_OUT_NULL ? NULL : record;
}

void clearFaults(void);

#endif
