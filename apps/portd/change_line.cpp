// change_line.cpp: how a port's change reads.
#include "change_line.h"

#include "text_table.h"

#include <cstdio>

namespace
{
std::string linkText(uint32_t word)
{
    return word & stateLinkUp ? "link up" : "link down";
}

std::string arrival(uint32_t word)
{
    return word & stateHeldDown ? "held down" : linkText(word);
}

std::string changeOfSamePort(uint32_t before, uint32_t word, bool coalesced)
{
    const bool wasHeld = before & stateHeldDown;
    const bool isHeld = word & stateHeldDown;
    if (!(word & statePresent))
        return "removed";
    if (isHeld)
        return wasHeld ? "still flapping, held down" : "flapping, held down";
    if (wasHeld)
        return "released, " + linkText(word);
    if ((before ^ word) & stateLinkUp)
        return linkText(word);
    return coalesced ? std::string("link flapped, still ") + (word & stateLinkUp ? "up" : "down") : linkText(word);
}
} // namespace

std::string whatChanged(const Reported &before, uint32_t word, bool coalesced)
{
    if (before.word != 0 && generationOf(before.word) == generationOf(word))
        return changeOfSamePort(before.word, word, coalesced);
    // Another interface has the number now; the earlier one's end may have been coalesced away.
    const bool replaced = before.word & statePresent;
    const std::string how = replaced ? "replaced " + before.name : "added";
    if (word & statePresent)
        return how + ", " + arrival(word);
    return how + (replaced ? ", then removed" : " and removed");
}

std::string timeOfDay(const timespec &time)
{
    tm local = {};
    localtime_r(&time.tv_sec, &local);
    char text[40];
    snprintf(text, sizeof text, "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min, local.tm_sec,
             time.tv_nsec / 1'000'000);
    return text;
}

std::string changeTitleLine()
{
    return "TIME          BATCH  PORT  IFINDEX  BRIDGE  INSTANCE    NAME      CHANGE\n";
}

std::string changeLine(const ChangeRecord &record)
{
    char text[320];
    const std::string bridge = record.bridgePort == 0 ? "-" : std::to_string(record.bridgePort);
    snprintf(text, sizeof text, "%s  %5llu  %4u  %7u  %6s  0x%08x  %-8s  %s%s\n", timeOfDay(record.time).c_str(),
             static_cast<unsigned long long>(record.batch), record.systemPort, record.ifIndex, bridge.c_str(),
             record.portInstance, printable(record.name).c_str(), printable(record.what).c_str(),
             record.coalesced ? " (coalesced)" : "");
    return text;
}
