#include "models/delta_list_model.h"

#include <gtest/gtest.h>

#include <random>

namespace
{
constexpr size_t Timers = 24;

// Random calls on a list and its model; what aged() does is random too.
class RandomProgram
{
public:
    explicit RandomProgram(unsigned seed)
        : random_(seed), both_(Timers, below(3) == 0 ? 0xFFFFFFF0 : 1 + below(30), 1 + below(5), below(3) == 0)
    {
        if (below(2) == 0) {
            both_.inAged = [this](size_t id) { act(id); };
        }
    }

    const char *firstDifference(unsigned steps)
    {
        for (unsigned i = 0; i < steps; ++i) {
            step();
            if (const char *difference = both_.differs())
                return difference;
        }
        return nullptr;
    }

private:
    unsigned below(unsigned limit)
    {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_);
    }

    unsigned anyTime()
    {
        switch (below(8)) {
        case 0:
            return 0;
        case 1:
            return 0xFFFFFFFF - below(3);
        case 2:
            return 0x7FFFFFFF + below(3);
        default:
            return 1 + below(20);
        }
    }

    void step()
    {
        if (below(16) == 0)
            both_.list.elapsed = below(2) == 0 ? 0 : below(4) == 0 ? 0xFFFFFFFF - below(5) : below(10);
        if (below(4) == 0)
            advance();
        else
            change(below(Timers));
    }

    void advance()
    {
        switch (below(8)) {
        case 0:
            both_.tic(0);
            break;
        case 1:
            both_.tic(static_cast<unsigned>(both_.model.totalTime()));
            break;
        case 2:
            both_.setTailTime(1 + below(40), below(2) == 0);
            break;
        default:
            both_.tic(1 + below(8));
        }
    }

    // One call on a timer that does not wait for its aged().
    void change(size_t id)
    {
        if (both_.isFree(id))
            both_.add(id, anyTime());
        else if (both_.onList(id))
            below(2) == 0 ? both_.del(id) : both_.touch(id, anyTime());
    }

    // The body of aged(): a few calls on other timers, on this one, and its end; seldom a tic inside the tic.
    void act(size_t id)
    {
        for (unsigned i = below(3); i > 0; --i) {
            const size_t other = below(Timers);
            if (other != id)
                change(other);
        }
        if (both_.list.astable)
            return;
        switch (below(6)) {
        case 0:
            both_.add(id, anyTime());
            break;
        case 1:
            both_.replace(id);
            break;
        case 2:
            if (!nested_) {
                nested_ = true;
                both_.tic(1 + below(8));
                nested_ = false;
            }
            break;
        default:
            break;
        }
    }

    std::mt19937 random_;
    bool nested_ = false;
    DeltaListAndModel both_;
};

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
    for (unsigned seed = 0; seed < 3000; ++seed)
        ASSERT_STREQ(nullptr, RandomProgram(seed).firstDifference(150)) << "seed " << seed;
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
