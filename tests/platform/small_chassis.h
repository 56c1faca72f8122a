// small_chassis.h: three ports, one of them not present at the start, a trunk and a VLAN.
#pragma once

#include "topology.h"

#include <string>

inline kel::Topology chassisWith(const std::string &events)
{
    return kel::parseTopology(R"({"slots": [{"slot": 1, "ports": [
            {"port": 1, "name": "a", "link": "up", "mtu": 9000, "mac": "02:00:00:00:00:01",
             "addresses": ["192.0.2.1/24"], "description": "first"},
            {"port": 2, "name": "b"}, {"port": 3, "name": "c", "link": "up", "present": false}]}],
        "trunks": [{"trunk": 1, "name": "po1", "members": ["1/1-2"], "master": "1/2"}],
        "vlans": [{"vlan": 10, "tagged": ["trunk/1"], "untagged": ["1/1", "1/3"]}],
        "events": [)" + events + "]}",
                              "chassis");
}
