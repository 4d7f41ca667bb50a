// longval.cpp - pieces of long values, handed on to the client's functions

#include "longval.h"

namespace ku::longval
{

static bool fits(std::uint32_t offset, std::uint32_t length)
{
    return length <= UINT32_MAX - offset;
}

std::uint32_t read_piece(kuapp *application, kulong *value, void *buffer, std::uint32_t offset,
                         std::uint32_t length)
{
    if (application == nullptr || value == nullptr || value->read_kulong == nullptr)
        return no_function;
    if (!fits(offset, length)) return out_of_range;
    if (length == 0) return done;
    return value->read_kulong(application, value, buffer, offset, length);
}

std::uint32_t write_piece(kuapp *application, kulong *value, const void *buffer,
                          std::uint32_t offset, std::uint32_t length)
{
    if (application == nullptr || value == nullptr || value->write_kulong == nullptr)
        return no_function;
    if (!fits(offset, length)) return out_of_range;
    if (length == 0) return done;
    return value->write_kulong(application, value, buffer, offset, length);
}

} // namespace ku::longval
