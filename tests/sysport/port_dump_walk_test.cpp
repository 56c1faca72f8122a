// The dump's two walks when get-next goes back: it never does by itself, so this program's own get-next stands in for
// the library's, as any definition in an executable does.
#include "harness/printed_by.h"
#include "sysport/port_map.h"

namespace
{
// What get-next returns, in order; then 0.
std::vector<uint32_t> script;

uint32_t nextOfScript()
{
    if (script.empty())
        return 0;
    const uint32_t next = script.front();
    script.erase(script.begin());
    return next;
}

bool ifIndexes; // whose walk the script is; the other one ends at once

class PortDumpWalk : public PortMap
{
protected:
    PortDumpWalk()
    {
        table().addPortInst(fake.addSlotPort(1, 1).portInstance);
        table().addPortInst(fake.addSlotPort(2, 3).portInstance);
    }
    static std::string pass(bool ofIfIndexes, std::vector<uint32_t> next, bool verbose)
    {
        ifIndexes = ofIfIndexes;
        script = std::move(next);
        fake.forget();
        kelSysPortUtil::DumpDebugInfo(verbose, 7);
        const std::string all = fake.cliText();
        const std::string title = ofIfIndexes ? "Verifying ifIndex get-next operations............. "
                                              : "Verifying bridgePort get-next operations.......... ";
        const size_t begin = all.find(title) + title.size();
        return all.substr(begin, all.find("checked.\n", begin) + 9 - begin);
    }
};
} // namespace

uint32_t kelSysPortUtil::getNextIfIndex(uint32_t)
{
    return ifIndexes ? nextOfScript() : 0;
}

uint32_t kelSysPortUtil::getNextBridgePort(uint32_t)
{
    return ifIndexes ? 0 : nextOfScript();
}

// First number; then for each: the next one to compare, and the next one to go on with.
TEST_F(PortDumpWalk, NumbersThatRiseAreGood)
{
    EXPECT_EQ("Done. 0 errors found. 2 ports checked.\n", pass(true, {1001, 2003, 2003, 0, 0}, true));
    EXPECT_EQ("Done. 0 errors found. 2 ports checked.\n", pass(false, {1, 131, 131, 0, 0}, true));
}

TEST_F(PortDumpWalk, ComparisonIsUnsigned)
{
    EXPECT_EQ("Done. 0 errors found. 1 ports checked.\n", pass(true, {1001, 0x80000001, 0}, true));
}

TEST_F(PortDumpWalk, VerboseWalkEndsAtTheFirstNumberThatDoesNotRise)
{
    EXPECT_EQ("\n  BAD: ifIndex(2003);nextIfIdx(1001);systemPort(2);portInst(20003)\n"
              "Done. 1 errors found. 1 ports checked.\n",
              pass(true, {2003, 1001, 1001, 1001, 0}, true));
    EXPECT_EQ("\n  BAD: bridgePort(131);nextBp(131);systemPort(2);portInst(20003)\n"
              "Done. 1 errors found. 1 ports checked.\n",
              pass(false, {131, 131, 131, 131, 0}, true));
}

TEST_F(PortDumpWalk, WithoutVerboseTheWalkGoesOn)
{
    EXPECT_EQ("\nDone. 2 errors found. 3 ports checked.\n", pass(true, {2003, 1001, 1001, 1001, 2003, 0, 0}, false));
    EXPECT_EQ("\nDone. 2 errors found. 3 ports checked.\n", pass(false, {131, 1, 1, 1, 131, 0, 0}, false));
}

TEST_F(PortDumpWalk, NumberOfNoPortIsShownWithoutOne)
{
    EXPECT_EQ("\n  BAD: ifIndex(9);nextIfIdx(9);systemPort(0);portInst(0)\nDone. 1 errors found. 1 ports checked.\n",
              pass(true, {9, 9}, true));
}
