// snmp_agent.cpp: the daemon as an AgentX subagent of the host's SNMP agent.
#include "snmp_agent.h"

#include "port_tables.h"
#include "queue_descriptor.h"
#include "queues.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <thread>

// Generated for C: its macros and declarations need this order.
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/library/large_fd_set.h>

namespace
{
constexpr const char *agentName = "kel-portd";
constexpr int retrySeconds = 2; // also between the pings by which a silent master is noticed
constexpr unsigned short eventIds = 32768;
constexpr unsigned short stopEvent = 0; // no system port
constexpr int threshold = 64;           // changed ports that are told at once
constexpr int delay_ticks = 10;         // for which they may be held back otherwise
constexpr int atOnce = 2;

std::vector<oid> netSnmpName(const SuOID &identifier)
{
    const auto parts = partsOf(identifier);
    return {parts.begin(), parts.end()};
}

SuOID nameOf(const netsnmp_variable_list &variable)
{
    SuOID name;
    for (size_t i = 0; i < variable.name_length; ++i)
        name = extended(name, {static_cast<uint32_t>(variable.name[i])});
    return name;
}

void setValue(netsnmp_variable_list *variable, const MibValue &value)
{
    if (const auto *integer = std::get_if<MibInteger>(&value)) {
        snmp_set_var_typed_integer(variable, ASN_INTEGER, integer->value);
    } else if (const auto *number = std::get_if<MibUnsigned>(&value)) {
        snmp_set_var_typed_integer(variable, ASN_UNSIGNED, number->value);
    } else if (const auto *counter = std::get_if<MibCounter>(&value)) {
        snmp_set_var_typed_integer(variable, ASN_COUNTER, counter->value);
    } else if (const auto *octets = std::get_if<SuOctetString>(&value)) {
        snmp_set_var_typed_value(variable, ASN_OCTET_STR, octets->os.ptr, static_cast<size_t>(octets->os.len));
    } else if (const auto *identifier = std::get_if<SuOID>(&value)) {
        const std::vector<oid> name = netSnmpName(*identifier);
        snmp_set_var_typed_value(variable, ASN_OBJECT_ID, name.data(), name.size() * sizeof(oid));
    }
}

class NetSnmpAgent : public SnmpAgent
{
public:
    NetSnmpAgent(const std::string &masterSocket, const PortBoard &portBoard, AgentCounters &counted)
        : master(masterSocket), board(portBoard),
          counters(counted), tables{{*this, bridgePortTable()}, {*this, systemPortTable(portBoard)}},
          changed(meqCreateX(0, eventIds, 0, threshold, delay_ticks, waitable.flag()))
    {
        if (changed == nullptr)
            throw std::bad_alloc();
        // The library would look for MIB text files and complain about each that is missing; nothing here needs them.
        setenv("MIBS", "", 1);
    }
    ~NetSnmpAgent() override
    {
        stop();
        meqDelete(changed);
    }

    void start() override
    {
        thread = std::thread(&NetSnmpAgent::run, this);
    }
    void stop() override
    {
        if (!thread.joinable())
            return;
        meqSendY(changed, stopEvent, 0, atOnce);
        thread.join();
    }
    void portChanged(uint32_t systemPort) override
    {
        meqSend(changed, static_cast<unsigned short>(systemPort), 0);
    }

private:
    struct ServedTable {
        NetSnmpAgent &agent;
        MibTable table;
    };

    // All of these run on the thread.
    void run();
    void open();
    void serve(ServedTable &table, const char *name);
    void waitAndServe();
    bool tellChanges(); // false: stop
    void tell(uint32_t systemPort) const;
    void answer(const MibTable &table, int mode, netsnmp_agent_request_info *info, netsnmp_request_info *request) const;

    static int handle(netsnmp_mib_handler *handler, netsnmp_handler_registration *, netsnmp_agent_request_info *info,
                      netsnmp_request_info *requests);
    static int connected(int, int, void *, void *agent);
    static int disconnected(int, int, void *, void *agent);

    const std::string master;
    const PortBoard &board;
    AgentCounters &counters;
    ServedTable tables[2];
    QueueDescriptor waitable;
    SMultiEventQ *changed;
    std::thread thread;
};

int NetSnmpAgent::connected(int, int, void *, void *agent)
{
    AgentCounters &counters = static_cast<NetSnmpAgent *>(agent)->counters;
    ++counters.sessions;
    counters.connected = 1;
    return SNMPERR_SUCCESS;
}

int NetSnmpAgent::disconnected(int, int, void *, void *agent)
{
    static_cast<NetSnmpAgent *>(agent)->counters.connected = 0;
    return SNMPERR_SUCCESS;
}

void NetSnmpAgent::open()
{
    netsnmp_register_loghandler(NETSNMP_LOGHANDLER_NONE, LOG_DEBUG); // the console's counters say how it is
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, master.c_str());
    // It takes no settings from files, keeps none, and leaves signals alone.
    for (const int setting : {NETSNMP_DS_LIB_DONT_READ_CONFIGS, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD,
                              NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, NETSNMP_DS_LIB_ALARM_DONT_USE_SIG})
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, setting, 1);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, connected, this);
    snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, disconnected, this);
    init_agent(agentName);
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                       retrySeconds); // behind init_agent(), which sets it too
    serve(tables[0], "dot1dBasePortTable");
    serve(tables[1], "kelSysPortTable");
    init_snmp(agentName); // connects
}

void NetSnmpAgent::serve(ServedTable &table, const char *name)
{
    // A table is the object above its row.
    std::vector<oid> root = netSnmpName(table.table.entry);
    root.pop_back();
    netsnmp_handler_registration *registration =
        netsnmp_create_handler_registration(name, handle, root.data(), root.size(), HANDLER_CAN_RONLY);
    if (registration == nullptr)
        throw std::bad_alloc();
    registration->handler->myvoid = &table;
    netsnmp_register_handler(registration);
}

int NetSnmpAgent::handle(netsnmp_mib_handler *handler, netsnmp_handler_registration *, netsnmp_agent_request_info *info,
                         netsnmp_request_info *requests)
{
    const ServedTable &served = *static_cast<ServedTable *>(handler->myvoid);
    for (netsnmp_request_info *request = requests; request != nullptr; request = request->next)
        served.agent.answer(served.table, info->mode, info, request);
    return SNMP_ERR_NOERROR;
}

void NetSnmpAgent::answer(const MibTable &table, int mode, netsnmp_agent_request_info *info,
                          netsnmp_request_info *request) const
{
    if (request->processed)
        return;
    ++counters.requests;
    const SuOID name = nameOf(*request->requestvb);
    std::optional<MibObject> object;
    if (mode == MODE_GET || request->inclusive)
        object = objectNamed(table, name);
    if (mode == MODE_GETNEXT && !object)
        object = objectAfter(table, name);
    if (object) {
        const std::vector<oid> found = netSnmpName(object->name);
        snmp_set_var_objid(request->requestvb, found.data(), found.size());
        setValue(request->requestvb, object->value);
    } else if (mode == MODE_GET) {
        netsnmp_set_request_error(info, request, SNMP_NOSUCHINSTANCE);
    } // else the walk goes on behind the table
}

void NetSnmpAgent::run()
{
    open();
    do
        waitAndServe();
    while (tellChanges());
    // It would free the argument of a callback that is left.
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, connected, this, 1);
    snmp_unregister_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, disconnected, this, 1);
    snmp_shutdown(agentName);
    shutdown_agent();
    counters.connected = 0;
}

void NetSnmpAgent::waitAndServe()
{
    netsnmp_large_fd_set readable;
    netsnmp_large_fd_set_init(&readable, FD_SETSIZE);
    int count = 0;
    int block = 1; // unless something is due
    timeval timeout = {};
    snmp_select_info2(&count, &readable, &timeout, &block);
    netsnmp_large_fd_setfd(waitable.descriptor(), &readable);
    count = std::max(count, waitable.descriptor() + 1);
    const int ready = netsnmp_large_fd_set_select(count, &readable, nullptr, nullptr, block ? nullptr : &timeout);
    if (ready > 0)
        snmp_read2(&readable);
    else if (ready == 0)
        snmp_timeout();
    run_alarms(); // pings, and tries to reach the master
    netsnmp_check_outstanding_agent_requests();
    netsnmp_large_fd_set_cleanup(&readable);
}

bool NetSnmpAgent::tellChanges()
{
    waitable.clear();
    unsigned short event = 0;
    unsigned int none = 0;
    while (meqRecv(changed, &event, &none) != -1) {
        if (event == stopEvent)
            return false;
        tell(event);
    }
    return true;
}

void NetSnmpAgent::tell(uint32_t systemPort) const
{
    const auto row = board.row(systemPort);
    if (!row || counters.connected == 0)
        return; // nobody is there to be told
    static const oid snmpTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    const std::vector<oid> notification = netSnmpName(kelSysPortMib::portChanged());
    const std::vector<oid> name = netSnmpName(kelSysPortMib::name(systemPort));
    const std::vector<oid> state = netSnmpName(kelSysPortMib::state(systemPort));
    const SuOctetString bits = kelSysPortMib::stateBits(row->word, row->identity.portInstance);
    netsnmp_variable_list *variables = nullptr;
    snmp_varlist_add_variable(&variables, snmpTrapOid, OID_LENGTH(snmpTrapOid), ASN_OBJECT_ID, notification.data(),
                              notification.size() * sizeof(oid));
    snmp_varlist_add_variable(&variables, name.data(), name.size(), ASN_OCTET_STR, row->identity.name.data(),
                              row->identity.name.size());
    snmp_varlist_add_variable(&variables, state.data(), state.size(), ASN_OCTET_STR, bits.os.ptr,
                              static_cast<size_t>(bits.os.len));
    send_v2trap(variables);
    snmp_free_varbind(variables);
    ++counters.notifications;
}
} // namespace

bool SnmpAgent::isAvailable()
{
    return true;
}

std::unique_ptr<SnmpAgent> SnmpAgent::forMaster(const std::string &master, const PortBoard &board,
                                                AgentCounters &counted)
{
    return std::make_unique<NetSnmpAgent>(master, board, counted);
}
