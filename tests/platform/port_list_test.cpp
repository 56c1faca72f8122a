// Port lists: the walk, and reserving words for a slot.
#include "standin_fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
constexpr portInstance_t end = 0xFFFFFFFF;

using PortList = EmptyStandin;

void setPort(portlist_t &list, unsigned slot, unsigned port)
{
    list.words[list.slotOffset[slot] - 1u + (port - 1) / 32] |= 0x80000000u >> (port - 1) % 32;
}

std::vector<portInstance_t> portsIn(portlist_t &list)
{
    std::vector<portInstance_t> ports;
    for (portInstance_t port = PORTLIST_GETNEXTPORT(&list, end); port != end; port = PORTLIST_GETNEXTPORT(&list, port))
        ports.push_back(port);
    return ports;
}
} // namespace

TEST_F(PortList, EmptyListHasNoPorts)
{
    portlist_t list{};
    EXPECT_THAT(portsIn(list), IsEmpty());
    EXPECT_EQ(end, PORTLIST_GETNEXTPORT(nullptr, end));
}

TEST_F(PortList, WalkIsInPortInstanceOrderWhateverTheOrderOfTheWords)
{
    portlist_t list{};
    list.slotOffset[1] = 5;
    list.slotOffset[2] = 1;
    setPort(list, 2, 1);
    setPort(list, 1, 128);
    setPort(list, 1, 33);
    setPort(list, 1, 32);
    EXPECT_THAT(portsIn(list), ElementsAre(0x00010020, 0x00010021, 0x00010080, 0x00020001));
}

TEST_F(PortList, PreviousPortNeedNotBeInTheList)
{
    portlist_t list{};
    list.slotOffset[3] = 1;
    setPort(list, 3, 10);
    EXPECT_EQ(0x0003000Au, PORTLIST_GETNEXTPORT(&list, 0x00020005));
    EXPECT_EQ(0x0003000Au, PORTLIST_GETNEXTPORT(&list, 0x00030000));
    EXPECT_EQ(end, PORTLIST_GETNEXTPORT(&list, 0x0003000A));
    EXPECT_EQ(end, PORTLIST_GETNEXTPORT(&list, 0x0003FFFF));
    EXPECT_EQ(end, PORTLIST_GETNEXTPORT(&list, 0xFE000000)) << "a type that is neither port nor trunk";
}

TEST_F(PortList, TrunksAreTheWordsOfSlot255AndComeLast)
{
    kelStandinAddTrunk(2, "po2", 0, "");
    portlist_t list{};
    list.slotOffset[255] = 1;
    list.slotOffset[254] = 5;
    setPort(list, 255, 2);
    setPort(list, 255, 3);
    setPort(list, 254, 128);
    EXPECT_THAT(portsIn(list), ElementsAre(0x00FE0080, kelStandinTrunkInstance(2), 0x00FF0003))
        << "what is no trunk is named by slot and port";
}

// A list comes from outside: words beyond its end hold no ports and are not read.
TEST_F(PortList, OffsetWhoseWordsDoNotFitHoldsNoPorts)
{
    const auto list = std::make_unique<portlist_t>();
    std::ranges::fill(list->words, 0xFFFFFFFF);
    for (unsigned offset : {254u, 255u}) {
        list->slotOffset[1] = static_cast<uint8_t>(offset);
        EXPECT_THAT(portsIn(*list), IsEmpty()) << "offset " << offset;
    }
    list->slotOffset[1] = 253;
    EXPECT_EQ(128u, portsIn(*list).size());
}

TEST_F(PortList, ReservingGivesTheLowestFreeWordsAndClearsThem)
{
    portlist_t list{};
    list.words[0] = 0xFFFFFFFF;
    EXPECT_EQ(1u, plRsrvSlotBitOffset(&list, 7, nullptr));
    EXPECT_EQ(0u, list.words[0]) << "bits that nobody set must not become ports";
    EXPECT_EQ(5u, plRsrvSlotBitOffset(&list, 3, nullptr));
    EXPECT_EQ(1u, plRsrvSlotBitOffset(&list, 7, nullptr)) << "a slot keeps its words";
    list.slotOffset[7] = 0;
    EXPECT_EQ(1u, plRsrvSlotBitOffset(&list, 8, nullptr)) << "words that were given back are free";
}

TEST_F(PortList, WordsOfASlotAtAnOddOffsetAreNotGivenTwice)
{
    portlist_t list{};
    list.slotOffset[1] = 3;
    EXPECT_EQ(9u, plRsrvSlotBitOffset(&list, 2, nullptr));
}

TEST_F(PortList, SixtyFourSlotsFitAndNoMore)
{
    portlist_t list{};
    std::set<unsigned> offsets;
    for (unsigned slot = 1; slot <= 64; ++slot)
        offsets.insert(plRsrvSlotBitOffset(&list, slot, nullptr));
    EXPECT_EQ(64u, offsets.size());
    EXPECT_EQ(253u, *offsets.rbegin());
    EXPECT_EQ(0u, plRsrvSlotBitOffset(&list, 65, nullptr));
    EXPECT_EQ(0, list.slotOffset[65]);
}

TEST_F(PortList, NoListAndNoSuchSlotCannotBeReserved)
{
    portlist_t list{};
    EXPECT_EQ(0u, plRsrvSlotBitOffset(nullptr, 1, nullptr));
    EXPECT_EQ(0u, plRsrvSlotBitOffset(&list, 256, nullptr));
    EXPECT_EQ(0u, plRsrvSlotBitOffset(&list, 0xFFFFFFFF, nullptr));
    EXPECT_EQ(1u, plRsrvSlotBitOffset(&list, 255, nullptr));
}

TEST_F(PortList, WalkFindsWhateverWasPutIn)
{
    for (unsigned seed = 0; seed < 50; ++seed) {
        std::mt19937 random(seed);
        portlist_t list{};
        std::set<portInstance_t> model;
        for (int count = 0; count < 200; ++count) {
            const auto slot = static_cast<unsigned>(random() % 20 + 1);
            const auto port = static_cast<unsigned>(random() % 128 + 1);
            ASSERT_NE(0u, plRsrvSlotBitOffset(&list, slot, nullptr));
            setPort(list, slot, port);
            model.insert(kelStandinPortInstance(slot, port));
        }
        ASSERT_EQ(std::vector(model.begin(), model.end()), portsIn(list)) << "seed " << seed;
    }
}
