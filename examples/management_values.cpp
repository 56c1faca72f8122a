// The values of a management interface: octet string, object identifier, named bits, date and time.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mgmt_types.h>
#include <string>

namespace
{
std::string text(const SuOID &identifier)
{
    std::string dotted(static_cast<size_t>(identifier.getStrLen()), '\0'); // its zero included
    identifier.getStr(&dotted[0]);
    return dotted.c_str();
}
} // namespace

int main()
{
    SuOctetString name(32); // room for 32; it grows when it must
    name.setData(reinterpret_cast<const unsigned char *>("uplink"), 6);
    printf("octet string: %d octets, equal to \"uplink\": %s\n", name.os.len, name == "uplink" ? "yes" : "no");

    SuOID ifDescr;
    ifDescr = "1.3.6.1.2.1.2.2.1.2.1001";
    printf("identifier: %s has %d parts, the row is %u\n", text(ifDescr).c_str(), ifDescr.oid.len,
           ifDescr.oid.ptr[ifDescr.oid.len - 1]);
    unsigned char bytes[64];
    int length = sizeof bytes;
    ifDescr.getData(bytes, length); // four octets a part
    printf("as octets: %d, the last four %02x %02x %02x %02x\n", length, bytes[length - 4], bytes[length - 3],
           bytes[length - 2], bytes[length - 1]);

    SuBITS capabilities(10); // bits 0 to 10
    for (const unsigned bit : {2u, 4u, 10u})
        capabilities.os.ptr[bit / 8] = static_cast<unsigned char>(capabilities.os.ptr[bit / 8] | 0x80 >> bit % 8);
    printf("bits:");
    for (unsigned bit = 0; capabilities.findSetBit(bit) == 0; ++bit)
        printf(" %u", bit);
    printf(" in octets %02x %02x\n", capabilities.os.ptr[0], capabilities.os.ptr[1]);

    setenv("TZ", "UTC0", 1);
    SuDateAndTime moment;
    moment.init(11); // with the offset from UTC, which is stored as it is given
    moment.setValue(1795264207, 0, 0);
    printf("date and time:");
    for (int i = 0; i < moment.os.len; ++i)
        printf(" %02x", moment.os.ptr[i]);
    long seconds = 0;
    int hours = 0;
    unsigned minutes = 0;
    moment.getValue(seconds, hours, minutes);
    printf(", back as %ld\n", seconds);
}

/* Prints:
octet string: 6 octets, equal to "uplink": yes
identifier: 1.3.6.1.2.1.2.2.1.2.1001 has 11 parts, the row is 1001
as octets: 44, the last four 00 00 03 e9
bits: 2 4 10 in octets 28 20
date and time: 07 ea 0b 15 0c 1e 07 00 2b 00 00, back as 1795264207
*/
