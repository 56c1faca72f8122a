// octet_string_fuzz.cpp: programs of calls on two octet strings, against the model; what they print is checked too.
#include "fuzz_input.h"
#include "harness/guarded_bytes.h"
#include "models/octet_string_model.h"

#include <cstring>

namespace
{
std::string shown; // what the session was shown since the dump began

struct OctetsAndModel {
    SuOctetString real;
    OctetStringModel model;

    explicit OctetsAndModel(int room) : real(room), model(room) {}

    void take(FuzzInput &input)
    {
        const auto bytes = input.bytes(input.byte());
        const int n = input.byte() % 8 == 7 ? -1 : static_cast<int>(bytes.size());
        const unsigned char *const from = input.byte() % 8 == 7 ? nullptr : bytes.data();
        real.setData(from, n);
        model.setData(from, n);
    }

    void copyOut() const
    {
        GuardedBytes text(model.value.size() + 1);
        require(real.getStr(text.text()) == 0 && text.intact(), "the text has one byte more than the value");
        require(std::equal(model.value.begin(), model.value.end(), text.data()), "the text is the model's");
        require((real == text.text()) == (model.text().find('\0') == std::string_view::npos),
                "a text equals its value");
        GuardedBytes bytes(model.value.size());
        int n = bytes.size();
        require(real.getData(bytes.data(), n) == 0 && bytes.held() == model.value && bytes.intact(),
                "the value is copied out");
    }

    void dump(bool asChars) const
    {
        shown.clear();
        real.dump(1, asChars);
        const size_t list = shown.find("os.ptr[] =");
        require(list != std::string::npos && shown.substr(list + 10) == dumpedOctets(real, asChars),
                "the dump is the model's");
    }
};

void compare(const OctetsAndModel &one, const OctetsAndModel &other)
{
    const size_t common = std::min(one.model.value.size(), other.model.value.size());
    const int order = one.model.text().substr(0, common).compare(other.model.text().substr(0, common));
    require((one.real < other.real) == (order < 0) && (one.real > other.real) == (order > 0),
            "the order is the model's");
    require((one.real == other.real) == (one.model.value == other.model.value), "equality is the model's");
}
} // namespace

extern "C" int cmNotifyCLI(int, const char *text)
{
    shown += text;
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    OctetsAndModel one(static_cast<int8_t>(input.byte()));
    OctetsAndModel other(static_cast<int8_t>(input.byte()));
    while (!input.empty()) {
        one.take(input);
        require(one.model.firstDifference(one.real) == OctetStringModel::Same, "the value is the model's");
        one.copyOut();
        one.dump(input.byte() % 2 == 0);
        compare(one, other);
        if (input.byte() % 2 == 0) {
            other.real = one.real;
            other.model.setData(one.model.value.data(), static_cast<int>(one.model.value.size()));
        }
        std::swap(one.model, other.model);
        std::swap(one.real.os, other.real.os);
        std::swap(one.real.size, other.real.size);
    }
    return 0;
}
