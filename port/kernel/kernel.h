// kernel.h - the operating system's kernel: the environment
//
// What the library needs of a kernel library, and nothing more.
#ifndef PORT_KERNEL_KERNEL_H
#define PORT_KERNEL_KERNEL_H

#include <cstdint>

namespace ku::kernel
{

// Copies a variable's value with its NUL into `size` bytes of `buffer`. Returns
// its length without the NUL; or, when it does not fit, the size it needs with
// the NUL and leaves the buffer alone; 0 when the variable is not set.
std::uint32_t environment_variable(const char *name, char *buffer, std::uint32_t size);

} // namespace ku::kernel

#endif
