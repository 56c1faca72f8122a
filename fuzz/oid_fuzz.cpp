// oid_fuzz.cpp: object identifiers from texts and bytes, against the model; each is written in both forms.
#include "fuzz_input.h"
#include "harness/guarded_bytes.h"
#include "models/oid_model.h"

#include <cstring>

namespace
{
struct OidAndModel {
    SuOID real;
    OidModel model;

    void take(FuzzInput &input)
    {
        const uint8_t kind = input.byte();
        const auto bytes = input.bytes(input.byte());
        if (kind % 2 == 0)
            takeText({bytes.begin(), std::find(bytes.begin(), bytes.end(), '\0')});
        else
            takeBytes(bytes);
        require(model.firstDifference(real) == OidModel::Same, "the identifier is the model's");
    }

    void takeText(const std::string &text)
    {
        real = text.c_str();
        model.take(model::parsedOid(text));
    }

    void takeBytes(const std::vector<unsigned char> &bytes)
    {
        real.setData(bytes.data(), static_cast<int>(bytes.size()));
        std::vector<uint32_t> value;
        FuzzInput words(bytes.data(), bytes.size());
        while (bytes.size() % 4 == 0 && !words.empty())
            value.push_back(words.number());
        model.take(value);
    }

    void use() const
    {
        GuardedBytes text(static_cast<size_t>(std::max(real.getStrLen(), 1)));
        require(real.getStr(text.text()) == 0 && text.intact(), "the text has the length that was said");
        require(text.text() == model::dotted(model.value), "the text is the model's");
        if (!model.value.empty()) {
            SuOID back;
            back = text.text();
            require(back == real, "what was written can be parsed");
        }
        GuardedBytes bytes(4 * model.value.size());
        int n = bytes.size();
        require(real.getData(bytes.data(), n) == 0 && n == bytes.size() && bytes.intact(), "the bytes are four each");
        SuOID back;
        back.setData(bytes.data(), n);
        require(back == real, "the bytes can be read");
    }
};
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    OidAndModel one;
    OidAndModel other;
    while (!input.empty()) {
        one.take(input);
        one.use();
        other.take(input);
        require((one.real == other.real) == (one.model.value == other.model.value), "equality is the model's");
        other.real = one.real;
        other.model.take(one.model.value);
        require(other.model.firstDifference(other.real) == OidModel::Same, "the copy is the model's");
    }
    return 0;
}
