#include "harness/printed_by.h"
#include "sysport/port_map.h"

namespace
{
using Conversion = uint32_t (kelSysPortUtil::*)(uint32_t);
using Calls = std::vector<std::string>;

// What a conversion asks of the platform: its look-up, and whether the best or the own port instance must be bound.
struct Method {
    const char *name;
    Conversion call;
    uint32_t input; // all of slot 2, port 3
    uint32_t output;
    const char *lookUp; // null: none
    const char *arguments;
    bool best = false;
    bool exactly1 = false;
    bool zeroIsAsked = false; // the platform is called for an input of 0 too
};

#define METHOD(method) #method, &kelSysPortUtil::method
constexpr uint32_t Instance = 0x20003, IfIndex = 2003, BridgePort = 131, SystemPort = 2;

const Method methods[] = {
    {METHOD(getSystemPort), SystemPort, SystemPort, nullptr, ""},
    {METHOD(getPortInstance_t), Instance, Instance, nullptr, ""},
    {METHOD(getIfIndex), IfIndex, IfIndex, "vlanLibGetLifFromIfIndex", "2003", false, false, true},
    {METHOD(getBridgePort), BridgePort, BridgePort, "vlanLibGetLifBySlotPort", "2,3", false, true, true},
    {METHOD(getIfIndexFromPortInst), Instance, IfIndex, "vlanLibGetLifByPortInstance", "20003"},
    {METHOD(getBridgePortFromPortInst), Instance, BridgePort, "vlanLibGetLifByPortInstance", "20003"},
    {METHOD(getIfIndexFromSystemPort), SystemPort, IfIndex, "vlanLibGetLifByPortInstance", "20003"},
    {METHOD(getBridgePortFromSystemPort), SystemPort, BridgePort, "vlanLibGetLifByPortInstance", "20003"},
    {METHOD(getSystemPortFromIfIndex), IfIndex, SystemPort, "vlanLibGetLifFromIfIndex", "2003"},
    {METHOD(getSystemPortFromBridgePort), BridgePort, SystemPort, "vlanLibGetLifBySlotPort", "2,3"},
    {METHOD(getIfIndexFromBridgePort), BridgePort, IfIndex, "vlanLibGetLifBySlotPort", "2,3"},
    {METHOD(getBridgePortFromIfIndex), IfIndex, BridgePort, "vlanLibGetLifFromIfIndex", "2003"},
    {METHOD(getMasterPortInstance_t), Instance, Instance, nullptr, ""},
    {METHOD(getIfIndexFromDmPortMask), Instance, IfIndex, "vlanLibGetPifByPortInstance", "20003", true, false, true},
    {METHOD(getBridgePortFromDmPortMask), Instance, BridgePort, "vlanLibGetPifByPortInstance", "20003", true, false,
     true},
    {METHOD(getSystemPortFromDmPortMask), Instance, SystemPort, "vlanLibGetPifByPortInstance", "20003", true, false,
     true},
    {METHOD(getDmPortMaskFromSystemPort), SystemPort, Instance, "vlanLibGetLifByPortInstance", "20003", false, false,
     true},
    {METHOD(getDmPortMaskFromBridgePort), BridgePort, Instance, "vlanLibGetLifBySlotPort", "2,3"},
    {METHOD(getDmPortMaskFromIfIndex), IfIndex, Instance, "vlanLibGetLifFromIfIndex", "2003"},
};
#undef METHOD

bool endsInAPortInstance(const Method &method)
{
    return method.call == &kelSysPortUtil::getDmPortMaskFromBridgePort ||
           method.call == &kelSysPortUtil::getDmPortMaskFromIfIndex;
}

bool returnsARecordOnly(const Method &method)
{
    return method.lookUp == std::string("vlanLibGetLifFromIfIndex");
}

// Slot 1, port 1 is system port 1; slot 2, port 3 is system port 2.
class PortNumbering : public PortMap
{
protected:
    PortNumbering()
    {
        fake.addSlotPort(1, 1);
        fake.addSlotPort(2, 3);
        table().addPortInst(0x10001);
        table().addPortInst(Instance);
        fake.logging = true;
    }
    static uint32_t convert(const Method &method, uint32_t input)
    {
        return (table().*method.call)(input);
    }
    static uint32_t convert(const Method &method)
    {
        return convert(method, method.input);
    }
};
} // namespace

TEST_F(PortNumbering, EveryConversionFindsABoundPort)
{
    for (const Method &method : methods)
        EXPECT_EQ(method.output, convert(method)) << method.name;
}

TEST_F(PortNumbering, EveryConversionAsksThePlatformByItsOwnLookUp)
{
    for (const Method &method : methods) {
        fake.forget();
        convert(method);
        Calls wanted;
        if (method.lookUp != nullptr)
            wanted.push_back(method.lookUp + ("(" + std::string(method.arguments) + ")"));
        if (endsInAPortInstance(method))
            wanted.push_back("vlanLibGetLifByPortInstance(20003)");
        EXPECT_EQ(wanted, fake.calls) << method.name;
    }
}

TEST_F(PortNumbering, EveryConversionGives0ForAPortThatIsNotBound)
{
    table().delPortInst(Instance);
    for (const Method &method : methods)
        EXPECT_EQ(0U, convert(method)) << method.name;
}

TEST_F(PortNumbering, ConversionsFromAPortInstanceThatIsNotBoundDoNotAskThePlatform)
{
    EXPECT_EQ(0U, table().getIfIndexFromPortInst(0x30001));
    EXPECT_EQ(0U, table().getBridgePortFromPortInst(0x30001));
    EXPECT_EQ(0U, table().getMasterPortInstance_t(0x01000009));
    EXPECT_EQ(Calls{}, fake.calls);
}

// The platform gives the record all the same: what it returns decides.
TEST_F(PortNumbering, EveryConversionGives0WhenItsLookUpReturns0)
{
    for (const Method &method : methods) {
        if (method.lookUp == nullptr || returnsARecordOnly(method))
            continue;
        fake.answers = {{method.lookUp, {0, true}}};
        EXPECT_EQ(0U, convert(method)) << method.name;
    }
}

TEST_F(PortNumbering, EveryConversionGives0WhenItsLookUpLeavesNoRecord)
{
    for (const Method &method : methods) {
        if (method.lookUp == nullptr)
            continue;
        fake.answers = {{method.lookUp, {1, false}}};
        EXPECT_EQ(0U, convert(method)) << method.name;
    }
}

TEST_F(PortNumbering, EveryConversionButOneTakesAnyOtherResultForSuccess)
{
    for (const int result : {2, -1}) {
        for (const Method &method : methods) {
            if (method.lookUp == nullptr || returnsARecordOnly(method))
                continue;
            fake.answers = {{method.lookUp, {result, true}}};
            EXPECT_EQ(method.exactly1 ? 0 : method.output, convert(method)) << method.name << " " << result;
        }
    }
}

TEST_F(PortNumbering, BridgePortIsConfirmedOnlyByALookUpThatReturnsExactly1)
{
    EXPECT_EQ(BridgePort, table().getBridgePort(BridgePort));
    fake.answers["vlanLibGetLifBySlotPort"] = {2, true};
    EXPECT_EQ(0U, table().getBridgePort(BridgePort));
    EXPECT_EQ(SystemPort, table().getSystemPortFromBridgePort(BridgePort));
}

TEST_F(PortNumbering, EveryConversionGives0ForAnInputOf0)
{
    for (const Method &method : methods)
        EXPECT_EQ(0U, convert(method, 0)) << method.name;
}

TEST_F(PortNumbering, SomeConversionsAskThePlatformAboutAnInputOf0)
{
    for (const Method &method : methods) {
        fake.forget();
        convert(method, 0);
        EXPECT_EQ(method.zeroIsAsked ? 1U : 0U, fake.calls.size()) << method.name;
    }
    fake.forget();
    table().getIfIndex(0);
    table().getBridgePort(0);
    table().getDmPortMaskFromSystemPort(0);
    EXPECT_EQ((Calls{"vlanLibGetLifFromIfIndex(0)", "vlanLibGetLifBySlotPort(1,0)", "vlanLibGetLifByPortInstance(0)"}),
              fake.calls);
}

// Even a platform that knows and has bound such a port: the input, 0, is the answer.
TEST_F(PortNumbering, BridgePort0IsNeverConfirmed)
{
    pif_ &odd = fake.addSlotPort(1, 0);
    ASSERT_NE(0xFFFFFFFF, table().addPortInst(odd.portInstance));
    EXPECT_EQ(0U, table().getBridgePort(0));
}

// What a platform keeps under instance 0 answers for every free system port.
TEST_F(PortNumbering, FreeSystemPortAsksForPortInstance0)
{
    fake.pifs[0] = {0, 77, 0, 0, 4, 5};
    EXPECT_EQ(0x40005U, table().getDmPortMaskFromSystemPort(9));
    EXPECT_EQ(0U, table().getIfIndexFromSystemPort(9));
}

TEST_F(PortNumbering, SystemPortIsConfirmedByItsBitAlone)
{
    EXPECT_EQ(0U, table().getSystemPort(3));
    table().usedSystemPort->setBit(3);
    table().usedSystemPort->setBit(32767);
    EXPECT_EQ(3U, table().getSystemPort(3));
    EXPECT_EQ(32767U, table().getSystemPort(32767));
    EXPECT_EQ(0U, table().getSystemPort(32768));
    EXPECT_EQ(0U, table().getSystemPort(0xFFFFFFFF));
    EXPECT_EQ(0U, table().getSystemPort(0));
}

TEST_F(PortNumbering, BridgePortsCountOnFromSlotToSlot)
{
    const struct {
        uint16_t slot, port;
        uint32_t bridgePort;
    } places[] = {{1, 128, 128}, {2, 1, 129}, {2, 128, 256}, {3, 1, 257}, {255, 128, 255 * 128}, {65535, 128, 8388480}};
    for (const auto &place : places) {
        const pif_ &pif = fake.addSlotPort(place.slot, place.port);
        ASSERT_NE(0xFFFFFFFF, table().addPortInst(pif.portInstance));
        EXPECT_EQ(place.bridgePort, table().getBridgePortFromPortInst(pif.portInstance));
        EXPECT_EQ(pif.ifIndex, table().getIfIndexFromBridgePort(place.bridgePort));
        EXPECT_EQ(place.bridgePort, table().getBridgePort(place.bridgePort));
        EXPECT_EQ(uint32_t{place.slot} << 16 | place.port, table().getDmPortMaskFromBridgePort(place.bridgePort));
    }
    fake.forget();
    EXPECT_EQ(0U, table().getBridgePort(0xFFFFFFFF));
    EXPECT_EQ((Calls{"vlanLibGetLifBySlotPort(33554432,127)"}), fake.calls);
}

TEST_F(PortNumbering, RecordOfSlot0HasNoBridgePort)
{
    fake.pifs[Instance].slot = 0;
    EXPECT_EQ(0U, table().getBridgePortFromPortInst(Instance));
    EXPECT_EQ(0U, table().getBridgePortFromSystemPort(SystemPort));
    EXPECT_EQ(0U, table().getBridgePortFromIfIndex(IfIndex));
}

TEST_F(PortNumbering, BridgePortFromADmPortMaskOfSlot0Wraps)
{
    fake.pifs[Instance].slot = 0;
    EXPECT_EQ(3 + 0xFFFFFF80, table().getBridgePortFromDmPortMask(Instance));
}

// The record decides, also when it names another port than the one asked for.
TEST_F(PortNumbering, OnlyThePortInstanceInTheRecordMustBeBound)
{
    fake.pifs[0x30001] = fake.pifs[Instance];
    fake.pifs[0x30001].ifIndex = 3001;
    EXPECT_EQ(SystemPort, table().getSystemPortFromIfIndex(3001));
    EXPECT_EQ(IfIndex, table().getIfIndexFromDmPortMask(Instance));
    EXPECT_EQ(3001U, table().getIfIndexFromDmPortMask(0x30001));
}

namespace
{
constexpr uint32_t TrunkInstance = 0x01000005;

// A trunk, bound as system port 3, of slot 2's port 3 (its master) and slot 1's port 1.
class PortNumberingOfTrunks : public PortNumbering
{
protected:
    PortNumberingOfTrunks()
    {
        fake.addTrunk(5, Instance);
        fake.pifs[Instance].trunkPortInstance = TrunkInstance;
        fake.pifs[0x10001].trunkPortInstance = TrunkInstance;
        table().addPortInst(TrunkInstance);
    }
};
} // namespace

TEST_F(PortNumberingOfTrunks, BestPortInstanceOfNoRecordIs0)
{
    EXPECT_EQ(0U, table().getBestPortInstanceForPif(nullptr));
}

TEST_F(PortNumberingOfTrunks, BestPortInstanceOfAPortOutsideTrunksIsItsOwn)
{
    const kelSysPortUtil &constTable = table();
    EXPECT_EQ(0x40004U, constTable.getBestPortInstanceForPif(&fake.addSlotPort(4, 4)));
    EXPECT_EQ(Calls{}, fake.calls);
}

TEST_F(PortNumberingOfTrunks, BestPortInstanceOfTheMasterIsTheTrunk)
{
    EXPECT_EQ(TrunkInstance, table().getBestPortInstanceForPif(&fake.pifs[Instance]));
}

TEST_F(PortNumberingOfTrunks, BestPortInstanceOfAnyOtherMemberIs0)
{
    EXPECT_EQ(0U, table().getBestPortInstanceForPif(&fake.pifs[0x10001]));
}

TEST_F(PortNumberingOfTrunks, MasterIsOnlyWhoThePlatformNamesWithExactly1)
{
    for (const int result : {2, 0, -1}) {
        fake.answers["isPortMasterOfTrunk"] = {result, true};
        EXPECT_EQ(0U, table().getBestPortInstanceForPif(&fake.pifs[Instance])) << result;
    }
}

TEST_F(PortNumberingOfTrunks, DmPortMaskConversionsTakeTheTrunkOfAMaster)
{
    EXPECT_EQ(3U, table().getSystemPortFromDmPortMask(Instance));
    EXPECT_EQ(IfIndex, table().getIfIndexFromDmPortMask(Instance));
    EXPECT_EQ(BridgePort, table().getBridgePortFromDmPortMask(Instance));
    table().delPortInst(TrunkInstance);
    EXPECT_EQ(0U, table().getSystemPortFromDmPortMask(Instance));
    EXPECT_EQ(0U, table().getIfIndexFromDmPortMask(Instance));
    EXPECT_EQ(0U, table().getBridgePortFromDmPortMask(Instance));
}

TEST_F(PortNumberingOfTrunks, DmPortMaskConversionsGive0ForAMemberThatIsNotTheMaster)
{
    EXPECT_EQ(0U, table().getSystemPortFromDmPortMask(0x10001));
    EXPECT_EQ(0U, table().getIfIndexFromDmPortMask(0x10001));
    EXPECT_EQ(0U, table().getBridgePortFromDmPortMask(0x10001));
}

TEST_F(PortNumberingOfTrunks, OtherConversionsTakeTheMembersOwnInstance)
{
    table().delPortInst(TrunkInstance);
    for (const Method &method : methods) {
        if (!method.best) {
            EXPECT_EQ(method.output, convert(method)) << method.name;
        }
    }
}

TEST_F(PortNumberingOfTrunks, MasterOfATrunkIsTheOneInItsRecord)
{
    EXPECT_EQ(Instance, table().getMasterPortInstance_t(TrunkInstance));
    EXPECT_EQ((Calls{"getPifByPortInstance(1000005)"}), fake.calls);
}

TEST_F(PortNumberingOfTrunks, MasterOfATrunkWithoutOneIs0)
{
    fake.pifs[TrunkInstance].masterPortInstance = 0;
    EXPECT_EQ(0U, table().getMasterPortInstance_t(TrunkInstance));
}

TEST_F(PortNumberingOfTrunks, TrunkStandsForItselfUnlessItsLookUpReturnsExactly1AndARecord)
{
    for (const FakePlatform::Answer answer : {FakePlatform::Answer{0, true}, {2, true}, {-1, true}, {1, false}}) {
        fake.answers["getPifByPortInstance"] = answer;
        EXPECT_EQ(TrunkInstance, table().getMasterPortInstance_t(TrunkInstance)) << answer.result;
    }
}

// Type 2 is no trunk, and nothing above the type byte's lowest bit may be dropped.
TEST_F(PortNumberingOfTrunks, MasterIsAskedForTrunksOnly)
{
    table().addPortInst(0x03000005);
    EXPECT_EQ(0x03000005U, table().getMasterPortInstance_t(0x03000005));
    EXPECT_EQ(Instance, table().getMasterPortInstance_t(Instance));
    EXPECT_EQ(Calls{}, fake.calls);
}

namespace
{
using NameCall = char *(kelSysPortUtil::*)(uint32_t, char *, unsigned long);

struct NameMethod {
    const char *name;
    NameCall call;
    uint32_t input; // all of slot 2, port 3
    const char *lookUp;
};

const NameMethod nameMethods[] = {
    {"getIfNameFromIfIndex", &kelSysPortUtil::getIfNameFromIfIndex, IfIndex, "vlanLibGetLifFromIfIndex"},
    {"getIfNameFromBridgePort", &kelSysPortUtil::getIfNameFromBridgePort, BridgePort, "vlanLibGetLifBySlotPort"},
    {"getIfNameFromSystemPort", &kelSysPortUtil::getIfNameFromSystemPort, SystemPort, "vlanLibGetLifByPortInstance"},
};

class InterfaceNames : public PortNumbering
{
protected:
    char *nameBy(const NameMethod &method, uint32_t input, unsigned long len = 33)
    {
        snprintf(buf, sizeof buf, "untouched");
        return (table().*method.call)(input, buf, len);
    }
    char buf[33] = "";
};
} // namespace

TEST_F(InterfaceNames, NameIsWrittenAndTheBufferReturned)
{
    for (const NameMethod &method : nameMethods) {
        fake.forget();
        EXPECT_EQ(buf, nameBy(method, method.input)) << method.name;
        EXPECT_STREQ("2/3", buf) << method.name;
        ASSERT_EQ(2U, fake.calls.size());
        EXPECT_EQ(0U, fake.calls[0].find(method.lookUp)) << fake.calls[0];
        EXPECT_EQ("vlanGetNameForPif(20003,33)", fake.calls[1]);
    }
}

TEST_F(InterfaceNames, LengthIsPassedOn)
{
    for (const NameMethod &method : nameMethods) {
        EXPECT_EQ(buf, nameBy(method, method.input, 3)) << method.name;
        EXPECT_STREQ("2/", buf) << method.name;
    }
}

TEST_F(InterfaceNames, NullBufferOrNoLengthGivesNullAndTouchesNothing)
{
    for (const NameMethod &method : nameMethods) {
        EXPECT_EQ(nullptr, nameBy(method, method.input, 0)) << method.name;
        EXPECT_STREQ("untouched", buf) << method.name;
        EXPECT_EQ(nullptr, (table().*method.call)(method.input, nullptr, 33)) << method.name;
    }
    EXPECT_EQ(Calls{}, fake.calls);
}

TEST_F(InterfaceNames, Input0GivesNullAndAnEmptyText)
{
    for (const NameMethod &method : nameMethods) {
        EXPECT_EQ(nullptr, nameBy(method, 0)) << method.name;
        EXPECT_STREQ("", buf) << method.name;
    }
    EXPECT_EQ((Calls{"vlanLibGetLifByPortInstance(0)"}), fake.calls); // the system port's call alone
}

TEST_F(InterfaceNames, UnknownInterfaceGivesNullAndAnEmptyText)
{
    fake.pifs.erase(Instance);
    for (const NameMethod &method : nameMethods) {
        EXPECT_EQ(nullptr, nameBy(method, method.input)) << method.name;
        EXPECT_STREQ("", buf) << method.name;
    }
}

TEST_F(InterfaceNames, LookUpThatFailsGivesNullAndAnEmptyText)
{
    for (const NameMethod &method : nameMethods) {
        for (const FakePlatform::Answer answer : {FakePlatform::Answer{0, true}, {1, false}}) {
            if (answer.record && method.call == &kelSysPortUtil::getIfNameFromIfIndex)
                continue; // its look-up has no result but the record
            fake.answers = {{method.lookUp, answer}};
            EXPECT_EQ(nullptr, nameBy(method, method.input)) << method.name;
            EXPECT_STREQ("", buf) << method.name;
        }
    }
}

TEST_F(InterfaceNames, EmptyNameGivesNull)
{
    fake.names.clear();
    for (const NameMethod &method : nameMethods) {
        EXPECT_EQ(nullptr, nameBy(method, method.input)) << method.name;
        EXPECT_STREQ("", buf) << method.name;
    }
}

TEST_F(InterfaceNames, NullNameFromThePlatformIsAnEmptyName)
{
    fake.nullNames = true;
    for (const NameMethod &method : nameMethods) {
        EXPECT_EQ(nullptr, nameBy(method, method.input)) << method.name;
        EXPECT_STREQ("", buf) << method.name;
    }
}

TEST_F(InterfaceNames, PortNeedNotBeBound)
{
    table().delPortInst(Instance);
    EXPECT_EQ(buf, nameBy(nameMethods[0], IfIndex));
    EXPECT_EQ(buf, nameBy(nameMethods[1], BridgePort));
    EXPECT_EQ(nullptr, nameBy(nameMethods[2], SystemPort)); // nothing leads from a free system port to the interface
}

TEST_F(PortNumbering, NoCallToThePlatformHoldsTheLock)
{
    fake.addTrunk(5, Instance);
    table().addPortInst(TrunkInstance);
    fake.pifs[0x10001].trunkPortInstance = TrunkInstance;
    int calls = 0;
    int locked = 0;
    fake.onCall = [&] {
        ++calls;
        locked += mapIsUnlocked() ? 0 : 1;
    };
    for (const Method &method : methods)
        convert(method);
    table().getMasterPortInstance_t(TrunkInstance);
    table().getSystemPortFromDmPortMask(0x10001);
    char buf[33];
    for (const NameMethod &method : nameMethods)
        (table().*method.call)(method.input, buf, sizeof buf);
    EXPECT_GE(calls, 27);
    EXPECT_EQ(0, locked);
}

TEST_F(PortNumbering, ConversionsWorkWithoutALock)
{
    SEM_ID sem = kelSysPortUtil::mSem;
    kelSysPortUtil::mSem = nullptr;
    for (const Method &method : methods)
        EXPECT_EQ(method.output, convert(method)) << method.name;
    kelSysPortUtil::mSem = sem;
}
