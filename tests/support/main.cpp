// main.cpp - runs the tests of one family in a known environment
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "support/random.h"

namespace
{

// Whatever the machine's language, directories and settings are, tests do not see them.
void forget_environment()
{
    std::vector<std::string> names = {"TMP"};
    for (char **entry = environ; *entry != nullptr; entry++) {
        const std::string name(*entry, std::strcspn(*entry, "="));
        if (name.rfind("LC_", 0) == 0 || name.rfind("LANG", 0) == 0 || name.rfind("KU_", 0) == 0)
            names.push_back(name);
    }
    for (const std::string &name : names) unsetenv(name.c_str());
}

std::uint32_t draw_seed()
{
    if (const char *given = std::getenv("KU_SEED"))
        return static_cast<std::uint32_t>(std::strtoul(given, nullptr, 0));
    return std::random_device()();
}

const std::uint32_t run_seed = draw_seed();

} // namespace

std::uint32_t ku::test::seed() { return run_seed; }

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    forget_environment();
    if (!testing::GTEST_FLAG(list_tests))
        std::printf("random seed %u: repeat with KU_SEED=%u\n", run_seed, run_seed);
    return RUN_ALL_TESTS();
}
