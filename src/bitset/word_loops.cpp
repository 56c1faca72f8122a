// word_loops.cpp: the loops over many words for any processor, and the choice of those for this one.
//
// Policy:     64-bit Arm always has vectors. On x86-64 AVX2 is asked for: the C library knows, and whether the kernel
//             keeps the registers.
// Locking:    none. The choice is one atomic pointer; threads that choose together choose the same.
// Invariants: every variant gives the same words.
// Cost:       a call through a pointer; a few words are better done where they are wanted.
#include "bitset/word_loops_body.h"

#if defined(__x86_64__) && __has_include(<sys/platform/x86.h>)
#include <sys/platform/x86.h>
#define KEL_PROCESSOR_HAS_AVX2() (CPU_FEATURE_ACTIVE(AVX2) && CPU_FEATURE_ACTIVE(POPCNT))
#endif

std::atomic<const WordLoops *> chosenLoops;

const WordLoops anyProcessorsLoops = loops;

const WordLoops &chooseLoops()
{
    const WordLoops *choice = &anyProcessorsLoops;
#ifdef KEL_PROCESSOR_HAS_AVX2
    if (KEL_PROCESSOR_HAS_AVX2())
        choice = &avx2Loops;
#endif
    chosenLoops.store(choice, std::memory_order_relaxed);
    return *choice;
}
