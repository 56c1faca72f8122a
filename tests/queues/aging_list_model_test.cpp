#include "models/aging_list_model.h"

#include "harness/seeded_chooser.h"

#include <gtest/gtest.h>

namespace
{
class AgingListCase : public testing::Test
{
protected:
    void SetUp() override
    {
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    }
    void TearDown() override
    {
        semDelete(SBaseQ::timerSig);
        SBaseQ::timerSig = nullptr;
    }
};
using AgingListModelCase = AgingListCase;
} // namespace

TEST_F(AgingListModelCase, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 500; ++seed) {
        SeededChooser choose(seed);
        AgingListProgram program(choose);
        for (int step = 0; step < 300; ++step)
            ASSERT_STREQ(nullptr, program.step(choose)) << "seed " << seed << ", step " << step;
    }
}

// The twin: a list that was changed behind the model's back is found out.
TEST_F(AgingListModelCase, NoticesAQueueThatIsDueAtAnotherTick)
{
    SemLock hold(SBaseQ::lockSem);
    SBaseQ first(1, 0, 10, 0, nullptr);
    SBaseQ second(1, 0, 20, 0, nullptr);
    AgingListModel model;
    SBaseQ::sleepStart = 0;
    queues::aging_list::insert(first);
    model.add(first, 0, 0);
    queues::aging_list::insert(second);
    model.add(second, 0, 0);
    ASSERT_STREQ(nullptr, model.difference());

    second.ageTtl += 1;
    EXPECT_STREQ("a queue is due at another tick", model.difference());
    EXPECT_STREQ("tailTime is the sum of all deltas", brokenInvariant());
    second.ageTtl -= 1;
    first.delayedGives = 0;
    EXPECT_STREQ("a linked queue holds a give back", brokenInvariant());
    first.delayedGives = 1;
    first.expired = true;
    EXPECT_STREQ("a linked queue is aging and not expired", brokenInvariant());
    first.expired = false;
    second.agePrev = nullptr;
    EXPECT_STREQ("each queue names the one before it", brokenInvariant());
    second.agePrev = &first;
    SBaseQ::headTime += 1;
    EXPECT_STREQ("headTime is the head's ageTtl", brokenInvariant());
    SBaseQ::headTime -= 1;
    SBaseQ::sleepStart = 1;
    EXPECT_STREQ("counting starts at another tick", model.difference());
    SBaseQ::sleepStart = 0;
    model.remove(second);
    EXPECT_STREQ("the list is longer", model.difference());
    EXPECT_STREQ(nullptr, brokenInvariant());
}
