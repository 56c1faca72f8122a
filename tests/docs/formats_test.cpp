// The examples of docs/formats.md, read from there and compared with what the library writes.
#include <bitset.h>
#include <gtest/gtest.h>
#include <ipaddr.h>
#include <mgmt_types.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <netdb.h>
#include <regex>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace
{
using Row = std::vector<std::string>;

// The rows of the table under a heading whose first title is `title`, cells without blanks and back-quotes.
std::vector<Row> table(const std::string &title)
{
    std::ifstream file(KEL_FORMATS);
    std::vector<Row> rows;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("| ", 0) != 0) {
            if (!line.starts_with("|---"))
                inside = false;
            continue;
        }
        Row row;
        std::istringstream cells(line.substr(1));
        for (std::string cell; std::getline(cells, cell, '|');)
            row.push_back(std::regex_replace(cell, std::regex("^ +| +$|`"), ""));
        if (inside)
            rows.push_back(row);
        else
            inside = row[0] == title;
    }
    return rows;
}

std::string hex(const unsigned char *bytes, int count)
{
    std::string text;
    for (int i = 0; i < count; ++i) {
        char one[4];
        snprintf(one, sizeof one, i == 0 ? "%02x" : " %02x", bytes[i]);
        text += one;
    }
    return text;
}

std::vector<unsigned> numbersOf(const std::string &text)
{
    std::vector<unsigned> numbers;
    const std::regex number("[0-9]+");
    for (std::sregex_iterator at(text.begin(), text.end(), number), end; at != end; ++at)
        numbers.push_back(static_cast<unsigned>(std::stoul(at->str())));
    return numbers;
}

std::string maskOctets(const CBitMask &mask, bool reverse)
{
    unsigned char octets[4];
    unsigned length = sizeof octets;
    mask.octet_string_out(octets, &length, reverse);
    return hex(octets, sizeof octets);
}
} // namespace

TEST(Formats, OctetsOfAMaskAreAsTheTableSays)
{
    const auto rows = table("Mask of 32 bits");
    ASSERT_EQ(3u, rows.size());
    for (const Row &row : rows) {
        CBitMask mask(32);
        const auto numbers = numbersOf(row[0]);
        const bool isRange = row[0].find(" to ") != std::string::npos;
        if (isRange)
            mask.set(numbers[1] - numbers[0] + 1, numbers[0]);
        for (size_t i = isRange ? 2 : 0; i < numbers.size(); ++i)
            mask.setBit(numbers[i]);
        EXPECT_EQ(row[1], maskOctets(mask, false)) << row[0];
        EXPECT_EQ(row[2], maskOctets(mask, true)) << row[0];
    }
}

TEST(Formats, HostNameRecordsAreAsTheTableSays)
{
    const auto rows = table("Host");
    ASSERT_EQ(3u, rows.size());
    for (const Row &row : rows) {
        CIpHostname host;
        ASSERT_EQ(0, host.privDecodeNStoreString(row[0].c_str()));
        unsigned char record[512];
        int end = 0;
        ASSERT_EQ(0, host.serialize(record, end, sizeof record));
        EXPECT_EQ(row[1], hex(record, end)) << row[0];
    }
}

TEST(Formats, InetAddressesAreAsTheTableSays)
{
    const auto rows = table("Address");
    ASSERT_EQ(3u, rows.size());
    for (const Row &row : rows) {
        CIpAddress address;
        const unsigned short family = row[0].find(':') == std::string::npos ? AF_INET : AF_INET6;
        ASSERT_EQ(0, address.setAddrString(row[0].c_str(), family, AI_NUMERICHOST));
        unsigned char bytes[20];
        int type = 0, length = sizeof bytes;
        ASSERT_EQ(0, address.getInetAddress(type, bytes, length));
        EXPECT_EQ(row[1], std::to_string(type)) << row[0];
        EXPECT_EQ(row[2], hex(bytes, length)) << row[0];
    }
}

TEST(Formats, ManagementValuesAreAsTheTableSays)
{
    setenv("TZ", "UTC0", 1);
    constexpr long moment = 1795264207; // 2026-11-21 12:30:07 UTC
    std::map<std::string, std::string> expected;
    for (const Row &row : table("Value"))
        expected[row[0]] = row[1];
    ASSERT_EQ(5u, expected.size());

    for (const char *text : {"1.3.6.1", "0.4294967295"}) {
        SuOID identifier;
        identifier = text;
        unsigned char bytes[64];
        int length = sizeof bytes;
        ASSERT_EQ(0, identifier.getData(bytes, length));
        EXPECT_EQ(expected[std::string("identifier ") + text], hex(bytes, length));
    }
    SuBITS bits(10);
    for (const unsigned bit : {2u, 4u, 10u})
        bits.os.ptr[bit / 8] = static_cast<unsigned char>(bits.os.ptr[bit / 8] | 0x80 >> bit % 8);
    EXPECT_EQ(expected["BITS 2, 4, 10"], hex(bits.os.ptr, bits.os.len));
    unsigned found = 0;
    EXPECT_EQ(0, bits.findSetBit(found));
    EXPECT_EQ(2u, found);
    SuDateAndTime value;
    value.init(11);
    value.setValue(moment, 0, 0);
    EXPECT_EQ(expected["2026-11-21 12:30:07 UTC, 11 octets"], hex(value.os.ptr, value.os.len));
    value.setValue(moment, -3, 30);
    EXPECT_EQ(expected["the same, 3:30 west, 11 octets"], hex(value.os.ptr, value.os.len));
}
