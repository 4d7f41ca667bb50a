// random.h - random numbers for model tests, repeatable by the seed that every run prints
#ifndef TESTS_SUPPORT_RANDOM_H
#define TESTS_SUPPORT_RANDOM_H

#include <cstdint>
#include <random>

namespace ku::test
{

// The run's seed: KU_SEED when it is set, else drawn once.
std::uint32_t seed();

// Every one gives the same numbers in a run. Draws do not depend on the standard library's maker.
class dice
{
public:
    dice() : engine_(seed()) {}
    std::uint32_t bits() { return static_cast<std::uint32_t>(engine_()); }
    std::uint32_t below(std::uint32_t limit) { return bits() % limit; } // 0 to limit - 1
    bool one_in(std::uint32_t n) { return below(n) == 0; }

private:
    std::mt19937 engine_;
};

} // namespace ku::test

#endif
