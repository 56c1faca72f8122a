// large_values_test.cpp: values whose counts do not fit into an int any more. Their arrays are a small piece of memory
// that is mapped many times over.
#include "mgmt_types.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

namespace
{
// `bytes` bytes of 0xFF in the address space, and a hundredth of that in memory.
class ManyOnes
{
public:
    explicit ManyOnes(size_t bytes) : length((bytes + Piece - 1) / Piece * Piece)
    {
        const int file = memfd_create("ones", 0);
        EXPECT_EQ(0, ftruncate(file, Piece));
        void *const room = mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        EXPECT_NE(MAP_FAILED, room);
        start = static_cast<unsigned char *>(room);
        for (size_t at = 0; at < length; at += Piece)
            EXPECT_EQ(start + at, mmap(start + at, Piece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0));
        close(file);
        memset(start, 0xFF, Piece);
    }
    ~ManyOnes()
    {
        munmap(start, length);
    }
    ManyOnes(const ManyOnes &) = delete;
    ManyOnes &operator=(const ManyOnes &) = delete;

    unsigned char *start;

private:
    static constexpr size_t Piece = 8 << 20;
    size_t length;
};
} // namespace

// Ten digits and a dot each: the sum wraps at 32 bits and is no undefined behaviour.
TEST(LargeValues, LengthOfAnIdentifiersTextWrapsAt32Bits)
{
    constexpr int count = 195225787; // times 11 is 2^31 + 9
    const ManyOnes ones(size_t{count} * 4);
    SuOID id;
    id.oid = {reinterpret_cast<unsigned int *>(ones.start), count};
    const int length = id.getStrLen();
    id.oid = {nullptr, 0};
    EXPECT_EQ(static_cast<int>(uint32_t{count} * 11U), length);
    EXPECT_GT(0, length);
}

TEST(LargeValues, NumberOfSetBitsWrapsAt32Bits)
{
    constexpr int octets = 1 << 28; // times 8 is 2^31
    const ManyOnes ones(octets);
    SuBITS set(0);
    const SuOctetString::Octets own = set.os;
    set.os = {ones.start, octets};
    const int bits = set.numBitsSet();
    set.os = own;
    EXPECT_EQ(INT32_MIN, bits);
}
