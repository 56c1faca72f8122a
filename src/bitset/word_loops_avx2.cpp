// word_loops_avx2.cpp: the loops over many words for x86-64 processors with AVX2 and POPCNT, whose instructions this
// source is compiled to; chooseLoops() sees to it that only they run it.
#include "bitset/word_loops_body.h"

const WordLoops avx2Loops = loops;
