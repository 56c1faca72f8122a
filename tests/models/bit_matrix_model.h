// bit_matrix_model.h: what a bit matrix has to hold, one bool a bit, and programs of calls made on both.
//
// Rows of the model are as long as the matrix's words, spare columns included. See bit_mask_model.h for the choosers.
#pragma once

#include "bitset.h"

#include "models/bit_mask_model.h"

#include <algorithm>
#include <string>
#include <vector>

inline const char *brokenInvariant(const CBitMatrix &matrix)
{
    if (matrix.signature != 0x5A)
        return "a live matrix carries its signature";
    if (matrix.wordsPerRow != matrix.numColumns / 32 + (matrix.numColumns % 32 != 0 ? 1 : 0))
        return "a row has the words that its columns need";
    if (matrix.maskPtr == nullptr && matrix.numRows != 0 && matrix.wordsPerRow != 0)
        return "a matrix with bits has words";
    if (matrix.autoDelete > 1 || (matrix.autoDelete != 0 && matrix.maskPtr == nullptr))
        return "an owner has words";
    return nullptr;
}

class BitMatrixAndModel
{
public:
    static constexpr unsigned guards = 2; // words on either side of borrowed ones

    BitMatrixAndModel(unsigned rowCount, unsigned columnCount)
    {
        matrix.init(rowCount, columnCount, nullptr);
        size(rowCount, columnCount);
    }

    // On random memory of the caller, which init() clears.
    template <class Chooser>
    BitMatrixAndModel(unsigned rowCount, unsigned columnCount, Chooser &choose)
    {
        size(rowCount, columnCount);
        memory_.resize(rowCount * stride() / 32 + 2 * guards);
        for (unsigned &word : memory_)
            word = choose.word();
        before_ = memory_;
        matrix.init(rowCount, columnCount, memory_.data() + guards);
    }

    unsigned rows() const
    {
        return static_cast<unsigned>(bits.size());
    }
    unsigned stride() const
    {
        return (columns + 31) / 32 * 32;
    } // bits of a row
    bool exists(unsigned row, unsigned col) const
    {
        return row < rows() && col < columns;
    }

    bool put(unsigned row, unsigned col, bool value)
    {
        const bool changed = bits[row][col] != value;
        bits[row][col] = value;
        return changed;
    }

    // The storage read as one mask; -1 when the matrix agrees with its model, else the first bit that does not.
    long firstDifference() const
    {
        for (unsigned row = 0; row < rows(); ++row)
            for (unsigned col = 0; col < stride(); ++col) {
                const unsigned bit = row * stride() + col;
                if ((matrix.maskPtr[bit / 32] >> (31 - bit % 32) & 1) != (bits[row][col] ? 1U : 0U))
                    return bit;
            }
        return -1;
    }

    const char *broken() const
    {
        if (const char *invariant = brokenInvariant(matrix))
            return invariant;
        if (matrix.numRows != rows() || matrix.numColumns != columns)
            return "the size";
        for (size_t i = 0; i < memory_.size(); ++i)
            if ((i < guards || i >= memory_.size() - guards) && memory_[i] != before_[i])
                return "the memory around borrowed words stays";
        return nullptr;
    }

    CBitMatrix matrix;
    std::vector<std::vector<bool>> bits;
    unsigned columns = 0;

private:
    void size(unsigned rowCount, unsigned columnCount)
    {
        columns = columnCount;
        bits.assign(rowCount, std::vector<bool>(stride()));
    }

    std::vector<unsigned> memory_;
    std::vector<unsigned> before_;
};

template <class Chooser>
class BitMatrixProgram
{
public:
    using Both = BitMatrixAndModel;
    static constexpr unsigned none = 0xFFFFFFFF;

    BitMatrixProgram(Both &both, Chooser &choose) : m_(both), choose_(choose) {}

    struct Operation {
        const char *name;
        bool (BitMatrixProgram::*agrees)();
    };

    // Makes one call on the matrix and its model. False when the results differ.
    bool step(const Operation &operation)
    {
        return (this->*operation.agrees)();
    }

    static const std::vector<Operation> &operations()
    {
        using P = BitMatrixProgram;
        static const std::vector<Operation> all = {
            {"setBit", &P::setBit},
            {"clrBit", &P::clrBit},
            {"assignBit", &P::assignBit},
            {"chkBit", &P::chkBit},
            {"set, reset", &P::setAll},
            {"bitwiseNotEqual", &P::invert},
            {"bitsAreSet, numBitsSet, size", &P::count},
            {"setRow, resetRow", &P::setRow},
            {"setCol, resetCol", &P::setCol},
            {"rowBitsAreSet, colBitsAreSet", &P::anySet},
            {"findRowSetBit", &P::findRowSetBit},
            {"findRowClrBit", &P::findRowClrBit},
            {"findColSetBit", &P::findColSetBit},
            {"findColClrBit", &P::findColClrBit},
            {"getRow", &P::getRow},
            {"setRow mask", &P::setRowFrom},
            {"getCol", &P::getCol},
            {"setCol mask", &P::setColFrom},
            {"bits_in", &P::bitsIn},
            {"bits_out", &P::bitsOut},
            {"copy", &P::copy},
        };
        return all;
    }

private:
    unsigned anyRow()
    {
        return choose_.below(16) == 0 ? choose_.word() : choose_.below(m_.rows() + 2);
    }
    unsigned anyCol()
    {
        return choose_.below(16) == 0 ? choose_.word() : choose_.below(m_.stride() + 2);
    }
    bool coin()
    {
        return choose_.below(2) != 0;
    }

    CBitMask randomMask()
    {
        CBitMask mask(choose_.below(2 * m_.stride() + m_.rows() + 40));
        for (unsigned i = 0; i < mask.numWords; ++i)
            mask.setWrd32(i, choose_.word());
        return mask;
    }

    bool setBit()
    {
        const unsigned row = anyRow();
        const unsigned col = anyCol();
        return m_.matrix.setBit(row, col) == (m_.exists(row, col) && m_.put(row, col, true));
    }

    bool clrBit()
    {
        const unsigned row = anyRow();
        const unsigned col = anyCol();
        return m_.matrix.clrBit(row, col) == (m_.exists(row, col) && m_.put(row, col, false));
    }

    bool assignBit()
    {
        const unsigned row = anyRow();
        const unsigned col = anyCol();
        const bool value = coin();
        return m_.matrix.assignBit(row, col, value) == (m_.exists(row, col) && m_.put(row, col, value));
    }

    bool chkBit()
    {
        const unsigned row = anyRow();
        const unsigned col = anyCol();
        return m_.matrix.chkBit(row, col) == (m_.exists(row, col) && m_.bits[row][col]);
    }

    bool setAll()
    {
        if (choose_.below(8) != 0) // rarely, so that the other operations find something
            return true;
        const bool value = coin();
        if (value || coin())
            m_.matrix.set(value);
        else
            m_.matrix.reset();
        for (auto &row : m_.bits)
            row.assign(m_.stride(), value);
        return true;
    }

    bool invert()
    {
        m_.matrix.bitwiseNotEqual();
        for (auto &row : m_.bits)
            row.flip();
        return true;
    }

    bool count()
    {
        long set = 0;
        for (const auto &row : m_.bits)
            set += std::count(row.begin(), row.end(), true);
        return m_.matrix.numBitsSet() == set && m_.matrix.bitsAreSet() == (set != 0) &&
               m_.matrix.size() == m_.rows() * m_.stride() / 8 + 40;
    }

    bool setRow()
    {
        const unsigned row = anyRow();
        const bool value = coin();
        const unsigned count = coin() ? 0 : anyCol();
        const unsigned start = anyCol();
        if (value || coin())
            m_.matrix.setRow(row, value, count, start);
        else
            m_.matrix.resetRow(row, count, start);
        if (row >= m_.rows())
            return true;
        BitMaskModel model;
        model.bits.swap(m_.bits[row]);
        model.range(count != 0 ? count : m_.columns, start, value);
        model.bits.swap(m_.bits[row]);
        return true;
    }

    bool setCol()
    {
        const unsigned col = anyCol();
        const bool value = coin();
        const unsigned count = coin() ? 0 : anyRow();
        const unsigned start = anyRow();
        if (value || coin())
            m_.matrix.setCol(col, value, count, start);
        else
            m_.matrix.resetCol(col, count, start);
        if (col >= m_.stride())
            return true;
        const unsigned first = start > m_.rows() ? 0 : start;
        for (unsigned row = first; row < m_.rows() && (count == 0 || row - first < count); ++row)
            m_.put(row, col, value);
        return true;
    }

    bool anySet()
    {
        const unsigned row = anyRow();
        const unsigned col = anyCol();
        bool inColumn = false;
        for (unsigned i = 0; i < m_.rows() && col < m_.columns; ++i)
            inColumn |= m_.bits[i][col];
        const bool inRow = row < m_.rows() && std::count(m_.bits[row].begin(), m_.bits[row].end(), true) != 0;
        return m_.matrix.rowBitsAreSet(row) == inRow && m_.matrix.colBitsAreSet(col) == inColumn;
    }

    unsigned findInRow(unsigned row, unsigned start, bool value, bool take)
    {
        for (unsigned col = start; row < m_.rows() && col < m_.stride(); ++col)
            if (m_.bits[row][col] == value) {
                m_.bits[row][col] = value != take;
                return col;
            }
        return none;
    }

    unsigned findInCol(unsigned col, unsigned start, bool value, bool take)
    {
        for (unsigned row = start; row < m_.rows() && col < m_.columns; ++row)
            if (m_.bits[row][col] == value) {
                m_.bits[row][col] = value != take;
                return row;
            }
        return none;
    }

    bool findRowSetBit()
    {
        const unsigned row = anyRow();
        const unsigned start = anyCol();
        const bool take = coin();
        return m_.matrix.findRowSetBit(row, start, take) == findInRow(row, start, true, take);
    }

    bool findRowClrBit()
    {
        const unsigned row = anyRow();
        const unsigned start = anyCol();
        const bool take = coin();
        return m_.matrix.findRowClrBit(row, start, take) == findInRow(row, start, false, take);
    }

    bool findColSetBit()
    {
        const unsigned col = anyCol();
        const unsigned start = anyRow();
        const bool take = coin();
        return m_.matrix.findColSetBit(col, start, take) == findInCol(col, start, true, take);
    }

    bool findColClrBit()
    {
        const unsigned col = anyCol();
        const unsigned start = anyRow();
        const bool take = coin();
        return m_.matrix.findColClrBit(col, start, take) == findInCol(col, start, false, take);
    }

    bool getRow()
    {
        const unsigned row = anyRow();
        CBitMask out = randomMask();
        const CBitMask before(out);
        const bool fits = row < m_.rows() && out.numWords * 32U >= m_.stride();
        if (m_.matrix.getRow(row, &out) != fits)
            return false;
        for (unsigned bit = 0; bit < out.numWords * 32U; ++bit) {
            const size_t at = size_t{row} * m_.stride() + bit; // runs on into the following rows
            const bool inside = fits && at < size_t{m_.rows()} * m_.stride();
            if (out.chkBit(bit) != (inside ? m_.bits[at / m_.stride()][at % m_.stride()] : before.chkBit(bit)))
                return false;
        }
        return true;
    }

    bool setRowFrom()
    {
        const unsigned row = anyRow();
        CBitMask in = randomMask();
        bool changed = false;
        if (row < m_.rows()) {
            BitMaskModel source;
            for (unsigned bit = 0; bit < in.numWords * 32U; ++bit)
                source.bits.push_back(in.chkBit(bit));
            source.tail = in.tailBits;
            BitMaskModel target;
            target.bits.swap(m_.bits[row]);
            changed = target.assign(source, 0, 0, 0);
            target.bits.swap(m_.bits[row]);
        }
        return m_.matrix.setRow(row, &in) == changed;
    }

    bool getCol()
    {
        const unsigned col = anyCol();
        CBitMask out = randomMask();
        const CBitMask before(out);
        const bool fits = col < m_.columns && out.numWords * 32U >= m_.rows();
        if (m_.matrix.getCol(col, &out) != fits)
            return false;
        for (unsigned bit = 0; bit < out.numWords * 32U; ++bit)
            if (out.chkBit(bit) != (fits && bit < m_.rows() ? m_.bits[bit][col] : before.chkBit(bit)))
                return false;
        return true;
    }

    bool setColFrom()
    {
        const unsigned col = anyCol();
        CBitMask in = randomMask();
        bool changed = false;
        if (col < m_.columns && in.numWords * 32U >= m_.rows())
            for (unsigned row = 0; row < m_.rows(); ++row)
                changed |= m_.put(row, col, in.chkBit(row));
        return m_.matrix.setCol(col, &in) == changed;
    }

    struct Area {
        unsigned rowFirst, rowLast, colFirst, colLast;
        std::vector<std::pair<unsigned, unsigned>> bits; // in the order of the buffer
    };

    // A rectangle and the bits that are to be moved.
    Area area()
    {
        Area a{anyRow(), anyRow(), anyCol(), anyCol(), {}};
        if (coin())
            a.rowLast = a.rowFirst;
        const bool oneRow = a.rowFirst == a.rowLast;
        if (a.rowFirst > a.rowLast || a.rowLast >= m_.rows())
            return a;
        unsigned end = a.colLast + 1;
        if (oneRow) {
            end = std::min(end, m_.stride());
            if (end == a.colFirst || a.colFirst > m_.stride() || (a.colFirst % 32 == 0 && end % 32 == 0))
                return a;
        } else if (a.colLast >= m_.stride()) {
            return a;
        }
        for (unsigned row = a.rowFirst; row <= a.rowLast; ++row)
            for (unsigned col = a.colFirst; col < end; ++col)
                a.bits.push_back({row, col});
        return a;
    }

    std::vector<unsigned char> bytesFor(const Area &a)
    {
        std::vector<unsigned char> random((a.bits.size() + 7) / 8);
        for (unsigned char &byte : random)
            byte = static_cast<unsigned char>(choose_.word() >> 24);
        return random;
    }

    bool bitsIn()
    {
        const Area a = area();
        const std::vector<unsigned char> source = bytesFor(a);
        bool changed = false;
        for (size_t i = 0; i < a.bits.size(); ++i)
            changed |= m_.put(a.bits[i].first, a.bits[i].second, bitOf(source.data(), i));
        return m_.matrix.bits_in(source.data(), a.rowFirst, a.rowLast, a.colFirst, a.colLast) == changed;
    }

    bool bitsOut()
    {
        const Area a = area();
        std::vector<unsigned char> target = bytesFor(a);
        const std::vector<unsigned char> before = target;
        const unsigned result = m_.matrix.bits_out(target.data(), a.rowFirst, a.rowLast, a.colFirst, a.colLast);
        for (size_t i = 0; i < target.size() * 8; ++i) {
            const bool expected =
                i < a.bits.size() ? m_.bits[a.bits[i].first][a.bits[i].second] : bitOf(before.data(), i);
            if (bitOf(target.data(), i) != expected)
                return false;
        }
        if (!a.bits.empty())
            return result == target.size();
        return a.rowFirst == a.rowLast || result == 0x20000000;
    }

    bool copy()
    {
        const CBitMatrix copied(m_.matrix);
        bool agrees =
            copied.numRows == m_.rows() && copied.numColumns == m_.columns && brokenInvariant(copied) == nullptr;
        for (unsigned row = 0; agrees && row < m_.rows(); ++row)
            for (unsigned col = 0; col < m_.columns; ++col)
                agrees = agrees && copied.chkBit(row, col) == m_.bits[row][col];
        return agrees;
    }

    Both &m_;
    Chooser &choose_;
};
