#include "models/delta_list_model.h"

#include "harness/seeded_chooser.h"

#include <gtest/gtest.h>

namespace
{
// Three timers that expire at 3, 5 and 5.
class ThreeTimers : public DeltaListAndModel
{
public:
    ThreeTimers() : DeltaListAndModel(4, 10, 1, false)
    {
        add(0, 5);
        add(1, 5);
        add(2, 3);
    }
};
} // namespace

TEST(DeltaListModel, AgreesAfterAnyProgram)
{
    for (unsigned seed = 0; seed < 3000; ++seed) {
        SeededChooser choose(seed);
        DeltaListProgram program(choose);
        for (int step = 0; step < 150; ++step)
            ASSERT_STREQ(nullptr, program.step()) << "seed " << seed << ", step " << step;
    }
}

// The same comparison must see each kind of damage, or the test above proves nothing.
TEST(DeltaListModel, NoticesADeltaChangedBehindItsBack)
{
    ThreeTimers both;
    ASSERT_STREQ(nullptr, both.differs());
    both.timers[0]->time += 1;
    EXPECT_STREQ("the deltas add up to totalTime", both.differs());
}

TEST(DeltaListModel, NoticesAnExpiryMovedFromOneTimerToTheNext)
{
    ThreeTimers both;
    both.timers[2]->time += 1;
    both.timers[0]->time -= 1;
    EXPECT_STREQ("each timer expires when it is due", both.differs());
}

TEST(DeltaListModel, NoticesTwoTimersThatAreDueTogetherInTheWrongOrder)
{
    ThreeTimers both;
    both.list.del(both.timers[0].get());
    both.list.add(both.timers[0].get(), 5);
    EXPECT_STREQ("the timers are in order of expiry, then of adding", both.differs());
}

TEST(DeltaListModel, NoticesATimerThatIsMissing)
{
    ThreeTimers both;
    both.list.del(both.timers[1].get());
    EXPECT_STREQ("no timer is missing", both.differs());
}

TEST(DeltaListModel, NoticesATimerThatIsLeftOver)
{
    ThreeTimers both;
    both.list.add(both.timers[3].get(), 7);
    EXPECT_STREQ("no timer is left over", both.differs());
}

TEST(DeltaListModel, NoticesAWrongResult)
{
    ThreeTimers both;
    both.list.tic(1);
    both.add(3, 9);
    EXPECT_STREQ("add returns the head time", both.differs());
}

TEST(DeltaListInvariants, EachIsMissedByName)
{
    const auto brokenBy = [](auto damage) {
        ThreeTimers both;
        damage(both.list, both.timers);
        return brokenInvariant(both.list);
    };
    EXPECT_STREQ(nullptr, brokenBy([](CDeltaList &, auto &) {}));
    EXPECT_STREQ("head and tail are null together", brokenBy([](CDeltaList &list, auto &) { list.head = nullptr; }));
    EXPECT_STREQ("nothing is in front of the head", brokenBy([](CDeltaList &list, auto &) { list.head = list.tail; }));
    EXPECT_STREQ("neighbours name each other", brokenBy([](CDeltaList &list, auto &) { list.tail = list.tail->prev; }));
    EXPECT_STREQ("neighbours name each other", brokenBy([](CDeltaList &list, auto &) { list.tail->prev = list.head; }));
    EXPECT_STREQ("numEntries counts the entries", brokenBy([](CDeltaList &list, auto &) { --list.numEntries; }));
    EXPECT_STREQ("numEntries counts the entries", brokenBy([](CDeltaList &list, auto &) { ++list.numEntries; }));
    EXPECT_STREQ("neighbours name each other", brokenBy([](CDeltaList &list, auto &) { list.tail->next = list.tail; }));
    EXPECT_STREQ("no expiry is out of range", brokenBy([](CDeltaList &list, auto &) { list.tail->time = 0xFFFFFFFF; }));
    EXPECT_STREQ("the deltas add up to totalTime", brokenBy([](CDeltaList &list, auto &) { ++list.totalTime; }));
    EXPECT_STREQ("killHead and killTail are null together",
                 brokenBy([](CDeltaList &list, auto &timers) { list.killTail = timers[3].get(); }));
    EXPECT_STREQ("nothing is in front of killHead", brokenBy([](CDeltaList &list, auto &timers) {
                     list.killHead = list.killTail = timers[3].get();
                     timers[3]->prev = timers[0].get();
                 }));
    EXPECT_STREQ("nothing that waits for aged() holds time", brokenBy([](CDeltaList &list, auto &timers) {
                     list.killHead = list.killTail = timers[3].get();
                     timers[3]->time = 1;
                 }));
    EXPECT_STREQ("the kill list hangs together", brokenBy([](CDeltaList &list, auto &timers) {
                     list.killHead = timers[3].get();
                     list.killTail = timers[0].get();
                 }));
}
