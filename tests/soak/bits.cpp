// bits.cpp: bit masks and matrices beside their models; each worker has its own, and the printing and searching that
// they share has no state.
#include "subsystem.h"

#include "models/bit_mask_model.h"
#include "models/bit_matrix_model.h"

namespace
{
using namespace soak;

class Masks : public Subsystem
{
public:
    Masks() : Subsystem("bit masks") {}

    void round(Random &random, unsigned) override
    {
        using Program = BitMaskProgram<Random>;
        BitMaskAndModel one(random.below(200));
        BitMaskAndModel other(random.below(7), random);
        Program program(one, other, random);
        for (int i = 0; i < 20; ++i) {
            const auto &operation =
                Program::operations()[random.below(static_cast<unsigned>(Program::operations().size()))];
            must(program.step(operation) && one.broken() == nullptr && one.firstDifference() == -1, operation.name);
        }
        did(20);
        if (planted == Plant::Leak)
            leaked.push_back(std::make_unique<char[]>(4096));
    }

private:
    static inline thread_local std::vector<std::unique_ptr<char[]>> leaked;
};

class Matrices : public Subsystem
{
public:
    Matrices() : Subsystem("bit matrices") {}

    void round(Random &random, unsigned) override
    {
        using Program = BitMatrixProgram<Random>;
        BitMatrixAndModel both(1 + random.below(8), 1 + random.below(80));
        Program program(both, random);
        for (int i = 0; i < 20; ++i) {
            const auto &operation =
                Program::operations()[random.below(static_cast<unsigned>(Program::operations().size()))];
            must(program.step(operation) && both.broken() == nullptr && both.firstDifference() == -1, operation.name);
        }
        did(20);
    }
};
} // namespace

void soak::addBits(Subsystems &all)
{
    all.push_back(std::make_unique<Masks>());
    all.push_back(std::make_unique<Matrices>());
}
