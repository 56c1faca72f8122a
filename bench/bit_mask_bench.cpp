// bit_mask_bench.cpp: CBitMask beside other sets of small numbers.
//
// Everybody holds the same bits. A peer without an operation is left out, or does what its user would write.
#include "bitset.h"
#include "row.h"

#include <bm/bm.h>
#include <boost/dynamic_bitset.hpp>
#include <roaring/roaring.h>

#include <bitset>
#include <memory>
#include <random>

namespace
{
using Dynamic = boost::dynamic_bitset<>;
using Magic = bm::bvector<>;
using Roaring = std::unique_ptr<roaring_bitmap_t, decltype(&roaring_bitmap_free)>;

const std::vector<unsigned> sizes{64, 4096, 32768};

// One bit of `every` is set, at random; a seed tells two sets apart.
std::vector<unsigned> sample(unsigned bits, unsigned every, unsigned seed = 1)
{
    std::mt19937 random(seed);
    std::vector<unsigned> numbers;
    for (unsigned bit = 0; bit < bits; ++bit)
        if (random() % every == 0)
            numbers.push_back(bit);
    return numbers;
}

std::vector<unsigned> allBut(unsigned bits, unsigned first)
{
    std::vector<unsigned> numbers;
    for (unsigned bit = first; bit < bits; ++bit)
        numbers.push_back(bit);
    return numbers;
}

CBitMask ours(unsigned bits, const std::vector<unsigned> &numbers)
{
    CBitMask mask(bits);
    for (const unsigned number : numbers)
        mask.setBit(number);
    return mask;
}

Dynamic dynamic(unsigned bits, const std::vector<unsigned> &numbers)
{
    Dynamic set(bits);
    for (const unsigned number : numbers)
        set.set(number);
    return set;
}

template <size_t Bits>
std::bitset<Bits> fixed(const std::vector<unsigned> &numbers)
{
    std::bitset<Bits> set;
    for (const unsigned number : numbers)
        set.set(number);
    return set;
}

Magic magic(unsigned bits, const std::vector<unsigned> &numbers)
{
    Magic set(bits);
    for (const unsigned number : numbers)
        set.set(number);
    return set;
}

Roaring roaring(const std::vector<unsigned> &numbers)
{
    return {roaring_bitmap_of_ptr(numbers.size(), numbers.data()), roaring_bitmap_free};
}

// Calls prepare.operator()<Bits>() for the sizes of std::bitset, which are known when it is compiled.
template <class Prepare>
void rowOfFixed(const char *operation, Prepare prepare)
{
    row(operation, "std_bitset/64", [prepare] { return prepare.template operator()<64>(); });
    row(operation, "std_bitset/4096", [prepare] { return prepare.template operator()<4096>(); });
    row(operation, "std_bitset/32768", [prepare] { return prepare.template operator()<32768>(); });
}

void singleBit()
{
    row("mask_single_bit", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, {}), bit = bits / 2]() mutable {
            mask.setBit(bit);
            keep(mask.chkBit(bit));
            mask.clrBit(bit);
        };
    });
    row("mask_single_bit", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, {}), bit = bits / 2]() mutable {
            set.set(bit);
            keep(set.test(bit));
            set.reset(bit);
        };
    });
    row("mask_single_bit", "bitmagic", sizes, [](unsigned bits) {
        return [set = magic(bits, {}), bit = bits / 2]() mutable {
            set.set_bit(bit);
            keep(set.test(bit));
            set.clear_bit(bit);
        };
    });
    row("mask_single_bit", "roaring", sizes, [](unsigned bits) {
        return [set = roaring({}), bit = bits / 2]() {
            roaring_bitmap_add(set.get(), bit);
            keep(roaring_bitmap_contains(set.get(), bit));
            roaring_bitmap_remove(set.get(), bit);
        };
    });
}

void walk()
{
    constexpr unsigned every = 8;
    row("mask_walk", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, sample(bits, every))] {
            unsigned sum = 0;
            for (unsigned bit = mask.findSetBit(0); bit != 0xFFFFFFFF; bit = mask.findSetBit(bit + 1))
                sum += bit;
            keep(sum);
        };
    });
    row("mask_walk", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, sample(bits, every))] {
            size_t sum = 0;
            for (size_t bit = set.find_first(); bit != Dynamic::npos; bit = set.find_next(bit))
                sum += bit;
            keep(sum);
        };
    });
    rowOfFixed("mask_walk", []<size_t Bits>() {
        return [set = fixed<Bits>(sample(Bits, every))] {
            size_t sum = 0;
            for (size_t bit = set._Find_first(); bit < Bits; bit = set._Find_next(bit))
                sum += bit;
            keep(sum);
        };
    });
    row("mask_walk", "bitmagic", sizes, [](unsigned bits) {
        return [set = magic(bits, sample(bits, every))] {
            size_t sum = 0;
            for (auto bit = set.first(); bit != set.end(); ++bit)
                sum += *bit;
            keep(sum);
        };
    });
    row("mask_walk", "roaring", sizes, [](unsigned bits) {
        return [set = roaring(sample(bits, every))] {
            size_t sum = 0;
            roaring_uint32_iterator_t bit;
            for (roaring_init_iterator(set.get(), &bit); bit.has_value; roaring_advance_uint32_iterator(&bit))
                sum += bit.current_value;
            keep(sum);
        };
    });
}

void count()
{
    constexpr unsigned every = 3;
    row("mask_count", "ours", sizes,
        [](unsigned bits) { return [mask = ours(bits, sample(bits, every))] { keep(mask.numBitsSet()); }; });
    row("mask_count", "dynamic_bitset", sizes,
        [](unsigned bits) { return [set = dynamic(bits, sample(bits, every))] { keep(set.count()); }; });
    rowOfFixed("mask_count", []<size_t Bits>() {
        return [set = fixed<Bits>(sample(Bits, every))]() mutable {
            benchmark::ClobberMemory();
            keep(&set);
            keep(set.count());
        };
    });
    row("mask_count", "bitmagic", sizes,
        [](unsigned bits) { return [set = magic(bits, sample(bits, every))] { keep(set.count()); }; });
    row("mask_count", "roaring", sizes, [](unsigned bits) {
        return [set = roaring(sample(bits, every))] { keep(roaring_bitmap_get_cardinality(set.get())); };
    });
}

// One operator on two sets of random bits, in place.
template <class Ours, class Other, class OfRoaring>
void logic(const char *operation, Ours onOurs, Other onOther, OfRoaring onRoaring)
{
    constexpr unsigned every = 3;
    row(operation, "ours", sizes, [=](unsigned bits) {
        return [=, left = ours(bits, sample(bits, every)), right = ours(bits, sample(bits, every, 2))]() mutable {
            onOurs(left, right);
            benchmark::ClobberMemory();
        };
    });
    row(operation, "dynamic_bitset", sizes, [=](unsigned bits) {
        return [=, left = dynamic(bits, sample(bits, every)), right = dynamic(bits, sample(bits, every, 2))]() mutable {
            onOther(left, right);
            benchmark::ClobberMemory();
        };
    });
    rowOfFixed(operation, [=]<size_t Bits>() {
        return [=, left = fixed<Bits>(sample(Bits, every)), right = fixed<Bits>(sample(Bits, every, 2))]() mutable {
            onOther(left, right);
            keep(&left);
            benchmark::ClobberMemory();
        };
    });
    row(operation, "bitmagic", sizes, [=](unsigned bits) {
        return [=, left = magic(bits, sample(bits, every)), right = magic(bits, sample(bits, every, 2))]() mutable {
            onOther(left, right);
            benchmark::ClobberMemory();
        };
    });
    row(operation, "roaring", sizes, [=](unsigned bits) {
        return [=, left = roaring(sample(bits, every)), right = roaring(sample(bits, every, 2))] {
            onRoaring(left.get(), right.get());
            benchmark::ClobberMemory();
        };
    });
}

void allLogic()
{
    const auto apply = [](auto by) { return [by](auto &left, const auto &right) { by(left, right); }; };
    const auto bitAnd = apply([](auto &left, const auto &right) { left &= right; });
    const auto bitOr = apply([](auto &left, const auto &right) { left |= right; });
    const auto bitXor = apply([](auto &left, const auto &right) { left ^= right; });
    logic("mask_and", bitAnd, bitAnd, roaring_bitmap_and_inplace);
    logic("mask_or", bitOr, bitOr, roaring_bitmap_or_inplace);
    logic("mask_xor", bitXor, bitXor, roaring_bitmap_xor_inplace);
}

void complement()
{
    row("mask_complement", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, sample(bits, 3))]() mutable {
            mask.bitwiseNotEqual();
            benchmark::ClobberMemory();
        };
    });
    row("mask_complement", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, sample(bits, 3))]() mutable {
            set.flip();
            benchmark::ClobberMemory();
        };
    });
    rowOfFixed("mask_complement", []<size_t Bits>() {
        return [set = fixed<Bits>(sample(Bits, 3))]() mutable {
            set.flip();
            keep(&set);
            benchmark::ClobberMemory();
        };
    });
    row("mask_complement", "roaring", sizes, [](unsigned bits) {
        return [set = roaring(sample(bits, 3)), bits] { roaring_bitmap_flip_inplace(set.get(), 0, bits); };
    });
}

// By words and bits, one way and the other. Bit 0 is the most significant here and the least significant there, so
// >>= here is << there.
void shift()
{
    constexpr unsigned by = 37;
    row("mask_shift", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, sample(bits, 3))]() mutable {
            mask >>= by;
            mask <<= by;
            benchmark::ClobberMemory();
        };
    });
    row("mask_shift", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, sample(bits, 3))]() mutable {
            set <<= by;
            set >>= by;
            benchmark::ClobberMemory();
        };
    });
    rowOfFixed("mask_shift", []<size_t Bits>() {
        return [set = fixed<Bits>(sample(Bits, 3))]() mutable {
            set <<= by;
            keep(&set);
            benchmark::ClobberMemory();
            set >>= by;
            keep(&set);
            benchmark::ClobberMemory();
        };
    });
}

void compare()
{
    row("mask_compare", "ours", sizes, [](unsigned bits) {
        return [left = ours(bits, sample(bits, 3)), right = ours(bits, sample(bits, 3))] { keep(left == right); };
    });
    row("mask_compare", "dynamic_bitset", sizes, [](unsigned bits) {
        return [left = dynamic(bits, sample(bits, 3)), right = dynamic(bits, sample(bits, 3))] { keep(left == right); };
    });
    rowOfFixed("mask_compare", []<size_t Bits>() {
        return [left = fixed<Bits>(sample(Bits, 3)), right = fixed<Bits>(sample(Bits, 3))] {
            benchmark::ClobberMemory();
            keep(&left);
            keep(left == right);
        };
    });
    row("mask_compare", "bitmagic", sizes, [](unsigned bits) {
        return [left = magic(bits, sample(bits, 3)), right = magic(bits, sample(bits, 3))] { keep(left.equal(right)); };
    });
    row("mask_compare", "roaring", sizes, [](unsigned bits) {
        return [left = roaring(sample(bits, 3)), right = roaring(sample(bits, 3))] {
            keep(roaring_bitmap_equals(left.get(), right.get()));
        };
    });
}

// Takes the first free number, three quarters being in use, and gives it back. The peers search for set bits alone, so
// their users keep what is free.
void allocate()
{
    row("mask_allocate", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, allBut(bits * 3 / 4, 0))]() mutable {
            const unsigned number = mask.findClrBit(0, true);
            keep(number);
            mask.clrBit(number);
        };
    });
    row("mask_allocate", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, allBut(bits, bits * 3 / 4))]() mutable {
            const size_t number = set.find_first();
            set.reset(number);
            keep(number);
            set.set(number);
        };
    });
    rowOfFixed("mask_allocate", []<size_t Bits>() {
        return [set = fixed<Bits>(allBut(Bits, Bits * 3 / 4))]() mutable {
            keep(&set);
            benchmark::ClobberMemory();
            const size_t number = set._Find_first();
            set.reset(number);
            keep(number);
            set.set(number);
        };
    });
    row("mask_allocate", "bitmagic", sizes, [](unsigned bits) {
        return [set = magic(bits, allBut(bits, bits * 3 / 4))]() mutable {
            const auto number = set.get_first();
            set.clear_bit(number);
            keep(number);
            set.set_bit(number);
        };
    });
    row("mask_allocate", "roaring", sizes, [](unsigned bits) {
        return [set = roaring(allBut(bits, bits * 3 / 4))] {
            const unsigned number = roaring_bitmap_minimum(set.get());
            roaring_bitmap_remove(set.get(), number);
            keep(number);
            roaring_bitmap_add(set.get(), number);
        };
    });
}

void range()
{
    row("mask_range", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, {}), count = bits - 15]() mutable {
            mask.set(count, 10);
            benchmark::ClobberMemory();
            mask.reset(count, 10);
        };
    });
    row("mask_range", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, {}), count = bits - 15]() mutable {
            set.set(10, count, true);
            benchmark::ClobberMemory();
            set.set(10, count, false);
        };
    });
    row("mask_range", "bitmagic", sizes, [](unsigned bits) {
        return [set = magic(bits, {}), last = bits - 6]() mutable {
            set.set_range(10, last, true);
            benchmark::ClobberMemory();
            set.set_range(10, last, false);
        };
    });
    row("mask_range", "roaring", sizes, [](unsigned bits) {
        return [set = roaring({}), last = bits - 6] {
            roaring_bitmap_add_range_closed(set.get(), 10, last);
            benchmark::ClobberMemory();
            roaring_bitmap_remove_range_closed(set.get(), 10, last);
        };
    });
}

unsigned char reversedOctet(unsigned octet)
{
    static const std::vector<unsigned char> table = [] {
        std::vector<unsigned char> all(256);
        for (unsigned i = 0; i < 256; ++i)
            for (unsigned bit = 0; bit < 8; ++bit)
                if (i & 1U << bit)
                    all[i] |= static_cast<unsigned char>(0x80 >> bit);
        return all;
    }();
    return table[octet];
}

// The order of an SNMP PortList. The peer's blocks have their first bit at the other end, so each octet is reversed.
void octets()
{
    row("mask_octets_out", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, sample(bits, 3)), octets = std::vector<unsigned char>(bits / 8)]() mutable {
            mask.octet_string_out(octets.data(), nullptr, false);
            benchmark::ClobberMemory();
        };
    });
    row("mask_octets_out", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, sample(bits, 3)), blocks = std::vector<unsigned long>(bits / 64),
                octets = std::vector<unsigned char>(bits / 8)]() mutable {
            boost::to_block_range(set, blocks.begin());
            for (size_t i = 0; i < octets.size(); ++i)
                octets[i] = reversedOctet(blocks[i / 8] >> (i % 8 * 8) & 0xFF);
            benchmark::ClobberMemory();
        };
    });
    row("mask_octets_in", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, {}), octets = std::vector<unsigned char>(bits / 8, 0x35)]() mutable {
            mask.octet_string_in(octets.data(), nullptr, false);
            benchmark::ClobberMemory();
        };
    });
    row("mask_octets_in", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, {}), blocks = std::vector<unsigned long>(bits / 64),
                octets = std::vector<unsigned char>(bits / 8, 0x35)]() mutable {
            std::fill(blocks.begin(), blocks.end(), 0);
            for (size_t i = 0; i < octets.size(); ++i)
                blocks[i / 8] |= static_cast<unsigned long>(reversedOctet(octets[i])) << (i % 8 * 8);
            boost::from_block_range(blocks.begin(), blocks.end(), set);
            benchmark::ClobberMemory();
        };
    });
}

// The other order, bit 0 in the least significant bit of the first octet: that of the peer's blocks as they are.
void octetsReversed()
{
    row("mask_octets_out_reversed", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, sample(bits, 3)), octets = std::vector<unsigned char>(bits / 8)]() mutable {
            mask.octet_string_out(octets.data(), nullptr, true);
            benchmark::ClobberMemory();
        };
    });
    row("mask_octets_out_reversed", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, sample(bits, 3)), blocks = std::vector<unsigned long>(bits / 64),
                octets = std::vector<unsigned char>(bits / 8)]() mutable {
            boost::to_block_range(set, blocks.begin());
            for (size_t i = 0; i < octets.size(); ++i)
                octets[i] = static_cast<unsigned char>(blocks[i / 8] >> (i % 8 * 8));
            benchmark::ClobberMemory();
        };
    });
    row("mask_octets_in_reversed", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, {}), octets = std::vector<unsigned char>(bits / 8, 0x35)]() mutable {
            mask.octet_string_in(octets.data(), nullptr, true);
            benchmark::ClobberMemory();
        };
    });
    row("mask_octets_in_reversed", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, {}), blocks = std::vector<unsigned long>(bits / 64),
                octets = std::vector<unsigned char>(bits / 8, 0x35)]() mutable {
            std::fill(blocks.begin(), blocks.end(), 0);
            for (size_t i = 0; i < octets.size(); ++i)
                blocks[i / 8] |= static_cast<unsigned long>(octets[i]) << (i % 8 * 8);
            boost::from_block_range(blocks.begin(), blocks.end(), set);
            benchmark::ClobberMemory();
        };
    });
}

// A range between word boundaries: to another mask, to and from bytes. The peer's user writes a loop over the bits.
void unaligned()
{
    row("mask_assign_unaligned", "ours", sizes, [](unsigned bits) {
        return [from = ours(bits, sample(bits, 3)), to = ours(bits, {}), bits]() mutable {
            keep(to.assign(from, 3, 7, bits - 12));
            benchmark::ClobberMemory();
        };
    });
    row("mask_assign_unaligned", "dynamic_bitset", sizes, [](unsigned bits) {
        return [from = dynamic(bits, sample(bits, 3)), to = dynamic(bits, {}), bits]() mutable {
            for (unsigned i = 0; i < bits - 12; ++i)
                to[7 + i] = from[3 + i];
            benchmark::ClobberMemory();
        };
    });
    row("mask_bits_out", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, sample(bits, 3)), bytes = std::vector<unsigned char>(bits / 8), bits]() mutable {
            keep(mask.bits_out(bytes.data(), bits - 12, 5));
            benchmark::ClobberMemory();
        };
    });
    row("mask_bits_out", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, sample(bits, 3)), bytes = std::vector<unsigned char>(bits / 8), bits]() mutable {
            for (unsigned i = 0; i < bits - 12; ++i) {
                const auto cover = static_cast<unsigned char>(0x80 >> i % 8);
                if (set[5 + i])
                    bytes[i / 8] |= cover;
                else
                    bytes[i / 8] &= static_cast<unsigned char>(~cover);
            }
            benchmark::ClobberMemory();
        };
    });
    row("mask_bits_in", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, {}), bytes = std::vector<unsigned char>(bits / 8, 0x35), bits]() mutable {
            keep(mask.bits_in(bytes.data(), bits - 12, 5));
            benchmark::ClobberMemory();
        };
    });
    row("mask_bits_in", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, {}), bytes = std::vector<unsigned char>(bits / 8, 0x35), bits]() mutable {
            for (unsigned i = 0; i < bits - 12; ++i)
                set[5 + i] = (bytes[i / 8] & 0x80 >> i % 8) != 0;
            benchmark::ClobberMemory();
        };
    });
}

// The runs of set bits, as text on standard output.
void display()
{
    row("mask_display", "ours", sizes, [](unsigned bits) {
        return [mask = ours(bits, sample(bits, 3)), quiet = NoOutput()] { mask.display(false, 0, 0); };
    });
    row("mask_display", "dynamic_bitset", sizes, [](unsigned bits) {
        return [set = dynamic(bits, sample(bits, 3)), clear = ~dynamic(bits, sample(bits, 3)), quiet = NoOutput()] {
            int column = 0;
            for (size_t first = set.find_first(); first != Dynamic::npos;) {
                const size_t end = std::min(clear.find_next(first), set.size());
                column += end - first > 1 ? printf("%zu-%zu,", first, end - 1) : printf("%zu,", first);
                if (column > 70) {
                    putchar('\n');
                    column = 0;
                }
                first = set.find_next(end - 1);
            }
            putchar('\n');
        };
    });
    row("mask_display", "floor", sizes, [](unsigned bits) {
        char *text = nullptr;
        size_t length = 0;
        FILE *const kept = stdout;
        stdout = open_memstream(&text, &length);
        ours(bits, sample(bits, 3)).display(false, 0, 0);
        fclose(stdout);
        stdout = kept;
        const std::string shown(text, length);
        free(text);
        return [shown, quiet = NoOutput()] { fwrite(shown.data(), 1, shown.size(), stdout); };
    });
}

[[maybe_unused]] const bool registered = [] {
    singleBit();
    walk();
    count();
    allLogic();
    complement();
    shift();
    compare();
    allocate();
    range();
    octets();
    octetsReversed();
    unaligned();
    display();
    return true;
}();
} // namespace
