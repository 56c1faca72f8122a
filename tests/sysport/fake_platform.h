// fake_platform.h: the switch platform as the port map's tests want it. Include it in one source of a test program: the
// definitions here win over the platform library's.
//
// Everything the map asks is answered from `pifs`; any look-up can be told to answer otherwise. With `logging` each
// call is written down, except traces and CLI texts, which are always kept. Any thread may call.
#pragma once

#include <kel_platform.h>

#include <cstdarg>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

struct FakePlatform {
    struct Answer {
        int result;
        bool record; // whether the record found is handed out as well
    };
    struct TraceLine {
        void *buffer;
        int level;
        std::string text;
    };
    struct TraceBuffer {
        std::string name;
        unsigned size;
        int flags;
    };

    std::map<portInstance_t, pif_> pifs;
    std::map<portInstance_t, std::string> names;
    bool nullNames = false;
    std::map<std::string, Answer> answers; // by name of the call; none: 1 and the record, or 0 and null
    std::vector<portInstance_t> listed;    // what PORTLIST_GETNEXTPORT walks
    std::function<unsigned(portlist_t *, unsigned, const pif_ *)> reserve; // none: 1, 5, 9, ...
    unsigned reserved = 0;
    std::function<void()> onCall; // runs in each call, without the fake's own lock

    bool logging = false;
    std::vector<std::string> calls;
    std::vector<TraceLine> traces;
    std::vector<TraceBuffer> traceBuffers;
    std::vector<std::pair<int, std::string>> cliTexts;
    std::recursive_mutex mutex;

    void *traceHandle()
    {
        return &traceBuffers;
    }

    pif_ &addSlotPort(uint16_t slot, uint16_t port)
    {
        const portInstance_t instance = portInstance_t{slot} << 16 | port;
        const uint32_t ifIndex = 1000U * slot + port;
        names[instance] = std::to_string(slot) + "/" + std::to_string(port);
        return pifs[instance] = {instance, ifIndex, 0, 0, slot, port};
    }
    pif_ &addTrunk(uint32_t number, portInstance_t master)
    {
        const portInstance_t instance = 0x01000000 | number;
        names[instance] = "trk" + std::to_string(number);
        return pifs[instance] = {instance, 500000 + number, 0, master, 0, 0};
    }
    std::vector<std::string> traceTexts()
    {
        std::lock_guard hold(mutex);
        std::vector<std::string> texts;
        for (const TraceLine &line : traces)
            texts.push_back(line.text);
        return texts;
    }
    std::string cliText()
    {
        std::string all;
        for (const auto &text : cliTexts)
            all += text.second;
        return all;
    }
    void reset()
    {
        pifs.clear();
        names.clear();
        nullNames = false;
        answers.clear();
        listed.clear();
        reserve = nullptr;
        reserved = 0;
        onCall = nullptr;
        logging = false;
        forget();
        traceBuffers.clear();
    }
    // Drops what was recorded, not what is answered.
    void forget()
    {
        calls.clear();
        traces.clear();
        cliTexts.clear();
    }

    void called(const char *name, const std::string &arguments)
    {
        if (onCall)
            onCall();
        if (!logging)
            return;
        std::lock_guard hold(mutex);
        calls.push_back(name + ("(" + arguments + ")"));
    }
    pif_ *find(portInstance_t instance)
    {
        const auto at = pifs.find(instance);
        return at == pifs.end() ? nullptr : &at->second;
    }
    template <class Wanted>
    pif_ *findIf(Wanted wanted)
    {
        for (auto &[instance, pif] : pifs) {
            if (wanted(pif))
                return &pif;
        }
        return nullptr;
    }
    int answer(const char *name, pif_ *found, pif_ **record)
    {
        const auto told = answers.find(name);
        const bool hand = told == answers.end() || told->second.record;
        *record = hand ? found : nullptr;
        return told == answers.end() ? found != nullptr : told->second.result;
    }
};

inline FakePlatform fake;

namespace fake_platform
{
inline std::string text(uint32_t number)
{
    char hex[16];
    snprintf(hex, sizeof hex, "%x", number);
    return hex;
}
} // namespace fake_platform

extern "C" {
int vlanLibGetLifByPortInstance(portInstance_t instance, pif_ **record)
{
    fake.called(__func__, fake_platform::text(instance));
    std::lock_guard hold(fake.mutex);
    return fake.answer(__func__, fake.find(instance), record);
}

pif_ *vlanLibGetLifFromIfIndex(uint32_t ifIndex)
{
    fake.called(__func__, std::to_string(ifIndex));
    std::lock_guard hold(fake.mutex);
    pif_ *record = nullptr;
    fake.answer(__func__, fake.findIf([&](const pif_ &pif) { return pif.ifIndex == ifIndex; }), &record);
    return record;
}

int vlanLibGetLifBySlotPort(uint32_t slot, uint32_t port, pif_ **record)
{
    fake.called(__func__, std::to_string(slot) + "," + std::to_string(port));
    std::lock_guard hold(fake.mutex);
    const auto wanted = [&](const pif_ &pif) { return pif.slot == slot && pif.port == port; };
    return fake.answer(__func__, fake.findIf(wanted), record);
}

int vlanLibGetPifByPortInstance(portInstance_t instance, pif_ **record)
{
    fake.called(__func__, fake_platform::text(instance));
    std::lock_guard hold(fake.mutex);
    return fake.answer(__func__, fake.find(instance), record);
}

pif_ *vlanLibGetNextPifByType(portInstance_t key, int type)
{
    fake.called(__func__, fake_platform::text(key) + "," + std::to_string(type));
    std::lock_guard hold(fake.mutex);
    for (auto at = fake.pifs.upper_bound(key); at != fake.pifs.end(); ++at) {
        if (static_cast<int>(at->first >> 24) == type)
            return &at->second;
    }
    return nullptr;
}

char *vlanGetNameForPif(const pif_ *record, char *buf, size_t len)
{
    fake.called(__func__, fake_platform::text(record->portInstance) + "," + std::to_string(len));
    std::lock_guard hold(fake.mutex);
    if (fake.nullNames)
        return nullptr;
    snprintf(buf, len, "%s", fake.names[record->portInstance].c_str());
    return buf;
}

int getPifByPortInstance(portInstance_t trunk, pif_ **record)
{
    fake.called(__func__, fake_platform::text(trunk));
    std::lock_guard hold(fake.mutex);
    return fake.answer(__func__, fake.find(trunk), record);
}

int isPortMasterOfTrunk(const pif_ *record)
{
    fake.called(__func__, fake_platform::text(record->portInstance));
    std::lock_guard hold(fake.mutex);
    const pif_ *trunk = fake.find(record->trunkPortInstance);
    pif_ *unused = nullptr;
    const int result = fake.answer(__func__, nullptr, &unused);
    return fake.answers.count(__func__) != 0 ? result : trunk && trunk->masterPortInstance == record->portInstance;
}

portInstance_t PORTLIST_GETNEXTPORT(portlist_t *, portInstance_t previous)
{
    fake.called(__func__, fake_platform::text(previous));
    std::lock_guard hold(fake.mutex);
    size_t next = 0;
    while (previous != 0xFFFFFFFF && fake.listed.at(next++) != previous) {
    }
    return next < fake.listed.size() ? fake.listed[next] : 0xFFFFFFFF;
}

unsigned plRsrvSlotBitOffset(portlist_t *list, unsigned slot, const pif_ *record)
{
    fake.called(__func__, std::to_string(slot) + "," + fake_platform::text(record->portInstance));
    std::lock_guard hold(fake.mutex);
    return fake.reserve ? fake.reserve(list, slot, record) : 4 * fake.reserved++ + 1;
}

void *emsInitTraceBuffer(const char *name, unsigned size, int flags)
{
    if (fake.onCall)
        fake.onCall();
    std::lock_guard hold(fake.mutex);
    fake.traceBuffers.push_back({name, size, flags});
    return fake.traceHandle();
}

void emsTraceLogf(void *buffer, int level, const char *format, ...)
{
    if (fake.onCall)
        fake.onCall();
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    std::lock_guard hold(fake.mutex);
    fake.traces.push_back({buffer, level, line});
}

int cmNotifyCLI(int cli, const char *text)
{
    if (fake.onCall)
        fake.onCall();
    std::lock_guard hold(fake.mutex);
    fake.cliTexts.emplace_back(cli, text);
    return 0;
}
}
