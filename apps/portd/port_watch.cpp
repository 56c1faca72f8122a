// port_watch.cpp: hears of interfaces from the platform, keeps the port map current and passes changes on.
#include "port_watch.h"

#include "sysport.h"

namespace
{
std::string nameOf(uint32_t systemPort)
{
    char name[KEL_STANDIN_NAME_SIZE] = "";
    kelSysPortUtil::localPtr->getIfNameFromSystemPort(systemPort, name, sizeof name);
    return name;
}
} // namespace

PortWatch::PortWatch(PortBoard &portBoard, FlapDamper &flapDamper, PortEvents &portEvents, Counters &counted)
    : board(portBoard), damper(flapDamper), events(portEvents), counters(counted)
{
    kelStandinListener listener = {};
    listener.user = this;
    listener.appeared = [](void *user, portInstance_t instance) { static_cast<PortWatch *>(user)->appeared(instance); };
    listener.disappeared = [](void *user, portInstance_t instance) {
        static_cast<PortWatch *>(user)->disappeared(instance);
    };
    listener.linkChanged = [](void *user, portInstance_t instance, int up) {
        static_cast<PortWatch *>(user)->linkChanged(instance, up != 0);
    };
    kelStandinSetListener(&listener);
}

PortWatch::~PortWatch()
{
    kelStandinSetListener(nullptr);
}

void PortWatch::appeared(portInstance_t instance)
{
    if (kelSysPortUtilAddPifCB(instance) != 1) {
        ++counters.portsRefused; // the map's trace says why
        return;
    }
    ++counters.portsAdded;
    kelSysPortUtil &map = *kelSysPortUtil::localPtr;
    const uint32_t systemPort = map.portInst2SystemPort(instance);
    const PortIdentity identity = {systemPort, map.getIfIndexFromPortInst(instance),
                                   map.getBridgePortFromPortInst(instance), instance, nameOf(systemPort)};
    events.send(systemPort, board.appeared(identity, kelStandinGetLink(instance) == 1));
}

void PortWatch::disappeared(portInstance_t instance)
{
    // Asked before the map forgets: afterwards nobody can say which system port it was, nor what it was called last.
    const uint32_t systemPort = kelSysPortUtil::localPtr->portInst2SystemPort(instance);
    if (systemPort == 0)
        return;
    const std::string lastName = nameOf(systemPort);
    if (kelSysPortUtilDelPifCB(instance) != 1)
        return;
    ++counters.portsRemoved;
    damper.forget(systemPort);
    if (const auto word = board.disappeared(systemPort, lastName))
        events.send(systemPort, *word);
}

void PortWatch::linkChanged(portInstance_t instance, bool up)
{
    const uint32_t systemPort = kelSysPortUtil::localPtr->portInst2SystemPort(instance);
    if (systemPort == 0)
        return;
    const std::string name = nameOf(systemPort);
    TaskGuard guard(damper.order());
    auto word = board.linkChanged(systemPort, up, name);
    if (!word)
        return;
    ++counters.linkChanges;
    // The first link state of a new port is news, not yet a change of mind.
    const bool isFirst = board.row(systemPort)->linkChanges == 1;
    const FlapDamper::Verdict verdict = isFirst ? FlapDamper::Verdict::pass : damper.changed(systemPort);
    if (verdict == FlapDamper::Verdict::hold) {
        ++counters.portsHeldDown;
        word = board.heldDown(systemPort, true);
    }
    if (verdict != FlapDamper::Verdict::swallow)
        events.send(systemPort, *word);
}
