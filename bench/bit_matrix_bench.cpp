// bit_matrix_bench.cpp: CBitMatrix beside a vector of dynamic_bitset, one a row.
//
// Sizes are rows and columns of a square.
#include "bitset.h"
#include "row.h"

#include <boost/dynamic_bitset.hpp>

#include <random>

namespace
{
using Row = boost::dynamic_bitset<>;
using Rows = std::vector<Row>;

const std::vector<unsigned> sizes{64, 512};

// Calls set(row, column) for one place in three, at random.
template <class Set>
void fill(unsigned size, Set set)
{
    std::mt19937 random(1);
    for (unsigned row = 0; row < size; ++row)
        for (unsigned column = 0; column < size; ++column)
            if (random() % 3 == 0)
                set(row, column);
}

CBitMatrix ours(unsigned size)
{
    CBitMatrix matrix(size, size, nullptr);
    fill(size, [&](unsigned row, unsigned column) { matrix.setBit(row, column); });
    return matrix;
}

Rows rows(unsigned size)
{
    Rows matrix(size, Row(size));
    fill(size, [&](unsigned row, unsigned column) { matrix[row].set(column); });
    return matrix;
}

void wholeMatrix()
{
    row("matrix_count", "ours", sizes,
        [](unsigned size) { return [matrix = ours(size)] { keep(matrix.numBitsSet()); }; });
    row("matrix_count", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size)] {
            size_t count = 0;
            for (const Row &each : matrix)
                count += each.count();
            keep(count);
        };
    });
    row("matrix_complement", "ours", sizes,
        [](unsigned size) { return [matrix = ours(size)]() mutable { matrix.bitwiseNotEqual(); }; });
    row("matrix_complement", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size)]() mutable {
            for (Row &each : matrix)
                each.flip();
        };
    });
}

// All rows: set a range, find the first clear column, copy the row out.
void byRow()
{
    row("matrix_row_range", "ours", sizes, [](unsigned size) {
        return [matrix = ours(size), size]() mutable {
            for (unsigned i = 0; i < size; ++i)
                matrix.setRow(i, i % 2 == 0, size - 15, 10);
        };
    });
    row("matrix_row_range", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size), size]() mutable {
            for (unsigned i = 0; i < size; ++i)
                matrix[i].set(10, size - 15, i % 2 == 0);
        };
    });
    row("matrix_row_find", "ours", sizes, [](unsigned size) {
        return [matrix = ours(size), size] {
            unsigned sum = 0;
            for (unsigned i = 0; i < size; ++i)
                sum += matrix.findRowSetBit(i, size / 2, false);
            keep(sum);
        };
    });
    row("matrix_row_find", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size), size] {
            size_t sum = 0;
            for (unsigned i = 0; i < size; ++i)
                sum += matrix[i].find_next(size / 2 - 1);
            keep(sum);
        };
    });
    row("matrix_row_copy", "ours", sizes, [](unsigned size) {
        return [matrix = ours(size), out = CBitMask(size), size]() mutable {
            for (unsigned i = 0; i < size; ++i)
                keep(matrix.getRow(i, &out));
        };
    });
    row("matrix_row_copy", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size), out = Row(size), size]() mutable {
            for (unsigned i = 0; i < size; ++i)
                keep(out = matrix[i]);
        };
    });
    row("matrix_row_any", "ours", sizes, [](unsigned size) {
        return [matrix = CBitMatrix(size, size, nullptr), size] {
            for (unsigned i = 0; i < size; ++i)
                keep(matrix.rowBitsAreSet(i));
        };
    });
    row("matrix_row_any", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = Rows(size, Row(size)), size] {
            for (unsigned i = 0; i < size; ++i)
                keep(matrix[i].any());
        };
    });
}

// One column in the middle.
void byColumn()
{
    row("matrix_column_set", "ours", sizes, [](unsigned size) {
        return [matrix = ours(size), column = size / 2]() mutable {
            matrix.setCol(column, true, 0, 0);
            matrix.setCol(column, false, 0, 0);
        };
    });
    row("matrix_column_set", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size), column = size / 2]() mutable {
            for (Row &each : matrix)
                each.set(column);
            for (Row &each : matrix)
                each.reset(column);
        };
    });
    row("matrix_column_copy", "ours", sizes, [](unsigned size) {
        return [matrix = ours(size), out = CBitMask(size), column = size / 2]() mutable {
            keep(matrix.getCol(column, &out));
        };
    });
    row("matrix_column_copy", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size), out = Row(size), column = size / 2]() mutable {
            for (size_t i = 0; i < matrix.size(); ++i)
                out[i] = matrix[i][column];
            keep(out);
        };
    });
    row("matrix_column_find", "ours", sizes, [](unsigned size) {
        return [matrix = CBitMatrix(size, size, nullptr), column = size / 2] {
            keep(matrix.findColSetBit(column, 0, false));
        };
    });
    row("matrix_column_find", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = Rows(size, Row(size)), column = size / 2] {
            size_t i = 0;
            while (i < matrix.size() && !matrix[i][column])
                ++i;
            keep(i);
        };
    });
}

// Half of the rows, columns from 5 on, to bytes and back.
void rectangles()
{
    row("matrix_rectangle_out", "ours", sizes, [](unsigned size) {
        return [matrix = ours(size), bytes = std::vector<unsigned char>(size * size / 8), size]() mutable {
            keep(matrix.bits_out(bytes.data(), 0, size / 2, 5, size - 4));
        };
    });
    row("matrix_rectangle_out", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size), bytes = std::vector<unsigned char>(size * size / 8), size]() mutable {
            size_t k = 0;
            for (unsigned i = 0; i <= size / 2; ++i)
                for (unsigned column = 5; column <= size - 4; ++column, ++k) {
                    const auto cover = static_cast<unsigned char>(0x80 >> k % 8);
                    if (matrix[i][column])
                        bytes[k / 8] |= cover;
                    else
                        bytes[k / 8] &= static_cast<unsigned char>(~cover);
                }
            keep(bytes);
        };
    });
    row("matrix_rectangle_in", "ours", sizes, [](unsigned size) {
        return [matrix = ours(size), bytes = std::vector<unsigned char>(size * size / 8, 0x35), size]() mutable {
            keep(matrix.bits_in(bytes.data(), 0, size / 2, 5, size - 4));
        };
    });
    row("matrix_rectangle_in", "dynamic_bitset", sizes, [](unsigned size) {
        return [matrix = rows(size), bytes = std::vector<unsigned char>(size * size / 8, 0x35), size]() mutable {
            size_t k = 0;
            for (unsigned i = 0; i <= size / 2; ++i)
                for (unsigned column = 5; column <= size - 4; ++column, ++k)
                    matrix[i][column] = (bytes[k / 8] & 0x80 >> k % 8) != 0;
            keep(matrix);
        };
    });
}

[[maybe_unused]] const bool registered = [] {
    wholeMatrix();
    byRow();
    byColumn();
    rectangles();
    return true;
}();
} // namespace
