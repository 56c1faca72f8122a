// Which port is in which VLAN: a row a VLAN, a column a port, asked in both directions.
#include <bitset.h>
#include <cstdio>

int main()
{
    constexpr unsigned none = 0xFFFFFFFF;
    constexpr unsigned vlans = 3, ports = 48;
    const unsigned ids[vlans] = {1, 10, 20};
    CBitMatrix members(vlans, ports, nullptr); // its own memory
    members.setRow(0, true, 4, 0);             // VLAN 1: ports 0 to 3
    members.setRow(1, true, 0, 0);             // VLAN 10: all
    members.setBit(2, 3);                      // VLAN 20: ports 3 and 47
    members.setBit(2, 47);

    printf("port 3 is in VLAN");
    for (unsigned row = members.findColSetBit(3, 0, false); row != none; row = members.findColSetBit(3, row + 1, false))
        printf(" %u", ids[row]);
    printf("\nVLAN 20 has port");
    for (unsigned port = members.findRowSetBit(2, 0, false); port != none;
         port = members.findRowSetBit(2, port + 1, false))
        printf(" %u", port);

    CBitMask row(64);
    members.getRow(0, &row);
    printf("\nVLAN 1 as a mask: ");
    row.display(false, 0, 0);

    members.setCol(3, false, 0, 0); // port 3 leaves them all
    printf("port 3 is in %s VLAN\n", members.colBitsAreSet(3) ? "a" : "no");
    printf("%u memberships are left\n", members.numBitsSet());
}

/* Prints:
port 3 is in VLAN 1 10 20
VLAN 20 has port 3 47
VLAN 1 as a mask: 0-3,
port 3 is in no VLAN
51 memberships are left
*/
