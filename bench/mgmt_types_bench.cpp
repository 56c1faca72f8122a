// mgmt_types_bench.cpp: the management value types beside net-snmp's, without MIBs and with numeric output.
#include "mgmt_types.h"
#include "row.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <bitset>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

namespace
{
// ifHCInOctets of an interface, as an agent gets to see it.
constexpr char text[] = "1.3.6.1.2.1.31.1.1.1.6.10117";
// A dot in front tells net-snmp that the identifier is complete.
constexpr char absoluteText[] = ".1.3.6.1.2.1.31.1.1.1.6.10117";

void setUpNetSnmp()
{
    setenv("MIBS", "", 1);
    setenv("MIBDIRS", "/dev/null", 1);
    netsnmp_init_mib();
    netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_OID_OUTPUT_FORMAT, NETSNMP_OID_OUTPUT_NUMERIC);
}

struct PeersId {
    oid subids[MAX_OID_LEN];
    size_t length;

    PeersId()
    {
        setUpNetSnmp();
        length = MAX_OID_LEN;
        read_objid(absoluteText, subids, &length);
    }
};

// SuOID's copy constructor makes an empty identifier, so a step that holds one is moved by reference.
template <class Step>
auto withIds(Step step)
{
    auto first = std::make_shared<SuOID>();
    *first = text;
    auto second = std::make_shared<SuOID>();
    *second = text;
    return [first, second, step] { step(*first, *second); };
}

void oids()
{
    row("oid_parse", "ours", [] { return withIds([](SuOID &id, SuOID &) { id = text; }); });
    row("oid_parse", "net_snmp", [] {
        return [id = PeersId()]() mutable {
            id.length = MAX_OID_LEN;
            keep(read_objid(absoluteText, id.subids, &id.length));
        };
    });
    row("oid_print", "ours", [] {
        return withIds([](SuOID &id, SuOID &) {
            char buf[128];
            keep(id.getStr(buf));
            keep(buf);
        });
    });
    row("oid_print", "net_snmp", [] {
        return [id = PeersId()] {
            char buf[128];
            keep(snprint_objid(buf, sizeof buf, id.subids, id.length));
            keep(buf);
        };
    });
    row("oid_text_length", "ours", [] { return withIds([](SuOID &id, SuOID &) { keep(id.getStrLen()); }); });
    row("oid_text_length", "net_snmp", [] { // it has no other way than to print
        return [id = PeersId()] {
            char buf[128];
            keep(snprint_objid(buf, sizeof buf, id.subids, id.length));
        };
    });
    row("oid_compare", "ours", [] { return withIds([](SuOID &id, SuOID &other) { keep(id == other); }); });
    row("oid_compare", "net_snmp", [] {
        return [id = PeersId(), other = PeersId()] {
            keep(netsnmp_oid_equals(id.subids, id.length, other.subids, other.length));
        };
    });
    row("oid_copy", "ours", [] { return withIds([](SuOID &id, SuOID &other) { id = other; }); });
    row("oid_copy", "net_snmp", [] {
        return [id = PeersId(), other = PeersId()]() mutable {
            memcpy(id.subids, other.subids, other.length * sizeof(oid));
            id.length = other.length;
            benchmark::ClobberMemory();
        };
    });
    row("oid_bytes", "ours", [] {
        return withIds([](SuOID &id, SuOID &other) {
            unsigned char bytes[128];
            int length = sizeof bytes;
            keep(id.getData(bytes, length));
            other.setData(bytes, length);
        });
    });
    row("oid_bytes", "net_snmp", [] { // its byte form is BER
        return [id = PeersId(), other = PeersId()]() mutable {
            unsigned char bytes[128];
            size_t room = sizeof bytes;
            const unsigned char *const end = asn_build_objid(bytes, &room, ASN_OBJECT_ID, id.subids, id.length);
            size_t length = static_cast<size_t>(end - bytes);
            unsigned char type = 0;
            other.length = MAX_OID_LEN;
            keep(asn_parse_objid(bytes, &length, &type, other.subids, &other.length));
        };
    });
}

constexpr unsigned char octets[64] = {1, 2, 3, 250, 251, 252};

struct PeersOctets {
    netsnmp_variable_list value{};

    PeersOctets()
    {
        setUpNetSnmp();
        snmp_set_var_typed_value(&value, ASN_OCTET_STR, octets, sizeof octets);
    }
    PeersOctets(const PeersOctets &) = delete;
    ~PeersOctets()
    {
        snmp_reset_var_buffers(&value);
    }
};

void octetStrings()
{
    row("octets_set_get", "ours", [] {
        return [value = SuOctetString(64)]() mutable {
            value.setData(octets, sizeof octets);
            unsigned char out[64];
            int length = sizeof out;
            keep(value.getData(out, length));
            keep(out);
        };
    });
    row("octets_set_get", "net_snmp", [] {
        return [held = std::make_shared<PeersOctets>()] {
            snmp_set_var_value(&held->value, octets, sizeof octets);
            unsigned char out[64];
            memcpy(out, held->value.val.string, held->value.val_len);
            keep(out);
        };
    });
    row("octets_set_get", "std_string", [] {
        return [value = std::string()]() mutable {
            value.assign(reinterpret_cast<const char *>(octets), sizeof octets);
            unsigned char out[64];
            memcpy(out, value.data(), value.size());
            keep(out);
        };
    });
    row("octets_compare", "ours", [] {
        SuOctetString value(64);
        value.setData(octets, sizeof octets);
        return [value, other = value] {
            keep(value == other);
            keep(value < other);
        };
    });
    row("octets_compare", "std_string", [] {
        const std::string value(reinterpret_cast<const char *>(octets), sizeof octets);
        return [value, other = value] {
            benchmark::ClobberMemory();
            keep(&value);
            keep(value == other);
            keep(value < other);
        };
    });
    row("octets_dump", "ours", [] {
        SuOctetString value(64);
        value.setData(octets, sizeof octets);
        return [value, quiet = NoOutput()] { value.dump(0, false); };
    });
    row("octets_dump", "net_snmp", [] {
        return [held = std::make_shared<PeersOctets>(), quiet = NoOutput()] {
            char buf[512];
            snprint_octet_string(buf, sizeof buf, &held->value, nullptr, nullptr, nullptr);
            fputs(buf, stdout);
        };
    });
}

void dates()
{
    constexpr long time = 1700000000;
    row("date_set", "ours", [] {
        SuDateAndTime value;
        value.init(11);
        return [value]() mutable { value.setValue(time, 2, 0); };
    });
    row("date_set", "net_snmp", [] {
        return [] {
            const time_t seconds = time;
            size_t length = 0;
            keep(date_n_time(&seconds, &length));
        };
    });
    row("date_set", "floor", [] { // localtime_r() alone
        return [] {
            const time_t seconds = time;
            tm local;
            keep(localtime_r(&seconds, &local));
            keep(local);
        };
    });
    row("date_get", "ours", [] {
        SuDateAndTime value;
        value.init(11);
        value.setValue(time, 2, 0);
        return [value]() mutable {
            long seconds = 0;
            int hours = 0;
            unsigned minutes = 0;
            value.getValue(seconds, hours, minutes);
            keep(seconds);
        };
    });
    row("date_get", "floor", [] { // mktime() alone
        const time_t seconds = time;
        tm local;
        localtime_r(&seconds, &local);
        return [local] {
            tm copy = local;
            copy.tm_isdst = 0;
            keep(mktime(&copy));
        };
    });
}

// A user of net-snmp has the octets and loops over their bits, as its own printing does.
void namedBits()
{
    row("bits_count", "ours", [] {
        SuBITS bits(255);
        bits.os.ptr[5] = bits.os.ptr[30] = 0x24;
        return [bits] { keep(bits.numBitsSet()); };
    });
    row("bits_count", "bit_loop", [] {
        std::vector<unsigned char> bits(32);
        bits[5] = bits[30] = 0x24;
        return [bits] {
            int count = 0;
            for (const unsigned char octet : bits)
                for (int bit = 0; bit < 8; ++bit)
                    count += (octet & 0x80 >> bit) != 0;
            keep(count);
        };
    });
    row("bits_count", "std_bitset", [] {
        std::bitset<256> bits;
        bits.set(42).set(245);
        return [bits]() mutable {
            keep(&bits);
            benchmark::ClobberMemory();
            keep(bits.count());
        };
    });
    row("bits_walk", "ours", [] {
        SuBITS bits(255);
        bits.os.ptr[5] = bits.os.ptr[30] = 0x24;
        return [bits] {
            unsigned sum = 0;
            for (unsigned bit = 0; bits.findSetBit(bit) == 0; ++bit)
                sum += bit;
            keep(sum);
        };
    });
    row("bits_walk", "bit_loop", [] {
        std::vector<unsigned char> bits(32);
        bits[5] = bits[30] = 0x24;
        return [bits] {
            size_t sum = 0;
            for (size_t octet = 0; octet < bits.size(); ++octet)
                for (unsigned bit = 0; bit < 8; ++bit)
                    if (bits[octet] & 0x80 >> bit)
                        sum += 8 * octet + bit;
            keep(sum);
        };
    });
    row("bits_walk_down", "ours", [] {
        SuBITS bits(255);
        bits.os.ptr[5] = bits.os.ptr[30] = 0x24;
        return [bits] {
            unsigned sum = 0;
            for (unsigned bit = 255; bits.nextBitLexico(bit) == 0; --bit)
                sum += bit;
            keep(sum);
        };
    });
    row("bits_walk_down", "bit_loop", [] {
        std::vector<unsigned char> bits(32);
        bits[5] = bits[30] = 0x24;
        return [bits] {
            size_t sum = 0;
            for (size_t octet = bits.size(); octet-- > 0;)
                for (unsigned bit = 8; bit-- > 0;)
                    if (bits[octet] & 0x80 >> bit)
                        sum += 8 * octet + bit;
            keep(sum);
        };
    });
}

[[maybe_unused]] const bool registered = [] {
    oids();
    octetStrings();
    dates();
    namedBits();
    return true;
}();
} // namespace
