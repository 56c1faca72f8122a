// memory_pool_model.h: what must hold of a memory pool, and a pool that is driven together with a model of it.
//
// One thread at a time: nothing here locks. Shared by the tests, the stress tests and the fuzzers.
#pragma once

#include "mempool.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#ifdef __clang__ // the tests look into pools that no other thread uses at the time
#pragma clang diagnostic ignored "-Wthread-safety"
#endif

// The address of the next free block, as a free block holds it.
inline const unsigned char *linkOf(const unsigned char *block)
{
    uint64_t address = 0;
    for (int i = 0; i < 8; ++i)
        address = address * 256 + block[i];
    return reinterpret_cast<const unsigned char *>(static_cast<uintptr_t>(address));
}

// The first invariant of a usable pool that does not hold, or null. The caller holds listLock or is alone.
inline const char *brokenInvariant(const vxFixedSizeMemPool &pool)
{
    uint32_t marked = 0;
    for (uint32_t i = 0; i < pool.checkMapSize; ++i)
        marked += static_cast<uint32_t>(std::popcount(pool.checkMap[i]));
    if (marked != pool.freeCount)
        return "as many bits are set as blocks are free";
    if (pool.freeCount == 0 && pool.freeHead != nullptr)
        return "freeHead is null when nothing is free";
    const unsigned char *block = pool.freeHead;
    for (uint32_t i = 0; i < pool.freeCount; ++i) {
        const auto offset = reinterpret_cast<uintptr_t>(block) - reinterpret_cast<uintptr_t>(pool.memBase);
        const auto index = offset / pool.blockSize;
        if (offset % pool.blockSize != 0 || index >= pool.blockCount)
            return "the free list leads through blocks of the pool";
        if ((pool.checkMap[index / 8] >> (index % 8) & 1) == 0)
            return "the bit of each block in the free list is set";
        block = linkOf(block);
    }
    return block == nullptr ? nullptr : "the last free block holds zeros";
}

// A pool and its model, given the same calls. The model is a stack of block numbers. Blocks that are out are filled
// with their number, and must come back so.
class PoolAndModel
{
public:
    PoolAndModel(uint32_t blockSize, uint32_t blockCount) : pool(blockSize, blockCount)
    {
        for (uint32_t i = 0; i < blockCount; ++i)
            free_.push_back(i);
    }

    void alloc(int timeout)
    {
        auto *block = static_cast<unsigned char *>(pool.vxAlloc(timeout));
        if (free_.empty()) {
            expect(block == nullptr, "nothing is handed out when nothing is free");
            return;
        }
        const uint32_t index = free_.back();
        free_.pop_back();
        out_.push_back(index);
        expect(block == addressOf(index), "the block freed last is handed out first");
        if (difference_ == nullptr)
            memset(block, patternOf(index), pool.blockSize);
    }
    // Frees one of the blocks that are out, the nth of them.
    void free(size_t nth)
    {
        const uint32_t index = out_[nth];
        out_.erase(out_.begin() + static_cast<std::ptrdiff_t>(nth));
        expect(keepsItsPattern(index), "a block that is out is left alone");
        expect(pool.vxFree(addressOf(index)) == 0, "a block that is out is taken back");
        free_.push_back(index);
    }
    void freeRefused(void *pointer)
    {
        expect(pool.vxFree(pointer) == 0xFFFFFFFF, "anything else is refused");
    }

    unsigned char *addressOf(uint32_t index)
    {
        return pool.memBase + size_t{index} * pool.blockSize;
    }
    const std::vector<uint32_t> &freeBlocks() const
    {
        return free_;
    }
    const std::vector<uint32_t> &blocksOut() const
    {
        return out_;
    }

    // The first difference seen so far or now, or null.
    const char *differs()
    {
        if (difference_ != nullptr)
            return difference_;
        if (const char *broken = brokenInvariant(pool))
            return broken;
        if (pool.getNodeCount() != free_.size())
            return "the count is that of the model";
        const unsigned char *block = pool.getMemHeader();
        for (size_t i = free_.size(); i > 0; --i) {
            if (block != addressOf(free_[i - 1]))
                return "the free list has the order of the model";
            block = linkOf(block);
        }
        for (uint32_t index : out_) {
            if (!keepsItsPattern(index))
                return "a block that is out is left alone";
        }
        return nullptr;
    }

    vxFixedSizeMemPool pool;

private:
    void expect(bool holds, const char *what)
    {
        if (!holds && difference_ == nullptr)
            difference_ = what;
    }
    static unsigned char patternOf(uint32_t index)
    {
        return static_cast<unsigned char>(index * 37 + 11);
    }
    bool keepsItsPattern(uint32_t index)
    {
        const unsigned char *block = addressOf(index);
        for (uint32_t i = 0; i < pool.blockSize; ++i) {
            if (block[i] != patternOf(index))
                return false;
        }
        return true;
    }

    std::vector<uint32_t> free_; // the last is handed out next
    std::vector<uint32_t> out_;
    const char *difference_ = nullptr;
};

// Allocations and frees, honest and hostile, on a pool and its model. Choices come from a Chooser (below()), so tests
// feed them from a seed and fuzzers from their input.
class MemoryPoolProgram
{
public:
    template <class Chooser>
    explicit MemoryPoolProgram(Chooser &choose) : both_{8 + choose.below(25), choose.below(40)}
    {
    }

    // Makes one call; returns what is wrong after it, or null.
    template <class Chooser>
    const char *step(Chooser &choose)
    {
        const auto chosen = [&](const std::vector<uint32_t> &blocks) {
            return choose.below(static_cast<unsigned>(blocks.size()));
        };
        switch (choose.below(8)) {
        case 0:
        case 1:
        case 2:
            both_.alloc(0);
            break;
        case 3:
        case 4:
            if (!both_.blocksOut().empty())
                both_.free(chosen(both_.blocksOut()));
            break;
        case 5: // free already
            if (!both_.freeBlocks().empty())
                both_.freeRefused(both_.addressOf(both_.freeBlocks()[chosen(both_.freeBlocks())]));
            break;
        case 6: { // anywhere inside, but not at the start of a block
            const unsigned offset = region() == 0 ? 0 : choose.below(region());
            if (region() == 0 || offset % both_.pool.blockSize != 0)
                both_.freeRefused(both_.pool.memBase + offset);
            break;
        }
        default:
            both_.freeRefused(outside(choose.below(6)));
        }
        return both_.differs();
    }

private:
    unsigned region() const
    {
        return both_.pool.blockSize * both_.pool.blockCount;
    }
    // Pointers that no block of the pool holds.
    void *outside(unsigned nth)
    {
        const auto base = reinterpret_cast<uintptr_t>(both_.pool.memBase);
        const uintptr_t addresses[] = {0,
                                       reinterpret_cast<uintptr_t>(this),
                                       base + region(),
                                       base - both_.pool.blockSize,
                                       base + region() + both_.pool.blockSize,
                                       UINTPTR_MAX};
        return reinterpret_cast<void *>(addresses[nth]);
    }

    PoolAndModel both_;
};
