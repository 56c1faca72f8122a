// port_watch.h: hears of interfaces from the platform, keeps the port map current and passes changes on.
//
// The functions that the platform calls run on its thread: they call the port map's callbacks, note what is needed to
// tell the change later, and queue one event. They wait for nobody.
#pragma once

#include "flap_damper.h"
#include "port_board.h"
#include "port_events.h"

#include <kel_standin.h>

class PortWatch
{
public:
    // kelSysPortUtilInit() has been called. Listens until destroyed; when the destructor returns no call is under way.
    PortWatch(PortBoard &portBoard, FlapDamper &flapDamper, PortEvents &portEvents, Counters &counted);
    ~PortWatch();
    PortWatch(const PortWatch &) = delete;
    PortWatch &operator=(const PortWatch &) = delete;

private:
    void appeared(portInstance_t instance);
    void disappeared(portInstance_t instance);
    void linkChanged(portInstance_t instance, bool up);

    PortBoard &board;
    FlapDamper &damper;
    PortEvents &events;
    Counters &counters;
};
