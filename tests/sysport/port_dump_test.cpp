#include "harness/printed_by.h"
#include "sysport/port_map.h"

#include <algorithm>

namespace
{
constexpr int Session = 7;

const std::string Header = "**** KEL System Port Shim ****\n";
const std::string Bindings = "Verifying systemPort to portInstance_t bindings... ";
const std::string BridgePorts = "Verifying systemPort to bridgePort conversions.... ";
const std::string IfIndexes = "Verifying systemPort to ifIndex conversions....... ";
const std::string Records = "Verifying ifIndex to bridgePort conversions....... ";
const std::string IfIndexWalk = "Verifying ifIndex get-next operations............. ";
const std::string BridgePortWalk = "Verifying bridgePort get-next operations.......... ";

std::string done(unsigned errors, unsigned checked)
{
    return formatted("Done. %u errors found. %u ports checked.\n", errors, checked);
}

std::string sizes(unsigned inUse)
{
    return "Max System Ports:                 32768\n"
           "Max System Ports:                 32768\n"
           "Num Hash table Keys:              32767\n" +
           formatted("Number System Ports In Use:       %u\n", inUse);
}

std::string totals(unsigned used, unsigned total, unsigned worst)
{
    return formatted("\nUnique Hash Keys in Use: %u\nTotal Bucket Count:      %u\nWorst Bucket Depth:      %u\n", used,
                     total, worst);
}

class PortDump : public PortMap
{
protected:
    static pif_ &bind(uint16_t slot, uint16_t port)
    {
        pif_ &pif = fake.addSlotPort(slot, port);
        table().addPortInst(pif.portInstance);
        return pif;
    }
    // Three sound ports.
    static void bindThree()
    {
        bind(1, 1);
        bind(1, 2);
        bind(2, 3);
    }
    // All that a session sees.
    static std::string dumped(bool verbose)
    {
        fake.forget();
        EXPECT_EQ("", printedBy([&] { kelSysPortUtil::DumpDebugInfo(verbose, Session); }));
        for (const auto &text : fake.cliTexts)
            EXPECT_EQ(Session, text.first);
        return fake.cliText();
    }
    static std::string maskPrinted()
    {
        return printedBy([] { printCBitMask(table().usedSystemPort, true); });
    }
    // The part of a dump from one text up to another.
    static std::string part(const std::string &all, const std::string &from, const std::string &to)
    {
        const size_t begin = all.find(from);
        return begin == std::string::npos ? "" : all.substr(begin, all.find(to, begin) - begin);
    }
};
} // namespace

// What is printed directly overtakes the lines in the buffer, which goes out when the next line does not fit.
TEST_F(PortDump, EmptyTable)
{
    EXPECT_EQ("semShow(mSem): "
              "**** KEL System Port Shim ****\n"
              "Max System Ports:                 32768\n"
              "Max System Ports:                 32768\n"
              "Num Hash table Keys:              32767\n"
              "Number System Ports In Use:       0\n"
              "\n"
              "Unique Hash Keys in Use: 0\n" +
                  maskPrinted() +
                  "Total Bucket Count:      0\n"
                  "Worst Bucket Depth:      0\n"
                  "Verifying systemPort to portInstance_t bindings... Done. 0 errors found. 0 ports checked.\n"
                  "Verifying systemPort to bridgePort conversions.... Done. 0 errors found. 0 ports checked.\n"
                  "Verifying systemPort to ifIndex conversions....... Done. 0 errors found. 0 ports checked.\n"
                  "Verifying ifIndex to bridgePort conversions....... Done. 0 errors found. 0 ports checked.\n"
                  "Verifying ifIndex get-next operations............. Done. 0 errors found. 0 ports checked.\n"
                  "Verifying bridgePort get-next operations.......... Done. 0 errors found. 0 ports checked.\n",
              printedBy([] { kelSysPortUtil::DumpDebugInfo(false, 0); }));
    EXPECT_TRUE(fake.cliTexts.empty());
}

TEST_F(PortDump, EmptyTableVerbose)
{
    EXPECT_EQ(Header + sizes(0) + "Buckets in Use    (Format: [hashIdx]=bucketDepth)\n" + totals(0, 0, 0) + Bindings +
                  done(0, 0) + BridgePorts + done(0, 0) + IfIndexes + done(0, 0) + Records + done(0, 0) + IfIndexWalk +
                  done(0, 0) + BridgePortWalk + done(0, 0) +
                  "Dumping systemPorts............................... \n"
                  "0 ports dumped\n",
              dumped(true));
}

TEST_F(PortDump, SoundTable)
{
    bindThree();
    EXPECT_EQ(Header + sizes(3) + totals(3, 3, 1) + Bindings + done(0, 3) + BridgePorts + done(0, 3) + IfIndexes +
                  done(0, 3) + Records + done(0, 3) + IfIndexWalk + done(0, 3) + BridgePortWalk + done(0, 3),
              dumped(false));
}

TEST_F(PortDump, SoundTableVerbose)
{
    bindThree();
    EXPECT_EQ("**** KEL System Port Shim ****\n"
              "Max System Ports:                 32768\n"
              "Max System Ports:                 32768\n"
              "Num Hash table Keys:              32767\n"
              "Number System Ports In Use:       3\n"
              "Buckets in Use    (Format: [hashIdx]=bucketDepth)\n"
              "[0256]=01  [0259]=01  [0513]=01  \n"
              "Unique Hash Keys in Use: 3\n"
              "Total Bucket Count:      3\n"
              "Worst Bucket Depth:      1\n"
              "Verifying systemPort to portInstance_t bindings... Done. 0 errors found. 3 ports checked.\n"
              "Verifying systemPort to bridgePort conversions.... Done. 0 errors found. 3 ports checked.\n"
              "Verifying systemPort to ifIndex conversions....... Done. 0 errors found. 3 ports checked.\n"
              "Verifying ifIndex to bridgePort conversions....... Done. 0 errors found. 3 ports checked.\n"
              "Verifying ifIndex get-next operations............. Done. 0 errors found. 3 ports checked.\n"
              "Verifying bridgePort get-next operations.......... Done. 0 errors found. 3 ports checked.\n"
              "Dumping systemPorts............................... \n"
              "   1/1: systemPort(001) portInst(0010001) bridgePort(001) ifIndex(001001)\n"
              "   1/2: systemPort(002) portInst(0010002) bridgePort(002) ifIndex(001002)\n"
              "   2/3: systemPort(003) portInst(0020003) bridgePort(131) ifIndex(002003)\n"
              "3 ports dumped\n",
              dumped(true));
}

TEST_F(PortDump, ConsoleShowsTheSemaphoreAndTheBitsToo)
{
    bindThree();
    const std::string session = dumped(true);
    std::string console = printedBy([] { kelSysPortUtil::DumpDebugInfo(true, 0); });
    for (const std::string &direct : {std::string("semShow(mSem): "), maskPrinted()}) {
        const size_t at = console.find(direct);
        ASSERT_NE(std::string::npos, at);
        console.erase(at, direct.size());
    }
    EXPECT_EQ(session, console);
}

TEST_F(PortDump, SemaphoreIsShownWithTheVerbosityAndOnTheConsoleOnly)
{
    using Shown = std::vector<std::pair<SEM_ID, int>>;
    dumped(true);
    EXPECT_EQ(Shown{}, spy.shown);
    printedBy([] { kelSysPortUtil::DumpDebugInfo(false, 0); });
    printedBy([] { kelSysPortUtil::DumpDebugInfo(true, 0); });
    EXPECT_EQ((Shown{{kelSysPortUtil::mSem, 0}, {kelSysPortUtil::mSem, 1}}), spy.shown);
}

TEST_F(PortDump, EntryPointIsTheVerboseDumpOnTheConsole)
{
    bindThree();
    EXPECT_EQ(printedBy([] { kelSysPortUtil::DumpDebugInfo(true, 0); }), printedBy(kelSysPortUtilDumpDebugInfo));
}

// Each piece is what fitted into 127 characters; the session's number is a signed one.
TEST_F(PortDump, SessionGetsWholeLinesInPiecesOf127Characters)
{
    kelSysPortUtil::DumpDebugInfo(false, 0xFFFFFFFF);
    using Pieces = std::vector<std::pair<int, std::string>>;
    const std::string twice = "Max System Ports:                 32768\n";
    EXPECT_EQ((Pieces{{-1, Header + twice + twice},
                      {-1, "Num Hash table Keys:              32767\nNumber System Ports In Use:       0\n\n"
                           "Unique Hash Keys in Use: 0\n"},
                      {-1, "Total Bucket Count:      0\nWorst Bucket Depth:      0\n" + Bindings},
                      {-1, done(0, 0) + BridgePorts},
                      {-1, done(0, 0) + IfIndexes},
                      {-1, done(0, 0) + Records},
                      {-1, done(0, 0) + IfIndexWalk},
                      {-1, done(0, 0) + BridgePortWalk},
                      {-1, done(0, 0)}}),
              fake.cliTexts);
}

TEST_F(PortDump, WithoutATableOnlyTheHeaderAndAWord)
{
    endTable();
    EXPECT_EQ(Header + "kelSysPortUtil is not initialized\n", dumped(true));
    EXPECT_EQ("semShow(mSem): " + Header + "kelSysPortUtil is not initialized\n",
              printedBy([] { kelSysPortUtil::DumpDebugInfo(true, 0); }));
}

TEST_F(PortDump, BeforeTheStartOnlyTheHeaderAndAWord)
{
    endTable();
    SEM_ID sem = kelSysPortUtil::mSem;
    kelSysPortUtil::mSem = nullptr;
    EXPECT_EQ(Header + "kelSysPortUtil is not initialized\n",
              printedBy([] { kelSysPortUtil::DumpDebugInfo(false, 0); }));
    kelSysPortUtil::mSem = sem;
}

TEST_F(PortDump, WithoutALockAllButTheSemaphoreIsThere)
{
    bindThree();
    const std::string locked = printedBy([] { kelSysPortUtil::DumpDebugInfo(true, 0); });
    SEM_ID sem = kelSysPortUtil::mSem;
    kelSysPortUtil::mSem = nullptr;
    EXPECT_EQ(locked, "semShow(mSem): " + printedBy([] { kelSysPortUtil::DumpDebugInfo(true, 0); }));
    kelSysPortUtil::mSem = sem;
}

TEST_F(PortDump, WithoutBitsItEndsAfterTheBuckets)
{
    bindThree();
    CBitMask *bits = table().usedSystemPort;
    table().usedSystemPort = nullptr;
    EXPECT_EQ(Header + sizes(0) + totals(3, 3, 1) + "Error: usedSystemPort is NULL!\n", dumped(false));
    EXPECT_EQ("semShow(mSem): " + Header + sizes(0) + totals(3, 3, 1) + "Error: usedSystemPort is NULL!\n",
              printedBy([] { kelSysPortUtil::DumpDebugInfo(false, 0); }));
    table().usedSystemPort = bits;
    EXPECT_TRUE(mapIsUnlocked());
}

TEST_F(PortDump, BucketsStandSevenToALineWithTheirDepths)
{
    for (uint32_t key = 1; key <= 7; ++key)
        table().addPortInst(key);
    EXPECT_EQ("Buckets in Use    (Format: [hashIdx]=bucketDepth)\n"
              "[0001]=01  [0002]=01  [0003]=01  [0004]=01  [0005]=01  [0006]=01  [0007]=01  \n" +
                  totals(7, 7, 1),
              part(dumped(true), "Buckets", "Verifying"));

    table().addPortInst(0x8003);
    table().addPortInst(0x7FFE);
    EXPECT_EQ("Buckets in Use    (Format: [hashIdx]=bucketDepth)\n"
              "[0001]=01  [0002]=01  [0003]=02  [0004]=01  [0005]=01  [0006]=01  [0007]=01  \n"
              "[32766]=01  " +
                  totals(8, 9, 2),
              part(dumped(true), "Buckets", "Verifying"));
    EXPECT_EQ(totals(8, 9, 2), part(dumped(false), "\nUnique", "Verifying"));
}

// A bucket a hundred deep: every port in it is found, and the depth takes three digits.
TEST_F(PortDump, DeepBucket)
{
    for (uint32_t high = 0; high < 100; ++high)
        table().addPortInst(high << 16 | ((5 ^ high << 8 ^ high) & 0x7FFF));
    const std::string all = dumped(true);
    EXPECT_EQ("Buckets in Use    (Format: [hashIdx]=bucketDepth)\n[0005]=100  " + totals(1, 100, 100),
              part(all, "Buckets", "Verifying"));
    EXPECT_EQ(Bindings + done(0, 100), part(all, Bindings, BridgePorts));
}

TEST_F(PortDump, BitWithoutARecordIsReported)
{
    bindThree();
    table().usedSystemPort->setBit(5);
    const std::string all = dumped(true);
    EXPECT_EQ(Bindings + "\n  BAD: systemPort(5);verifySP(0);portInst(0);verifyPI(0)\n" + done(1, 4),
              part(all, Bindings, BridgePorts));
    EXPECT_EQ(BridgePorts + "\n  BAD: systemPort(5);verifySP(0);bridgePort(0);verifyBP(0)\n" + done(1, 4),
              part(all, BridgePorts, IfIndexes));
    EXPECT_EQ(IfIndexes + "\n  BAD: systemPort(5);verifySP(0);ifIndex(0);verifyIf(0)\n" + done(1, 4),
              part(all, IfIndexes, Records));
    EXPECT_EQ(Records + done(0, 3), part(all, Records, IfIndexWalk));
    EXPECT_EQ("      : systemPort(005) portInst(0000000) bridgePort(000) ifIndex(000000)\n4 ports dumped\n",
              part(all, "      : ", "nothing"));
}

TEST_F(PortDump, RecordThatIsOnNoChainIsReported)
{
    bindThree();
    bucketOf(259) = nullptr;
    const std::string all = dumped(true);
    EXPECT_EQ(Bindings + "\n  BAD: systemPort(2);verifySP(0);portInst(10002);verifyPI(10002)\n" + done(1, 3),
              part(all, Bindings, BridgePorts));
    EXPECT_EQ(BridgePorts + "\n  BAD: systemPort(2);verifySP(0);bridgePort(0);verifyBP(0)\n" + done(1, 3),
              part(all, BridgePorts, IfIndexes));
    EXPECT_EQ(Records + done(0, 2), part(all, Records, IfIndexWalk));
    EXPECT_EQ(IfIndexWalk + done(0, 2), part(all, IfIndexWalk, BridgePortWalk));
}

// Port instance 0 can be bound, but no look-up leads to it: both numbers must be non-zero.
TEST_F(PortDump, BoundPortInstance0IsReported)
{
    table().addPortInst(0);
    EXPECT_EQ(Bindings + "\n  BAD: systemPort(1);verifySP(1);portInst(0);verifyPI(0)\n" + done(1, 1),
              part(dumped(true), Bindings, BridgePorts));
}

TEST_F(PortDump, PortsWithOneBridgePortAreReported)
{
    bindThree();
    fake.pifs[0x10002].port = 1; // system port 2 says bridge port 1 as system port 1 does
    const std::string all = dumped(true);
    EXPECT_EQ(BridgePorts + "\n  BAD: systemPort(2);verifySP(1);bridgePort(1);verifyBP(1)\n" + done(1, 3),
              part(all, BridgePorts, IfIndexes));
    EXPECT_EQ(IfIndexes + done(0, 3), part(all, IfIndexes, Records));
    EXPECT_EQ(Records +
                  "\n  BAD: portInst(10002);bridgePort(1);verifyBP(1);isBrdgPort(1);ifIndex(1002);verifyIf(1001);"
                  "isIfIndex(1)\n" +
                  done(1, 3),
              part(all, Records, IfIndexWalk));
}

TEST_F(PortDump, PortsWithOneIfIndexAreReported)
{
    bindThree();
    fake.pifs[0x20003].ifIndex = 1001;
    const std::string all = dumped(true);
    EXPECT_EQ(IfIndexes + "\n  BAD: systemPort(3);verifySP(1);ifIndex(1001);verifyIf(1001)\n" + done(1, 3),
              part(all, IfIndexes, Records));
    EXPECT_EQ(Records +
                  "\n  BAD: portInst(20003);bridgePort(131);verifyBP(1);isBrdgPort(1);ifIndex(1001);verifyIf(1001);"
                  "isIfIndex(1)\n" +
                  done(1, 3),
              part(all, Records, IfIndexWalk));
}

// A trunk has no bridge port, so two passes cannot confirm it.
TEST_F(PortDump, TrunkIsReportedWhereABridgePortIsAsked)
{
    bind(1, 1);
    table().addPortInst(fake.addTrunk(5, 0x10001).portInstance);
    const std::string all = dumped(true);
    EXPECT_EQ(Bindings + done(0, 2), part(all, Bindings, BridgePorts));
    EXPECT_EQ(BridgePorts + "\n  BAD: systemPort(2);verifySP(0);bridgePort(0);verifyBP(0)\n" + done(1, 2),
              part(all, BridgePorts, IfIndexes));
    EXPECT_EQ(IfIndexes + done(0, 2), part(all, IfIndexes, Records));
    EXPECT_EQ(Records +
                  "\n  BAD: portInst(1000005);bridgePort(0);verifyBP(0);isBrdgPort(1);ifIndex(500005);verifyIf(0);"
                  "isIfIndex(1)\n" +
                  done(1, 2),
              part(all, Records, IfIndexWalk));
    EXPECT_EQ(IfIndexWalk + done(0, 1), part(all, IfIndexWalk, BridgePortWalk));
    EXPECT_NE(std::string::npos,
              all.find("  trk5: systemPort(002) portInst(1000005) bridgePort(000) ifIndex(500005)\n"));
}

// The flags tell which confirmation fails: here the bridge port's, whose look-up must return exactly 1.
TEST_F(PortDump, LookUpThatReturns2IsReportedByItsFlagAlone)
{
    bind(1, 1);
    fake.answers["vlanLibGetLifBySlotPort"] = {2, true};
    const std::string all = dumped(true);
    EXPECT_EQ(BridgePorts + done(0, 1), part(all, BridgePorts, IfIndexes));
    EXPECT_EQ(Records +
                  "\n  BAD: portInst(10001);bridgePort(1);verifyBP(1);isBrdgPort(0);ifIndex(1001);verifyIf(1001);"
                  "isIfIndex(1)\n" +
                  done(1, 1),
              part(all, Records, IfIndexWalk));
}

TEST_F(PortDump, IfIndexThatThePlatformDoesNotKnowIsReportedByItsFlag)
{
    bind(1, 1);
    fake.answers["vlanLibGetLifFromIfIndex"] = {1, false};
    EXPECT_EQ(Records +
                  "\n  BAD: portInst(10001);bridgePort(1);verifyBP(0);isBrdgPort(1);ifIndex(1001);verifyIf(1001);"
                  "isIfIndex(0)\n" +
                  done(1, 1),
              part(dumped(true), Records, IfIndexWalk));
}

TEST_F(PortDump, SecondRecordOfAnInstanceIsReported)
{
    bindThree();
    recordOf(2).portInst = 0x10001;
    EXPECT_EQ(Bindings + "\n  BAD: systemPort(2);verifySP(1);portInst(10001);verifyPI(10001)\n" + done(1, 3),
              part(dumped(true), Bindings, BridgePorts));
}

TEST_F(PortDump, InterfacesThatThePlatformLostAreReported)
{
    bindThree();
    fake.pifs.clear();
    const std::string all = dumped(true);
    EXPECT_EQ(Bindings + done(0, 3), part(all, Bindings, BridgePorts));
    EXPECT_EQ(IfIndexes +
                  "\n  BAD: systemPort(1);verifySP(0);ifIndex(0);verifyIf(0)"
                  "\n  BAD: systemPort(2);verifySP(0);ifIndex(0);verifyIf(0)"
                  "\n  BAD: systemPort(3);verifySP(0);ifIndex(0);verifyIf(0)\n" +
                  done(3, 3),
              part(all, IfIndexes, Records));
    // 0 confirms 0 as a bridge port; no ifIndex is confirmed but the 0 that is looked for.
    EXPECT_NE(std::string::npos, all.find("\n  BAD: portInst(10001);bridgePort(0);verifyBP(0);isBrdgPort(1);ifIndex(0);"
                                          "verifyIf(0);isIfIndex(1)"));
    EXPECT_EQ(IfIndexWalk + done(0, 0), part(all, IfIndexWalk, BridgePortWalk));
}

TEST_F(PortDump, WithoutVerboseErrorsAreOnlyCounted)
{
    bindThree();
    table().usedSystemPort->setBit(5);
    fake.pifs[0x10002].port = 1;
    const std::string all = dumped(false);
    EXPECT_EQ(Bindings + "\n" + done(1, 4) + BridgePorts + "\n" + done(2, 4) + IfIndexes + "\n" + done(1, 4) + Records +
                  "\n" + done(1, 3),
              part(all, Bindings, IfIndexWalk));
    EXPECT_EQ(std::string::npos, all.find("BAD"));
    EXPECT_EQ(std::string::npos, all.find("Dumping"));
}

namespace
{
// Two interfaces of one place, the second of which is reported with 24 digits and those of the two ifIndexes: the line
// has 112 characters and the ifIndexes' own.
void bindTwoOfOnePlace(uint32_t firstIfIndex, uint32_t secondIfIndex)
{
    const portInstance_t first = 0xFFFF0080;
    fake.pifs[first] = {first, firstIfIndex, 0, 0, 65535, 128};
    fake.pifs[first + 1] = {first + 1, secondIfIndex, 0, 0, 65535, 128};
    kelSysPortUtil::localPtr->addPortInst(first);
    kelSysPortUtil::localPtr->addPortInst(first + 1);
}
} // namespace

TEST_F(PortDump, LineOf127CharactersFits)
{
    bindTwoOfOnePlace(1000000, 10000000);
    const std::string line = "\n  BAD: portInst(ffff0081);bridgePort(8388480);verifyBP(8388480);isBrdgPort(1);"
                             "ifIndex(10000000);verifyIf(1000000);isIfIndex(1)";
    ASSERT_EQ(127U, line.size());
    EXPECT_EQ(Records + line + "\n" + done(1, 2), part(dumped(true), Records, IfIndexWalk));
}

// It can never fit, and is dropped; its error counts.
TEST_F(PortDump, LineOf128CharactersIsLeftOut)
{
    bindTwoOfOnePlace(10000000, 20000000);
    EXPECT_EQ(Records + "\n" + done(1, 2), part(dumped(true), Records, IfIndexWalk));
}

TEST_F(PortDump, LongestLineIsLeftOut)
{
    bindTwoOfOnePlace(0xFFFFFFFA, 0xFFFFFFFB);
    EXPECT_EQ(Records + "\n" + done(1, 2), part(dumped(true), Records, IfIndexWalk));
}

TEST_F(PortDump, NamesAreAskedIntoA20ByteBufferAndShownWithSixCharacters)
{
    bind(1, 1);
    fake.names[0x10001] = "ethernet1/1";
    fake.logging = true;
    EXPECT_NE(std::string::npos, dumped(true).find("\nethern: systemPort(001) portInst(0010001) "));
    EXPECT_EQ(1, std::count(fake.calls.begin(), fake.calls.end(), "vlanGetNameForPif(10001,20)"));
}

TEST_F(PortDump, WideNumbersAreNotCut)
{
    fake.pifs[0xABCD1234] = {0xABCD1234, 0xFFFFFFFF, 0, 0, 65535, 128};
    fake.names[0xABCD1234] = "x";
    for (uint32_t port = 1; port < 1000; ++port)
        table().addPortInst(0x10000 + port);
    table().addPortInst(0xABCD1234);
    EXPECT_NE(
        std::string::npos,
        dumped(true).find("     x: systemPort(1000) portInst(abcd1234) bridgePort(8388480) ifIndex(4294967295)\n"));
}

TEST_F(PortDump, HighestSystemPortIsDumpedAndBit0IsNot)
{
    table().usedSystemPort->setBit(0);
    table().usedSystemPort->setBit(32767);
    const std::string all = dumped(true);
    EXPECT_EQ(Bindings + "\n  BAD: systemPort(32767);verifySP(0);portInst(0);verifyPI(0)\n" + done(1, 1),
              part(all, Bindings, BridgePorts));
    EXPECT_NE(std::string::npos, all.find("Number System Ports In Use:       2\n"));
    EXPECT_NE(std::string::npos, all.find("1 ports dumped\n"));
}

// The lock is held from the first look at the table to the last, so also while the platform is called; what is left in
// the buffer goes out after it.
TEST_F(PortDump, LockIsHeldForTheWholeLengthAndGivenBeforeTheLastPiece)
{
    bindThree();
    int unlocked = 0;
    bool last = false;
    int calls = 0;
    fake.onCall = [&] {
        ++calls;
        last = mapIsUnlocked();
        unlocked += last ? 1 : 0;
    };
    dumped(true);
    EXPECT_GT(calls, 50);
    EXPECT_EQ(1, unlocked);
    EXPECT_TRUE(last);
    EXPECT_TRUE(mapIsUnlocked());
}

TEST_F(PortDump, LockIsGivenAsOftenAsItIsTaken)
{
    bindThree();
    EXPECT_LT(0, locksTakenBy([] { dumped(true); }));
}

TEST_F(PortDump, DumpChangesNothing)
{
    bindThree();
    bucketOf(259) = nullptr;
    table().usedSystemPort->setBit(9);
    const std::string first = dumped(true);
    EXPECT_EQ(first, dumped(true));
    EXPECT_EQ(0U, kelSysPortUtil::badHashKey + kelSysPortUtil::idxOutOfBounds + kelSysPortUtil::entryAlreadyInUse);
}

TEST_F(PortDump, TableThatEndsWhileTheLockIsAwaitedIsNotTouched)
{
    bindThree();
    bool ended = false;
    // The dump has looked at the table and asks for the lock; before it gets it, the table ends.
    spy.beforeTake = [&] {
        if (!ended) {
            ended = true;
            endTable();
        }
    };
    EXPECT_EQ(Header + "kelSysPortUtil is not initialized\n", dumped(true));
    EXPECT_TRUE(ended);
}
