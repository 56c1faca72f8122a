#include "models/msg_queue_x_model.h"

#include "harness/printed_by.h"
#include "harness/seeded_chooser.h"

#include <gtest/gtest.h>

namespace
{
class MsgQueueXModelCase : public testing::Test
{
protected:
    MsgQueueXModelCase()
    {
        SBaseQ::timerSig = semBCreate(SEM_Q_FIFO, SEM_EMPTY);
    }
    ~MsgQueueXModelCase() override
    {
        semDelete(SBaseQ::timerSig);
        SBaseQ::timerSig = nullptr;
    }
};
} // namespace

TEST_F(MsgQueueXModelCase, AgreesAfterAnyProgram)
{
    printedBy([] { // a give whose message recvQ() took already is reported
        for (unsigned seed = 0; seed < 500; ++seed) {
            SeededChooser choose(seed);
            MsgQueueXProgram program(choose);
            for (int step = 0; step < 300; ++step)
                ASSERT_STREQ(nullptr, program.step(choose)) << "seed " << seed << ", step " << step;
        }
    });
}

TEST_F(MsgQueueXModelCase, NoticesChangesBehindItsBack)
{
    SeededChooser choose(3);
    MsgQueueXProgram program(choose);
    SMsgQueueX &queue = program.queue();
    ASSERT_STREQ(nullptr, program.difference());
    queue.txBlocking = true;
    EXPECT_STREQ("senders must not wait as they should", program.difference());
    queue.txBlocking = false;
    semGive(queue.sendFlag);
    EXPECT_STREQ("another number of turns", program.difference());
    semTake(queue.sendFlag, 0);
    semGive(queue.cflag);
    EXPECT_STREQ("another number of gives", program.difference());
    semTake(queue.cflag, 0);
    queue.send("x", 1, 0, 0);
    EXPECT_STREQ("another number of messages", program.difference());
    program.model.send("x", false, 0);
    EXPECT_STREQ(nullptr, program.difference());
    queue.msgQ[0] = 'y';
    EXPECT_STREQ("another message is next", program.difference());
    queue.msgQ[0] = 'x';
    queue.msgLen[0] = 0;
    EXPECT_STREQ("another message is next", program.difference());
}
