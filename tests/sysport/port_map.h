// port_map.h: every test of the port map starts with a platform that knows nothing and an empty table.
#pragma once

#include "fake_platform.h"
#include "semaphore_spy.h"

#include "bitset.h"
#include "sysport.h"

#include <gtest/gtest.h>

#include <thread>

class PortMap : public testing::Test
{
protected:
    PortMap()
    {
        fake.reset();
        spy.reset();
        kelSysPortUtilInit();
        spy.reset();
        fake.forget();
    }
    ~PortMap() override
    {
        endTable();
        if (kelSysPortUtil::mSem != nullptr)
            semDelete(kelSysPortUtil::mSem);
        kelSysPortUtil::mSem = nullptr;
        kelSysPortUtil::badHashKey = 0;
        kelSysPortUtil::idxOutOfBounds = 0;
        kelSysPortUtil::entryAlreadyInUse = 0;
    }

    static kelSysPortUtil &table()
    {
        return *kelSysPortUtil::localPtr;
    }
    static void endTable()
    {
        delete kelSysPortUtil::localPtr;
    }
};

// How often mSem was taken, without limit, and given back while `code` ran; -1 when the two differ.
template <class Code>
int locksTakenBy(Code code)
{
    const int takes = spy.takes;
    const int gives = spy.gives;
    spy.lastTimeout = 0xFFFFFFFF;
    code();
    const bool even = spy.takes - takes == spy.gives - gives && spy.lastTimeout == 0xFFFFFFFF;
    return even ? spy.takes - takes : -1;
}

// Runs `code` while another thread holds mSem: whatever waits for it hangs.
template <class Code>
void whileAnotherThreadHoldsTheLock(Code code)
{
    semTake(kelSysPortUtil::mSem, 0xFFFFFFFF);
    std::thread(code).join();
    semGive(kelSysPortUtil::mSem);
}

// Tries to take mSem from another thread: false when this one holds it.
inline bool mapIsUnlocked()
{
    bool free = false;
    std::thread([&] {
        free = semTake(kelSysPortUtil::mSem, 0) == 0;
        if (free)
            semGive(kelSysPortUtil::mSem);
    }).join();
    return free;
}

// The table's insides, for tests that are alone with it.
inline kelSysPortUtil::portRecord &recordOf(uint32_t systemPort) KEL_UNCHECKED_LOCKING
{
    return kelSysPortUtil::localPtr->portRecords[systemPort];
}

inline kelSysPortUtil::portRecord *&bucketOf(uint32_t hashKey) KEL_UNCHECKED_LOCKING
{
    return kelSysPortUtil::localPtr->hashBuckets[hashKey];
}
