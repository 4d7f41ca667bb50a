// output.h - core services: text on its way to a buffer of a size that is measured first
#ifndef PORT_CORE_OUTPUT_H
#define PORT_CORE_OUTPUT_H

#include <cstddef>

namespace ku::core
{

// Where text goes: nowhere while it is measured, then into the buffer.
struct output {
    char *buffer = nullptr;
    std::size_t length = 0;

    void put(char c)
    {
        if (buffer != nullptr) buffer[length] = c;
        length++;
    }
    void put(const char *text, std::size_t count)
    {
        for (std::size_t i = 0; i < count; i++) put(text[i]);
    }
};

} // namespace ku::core

#endif
