// mask_words.h: the words behind a mask, for the sources of this room.
//
// A mask that owns words frees them with delete[]; a count that 16 bits cannot hold is cut, as the field is.
#pragma once

#include "bitset.h"

#include <functional>
#include <typeinfo>

constexpr unsigned liveMaskSignature = 0xA5;
constexpr unsigned bitNotFound = 0xFFFFFFFF;

// Bit `bit` within its word; bits count from the most significant.
constexpr unsigned bitInWord(unsigned bit)
{
    return 0x80000000U >> (bit % 32);
}

// Sums of 2, of 4, of 8 bits side by side; the multiplication adds the four octets up in the top one. The compiler's
// own count is a library call on x86-64, ten times as slow.
constexpr unsigned bitsSetIn(unsigned word)
{
    word -= word >> 1 & 0x55555555;
    word = (word & 0x33333333) + (word >> 2 & 0x33333333);
    return ((word + (word >> 4)) & 0x0F0F0F0F) * 0x01010101 >> 24;
}
static_assert(bitsSetIn(0xFFFFFFFF) == 32 && bitsSetIn(0x80000001) == 2);

constexpr unsigned bitsOf(const CBitMask &mask)
{
    return mask.numWords * 32U;
}

// No derived class has its own idea of this mask's operations, so they may be done together, without the virtual calls.
// Where the types are described is compared, not what they say: a class of a client that is built without such
// descriptions (-fno-rtti) has none to look into.
inline bool isPlain(const CBitMask &mask)
{
    return &typeid(mask) == &typeid(CBitMask);
}

struct Words {
    const unsigned *first;
    const unsigned *end;
};

inline bool areApart(Words some, Words others)
{
    const std::less_equal<> notBehind;
    return notBehind(some.end, others.first) || notBehind(others.end, some.first);
}

// Frees the words that `mask` owns; a view is left as it is.
inline void releaseWords(CBitMask &mask)
{
    if (!mask.autoDelete)
        return;
    delete[] mask.maskPtr;
    mask.numWords = 0;
    mask.maskPtr = nullptr;
    mask.autoDelete = 0;
}

inline void becomeEmpty(CBitMask &mask)
{
    mask.autoDelete = 0;
    mask.tailBits = 0;
    mask.numWords = 0;
    mask.maskPtr = nullptr;
}

// Gives `mask` an array of its own, not initialised, of `words` words cut to 16 bits. Returns false, with the mask
// as it was, when that leaves none. Should the allocation throw, the mask is as it was, too.
inline bool ownWords(CBitMask &mask, unsigned words)
{
    const unsigned count = words & 0xFFFFU;
    if (count == 0)
        return false;
    mask.maskPtr = new unsigned[count];
    mask.numWords = count & 0xFFFFU;
    mask.autoDelete = 1;
    return true;
}
