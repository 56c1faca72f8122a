#include "sysport/port_map.h"

#include <cstddef>
#include <cstring>

namespace
{
using Calls = std::vector<std::string>;
using Numbers = std::vector<uint16_t>;
using Offsets = std::vector<uint8_t>;
constexpr uint8_t GuardByte = 0xC3;

// A port list with bytes behind it that nobody may touch.
struct GuardedList {
    portlist_t list{};
    uint8_t guard[256];

    GuardedList()
    {
        memset(guard, GuardByte, sizeof guard);
    }
    bool guardIsWhole() const
    {
        for (const uint8_t byte : guard) {
            if (byte != GuardByte)
                return false;
        }
        return true;
    }
    // The words with a bit, as {index, word}.
    std::vector<std::pair<int, uint32_t>> words() const
    {
        std::vector<std::pair<int, uint32_t>> set;
        int index = 0;
        for (const uint32_t word : list.words) {
            if (word != 0)
                set.emplace_back(index, word);
            ++index;
        }
        return set;
    }
};
using Words = std::vector<std::pair<int, uint32_t>>;

class PortLists : public PortMap
{
protected:
    // A bound slot port; returns its system port.
    static uint32_t bind(uint16_t slot, uint16_t port)
    {
        return table().addPortInst(fake.addSlotPort(slot, port).portInstance);
    }

    // Both ways to add a port must agree: each is made on a list of its own.
    uint32_t addBothWays(uint32_t systemPort)
    {
        CBitMask ports(kelSysPortUtil::maxSystemPorts);
        ports.setBit(systemPort);
        const uint32_t single = table().getPortListFromSystemPort(&one.list, systemPort);
        const unsigned reservedByOne = fake.reserved;
        fake.reserved = 0;
        EXPECT_EQ(single, table().getPortListFromSystemPorts(&many.list, &ports));
        EXPECT_EQ(reservedByOne, fake.reserved);
        fake.reserved = 0;
        EXPECT_EQ(0, memcmp(&one.list, &many.list, sizeof one.list));
        EXPECT_TRUE(one.guardIsWhole());
        EXPECT_TRUE(many.guardIsWhole());
        return single;
    }
    void setOffset(unsigned slot, uint8_t offset)
    {
        one.list.slotOffset[slot] = many.list.slotOffset[slot] = offset;
    }

    GuardedList one, many;
};
} // namespace

TEST_F(PortLists, NullListIsRefusedBeforeAnythingElse)
{
    const uint32_t s = bind(1, 1);
    fake.logging = true;
    fake.forget();
    EXPECT_EQ(0U, table().getPortListFromSystemPort(nullptr, s));
    EXPECT_EQ(Calls{}, fake.calls);
    EXPECT_EQ(0U, table().getPortListFromBridgePort(nullptr, 1));
    EXPECT_EQ(0U, table().getPortListFromIfIndex(nullptr, 1001));
}

TEST_F(PortLists, FirstPortOfASlotReservesItsWords)
{
    const uint32_t s = bind(7, 1);
    fake.logging = true;
    fake.forget();
    EXPECT_EQ(1U, table().getPortListFromSystemPort(&one.list, s));
    EXPECT_EQ((Calls{"vlanLibGetLifByPortInstance(70001)", "plRsrvSlotBitOffset(7,70001)"}), fake.calls);
    EXPECT_EQ(1, one.list.slotOffset[7]);
    EXPECT_EQ((Words{{0, 0x80000000}}), one.words());
}

TEST_F(PortLists, ReservedSlotIsNotReservedAgain)
{
    const uint32_t first = bind(7, 1);
    const uint32_t second = bind(7, 2);
    table().getPortListFromSystemPort(&one.list, first);
    fake.logging = true;
    EXPECT_EQ(1U, table().getPortListFromSystemPort(&one.list, second));
    EXPECT_EQ((Calls{"vlanLibGetLifByPortInstance(70002)"}), fake.calls);
    EXPECT_EQ((Words{{0, 0xC0000000}}), one.words());
}

TEST_F(PortLists, EachSlotHasFourWordsOfItsOwn)
{
    for (const uint16_t slot : Numbers{1, 2, 3})
        EXPECT_EQ(1U, table().getPortListFromSystemPort(&one.list, bind(slot, 1)));
    EXPECT_EQ((Words{{0, 0x80000000}, {4, 0x80000000}, {8, 0x80000000}}), one.words());
}

TEST_F(PortLists, PortIsTheBitOfItsNumberInTheSlotsFourWords)
{
    const struct {
        uint16_t port;
        int word;
        uint32_t bit;
    } places[] = {{1, 0, 0x80000000}, {2, 0, 0x40000000},   {32, 0, 1},    {33, 1, 0x80000000},
                  {64, 1, 1},         {65, 2, 0x80000000},  {96, 2, 1},    {97, 3, 0x80000000},
                  {128, 3, 1},        {129, 0, 0x80000000}, {65535, 3, 2}, {0, 3, 1}};
    for (const auto &place : places) {
        for (const uint8_t offset : Offsets{1, 5, 2, 253}) {
            one = many = GuardedList{};
            setOffset(1, offset);
            const pif_ &pif = fake.addSlotPort(1, place.port);
            table().addPortInst(pif.portInstance);
            EXPECT_EQ(1U, addBothWays(table().portInst2SystemPort(pif.portInstance)));
            EXPECT_EQ((Words{{offset - 1 + place.word, place.bit}}), one.words()) << place.port << " " << offset;
        }
    }
}

// In bytes: the words begin at byte 260, and each is stored in the host's order.
TEST_F(PortLists, Port33OfASlotAtOffset1IsTheTopBitOfBytes264To267)
{
    setOffset(1, 1);
    EXPECT_EQ(1U, addBothWays(bind(1, 33)));
    uint32_t word = 0;
    memcpy(&word, reinterpret_cast<const uint8_t *>(&one.list) + 264, sizeof word);
    EXPECT_EQ(0x80000000, word);
    EXPECT_EQ(1, reinterpret_cast<const uint8_t *>(&one.list)[4 + 1]);
}

TEST_F(PortLists, BitsThatAreSetStay)
{
    one.list.words[0] = 0x0000FFFF;
    setOffset(1, 1);
    EXPECT_EQ(1U, table().getPortListFromSystemPort(&one.list, bind(1, 1)));
    EXPECT_EQ(1U, table().getPortListFromSystemPort(&one.list, 1));
    EXPECT_EQ((Words{{0, 0x8000FFFF}}), one.words());
}

TEST_F(PortLists, PortThePlatformDoesNotKnowGives0)
{
    const uint32_t s = bind(1, 1);
    for (const FakePlatform::Answer answer : {FakePlatform::Answer{0, true}, {1, false}}) {
        fake.answers["vlanLibGetLifByPortInstance"] = answer;
        EXPECT_EQ(0U, addBothWays(s));
    }
    EXPECT_TRUE(one.words().empty());
    EXPECT_EQ(0, one.list.slotOffset[1]);
}

TEST_F(PortLists, FreeSystemPortGives0)
{
    EXPECT_EQ(0U, addBothWays(9));
}

TEST_F(PortLists, PortWhoseSlotCannotBeReservedIsLeftOutAndCountsAsSuccess)
{
    const uint32_t s = bind(1, 1);
    fake.reserve = [](portlist_t *, unsigned, const pif_ *) { return 0U; };
    EXPECT_EQ(1U, addBothWays(s));
    EXPECT_TRUE(one.words().empty());
    EXPECT_EQ(0, one.list.slotOffset[1]);
}

// What counts is the byte that is stored: 256 is 0, 257 is 1.
TEST_F(PortLists, ReservationIsCutToTheByteThatIsStored)
{
    const uint32_t s = bind(1, 1);
    fake.reserve = [](portlist_t *, unsigned, const pif_ *) { return 256U; };
    EXPECT_EQ(1U, addBothWays(s));
    EXPECT_TRUE(one.words().empty());
    fake.reserve = [](portlist_t *, unsigned, const pif_ *) { return 257U; };
    EXPECT_EQ(1U, addBothWays(s));
    EXPECT_EQ((Words{{0, 0x80000000}}), one.words());
    EXPECT_EQ(1, one.list.slotOffset[1]);
}

TEST_F(PortLists, OffsetTheListHasNoRoomForCannotBeReserved)
{
    for (const uint8_t offset : Offsets{254, 255}) {
        for (const uint16_t port : Numbers{1, 128}) {
            setOffset(3, offset);
            EXPECT_EQ(1U, addBothWays(bind(3, port)));
            EXPECT_EQ(1U, addBothWays(table().portInst2SystemPort(0x30000U | port)));
            EXPECT_TRUE(one.words().empty());
            EXPECT_EQ(offset, one.list.slotOffset[3]);
            table().delPortInst(0x30000U | port);
        }
    }
}

TEST_F(PortLists, Slot255IsTheLastTheListHasRoomFor)
{
    EXPECT_EQ(1U, addBothWays(bind(255, 1)));
    EXPECT_EQ(1, one.list.slotOffset[255]);
    EXPECT_EQ((Words{{0, 0x80000000}}), one.words());
}

TEST_F(PortLists, SlotTheListHasNoRoomForCannotBeReserved)
{
    for (const uint16_t slot : Numbers{256, 65535}) {
        const uint32_t s = bind(slot, 1);
        fake.logging = true;
        fake.forget();
        EXPECT_EQ(1U, addBothWays(s));
        EXPECT_EQ(2U, fake.calls.size()); // one look-up each, no reservation
        EXPECT_TRUE(one.words().empty());
    }
}

TEST_F(PortLists, BridgePortAndIfIndexLeadToTheSamePort)
{
    bind(2, 3);
    EXPECT_EQ(1U, table().getPortListFromBridgePort(&one.list, 131));
    EXPECT_EQ((Words{{0, 0x20000000}}), one.words());
    fake.reserved = 0;
    EXPECT_EQ(1U, table().getPortListFromIfIndex(&many.list, 2003));
    EXPECT_EQ((Words{{0, 0x20000000}}), many.words());
}

TEST_F(PortLists, BridgePortOrIfIndexThatIsNotBoundGives0)
{
    fake.addSlotPort(2, 3); // known to the platform only
    for (const uint32_t number : {0U, 131U, 132U})
        EXPECT_EQ(0U, table().getPortListFromBridgePort(&one.list, number));
    for (const uint32_t number : {0U, 2003U, 2004U})
        EXPECT_EQ(0U, table().getPortListFromIfIndex(&one.list, number));
    EXPECT_TRUE(one.words().empty());
}

TEST_F(PortLists, EmptySetOfPortsLeavesTheListAlone)
{
    CBitMask none(kelSysPortUtil::maxSystemPorts);
    CBitMask sizeless;
    EXPECT_EQ(1U, table().getPortListFromSystemPorts(&one.list, &none));
    EXPECT_EQ(1U, table().getPortListFromSystemPorts(&one.list, &sizeless));
    EXPECT_TRUE(one.words().empty());
}

TEST_F(PortLists, AllPortsOfASetAreAdded)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    for (uint16_t port = 1; port <= 128; ++port) {
        ports.setBit(bind(1, port));
        ports.setBit(bind(9, port));
    }
    EXPECT_EQ(1U, table().getPortListFromSystemPorts(&one.list, &ports));
    Words all;
    for (int word = 0; word < 8; ++word)
        all.emplace_back(word, 0xFFFFFFFF);
    EXPECT_EQ(all, one.words());
    EXPECT_EQ(1, one.list.slotOffset[1]);
    EXPECT_EQ(5, one.list.slotOffset[9]);
}

TEST_F(PortLists, SetEndsWith0AtAPortThePlatformDoesNotKnowAndKeepsThoseBefore)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    for (const uint16_t port : Numbers{1, 2, 3})
        ports.setBit(bind(1, port));
    fake.pifs.erase(0x10002);
    EXPECT_EQ(0U, table().getPortListFromSystemPorts(&one.list, &ports));
    EXPECT_EQ((Words{{0, 0x80000000}}), one.words());
}

// Bit 0 is no system port, so a set with it asks for port instance 0.
TEST_F(PortLists, SetWithBit0EndsWith0AtOnce)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    ports.setBit(0);
    ports.setBit(bind(1, 1));
    EXPECT_EQ(0U, table().getPortListFromSystemPorts(&one.list, &ports));
    EXPECT_TRUE(one.words().empty());
}

TEST_F(PortLists, SetSkipsASlotThatCannotBeReservedAndGoesOn)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    for (const uint16_t slot : Numbers{1, 2, 3})
        ports.setBit(bind(slot, 1));
    fake.reserve = [](portlist_t *, unsigned slot, const pif_ *) { return slot == 2 ? 0U : 4 * slot + 1; };
    EXPECT_EQ(1U, table().getPortListFromSystemPorts(&one.list, &ports));
    EXPECT_EQ((Words{{4, 0x80000000}, {12, 0x80000000}}), one.words());
}

TEST_F(PortLists, SetLargerThanTheTableEndsWith0AtItsFirstImpossiblePort)
{
    CBitMask ports(40000);
    ports.setBit(bind(1, 1));
    ports.setBit(39999);
    EXPECT_EQ(0U, table().getPortListFromSystemPorts(&one.list, &ports));
    EXPECT_EQ((Words{{0, 0x80000000}}), one.words());
}

TEST_F(PortLists, EmptyListLeavesTheSetUnchanged)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    ports.setBit(5);
    EXPECT_EQ(1U, table().getSystemPortsFromPortList(&ports, &one.list));
    EXPECT_EQ(1U, ports.numBitsSet());
    EXPECT_TRUE(ports.chkBit(5));
}

TEST_F(PortLists, EveryPortOfAListSetsItsBitBesidesThoseSetBefore)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    ports.setBit(77);
    bind(1, 1);
    const uint32_t second = bind(1, 2);
    const uint32_t third = bind(1, 3);
    fake.listed = {0x10002, 0x10003};
    fake.logging = true;
    fake.forget();
    EXPECT_EQ(1U, table().getSystemPortsFromPortList(&ports, &one.list));
    EXPECT_EQ(3U, ports.numBitsSet());
    EXPECT_TRUE(ports.chkBit(second) && ports.chkBit(third) && ports.chkBit(77));
    EXPECT_EQ((Calls{"PORTLIST_GETNEXTPORT(ffffffff)", "PORTLIST_GETNEXTPORT(10002)", "PORTLIST_GETNEXTPORT(10003)"}),
              fake.calls);
}

TEST_F(PortLists, PortThatIsNotBoundSetsBit0)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    const uint32_t s = bind(1, 1);
    fake.listed = {0x50005, 0x10001};
    EXPECT_EQ(1U, table().getSystemPortsFromPortList(&ports, &one.list));
    EXPECT_EQ(2U, ports.numBitsSet());
    EXPECT_TRUE(ports.chkBit(0) && ports.chkBit(s));
}

TEST_F(PortLists, SecondPortThatIsNotBoundEndsTheConversionWith0)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    const uint32_t s = bind(1, 1);
    fake.listed = {0x50005, 0x50006, 0x10001};
    EXPECT_EQ(0U, table().getSystemPortsFromPortList(&ports, &one.list));
    EXPECT_TRUE(ports.chkBit(0));
    EXPECT_FALSE(ports.chkBit(s));
}

TEST_F(PortLists, BitThatIsSetAlreadyEndsTheConversionWith0)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    const uint32_t first = bind(1, 1);
    const uint32_t second = bind(1, 2);
    const uint32_t third = bind(1, 3);
    ports.setBit(second);
    fake.listed = {0x10001, 0x10002, 0x10003};
    EXPECT_EQ(0U, table().getSystemPortsFromPortList(&ports, &one.list));
    EXPECT_TRUE(ports.chkBit(first));
    EXPECT_FALSE(ports.chkBit(third));
}

TEST_F(PortLists, PortOutsideTheSetEndsTheConversionWith0)
{
    CBitMask ports(32);
    for (uint16_t port = 1; port <= 33; ++port)
        bind(1, port);
    fake.listed = {0x10001, 0x10021, 0x10002};
    EXPECT_EQ(0U, table().getSystemPortsFromPortList(&ports, &one.list));
    EXPECT_EQ(1U, ports.numBitsSet());
}

TEST_F(PortLists, ListsAndSetsLeadBackToEachOther)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    for (const uint16_t slot : Numbers{1, 5, 12}) {
        for (const uint16_t port : Numbers{1, 33, 48, 128}) {
            ports.setBit(bind(slot, port));
            fake.listed.push_back(uint32_t{slot} << 16 | port);
        }
    }
    CBitMask back(kelSysPortUtil::maxSystemPorts);
    EXPECT_EQ(1U, table().getPortListFromSystemPorts(&one.list, &ports));
    EXPECT_EQ(9U, one.words().size()); // ports 33 and 48 share one
    EXPECT_EQ(1U, table().getSystemPortsFromPortList(&back, &one.list));
    EXPECT_TRUE(ports == back);
}

TEST_F(PortLists, NoCallToThePlatformHoldsTheLock)
{
    CBitMask ports(kelSysPortUtil::maxSystemPorts);
    ports.setBit(bind(1, 1));
    ports.setBit(bind(2, 3));
    fake.listed = {0x10001, 0x20003};
    bool unlocked = true;
    fake.onCall = [&] { unlocked = unlocked && mapIsUnlocked(); };
    table().getPortListFromBridgePort(&one.list, 131);
    table().getPortListFromIfIndex(&one.list, 2003);
    table().getPortListFromSystemPorts(&one.list, &ports);
    CBitMask back(kelSysPortUtil::maxSystemPorts);
    EXPECT_EQ(1U, table().getSystemPortsFromPortList(&back, &one.list));
    EXPECT_TRUE(unlocked);
}
