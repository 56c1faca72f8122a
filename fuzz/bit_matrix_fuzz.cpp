// bit_matrix_fuzz.cpp: programs of calls on a bit matrix, rectangles from bytes first, against the model; the state is
// printed and read back from the bytes that a rectangle is written to.
#include "input_chooser.h"
#include "models/bit_matrix_model.h"
#include "printed_text.h"

namespace
{
using Program = BitMatrixProgram<InputChooser>;

constexpr unsigned mostRows = 12;
constexpr unsigned mostColumns = 100;

BitMatrixAndModel chosenMatrix(InputChooser &choose)
{
    const bool borrowed = choose.below(2) != 0;
    const unsigned rows = choose.below(mostRows);
    const unsigned columns = choose.below(mostColumns);
    return borrowed ? BitMatrixAndModel(rows, columns, choose) : BitMatrixAndModel(rows, columns);
}

// A row's runs of set bits. One that reaches the end of the words is cut to the columns.
std::string runs(const std::vector<bool> &bits, unsigned columns, unsigned row)
{
    std::string text;
    const auto rowText = std::to_string(row);
    auto first = std::find(bits.begin(), bits.end(), true);
    while (first != bits.end()) {
        const auto stop = std::find(first, bits.end(), false);
        const auto from = static_cast<unsigned>(first - bits.begin());
        const unsigned end = stop == bits.end() ? columns : static_cast<unsigned>(stop - bits.begin());
        if (end > from)
            text += "[" + std::to_string(from) + "," + rowText +
                    (end - from > 1 ? ".." + std::to_string(end - 1) + "," + rowText : "") + "],";
        first = std::find(stop, bits.end(), true);
    }
    return text;
}

std::string words(const BitMatrixAndModel &both)
{
    std::string text;
    for (unsigned row = 0; row < both.rows(); ++row) {
        if (both.stride() != 0)
            text += "Row" + std::to_string(row);
        for (unsigned col = 0; col < both.stride(); col += 4) {
            unsigned digit = 0;
            for (unsigned bit = col; bit < col + 4; ++bit)
                digit = digit << 1 | (both.bits[row][bit] ? 1U : 0U);
            text += "0123456789ABCDEF"[digit];
        }
    }
    return text;
}

void print(const BitMatrixAndModel &both)
{
    std::string allRuns;
    for (unsigned row = 0; row < both.rows(); ++row)
        allRuns += runs(both.bits[row], both.columns, row);
    require(behindHeader(printedText([&] { printCBitMatrix(&both.matrix, true); })) == allRuns + '\n',
            "the print has the model's runs");
    require(withoutBreaks(behindHeader(printedText([&] { printCBitMatrix(&both.matrix, false); }))) == words(both),
            "the print has the model's words");
}

// Several rows, written to bytes as one rectangle and read back.
void roundTrip(const BitMatrixAndModel &both)
{
    if (both.rows() < 2 || both.columns == 0)
        return;
    std::vector<unsigned char> bytes((both.rows() * both.columns + 7) / 8);
    require(both.matrix.bits_out(bytes.data(), 0, both.rows() - 1, 0, both.columns - 1) == bytes.size(),
            "the rectangle has the bytes of its bits");
    CBitMatrix back(both.rows(), both.columns, nullptr);
    require(back.bits_in(bytes.data(), 0, both.rows() - 1, 0, both.columns - 1) == back.bitsAreSet(),
            "a cleared matrix changes by what is set");
    for (unsigned row = 0; row < both.rows(); ++row)
        for (unsigned col = 0; col < both.columns; ++col)
            require(back.chkBit(row, col) == both.matrix.chkBit(row, col), "the bytes give the rectangle again");
}
} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    InputChooser choose(input);
    BitMatrixAndModel both = chosenMatrix(choose);
    Program program(both, choose);
    const auto &operations = Program::operations();
    while (!input.empty()) {
        const auto &operation = operations[choose.below(static_cast<unsigned>(operations.size()))];
        require(program.step(operation), operation.name);
        require(both.broken() == nullptr, operation.name);
        require(both.firstDifference() == -1, operation.name);
    }
    print(both);
    roundTrip(both);
    return 0;
}
