// kui.cpp - exact equality of texts, byte by byte, in every language

#include "kui.h"

#include <cstdint>
#include <cstring>

std::int32_t kuisequal(kux *, const char *s1p, const char *s2p)
{
    return s1p != nullptr && s2p != nullptr && std::strcmp(s1p, s2p) == 0 ? 1 : 0;
}
