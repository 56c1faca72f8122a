// guarded_bytes.h: a buffer between guard bytes, so that a write beside it is seen without a sanitizer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

class GuardedBytes
{
public:
    static constexpr unsigned char Fill = 0xA5;

    explicit GuardedBytes(size_t bytes) : all(Guard + bytes + Guard, Beside), count(bytes)
    {
        std::fill_n(data(), bytes, Fill);
    }

    unsigned char *data()
    {
        return all.data() + Guard;
    }

    char *text()
    {
        return reinterpret_cast<char *>(data());
    }

    int size() const
    {
        return static_cast<int>(count);
    }

    std::vector<unsigned char> held() const
    {
        const auto first = all.begin() + Guard;
        return {first, first + static_cast<std::ptrdiff_t>(count)};
    }

    // Nothing beside the buffer was written.
    bool intact() const
    {
        const auto first = all.begin() + Guard;
        const auto isGuard = [](unsigned char byte) { return byte == Beside; };
        return std::all_of(all.begin(), first, isGuard) &&
               std::all_of(first + static_cast<std::ptrdiff_t>(count), all.end(), isGuard);
    }

    // Nothing in or beside the buffer was written.
    bool untouched() const
    {
        const auto bytes = held();
        return intact() && std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == Fill; });
    }

private:
    static constexpr size_t Guard = 64;
    static constexpr unsigned char Beside = 0x5A;
    std::vector<unsigned char> all;
    size_t count;
};
