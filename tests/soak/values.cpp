// values.cpp: addresses, host names and management values. What is checked of them is what their fuzzers check, here
// from all workers at once: the fuzzers' sources are compiled in under the names below.
#include "subsystem.h"

#include "mgmt_types.h"

#include <cstring>
#include <string>

extern "C" {
int checkAddress(const uint8_t *data, size_t size);
int checkHostRecord(const uint8_t *data, size_t size);
int checkOid(const uint8_t *data, size_t size);
int checkBits(const uint8_t *data, size_t size);
int checkDateAndTime(const uint8_t *data, size_t size);
}

namespace
{
using namespace soak;

using Check = int (*)(const uint8_t *, size_t);
using Input = std::vector<uint8_t> (*)(Random &);

class Values : public Subsystem
{
public:
    Values(const char *title, Check check, Input input) : Subsystem(title), check_(check), input_(input) {}

    void round(Random &random, unsigned) override
    {
        for (int i = 0; i < 5; ++i) {
            const std::vector<uint8_t> input = input_(random);
            check_(input.data(), input.size());
        }
        did(5);
    }

private:
    Check check_;
    Input input_;
};

std::vector<uint8_t> bytes(Random &random)
{
    std::vector<uint8_t> all(random.below(80));
    for (uint8_t &byte : all)
        byte = static_cast<uint8_t>(random.below(256));
    return all;
}

std::vector<uint8_t> text(Random &random, const char *alphabet)
{
    std::vector<uint8_t> all(random.below(30));
    for (uint8_t &byte : all)
        byte = static_cast<uint8_t>(alphabet[random.below(static_cast<unsigned>(strlen(alphabet)))]);
    return all;
}

// Four or sixteen bytes, or a text that often is an address.
std::vector<uint8_t> address(Random &random)
{
    if (random.oneIn(3))
        return text(random, "0123456789abcdef::::....");
    std::vector<uint8_t> all = bytes(random);
    all.resize(60);
    const bool isIpv4 = random.oneIn(2);
    all[0] = 'b';
    all[1] = isIpv4 ? 2 : 3; // the type, counted from -1
    all[2] = isIpv4 ? 4 : 16;
    return all;
}

// One text of numbers and dots, and what follows.
std::vector<uint8_t> oid(Random &random)
{
    std::vector<uint8_t> all = text(random, "0123456789...");
    const auto length = static_cast<uint8_t>(all.size());
    all.insert(all.begin(), {0, length});
    const std::vector<uint8_t> more = bytes(random);
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

class OctetStrings : public Subsystem
{
public:
    OctetStrings() : Subsystem("octet strings") {}

    void round(Random &random, unsigned) override
    {
        const std::vector<uint8_t> value = bytes(random);
        const auto length = static_cast<int>(value.size());
        SuOctetString string(static_cast<int>(random.below(40)));
        string.setData(value.data(), length);
        unsigned char out[80];
        int n = sizeof out;
        must(string.getData(out, n) == 0 && n == length && std::equal(value.begin(), value.end(), out),
             "what was put in comes out");
        const SuOctetString copy(string);
        must(copy == string && !(copy < string) && !(copy > string), "a copy is equal");
        char terminated[81];
        must(string.getStr(terminated) == 0 && terminated[length] == '\0', "the text is terminated");
        did(6);
    }
};
} // namespace

void soak::addValues(Subsystems &all)
{
    all.push_back(std::make_unique<Values>("addresses", checkAddress, address));
    all.push_back(std::make_unique<Values>("host records", checkHostRecord, bytes));
    all.push_back(std::make_unique<Values>("object identifiers", checkOid, oid));
    all.push_back(std::make_unique<Values>("named bits", checkBits, bytes));
    all.push_back(std::make_unique<Values>("dates", checkDateAndTime, bytes));
    all.push_back(std::make_unique<OctetStrings>());
}
