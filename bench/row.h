// row.h: benchmarks under the names that scripts/bench makes rows of.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

// Registers <operation>/<who>: what is measured is the function that `prepare()` returns.
template <class Prepare>
int row(const std::string &operation, const std::string &who, Prepare prepare)
{
    benchmark::RegisterBenchmark((operation + '/' + who).c_str(), [prepare](benchmark::State &state) {
        auto step = prepare();
        for (auto _ : state)
            step();
    });
    return 0;
}

// Registers <operation>/<who>/<size> for each of the sizes, from `prepare(size)`.
template <class Prepare>
int row(const std::string &operation, const std::string &who, const std::vector<unsigned> &sizes, Prepare prepare)
{
    for (const unsigned size : sizes)
        row(operation, who + '/' + std::to_string(size), [prepare, size] { return prepare(size); });
    return 0;
}

// Keeps the value of an expression, so that it is computed.
template <class T>
void keep(T const &value)
{
    benchmark::DoNotOptimize(value);
}

// While one lives, standard output goes nowhere, through a buffer of the C library as usual.
class NoOutput
{
public:
    NoOutput() : kept(stdout)
    {
        stdout = fopen("/dev/null", "w");
    }
    NoOutput(NoOutput &&other) noexcept : kept(other.kept)
    {
        other.kept = nullptr;
    }
    ~NoOutput()
    {
        if (kept == nullptr)
            return;
        fclose(stdout);
        stdout = kept;
    }

private:
    FILE *kept;
};
