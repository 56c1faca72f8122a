// bits_fuzz.cpp: named-bit sets from octets, their searches and counts against the model; then a copy, and a clear.
#include "fuzz_input.h"
#include "models/bits_model.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    const unsigned int start = input.number();
    BitsAndModel both(input.bytes(16)); // the comparison costs the square of it
    require(both.firstDifference() == -1, "searches and counts are the model's");
    require(both.up(start) == both.upModel(start), "the search upward is the model's from any start");
    require(both.down(start) == both.downModel(start), "the search downward is the model's from any start");

    const SuBITS copy(both.real);
    require(copy == both.real && copy.size == both.real.os.len, "a copy has the octets in use");
    both.real.clear();
    require(!both.real.bitsAreSet() && copy.numBitsSet() == std::count(both.model.begin(), both.model.end(), true),
            "a clear leaves the copy alone");
    return 0;
}
