// bit_mask_bench.cpp: CBitMask beside other sets of small numbers.
#include "bitset.h"

#include <benchmark/benchmark.h>
#include <boost/dynamic_bitset.hpp>

namespace
{
void countOurs(benchmark::State &state)
{
    CBitMask mask(static_cast<unsigned>(state.range()));
    for (unsigned bit = 0; bit < mask.numWords * 32U; bit += 3)
        mask.setBit(bit);
    for (auto _ : state)
        benchmark::DoNotOptimize(mask.numBitsSet());
}

void countDynamicBitset(benchmark::State &state)
{
    boost::dynamic_bitset<> bits(static_cast<size_t>(state.range()));
    for (size_t bit = 0; bit < bits.size(); bit += 3)
        bits.set(bit);
    for (auto _ : state)
        benchmark::DoNotOptimize(bits.count());
}

BENCHMARK(countOurs)->Name("mask_count/ours")->Arg(64)->Arg(4096)->Arg(32768);
BENCHMARK(countDynamicBitset)->Name("mask_count/dynamic_bitset")->Arg(64)->Arg(4096)->Arg(32768);
} // namespace
