#include "models/multi_event_q_model.h"

#include "harness/printed_by.h"
#include "harness/seeded_chooser.h"

#include <gtest/gtest.h>

namespace
{
class MultiEventQModelCase : public testing::Test
{
protected:
    MultiEventQModelCase()
    {
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    }
    ~MultiEventQModelCase() override
    {
        semDelete(SBaseQ::timerSig);
        SBaseQ::timerSig = nullptr;
    }
};
} // namespace

TEST_F(MultiEventQModelCase, AgreesAfterAnyProgram)
{
    printedBy([] { // a give whose event recvQ() took already is reported
        for (unsigned seed = 0; seed < 300; ++seed) {
            SeededChooser choose(seed);
            MultiEventQProgram program(choose);
            for (int step = 0; step < 200; ++step)
                ASSERT_STREQ(nullptr, program.step(choose)) << "seed " << seed << ", step " << step;
        }
    });
}

TEST_F(MultiEventQModelCase, NoticesChangesBehindItsBack)
{
    SeededChooser choose(1);
    MultiEventQProgram program(choose);
    SMultiEventQ &queue = program.queue();
    ASSERT_STREQ(nullptr, program.difference());
    semGive(queue.cflag);
    EXPECT_STREQ("another number of gives", program.difference());
    semTake(queue.cflag, 0);
    queue.delayedGives += 1;
    EXPECT_STREQ("another number is held back", program.difference());
    queue.delayedGives -= 1;
    queue.pWrite += 1;
    EXPECT_STREQ("another number of events", program.difference());
    queue.pWrite -= 1;
    queue.empty = 0;
    EXPECT_STREQ("empty tells otherwise", program.difference());
    queue.empty = 1;
    queue.send(0, 1, 0, 0, 0);
    EXPECT_STREQ("empty tells otherwise", program.difference());
    program.model.send(0, 1, 0, 0, 0);
    EXPECT_STREQ(nullptr, program.difference());
    queue.send(0, 1, 0xFFFFFFFF, 0, 0);
    EXPECT_STREQ("an event looks otherwise", program.difference());
}
