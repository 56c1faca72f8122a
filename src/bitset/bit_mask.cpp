// bit_mask.cpp: construction, single bits and words, and whole-mask logic of CBitMask.
//
// Policy:     a mask owns its words (autoDelete) or views the caller's; only init() changes which, and how many.
// Locking:    none. Single bits are read and written with relaxed atomics, because the owners of some masks let readers
//             in without the lock that their writers hold; whole-mask loops are plain, so that they vectorise.
// Invariants: maskPtr is null exactly when numWords is 0; an owner's array came from new[]; the bits past the requested
//             size are ordinary bits; the spare bits are never written after construction.
// Cost:       a single bit is one word; everything else is one pass over the words.
#include "bitset.h"

#include "bitset/mask_words.h"
#include "bitset/word_loops.h"
#include "vxw_shim/unlocked_access.h"

#include <algorithm>

namespace
{
constexpr size_t objectBytes = 24;

void becomeLiveAndEmpty(CBitMask &mask)
{
    mask.spare = 0;
    mask.signature = liveMaskSignature;
    becomeEmpty(mask);
}

unsigned sharedWords(const CBitMask &left, const CBitMask &right)
{
    return std::min<unsigned>(left.numWords, right.numWords);
}

// Does `one` to the words that both masks have, or, when they are not few, the loop that does the same.
template <class One>
void combine(CBitMask &mask, const CBitMask &other, void (*WordLoops::*loop)(unsigned *, const unsigned *, size_t),
             One one)
{
    unsigned *const to = mask.maskPtr;
    const unsigned *const from = other.maskPtr;
    const unsigned count = sharedWords(mask, other);
    if (count > fewWords)
        return (wordLoops().*loop)(to, from, count);
    for (unsigned i = 0; i < count; ++i)
        one(to[i], from[i]);
}

void complementWord(unsigned &to, unsigned from)
{
    to = ~from;
}

bool changeWord(unsigned &word, unsigned value)
{
    const bool changed = word != value;
    word = value;
    return changed;
}
} // namespace

unsigned int CBitMask::version = 0x01000001;

CBitMask::CBitMask()
{
    becomeLiveAndEmpty(*this);
}

CBitMask::CBitMask(unsigned int bits)
{
    becomeLiveAndEmpty(*this);
    CBitMask::init(bits);
}

CBitMask::CBitMask(unsigned int wordCount, unsigned int *words)
{
    becomeLiveAndEmpty(*this);
    CBitMask::init(wordCount, words);
}

CBitMask::CBitMask(CBitMask const &other, bool invert)
{
    becomeLiveAndEmpty(*this);
    CBitMask::init(other, invert);
}

CBitMask::CBitMask(unsigned char const *bytes, unsigned int numBytes)
{
    becomeLiveAndEmpty(*this);
    CBitMask::init(bytes, numBytes);
}

CBitMask::~CBitMask()
{
    // The object ends here, so the compiler drops plain stores to it; printCBitMask() relies on this one.
    static_cast<volatile CBitMask *>(this)->signature = 0;
    if (autoDelete)
        delete[] maskPtr;
}

void CBitMask::init(unsigned int bits)
{
    releaseWords(*this);
    becomeEmpty(*this);
    if (bits == 0 || !ownWords(*this, (bits - 1) / 32 + 1))
        return;
    reset(0, 0); // NOLINT(*.VirtualCall): a derived class's own, once it is constructed
    tailBits = (0U - bits) & 31U;
}

void CBitMask::init(CBitMask const &other, bool invert)
{
    releaseWords(*this);
    // Read before this mask, which may itself be the other, lets go of the words that it views.
    const unsigned *const from = other.maskPtr;
    const unsigned count = other.numWords;
    const unsigned tail = other.tailBits;
    becomeEmpty(*this);
    if (!ownWords(*this, count))
        return;
    const unsigned complement = invert ? 0xFFFFFFFFU : 0U;
    for (unsigned i = 0; i < count; ++i)
        maskPtr[i] = from[i] ^ complement;
    tailBits = tail & 31U;
}

void CBitMask::init(unsigned int wordCount, unsigned int *words)
{
    releaseWords(*this);
    tailBits = 0;
    // Kept: without words a view goes on viewing its old array; only owned words are dropped
    // (BitMaskInit.WithoutWordsAViewKeepsViewingItsOldArray).
    if (wordCount == 0 || words == nullptr)
        return;
    numWords = wordCount & 0xFFFFU;
    maskPtr = numWords != 0 ? words : nullptr;
}

size_t CBitMask::size() const
{
    return size_t{numWords} * 4 + objectBytes;
}

bool CBitMask::setBit(unsigned int bit)
{
    if (bit / 32 >= numWords)
        return false;
    unsigned &word = maskPtr[bit / 32];
    const unsigned old = readUnlocked(word);
    if (old & bitInWord(bit))
        return false;
    writeUnlocked(word, old | bitInWord(bit));
    return true;
}

bool CBitMask::clrBit(unsigned int bit)
{
    if (bit / 32 >= numWords)
        return false;
    unsigned &word = maskPtr[bit / 32];
    const unsigned old = readUnlocked(word);
    if (!(old & bitInWord(bit)))
        return false;
    writeUnlocked(word, old & ~bitInWord(bit));
    return true;
}

bool CBitMask::assignBit(unsigned int bit, bool value)
{
    if (bit / 32 >= numWords)
        return false;
    unsigned &word = maskPtr[bit / 32];
    const unsigned old = readUnlocked(word);
    if (((old & bitInWord(bit)) != 0) == value)
        return false;
    writeUnlocked(word, old ^ bitInWord(bit));
    return true;
}

bool CBitMask::chkBit(unsigned int bit) const
{
    return bit / 32 < numWords && (readUnlocked(maskPtr[bit / 32]) & bitInWord(bit)) != 0;
}

unsigned int CBitMask::operator[](unsigned int wordIndex) const
{
    return wordIndex < numWords ? maskPtr[wordIndex] : 0;
}

bool CBitMask::setWrd32(unsigned int wordIndex, unsigned int word)
{
    return wordIndex < numWords && changeWord(maskPtr[wordIndex], word);
}

bool CBitMask::setWrd8(unsigned int octetIndex, unsigned char octet)
{
    if (octetIndex / 4 >= numWords)
        return false;
    unsigned &word = maskPtr[octetIndex / 4];
    const unsigned shift = 24 - 8 * (octetIndex % 4);
    return changeWord(word, (word & ~(0xFFU << shift)) | unsigned{octet} << shift);
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): words are copied onto themselves
CBitMask &CBitMask::operator=(CBitMask const &other)
{
    copyWords(maskPtr, other.maskPtr, sharedWords(*this, other));
    return *this;
}

CBitMask &CBitMask::operator=(unsigned int const *words)
{
    copyWords(maskPtr, words, numWords);
    return *this;
}

CBitMask &CBitMask::operator&=(CBitMask const &other)
{
    combine(*this, other, &WordLoops::andInto, [](unsigned &to, unsigned from) { to &= from; });
    return *this;
}

CBitMask &CBitMask::operator^=(CBitMask const &other)
{
    combine(*this, other, &WordLoops::xorInto, [](unsigned &to, unsigned from) { to ^= from; });
    return *this;
}

CBitMask &CBitMask::operator|=(CBitMask const &other)
{
    combine(*this, other, &WordLoops::orInto, [](unsigned &to, unsigned from) { to |= from; });
    return *this;
}

bool CBitMask::operator==(CBitMask const &other) const
{
    const unsigned count = numWords;
    if (count != other.numWords)
        return false;
    if (count > fewWords)
        return std::equal(maskPtr, maskPtr + count, other.maskPtr);
    unsigned different = 0;
    for (unsigned i = 0; i < count; ++i)
        different |= maskPtr[i] ^ other.maskPtr[i];
    return different == 0;
}

bool CBitMask::operator!=(CBitMask const &other) const
{
    return !(*this == other);
}

CBitMask CBitMask::operator~() const
{
    return CBitMask(*this, true);
}

void CBitMask::bitwiseNotEqual()
{
    combine(*this, *this, &WordLoops::complement, complementWord);
}

void CBitMask::bitwiseNotEqual(CBitMask const &other)
{
    combine(*this, other, &WordLoops::complement, complementWord);
}
