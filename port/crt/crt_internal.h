// crt_internal.h - what the buffered and the low-level files share
#ifndef PORT_CRT_CRT_INTERNAL_H
#define PORT_CRT_CRT_INTERNAL_H

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace ku::crt
{

constexpr int always = O_CLOEXEC | O_NOCTTY; // flags of every open
constexpr mode_t private_permissions = 0600; // of files that are their owner's alone

// Makes a call until no signal interrupts it.
template <typename Call> auto repeat(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
}

int open_descriptor(const char *name, int flags, mode_t permissions);

// Takes the lock of a file that is to be written, opened as `name`. False, with
// EBUSY, when another has it, or has put another file in its place just now.
bool lock(int descriptor, const char *name, const struct stat &opened);

} // namespace ku::crt

#endif
