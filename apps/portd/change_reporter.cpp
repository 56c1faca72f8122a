// change_reporter.cpp: the main task: receives port events in batches and reports one line a port.
#include "change_reporter.h"

namespace
{
constexpr size_t maxBatch = 4096; // so that a storm of changes cannot keep the task from its other work; the
                                  // queue gives its flag again for the rest

// Who the event is about. The system port may have passed on since the event was queued; whoever took it has an event
// of its own coming.
PortIdentity identityFor(const PortRow &row, uint32_t word)
{
    return generationOf(word) == row.beforeGeneration && row.before.systemPort != 0 ? row.before : row.identity;
}
} // namespace

ChangeReporter::ChangeReporter(PortEvents &portEvents, const PortBoard &portBoard, Counters &counted,
                               Report reportChange)
    : events(portEvents), board(portBoard), counters(counted), callback(std::move(reportChange))
{
}

size_t ChangeReporter::reportBatch()
{
    std::vector<PortEvents::Event> batch;
    PortEvents::Event event;
    while (batch.size() < maxBatch && events.receive(event))
        batch.push_back(event);
    if (batch.empty())
        return 0;
    ++counters.batches;
    if (batch.size() > counters.largestBatch)
        counters.largestBatch = batch.size();
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    for (const PortEvents::Event &one : batch)
        report(one, now);
    return batch.size();
}

void ChangeReporter::report(const PortEvents::Event &event, const timespec &now)
{
    const std::optional<PortRow> row = board.row(event.systemPort);
    if (!row)
        return;
    if (event.systemPort >= reported.size())
        reported.resize(event.systemPort + 1);
    Reported &before = reported[event.systemPort];
    const PortIdentity identity = identityFor(*row, event.word);
    ChangeRecord record = {};
    record.time = now;
    record.batch = counters.batches;
    record.systemPort = event.systemPort;
    record.ifIndex = identity.ifIndex;
    record.bridgePort = identity.bridgePort;
    record.portInstance = identity.portInstance;
    record.coalesced = event.coalesced;
    fillField(record.name, identity.name);
    fillField(record.what, whatChanged(before, event.word, event.coalesced));
    before = {event.word, identity.name};
    callback(record);
}
