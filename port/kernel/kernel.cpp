// kernel.cpp - the environment on top of the C library
//
// The environment is the process's own: nothing here changes it, and reading it
// is as safe as the program's other threads leave it alone.

#include "kernel.h"

#include <cstdlib>
#include <cstring>

namespace ku::kernel
{

std::uint32_t environment_variable(const char *name, char *buffer, std::uint32_t size)
{
    const char *value = std::getenv(name);
    if (value == nullptr) return 0;
    const std::size_t length = std::strlen(value);
    if (length >= UINT32_MAX) return 0; // no answer could say so
    if (length >= size) return static_cast<std::uint32_t>(length + 1);
    std::memcpy(buffer, value, length + 1);
    return static_cast<std::uint32_t>(length);
}

} // namespace ku::kernel
