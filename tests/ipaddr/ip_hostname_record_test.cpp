#include "ipaddr.h"

#include "harness/guarded_bytes.h"
#include "models/ip_address_model.h"
#include "models/ip_hostname_model.h"

#include <gtest/gtest.h>

#include <climits>
#include <random>

namespace
{
using Bytes = std::vector<unsigned char>;

CIpHostname host(const char *text)
{
    CIpHostname made;
    EXPECT_EQ(0, made.privDecodeNStoreString(text));
    return made;
}

// What serialize() writes with exactly the room it needs.
Bytes written(const CIpHostname &made)
{
    GuardedBytes buffer(model::recordOf(made).size());
    int pos = 0;
    EXPECT_EQ(0, made.serialize(buffer.data(), pos, buffer.size()));
    EXPECT_EQ(buffer.size(), pos);
    EXPECT_TRUE(buffer.intact());
    return buffer.held();
}

struct Read {
    CIpHostname host;
    int result;
    int pos;
};

// Reads from a copy that ends where the record ends, so that a sanitizer sees a byte too many.
Read readFrom(const Bytes &record, CIpHostname into = {})
{
    const Bytes exact(record.begin(), record.end());
    Read read{into, 0, 0};
    read.result = read.host.deserialize(exact.data(), read.pos, static_cast<int>(exact.size()));
    return read;
}

// A host of any kind, with what the record does not carry left at zero.
CIpHostname randomHost(std::mt19937_64 &random)
{
    CIpHostname made;
    std::string name(random() % 256, '\0');
    for (char &c : name)
        c = static_cast<char>('a' + random() % 26);
    switch (random() % 4) {
    case 0:
        break;
    case 1:
        made.privDecodeNStoreString(name.c_str());
        break;
    case 2:
        made.privDecodeNStoreString(name.c_str());
        made.hostType = 2;
        made.address = model::ipv4(static_cast<uint32_t>(random()));
        break;
    default:
        made.hostType = 2;
        made.address = model::ipv6(model::uint128{random()} << 64 | random(), static_cast<uint32_t>(random()));
        break;
    }
    return made;
}
} // namespace

TEST(IpHostnameRecord, Ipv4LiteralIsSixteenBytes)
{
    EXPECT_EQ((Bytes{2, 9, '1', '0', '.', '1', '.', '2', '.', '3', 0, 2, 3, 2, 1, 10}), written(host("10.1.2.3")));
}

TEST(IpHostnameRecord, DnsNameIsItsHeaderAndItsBytes)
{
    EXPECT_EQ((Bytes{1, 8, 'r', 'o', 'u', 't', 'e', 'r', '1', 0}), written(host("router1")));
}

TEST(IpHostnameRecord, EmptyHostIsTwoZeroBytesAndComesBackEmpty)
{
    EXPECT_EQ((Bytes{0, 0}), written(CIpHostname()));
    const Read read = readFrom({0, 0});
    EXPECT_EQ(0, read.result);
    EXPECT_EQ(2, read.pos);
    const CIpAddress none;
    EXPECT_EQ(0, memcmp(&read.host.address, &none, sizeof none));
    EXPECT_EQ(0, read.host.hostType);
    EXPECT_EQ(0, read.host.nameLen);
}

TEST(IpHostnameRecord, AddressGroupsAreWrittenLastByteFirst)
{
    CIpHostname made;
    made.hostType = 2;
    made.address = model::ip("0:102:304:506:708:90a:b0c:d0e", 3);
    EXPECT_EQ((Bytes{2, 0, 10, 2, 1, 0, 0, 6, 5, 4, 3, 10, 9, 8, 7, 14, 13, 12, 11, 0, 0, 0, 3}), written(made));
}

TEST(IpHostnameRecord, ZoneEndsTheRecordMostSignificantByteFirst)
{
    CIpHostname made = host("fe80::1");
    made.address.scopeId = 3;
    const Bytes record = written(made);
    EXPECT_EQ((Bytes{0, 0, 0, 3}), Bytes(record.end() - 4, record.end()));
    made.address.scopeId = 0x01020304;
    const Bytes other = written(made);
    EXPECT_EQ((Bytes{1, 2, 3, 4}), Bytes(other.end() - 4, other.end()));
}

TEST(IpHostnameRecord, UnknownFamilyIsItsLowByteAlone)
{
    CIpHostname made;
    made.hostType = 2;
    EXPECT_EQ((Bytes{2, 0, 0}), written(made));
    made.address.family = 0x1234;
    EXPECT_EQ((Bytes{2, 0, 0x34}), written(made));
    // Its low byte says IPv4, but it is not, so no address follows.
    made.address.family = 0x0102;
    EXPECT_EQ((Bytes{2, 0, 2}), written(made));
}

TEST(IpHostnameRecord, HostTypeAboveTwoWritesHeaderAndNameAndFails)
{
    CIpHostname made = host("ab");
    made.hostType = 7;
    GuardedBytes buffer(8);
    int pos = 1;
    EXPECT_EQ(1, made.serialize(buffer.data(), pos, buffer.size()));
    EXPECT_EQ(6, pos);
    EXPECT_EQ((Bytes{GuardedBytes::Fill, 7, 3, 'a', 'b', 0, GuardedBytes::Fill, GuardedBytes::Fill}), buffer.held());
    EXPECT_TRUE(buffer.intact());

    GuardedBytes small(4);
    pos = 0;
    EXPECT_EQ(1, made.serialize(small.data(), pos, small.size()));
    EXPECT_EQ(0, pos);
    EXPECT_TRUE(small.untouched());
}

TEST(IpHostnameRecord, AnyLessRoomWritesNothing)
{
    for (const char *text : {"10.1.2.3", "router1", "fe80::1", ""}) {
        const CIpHostname made = host(text);
        const int needed = static_cast<int>(model::recordOf(made).size());
        for (int room = 0; room < needed; room++) {
            GuardedBytes buffer(static_cast<size_t>(room));
            int pos = 0;
            EXPECT_EQ(1, made.serialize(buffer.data(), pos, room)) << text << " " << room;
            EXPECT_EQ(0, pos);
            EXPECT_TRUE(buffer.untouched());
        }
    }
}

TEST(IpHostnameRecord, NullBufferAndOffsetsOutsideOfItAreRefused)
{
    const CIpHostname made = host("10.1.2.3");
    CIpHostname target;
    GuardedBytes buffer(64);
    int pos = 0;
    EXPECT_EQ(1, made.serialize(nullptr, pos, 64));
    EXPECT_EQ(1, target.deserialize(nullptr, pos, 64));
    EXPECT_EQ(0, pos);
    for (int outside : {-1, -16, INT_MIN, 64, 65, INT_MAX}) {
        pos = outside;
        EXPECT_EQ(1, made.serialize(buffer.data(), pos, 64)) << outside;
        EXPECT_EQ(outside, pos);
        EXPECT_EQ(1, target.deserialize(buffer.data(), pos, 64)) << outside;
        EXPECT_EQ(outside, pos);
    }
    for (int length : {0, 1, -1, INT_MIN}) {
        pos = 0;
        EXPECT_EQ(1, made.serialize(buffer.data(), pos, length)) << length;
        EXPECT_EQ(1, target.deserialize(buffer.data(), pos, length)) << length;
        EXPECT_EQ(0, pos);
    }
    EXPECT_TRUE(buffer.untouched());
}

TEST(IpHostnameRecord, SeveralRecordsFollowEachOtherThroughPos)
{
    const CIpHostname hosts[] = {host("10.1.2.3"), host("router1"), CIpHostname(), host("2001:db8::1")};
    GuardedBytes buffer(256);
    int pos = 5;
    for (const CIpHostname &made : hosts)
        ASSERT_EQ(0, made.serialize(buffer.data(), pos, 256));
    const int end = pos;
    pos = 5;
    for (const CIpHostname &made : hosts) {
        CIpHostname back;
        ASSERT_EQ(0, back.deserialize(buffer.data(), pos, end));
        EXPECT_TRUE(model::sameHost(made, back));
    }
    EXPECT_EQ(end, pos);
}

TEST(IpHostnameRecord, NameOf255CharactersTravelsAsNoName)
{
    EXPECT_EQ((Bytes{1, 0}), written(host(std::string(255, 'a').c_str())));
}

TEST(IpHostnameRecord, EveryTruncationFailsOrIsAShorterRecordAndNothingBehindItIsRead)
{
    CIpHostname zoned = host("fe80::1");
    zoned.address.scopeId = 9;
    for (const CIpHostname &made : {host("10.1.2.3"), zoned, host("router1")}) {
        const Bytes record = written(made);
        for (size_t length = 0; length < record.size(); length++) {
            const Read read = readFrom(Bytes(record.begin(), record.begin() + static_cast<ptrdiff_t>(length)));
            EXPECT_EQ(1, read.result) << length;
            EXPECT_LE(read.pos, static_cast<int>(length));
            EXPECT_EQ(nullptr, model::brokenInvariant(read.host));
        }
        EXPECT_EQ(0, readFrom(record).result);
    }
}

TEST(IpHostnameRecord, NameLengthThatLiesIsRefusedBehindTheHeader)
{
    const CIpHostname before = host("router1");
    for (const int length : {2, 100, 255}) {
        const Read read = readFrom({1, static_cast<unsigned char>(length), 'a'}, before);
        EXPECT_EQ(1, read.result);
        EXPECT_EQ(2, read.pos);
        EXPECT_TRUE(model::sameHost(before, read.host));
        EXPECT_STREQ("router1", read.host.name);
    }
}

TEST(IpHostnameRecord, FailuresLeavePosBehindWhatWasRead)
{
    const struct {
        Bytes record;
        int pos;
    } cases[] = {{{2, 1, 0}, 3},                       // no family
                 {{3, 1, 0, 2, 1, 2, 3, 4}, 3},        // unknown type
                 {{255, 0, 2, 1, 2, 3, 4}, 2},         // unknown type
                 {{2, 0, 2, 1, 2, 3}, 3},              // three bytes of IPv4
                 {{2, 0, 10, 1, 2, 3, 4, 5, 6, 7}, 3}, // seven bytes of IPv6
                 {{2, 0, 7, 1, 2, 3, 4}, 3},           // unknown family
                 {{2, 0, 255}, 3}};                    // unknown family
    for (const auto &expected : cases) {
        const Read read = readFrom(expected.record);
        EXPECT_EQ(1, read.result);
        EXPECT_EQ(expected.pos, read.pos);
    }
}

TEST(IpHostnameRecord, FamilyIsStoredEvenWhenItsAddressIsCutOff)
{
    const Read read = readFrom({2, 0, 10, 1, 2, 3}, host("10.1.2.3"));
    EXPECT_EQ(10, read.host.address.family);
    EXPECT_EQ(2, read.host.hostType);
}

TEST(IpHostnameRecord, FamilyZeroIsAnAddressWithoutOne)
{
    const Read read = readFrom({2, 0, 0}, host("10.1.2.3"));
    EXPECT_EQ(0, read.result);
    EXPECT_EQ(3, read.pos);
    EXPECT_EQ(0, read.host.address.family);
}

TEST(IpHostnameRecord, PortAndFlowInfoAreNotTouchedByReading)
{
    CIpHostname made;
    made.address.port = 5;
    made.address.ipv4OrFlowInfo = 6;
    const Read read = readFrom(written(host("2001:db8::1")), made);
    EXPECT_EQ(0, read.result);
    EXPECT_EQ(5U, read.host.address.port);
    EXPECT_EQ(6U, read.host.address.ipv4OrFlowInfo);
}

// A name that was read must be a text for whoever prints it, also when an older, longer one stood there.
TEST(IpHostnameRecord, NameWithoutItsZeroIsStillATextAfterwards)
{
    const Read shorter = readFrom({1, 2, 'a', 'b'}, host("router1"));
    EXPECT_EQ(0, shorter.result);
    EXPECT_EQ(2, shorter.host.nameLen);
    EXPECT_STREQ("ab", shorter.host.name);

    Bytes longest = {1, 255};
    longest.resize(2 + 255, 'z');
    const Read full = readFrom(longest);
    EXPECT_EQ(0, full.result);
    EXPECT_EQ(std::string(255, 'z'), full.host.name);
    EXPECT_EQ(nullptr, model::brokenInvariant(full.host));
    unsigned char out[256];
    int type = 0;
    int len = sizeof out;
    EXPECT_EQ(0, full.host.getInetAddress(type, out, len));
    EXPECT_EQ(254, len);
}

TEST(IpHostnameRecord, NoNameInTheRecordKeepsTheOldText)
{
    const Read read = readFrom({0, 0}, host("router1"));
    EXPECT_EQ(0, read.result);
    EXPECT_EQ(0, read.host.nameLen);
    EXPECT_STREQ("router1", read.host.name);
}

TEST(IpHostnameRecordModel, AgreesAndComesBackForAnyHost)
{
    for (unsigned seed = 0; seed < 1000; seed++) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        const CIpHostname made = randomHost(random);
        const Bytes record = written(made);
        ASSERT_EQ(model::recordOf(made), record);
        const Read read = readFrom(record);
        ASSERT_EQ(0, read.result);
        ASSERT_EQ(static_cast<int>(record.size()), read.pos);
        ASSERT_TRUE(model::sameHost(made, read.host));
        ASSERT_EQ(nullptr, model::brokenInvariant(read.host));
    }
}

TEST(IpHostnameRecordModel, NoticesAFieldChangedBehindItsBack)
{
    const CIpHostname made = host("10.1.2.3");
    CIpHostname changed = made;
    changed.address.ipv4OrFlowInfo ^= 1;
    EXPECT_NE(model::recordOf(made), written(changed));
    EXPECT_FALSE(model::sameHost(made, changed));
    memset(changed.name, 'x', sizeof changed.name);
    EXPECT_STREQ("the name has no terminating zero", model::brokenInvariant(changed));
}

// Any bytes: never outside the buffers, and whatever was taken can be used.
TEST(IpHostnameRecord, HostileBytesNeverBreakTheHost)
{
    std::mt19937_64 random(36);
    CIpHostname target;
    for (int i = 0; i < 20000; i++) {
        Bytes record(random() % 40);
        for (unsigned char &byte : record)
            byte = static_cast<unsigned char>(random() % 4 == 0 ? random() : random() % 12);
        const Read read = readFrom(record, target);
        target = read.host;
        ASSERT_EQ(nullptr, model::brokenInvariant(target));
        ASSERT_LE(read.pos, static_cast<int>(record.size()));
        if (read.result == 0) {
            ASSERT_EQ(Bytes(record.begin(), record.begin() + read.pos), written(target));
        }
    }
}
