// ip_hostname_record_fuzz.cpp: host-name records one after the other, each written again and then used.
#include "fuzz_input.h"
#include "harness/guarded_bytes.h"
#include "models/ip_address_model.h"
#include "models/ip_hostname_model.h"

namespace
{
void useAddress(const CIpAddress &address)
{
    char text[128];
    if (address.privResolveAddrString(text, sizeof text) == 0)
        require(strnlen(text, sizeof text) < sizeof text, "a printed address is a text");
}

// Export and import give the value back; the zone of an address is swapped on the way.
void exchange(const CIpHostname &host)
{
    GuardedBytes value(256);
    int type = 99;
    int len = value.size();
    if (host.getInetAddress(type, value.data(), len) != 0) {
        require(len == 0 && value.untouched(), "a failed export writes nothing");
        return;
    }
    require(value.intact() && len >= 0 && len < 256, "an export stays within its room");
    CIpHostname back = host;
    require(back.setInetAddress(type, value.data(), len) == 0, "what was exported is taken back");
    require(model::brokenInvariant(back) == nullptr, "a host that was imported is whole");
    if (type == 16)
        require(memcmp(back.name, value.data(), static_cast<size_t>(len)) == 0, "the name comes back");
    if (type == 1 || type == 2)
        require(model::sameHost(host, back), "the address comes back");
}

void use(const CIpHostname &host)
{
    useAddress(host.address);
    exchange(host);
    CIpHostname stored;
    require(stored.privDecodeNStoreString(host.name) == 0, "the name of a host can be stored");
    require(strcmp(stored.name, host.name) == 0, "a name is stored as it is given");
    require(stored.hostType != 2 || stored.address.family != 0, "a literal has a family");
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    const auto records = input.rest();
    const int end = static_cast<int>(records.size());
    int pos = 0;
    int result = 0;
    CIpHostname host;
    while (result == 0 && pos < end) {
        const int start = pos;
        result = host.deserialize(records.data(), pos, end);
        require(pos >= start && pos <= end, "reading stays within the buffer");
        require(model::brokenInvariant(host) == nullptr, "a host that was read is whole");
        use(host);

        GuardedBytes again(512);
        int written = 0;
        const int writing = host.serialize(again.data(), written, again.size());
        require(again.intact() && writing == (host.hostType > 2 ? 1 : 0), "any host can be written");
        if (result == 0)
            require(written == pos - start &&
                        memcmp(again.data(), records.data() + start, static_cast<size_t>(written)) == 0,
                    "a record that was taken is written as it was");
    }
    return 0;
}
