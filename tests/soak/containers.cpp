// containers.cpp: a delta list and a memory pool that all workers share.
#include "subsystem.h"

#include "models/delta_list_model.h"
#include "models/memory_pool_model.h"
#include "vxw_shim/sem_lock.h"

#include <array>
#include <cstring>

namespace
{
using namespace soak;

class DeltaList : public Subsystem
{
public:
    DeltaList() : Subsystem("delta list")
    {
        list_.initSem(nullptr);
        list_.init(40, 1, false);
    }

    void round(Random &random, unsigned worker) override
    {
        for (int i = 0; i < 20; ++i) {
            if (random.oneIn(5))
                list_.tic(1 + random.below(3));
            else
                change(timers_[worker][random.below(TimersOfEach)], random);
        }
        did(20);
        SemLock hold(list_.dbID);
        if (planted == Plant::BrokenInvariant)
            ++list_.totalTime;
        mustHold(brokenInvariant(list_));
    }
    void settle() override
    {
        uint64_t gone = 0, waiting = 0;
        for (auto &ofWorker : timers_) {
            for (Timer &timer : ofWorker) {
                gone += timer.timesAged + timer.timesDeleted;
                waiting += isOnList(timer) ? 1U : 0U;
            }
        }
        must(waiting == list_.numEntries && added_ == gone + waiting,
             "a timer that was added is aged or deleted, once");
    }

private:
    static constexpr unsigned TimersOfEach = 16;

    struct Timer : CDeltaListEntry {
        void aged() override
        {
            ++timesAged;
        }
        uint64_t timesAged = 0, timesDeleted = 0; // under dbID
    };

    bool isOnList(const Timer &timer) const
    {
        return timer.prev != nullptr || list_.head == &timer;
    }
    // The lock is recursive: with it held, the timer cannot age between the look and the call.
    void change(Timer &timer, Random &random)
    {
        SemLock hold(list_.dbID);
        if (!isOnList(timer)) {
            list_.add(&timer, random.below(60));
            ++added_;
        } else if (random.oneIn(2)) {
            list_.touch(&timer, random.below(60));
        } else {
            list_.del(&timer);
            ++timer.timesDeleted;
        }
    }

    CDeltaList list_;
    uint64_t added_ = 0; // under dbID
    std::array<std::array<Timer, TimersOfEach>, Workers> timers_;
};

class Pool : public Subsystem
{
public:
    Pool() : Subsystem("memory pool"), pool_(BlockSize, Blocks) {}

    // Fewer blocks than the workers want, so that some wait.
    void round(Random &random, unsigned worker) override
    {
        const auto mark = static_cast<int>(worker + 1);
        void *held[2] = {};
        for (int i = 0; i < 10; ++i) {
            void *&block = held[random.below(2)];
            if (block != nullptr)
                free(block, mark);
            block = pool_.vxAlloc(static_cast<int>(random.ticks()));
            if (block != nullptr)
                memset(block, mark, BlockSize);
        }
        did(10);
        for (void *block : held)
            if (block != nullptr)
                free(block, mark);
        must(pool_.vxFree(&held) == 0xFFFFFFFF, "what is no block is refused");
        SemLock hold(pool_.listLock);
        mustHold(brokenInvariant(pool_));
    }
    void settle() override
    {
        must(pool_.getNodeCount() == Blocks, "every block came back");
    }

private:
    static constexpr uint32_t BlockSize = 24, Blocks = 12;

    void free(void *block, int mark)
    {
        const auto *bytes = static_cast<const unsigned char *>(block);
        for (uint32_t i = 0; i < BlockSize; ++i)
            must(bytes[i] == mark, "nobody else writes into a block");
        must(pool_.vxFree(block) == 0, "a block is taken back");
        did();
    }

    vxFixedSizeMemPool pool_;
};
} // namespace

void soak::addContainers(Subsystems &all)
{
    all.push_back(std::make_unique<DeltaList>());
    all.push_back(std::make_unique<Pool>());
}
