#include "shell.h"

#include <sys/wait.h>

#include <cstdio>

namespace ku::test
{

outcome shell(const std::string &command)
{
    std::FILE *pipe = popen(("(" + command + "\n) 2>&1").c_str(), "r");
    outcome result = {-1, ""};
    if (pipe == nullptr) return result;
    char block[4096];
    for (size_t got = 0; (got = std::fread(block, 1, sizeof block, pipe)) > 0;)
        result.output.append(block, got);
    result.status = WEXITSTATUS(pclose(pipe));
    return result;
}

std::string quoted(const std::string &text)
{
    std::string word = "'";
    for (const char letter : text) word += letter == '\'' ? "'\\''" : std::string(1, letter);
    return word + "'";
}

} // namespace ku::test
