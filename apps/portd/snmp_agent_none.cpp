// snmp_agent_none.cpp: no AgentX subagent, because the build had no net-snmp.
#include "snmp_agent.h"

bool SnmpAgent::isAvailable()
{
    return false;
}

std::unique_ptr<SnmpAgent> SnmpAgent::forMaster(const std::string &, const PortBoard &, AgentCounters &)
{
    return nullptr;
}
