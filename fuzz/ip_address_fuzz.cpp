// ip_address_fuzz.cpp: addresses from text and from bytes; each is printed, parsed again, compared and computed with.
#include "fuzz_input.h"
#include "harness/guarded_bytes.h"
#include "models/ip_address_model.h"

#include <netdb.h>

namespace
{
bool sameAddress(const CIpAddress &a, const CIpAddress &b)
{
    if (a.family != b.family)
        return false;
    if (a.family == AF_INET)
        return a.ipv4OrFlowInfo == b.ipv4OrFlowInfo;
    return memcmp(a.ipv6, b.ipv6, sizeof a.ipv6) == 0 && a.scopeId == b.scopeId;
}

void printAndParse(const CIpAddress &address)
{
    GuardedBytes text(128);
    if (address.privResolveAddrString(text.text(), text.size()) != 0)
        return;
    require(text.intact(), "printing stays within its room");
    if (address.family != AF_INET && address.family != AF_INET6)
        return; // the C library names a few other families in its own way
    const std::string printed = text.text();
    require(printed.substr(0, printed.find('%')) == model::textOf(address), "the text is that of inet_ntop");
    CIpAddress back;
    require(back.setAddrString(printed.c_str(), address.family, AI_NUMERICHOST) == 0, "what was printed can be parsed");
    require(sameAddress(address, back), "what was printed is the address");

    GuardedBytes unmapped(46);
    if (address.getUnmappedAddressString(unmapped.text(), unmapped.size()) == 0 && address.scopeId == 0)
        require(unmapped.text() == model::unmappedTextOf(address), "the unmapped text is the model's");
    require(unmapped.intact(), "unmapped printing stays within its room");
}

void exchange(const CIpAddress &address)
{
    GuardedBytes bytes(20);
    int type = 99;
    int len = bytes.size();
    if (address.getInetAddress(type, bytes.data(), len) != 0)
        return;
    CIpAddress back = address;
    require(back.setInetAddress(type, bytes.data(), len) == 0, "what was exported is taken back");
    back.scopeId = address.scopeId; // the zone comes back in the other byte order
    require(sameAddress(address, back) && bytes.intact(), "what was exported is the address");
}

void compute(const CIpAddress &given, FuzzInput &input)
{
    CIpAddress address = given;
    CIpAddress up;
    unsigned int count = 0;
    if (address.getAddressFromRangeOffset(input.number(), up) == 0) {
        const int result = address.findAddressRange(up, count);
        if (address.family == AF_INET)
            require(count == model::ipv4Distance(model::ipv4Number(address), model::ipv4Number(up)).count,
                    "the distance of IPv4 addresses is the model's");
        else if (address.family == AF_INET6)
            require(model::ipv6Distance(address, up) == model::Distance{result, count},
                    "the distance of IPv6 addresses is the model's");
    }
    CIpAddress prefix = address;
    const unsigned int len = input.byte();
    if (prefix.makePrefixFromLen(len) == 0 && address.family == AF_INET6)
        require(model::ipv6Number(prefix) == model::prefix(model::ipv6Number(address), len, 128),
                "the prefix is the model's");
    const auto mac = input.bytes(6);
    if (mac.size() == 6)
        prefix.addIpv6EUI64(mac.data(), input.byte());
    prefix.addIpv6EUI64(address, input.byte());
    prefix.makeSolicitedNodeAddress(input.number());
    prefix.convertToAddressFamily(input.byte() % 12);
    printAndParse(prefix);
}

void use(const CIpAddress &address, FuzzInput &input)
{
    printAndParse(address);
    exchange(address);
    compute(address, input);
}

void fromBytes(FuzzInput &input)
{
    const int type = input.byte() % 6 - 1;
    const auto bytes = input.bytes(input.byte() % 24);
    CIpAddress address;
    if (address.setInetAddress(type, bytes.data(), static_cast<int>(bytes.size())) == 0)
        use(address, input);
    else
        require(address.family == 0, "a failed import changes nothing");
}

void fromText(FuzzInput &input)
{
    const std::string text = input.text();
    FuzzInput numbers(reinterpret_cast<const uint8_t *>(text.data()), text.size());
    bool parsed = false;
    for (unsigned short family : std::initializer_list<unsigned short>{AF_INET, AF_INET6}) {
        CIpAddress address;
        if (address.setAddrString(text.c_str(), family, AI_NUMERICHOST) != 0) {
            require(address.family == 0, "a failed parse changes nothing");
            continue;
        }
        require(address.family == family, "a text is parsed as the wanted family");
        parsed = true;
        use(address, numbers);
    }
    GuardedBytes shown(64);
    get_unmapped_address_string(text.c_str(), shown.text(), 64);
    require(shown.intact() && (parsed || shown.text() == std::string("UNKNOWN")), "no other text is an address");
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    if (input.byte() == 'b')
        fromBytes(input);
    else
        fromText(input);
    return 0;
}
