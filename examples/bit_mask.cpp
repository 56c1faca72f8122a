// Port sets as bit masks: ranges, searches, set arithmetic, and the octet string in which a set travels.
#include <bitset.h>
#include <cstdio>

int main()
{
    constexpr unsigned none = 0xFFFFFFFF;
    CBitMask up(64), trunked(64);
    up.set(8, 1); // ports 1 to 8; 0 is no port
    up.setBit(24);
    trunked.set(4, 5);
    printf("up:      ");
    up.display(false, 0, 0);
    printf("trunked: ");
    trunked.display(false, 0, 0);

    CBitMask single(up);
    single &= ~trunked;
    printf("single:  ");
    single.display(false, 0, 0);
    printf("%u ports:", single.numBitsSet());
    for (unsigned port = single.findSetBit(); port != none; port = single.findSetBit(port + 1))
        printf(" %u", port);

    // A free number is found and taken in one step.
    single.setBit(0);
    const unsigned number = single.findClrBit(0, true);
    printf("\nlowest free number: %u, now %s\n", number, single.chkBit(number) ? "taken" : "free");

    // Bit 0 is the most significant of the first octet, as in BITS and PortList of SNMP.
    unsigned char octets[8];
    unsigned length = sizeof octets;
    up.octet_string_out(octets, &length, false);
    printf("octets:");
    for (const unsigned char octet : octets)
        printf(" %02x", octet);
    CBitMask back(64);
    back.octet_string_in(octets, &length, false);
    printf("\nread back: %s\n", back == up ? "the same" : "different");
}

/* Prints:
up:      1-8,24,
trunked: 5-8,
single:  1-4,24,
5 ports: 1 2 3 4 24
lowest free number: 5, now taken
octets: 7f 80 00 80 00 00 00 00
read back: the same
*/
