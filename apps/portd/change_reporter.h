// change_reporter.h: the main task: receives port events in batches and reports one line a port.
#pragma once

#include "change_line.h"
#include "port_board.h"
#include "port_events.h"

#include <functional>
#include <vector>

class ChangeReporter
{
public:
    using Report = std::function<void(const ChangeRecord &)>;

    ChangeReporter(PortEvents &portEvents, const PortBoard &portBoard, Counters &counted, Report reportChange);

    // Receives all events that there are and reports them. Returns how many lines that were.
    size_t reportBatch();

private:
    void report(const PortEvents::Event &event, const timespec &now);

    PortEvents &events;
    const PortBoard &board;
    Counters &counters;
    Report callback;
    std::vector<Reported> reported; // by system port
};
