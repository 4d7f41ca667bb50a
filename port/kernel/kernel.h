// kernel.h - the operating system's kernel: environment, modules, questions about memory
//
// What the library needs of a kernel library, and nothing more. Nothing allocates
// but the system's own loader.
#ifndef PORT_KERNEL_KERNEL_H
#define PORT_KERNEL_KERNEL_H

#include <cstddef>
#include <cstdint>

namespace ku::kernel
{

// ---- environment ----

// Copies a variable's value with its NUL into `size` bytes of `buffer`. Returns
// its length without the NUL; or, when it does not fit, the size it needs with
// the NUL and leaves the buffer alone; 0 when the variable is not set.
std::uint64_t environment_variable(const char *name, char *buffer, std::uint64_t size);

// ---- modules that are loaded at run time ----

// Where the modules are that come with the library: the directory that KU_SYSDIR
// names, else the one of the file that this code was loaded from (the library, or the
// program that it is linked into). KU_SYSDIR is ignored where a program runs with
// other rights than its user's. Copies the name with its NUL into `size` bytes of
// `buffer` and returns its length; 0, with the buffer alone, when there is
// none or it does not fit.
std::uint32_t system_directory(char *buffer, std::uint32_t size);

// Loads a module, or uses one more time what is loaded already. The path is the
// system's: its bytes are taken as they are, but for the file name that the library
// knows a module by, which becomes the one it has here. A bare name is looked for
// where the system looks for libraries. Null on failure.
void *load_module(const char *path);

// A function of a module by its name; null: it has none. Cast it to what it is.
using procedure = void (*)();
procedure entry_point(void *module, const char *name);

// Undoes one load_module; the last one takes the module out of memory.
void free_module(void *module);

// ---- questions about memory ----

// Every page of the range can be read, or written, at this moment. The system is asked; the
// memory itself is never touched by this thread, so that no address can do
// harm. An empty range is good anywhere, any other one that begins at null or
// goes past the end of memory is not. Where the system will not say, a range is good.
bool readable(const void *address, std::size_t size);
bool writable(const void *address, std::size_t size);

} // namespace ku::kernel

#endif
