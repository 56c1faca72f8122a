// One port under all its numbers, and the walks that tables of a management interface are made of.
#include <cstdio>
#include <initializer_list>
#include <kel_standin.h>
#include <sysport.h>

int main()
{
    kelSysPortUtilInit();
    kelStandinListener listener = {};
    listener.appeared = [](void *, portInstance_t instance) { kelSysPortUtilAddPifCB(instance); };
    listener.disappeared = [](void *, portInstance_t instance) { kelSysPortUtilDelPifCB(instance); };
    kelStandinSetListener(&listener);
    // The ports of two slots, not in order; what a switch's platform does by itself.
    for (const unsigned slot : {2u, 1u})
        for (const unsigned port : {1u, 2u})
            kelStandinAddPort(slot, port, slot == 1 ? "access" : "uplink", 0, "");

    kelSysPortUtil &map = *kelSysPortUtil::localPtr;
    puts("system port  instance    ifIndex  bridge port  name");
    for (uint32_t port = map.getNextSystemPort(0); port != 0; port = map.getNextSystemPort(port)) {
        char name[KEL_STANDIN_NAME_SIZE];
        printf("%11u  0x%08x  %7u  %11u  %s\n", port, map.systemPort2PortInst(port), map.getIfIndexFromSystemPort(port),
               map.getBridgePortFromSystemPort(port), map.getIfNameFromSystemPort(port, name, sizeof name));
    }

    printf("in order of ifIndex:");
    for (uint32_t ifIndex = map.getNextIfIndex(0); ifIndex != 0; ifIndex = map.getNextIfIndex(ifIndex))
        printf(" %u", ifIndex);
    printf("\nin order of bridge port:");
    for (uint32_t port = map.getNextBridgePort(0); port != 0; port = map.getNextBridgePort(port))
        printf(" %u", port);

    kelStandinRemovePort(kelStandinPortInstance(2, 1));
    printf("\nifIndex 2001 is system port %u now; 0 is none\n", map.getSystemPortFromIfIndex(2001));
    kelStandinAddPort(1, 3, "access", 0, "");
    printf("the next port gets the lowest free number: %u\n", map.getSystemPortFromIfIndex(1003));
    kelStandinSetListener(nullptr);
}

/* Prints:
system port  instance    ifIndex  bridge port  name
          1  0x00020001     2001          129  uplink
          2  0x00020002     2002          130  uplink
          3  0x00010001     1001            1  access
          4  0x00010002     1002            2  access
in order of ifIndex: 1001 1002 2001 2002
in order of bridge port: 1 2 129 130
ifIndex 2001 is system port 0 now; 0 is none
the next port gets the lowest free number: 1
*/
