// mgmt_types_faults.cpp: the management values under faults. An allocation that fails lets the exception pass and
// leaves the object as it was.
#include "fault_table.h"

#include "mgmt_types.h"

#include <gtest/gtest.h>

#include <optional>

using namespace faults;

namespace
{
const unsigned char Bytes[8] = {0, 0, 0, 1, 0, 0, 0, 2};

// Makes a value inside `room`; with a failed allocation there is none.
template <class Value, class... Arguments>
bool makes(Injection &injection, std::optional<Value> &room, const Arguments &...arguments)
{
    injection.during([&] { room.emplace(arguments...); });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed(), !room.has_value());
    return room.has_value();
}

void constructsOctets(Injection &injection)
{
    std::optional<SuOctetString> value;
    if (makes(injection, value, 4)) {
        EXPECT_EQ(4, value->size);
    }
}

void storesOctets(Injection &injection)
{
    SuOctetString value(2);
    value.setData(Bytes + 3, 1);
    injection.during([&] { value.setData(Bytes, 8); });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed() ? 1 : 8, value.os.len);
    EXPECT_EQ(injection.failed() ? 2 : 8, value.size);
    EXPECT_EQ(injection.failed() ? 1 : 0, value.os.ptr[0]);
}

void readsOctets(Injection &injection)
{
    SuOctetString value(8);
    value.setData(Bytes, 8);
    unsigned char out[9];
    int n = 8;
    injection.during([&] {
        EXPECT_EQ(0, value.getData(out, n));
        EXPECT_EQ(0, value.getStr(reinterpret_cast<char *>(out)));
        EXPECT_TRUE(value == value);
        EXPECT_FALSE(value == "text");
        EXPECT_FALSE(value < value);
        EXPECT_FALSE(value > value);
        value.dump(0, false);
    });
}

void assignsOid(Injection &injection)
{
    SuOID value;
    SuOID other;
    value = "7";
    other = "1.2.3";
    injection.during([&] { value = other; });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed() ? 1 : 3, value.oid.len);
    EXPECT_EQ(injection.failed() ? 7U : 1U, value.oid.ptr[0]);
}

void parsesOid(Injection &injection)
{
    SuOID value;
    value = "7";
    injection.during([&] { value = "1.2.3"; });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed() ? 1 : 3, value.oid.len);
    EXPECT_EQ(injection.failed() ? 7U : 1U, value.oid.ptr[0]);
}

void storesOid(Injection &injection)
{
    SuOID value;
    value = "7";
    injection.during([&] { value.setData(Bytes, 8); });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed() ? 1 : 2, value.oid.len);
    EXPECT_EQ(injection.failed() ? 7U : 1U, value.oid.ptr[0]);
}

void readsOid(Injection &injection)
{
    SuOID value;
    value = "1.2";
    char text[8];
    unsigned char out[8];
    int n = 8;
    injection.during([&] {
        EXPECT_EQ(4, value.getStrLen());
        EXPECT_EQ(0, value.getStr(text));
        EXPECT_EQ(0, value.getData(out, n));
        EXPECT_TRUE(value == value);
        value.dump(true);
    });
}

void constructsBits(Injection &injection)
{
    std::optional<SuBITS> value;
    if (makes(injection, value, static_cast<unsigned char>(9))) {
        EXPECT_EQ(2, value->size);
    }
}

void copiesBits(Injection &injection)
{
    const SuBITS from(9);
    std::optional<SuBITS> value;
    if (makes(injection, value, from)) {
        EXPECT_EQ(2, value->os.len);
    }
}

void readsBits(Injection &injection)
{
    SuBITS value(9);
    unsigned int pos = 0;
    injection.during([&] {
        value.clear();
        EXPECT_FALSE(value.bitsAreSet());
        EXPECT_EQ(0, value.numBitsSet());
        EXPECT_EQ(1, value.findSetBit(pos));
        EXPECT_EQ(1, value.nextBitLexico(pos));
    });
}

void initialisesDate(Injection &injection)
{
    SuDateAndTime value;
    value.init(8);
    value.os.ptr[0] = 9;
    injection.during([&] { value.init(11); });
    EXPECT_EQ(injection.failed(), injection.threw());
    EXPECT_EQ(injection.failed() ? 8 : 11, value.size);
    EXPECT_EQ(injection.failed() ? 9 : 0, value.os.ptr[0]);
}

// A time that has no local time clears every octet, the offset's too.
void storesDate(Injection &injection)
{
    SuDateAndTime value;
    value.init(11);
    value.setValue(0, -5, 30);
    injection.during([&] { value.setValue(86400 * 365, 3, 15); });
    EXPECT_EQ(injection.failed(), value.os.ptr[0] == 0);
    EXPECT_EQ(injection.failed() ? 0 : 3, value.os.ptr[9]);
}

void readsDate(Injection &injection)
{
    SuDateAndTime value;
    value.init(11);
    value.setValue(86400 * 365, -5, 30);
    long seconds = 0;
    int hours = 0;
    unsigned int minutes = 0;
    injection.during([&] { value.getValue(seconds, hours, minutes); });
    EXPECT_EQ(injection.failed(), seconds == -1);
    EXPECT_EQ(-5, hours);
    EXPECT_EQ(30U, minutes);
}

void clearsDate(Injection &injection)
{
    SuDateAndTime value;
    value.init(8);
    injection.during([&] { value.clear(); });
}

const Row rows[] = {
    {"SuOctetString::SuOctetString(int)", constructsOctets},
    {"SuOctetString::setData(unsigned char const*, int)", storesOctets},
    {"SuOctetString::getData(unsigned char*, int&) const\n"
     "SuOctetString::getStr(char*) const\n"
     "SuOctetString::operator==(SuOctetString const&) const\n"
     "SuOctetString::operator==(char const*) const\n"
     "SuOctetString::operator<(SuOctetString const&) const\n"
     "SuOctetString::operator>(SuOctetString const&) const\n"
     "SuOctetString::dump(unsigned int, bool) const",
     readsOctets, Row::ReachesNothing},
    {"SuOID::operator=(SuOID const&)", assignsOid},
    {"SuOID::operator=(char const*)", parsesOid},
    {"SuOID::setData(unsigned char const*, int)", storesOid},
    {"SuOID::getStrLen() const\n"
     "SuOID::getStr(char*) const\n"
     "SuOID::getData(unsigned char*, int&) const\n"
     "SuOID::operator==(SuOID const&) const\n"
     "SuOID::dump(bool) const",
     readsOid, Row::ReachesNothing},
    {"SuBITS::SuBITS(unsigned char)", constructsBits},
    {"SuBITS::SuBITS(SuBITS const&)", copiesBits},
    {"SuBITS::clear()\n"
     "SuBITS::bitsAreSet() const\n"
     "SuBITS::numBitsSet() const\n"
     "SuBITS::findSetBit(unsigned int&) const\n"
     "SuBITS::nextBitLexico(unsigned int&) const",
     readsBits, Row::ReachesNothing},
    {"SuDateAndTime::init(int)", initialisesDate},
    {"SuDateAndTime::setValue(long, int, unsigned int)", storesDate, Row::Reaches, memoryOfTheCLibrary},
    {"SuDateAndTime::getValue(long&, int&, unsigned int&)", readsDate, Row::Reaches, memoryOfTheCLibrary},
    {"SuDateAndTime::clear()", clearsDate, Row::ReachesNothing},
};
} // namespace

TEST(MgmtTypesFaults, EveryCallHasItsDocumentedResultUnderEveryFault)
{
    runTable(rows);
}
