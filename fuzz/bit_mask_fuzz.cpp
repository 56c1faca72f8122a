// bit_mask_fuzz.cpp: programs of calls on two bit masks, imports from bytes and words first, against the model; each
// state is printed and read back from the octets it is written to.
#include "input_chooser.h"
#include "models/bit_mask_model.h"
#include "printed_text.h"

#include <cstring>

namespace
{
using Program = BitMaskProgram<InputChooser>;

constexpr unsigned mostBits = 400; // the model costs time for each
constexpr unsigned mostWords = 12;

BitMaskAndModel chosenMask(InputChooser &choose)
{
    if (choose.below(2) == 0)
        return BitMaskAndModel(choose.below(mostBits));
    return BitMaskAndModel(1 + choose.below(mostWords), choose);
}

void checkState(const BitMaskAndModel &both, const char *call)
{
    require(both.broken() == nullptr, call);
    require(both.firstDifference() == -1, call);
}

// The runs of set bits, each in the form of `one` or `several`.
std::string runs(const BitMaskModel &model, const char *one, const char *several)
{
    std::string text;
    for (unsigned first = model.find(0, true); first != BitMaskModel::none;) {
        const unsigned end = std::min(model.find(first, false), model.size());
        char run[40];
        if (end - first == 1)
            snprintf(run, sizeof run, one, first);
        else
            snprintf(run, sizeof run, several, first, end - 1);
        text += run;
        first = model.find(end, true);
    }
    return text;
}

std::string words(const BitMaskModel &model)
{
    std::string text;
    for (unsigned i = 0; i < model.words(); ++i) {
        char word[9];
        snprintf(word, sizeof word, "%08X", model.word(i));
        text += word;
    }
    return text;
}

void print(const BitMaskAndModel &both, InputChooser &choose)
{
    const CBitMask &mask = both.mask;
    const BitMaskModel &model = both.model;
    require(behindHeader(printedText([&] { printCBitMask(&mask, true); })) == runs(model, "[%u],", "[%u..%u],") + '\n',
            "the print has the model's runs");
    require(withoutBreaks(behindHeader(printedText([&] { printCBitMask(&mask, false); }))) == words(model),
            "the print has the model's words");
    const int width = static_cast<int8_t>(choose.below(256));
    const int indent = static_cast<int8_t>(choose.below(256));
    require(withoutBreaks(printedText([&] { mask.display(false, width, indent); })) == runs(model, "%u,", "%u-%u,"),
            "the display has the model's runs");
    require(withoutBreaks(behindHeader(printedText([&] { mask.display(true, width, indent); }))) == words(model),
            "the display has the model's words");
}

// Written as octets and read back, whole and from bit to bit.
void roundTrip(const CBitMask &mask, bool reverse)
{
    const unsigned bits = mask.numWords * 32U;
    std::vector<unsigned char> octets(bits / 8);
    mask.octet_string_out(octets.data(), nullptr, reverse);
    CBitMask back(bits);
    back.octet_string_in(octets.data(), nullptr, reverse);
    require(back == mask, "the octets give the mask again");
    if (bits == 0)
        return;
    CBitMask moved(bits);
    mask.bits_out(octets.data(), bits - 1, 0);
    moved.bits_in(octets.data(), bits - 1, 0);
    moved.assignBit(bits - 1, mask.chkBit(bits - 1));
    require(moved == mask, "the bits give the mask again");
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    InputChooser choose(input);
    BitMaskAndModel one = chosenMask(choose);
    BitMaskAndModel other = chosenMask(choose);
    Program onOne(one, other, choose);
    Program onOther(other, one, choose);
    const auto &operations = Program::operations();
    while (!input.empty()) {
        const bool swapped = choose.below(2) != 0;
        const auto &operation = operations[choose.below(static_cast<unsigned>(operations.size()))];
        require((swapped ? onOther : onOne).step(operation), operation.name);
        checkState(one, operation.name);
        checkState(other, operation.name);
    }
    print(one, choose);
    roundTrip(one.mask, false);
    roundTrip(other.mask, true);
    return 0;
}
