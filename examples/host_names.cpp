// Host names as management code keeps them: a DNS name or an address, and the record that passes them on.
#include <cstdio>
#include <initializer_list>
#include <ipaddr.h>

int main()
{
    unsigned char buffer[1024];
    int end = 0;
    for (const char *text : {"ntp.example.net", "192.0.2.7", "2001:db8::7"}) {
        CIpHostname host;
        host.privDecodeNStoreString(text); // nothing is looked up
        const int start = end;
        if (host.serialize(buffer, end, sizeof buffer) != 0)
            return 1;
        printf("%-16s %s, %d bytes:", text, host.hostType == 2 ? "address" : "name", end - start);
        for (int i = start; i < end; ++i)
            printf("%s%02x", (i - start) % 16 == 0 ? "\n    " : " ", buffer[i]);
        puts("");
    }

    // Another process reads them; the bytes may be anybody's, so every record is checked against the room left.
    int pos = 0;
    while (pos < end) {
        CIpHostname host;
        if (host.deserialize(buffer, pos, end) != 0)
            return 1;
        int type = 0, length = 256;
        unsigned char bytes[256];
        host.getInetAddress(type, bytes, length);
        printf("read %s: InetAddressType %d, %d octets\n", host.name, type, length);
    }
    CIpHostname cutOff;
    pos = 0;
    printf("a record that is cut off gives %d\n", cutOff.deserialize(buffer, pos, 10));
}

/* Prints:
ntp.example.net  name, 18 bytes:
    01 10 6e 74 70 2e 65 78 61 6d 70 6c 65 2e 6e 65
    74 00
192.0.2.7        address, 17 bytes:
    02 0a 31 39 32 2e 30 2e 32 2e 37 00 02 07 02 00
    c0
2001:db8::7      address, 35 bytes:
    02 0c 32 30 30 31 3a 64 62 38 3a 3a 37 00 0a b8
    0d 01 20 00 00 00 00 00 00 00 00 07 00 00 00 00
    00 00 00
read ntp.example.net: InetAddressType 16, 15 octets
read 192.0.2.7: InetAddressType 1, 4 octets
read 2001:db8::7: InetAddressType 2, 16 octets
a record that is cut off gives 1
*/
