// kernel.cpp - the environment and the loader on top of the C library
//
// The environment is the process's own: nothing here changes it, and reading it
// is as safe as the program's other threads leave it alone.
//
// The directory of our own code is taken from the process's memory map: the
// loader's name for a file may be relative to a directory that the process has
// left since.

#include "kernel.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>

#include "maps_internal.h"

namespace ku::kernel
{

std::uint64_t environment_variable(const char *name, char *buffer, std::uint64_t size)
{
    const char *value = std::getenv(name);
    if (value == nullptr) return 0;
    const std::size_t length = std::strlen(value);
    if (length >= size) return std::uint64_t{length} + 1;
    std::memcpy(buffer, value, length + 1);
    return length;
}

// ---- modules ----

// Names that the library knows modules by, and those of their files.
static constexpr struct {
    std::string_view known;
    std::string_view file;
} module_files[] = {
    {"OLE32.DLL", "libkucom.so.2"},
};

static std::uint32_t copy_name(std::string_view name, char *buffer, std::uint32_t size)
{
    if (name.empty() || name.size() >= size) return 0;
    std::memcpy(buffer, name.data(), name.size());
    buffer[name.size()] = '\0';
    return static_cast<std::uint32_t>(name.size());
}

std::uint32_t system_directory(char *buffer, std::uint32_t size)
{
    const char *named = secure_getenv("KU_SYSDIR");
    if (named != nullptr && *named != '\0') return copy_name(named, buffer, size);
    const auto here = reinterpret_cast<std::uintptr_t>(&system_directory);
    map_reader maps;
    mapping code;
    while (maps.next(&code)) {
        if (here < code.begin || here >= code.end) continue;
        const std::size_t slash = code.path.rfind('/');
        if (slash == std::string_view::npos) return 0;
        return copy_name(code.path.substr(0, slash == 0 ? 1 : slash), buffer, size);
    }
    return 0;
}

void *load_module(const char *path)
{
    const std::string_view name = path;
    char file[PATH_MAX + 32];
    if (name.size() >= PATH_MAX) return nullptr;
    const std::size_t slash = name.rfind('/');
    const std::size_t base = slash == std::string_view::npos ? 0 : slash + 1;
    for (const auto &row : module_files) {
        if (name.substr(base) != row.known) continue;
        std::memcpy(file, name.data(), base);
        copy_name(row.file, file + base, static_cast<std::uint32_t>(sizeof file - base));
        return dlopen(file, RTLD_NOW | RTLD_LOCAL);
    }
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

procedure entry_point(void *module, const char *name)
{
    return reinterpret_cast<procedure>(dlsym(module, name));
}

void free_module(void *module) { dlclose(module); }

} // namespace ku::kernel
