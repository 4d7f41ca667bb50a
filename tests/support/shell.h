// shell.h - commands as a user types them
#ifndef TESTS_SUPPORT_SHELL_H
#define TESTS_SUPPORT_SHELL_H

#include <string>

namespace ku::test
{

struct outcome {
    int status;
    std::string output; // standard output and standard error together
};

outcome shell(const std::string &command);

// A text as one word of a command.
std::string quoted(const std::string &text);

} // namespace ku::test

#endif
