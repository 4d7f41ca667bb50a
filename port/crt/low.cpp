// low.cpp - low-level files, and scratch files reached through memory
//
// A scratch file is looked at in windows of 16 MB. A window starts out reached
// by descriptor; once enough pages of it were written it is mapped, and read from
// memory then; with its disk space reserved it is written there, too:
//
//     | window 0: mapped    | window 1: by descriptor | window 2 ...
//     | pages written | . . . . . . . .
//                     size: from here on by descriptor always
//
// Growing by descriptor keeps the file's size what was written; pages of a
// reserved window below that size have their space on disk, so storing into them
// cannot fail for want of it. Where the disk has no room for a window, the rest of the
// file is written by descriptor. File systems that write changed pages to a new
// place, and those that stand on others, cannot promise that: they are only read
// from memory. Others, on a network perhaps, are left alone. Few writes to a
// window leave a sparse file sparse.
//
// Mapped pages count as memory of the process. Files that belong together share
// a bound for them, which is given out in stretches of 1 MB. When it is reached, a stretch
// takes the place of the one that is used least once it is used twice as much,
// and a bit more: changing places costs as much as some hundred uses by
// descriptor, and must not happen again and again among equals.

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include <linux/magic.h>
#include <sys/file.h>
#include <unistd.h>

#include "crt.h"
#include "crt_internal.h"

namespace
{

constexpr unsigned window_shift = 24;                                   // 16 MB
constexpr std::uint64_t window_size = std::uint64_t{1} << window_shift; // bytes
constexpr std::size_t windows = 256;                                    // 4 GiB in all
constexpr std::uint32_t enough_writes = 64;                             // before a window is mapped
constexpr std::uint32_t most_mapped = sizeof(void *) < 8 ? 16 : windows; // leave clients room
constexpr int first_free = 3; // above the standard streams

constexpr unsigned stretch_shift = 20;                                // 1 MB
constexpr std::size_t stretch_size = std::size_t{1} << stretch_shift; // bytes
constexpr std::size_t stretches = windows << (window_shift - stretch_shift);
constexpr std::uint32_t enough_uses = 32; // beyond those of the stretch that makes room

// A part of a file, resident as a whole or not at all.
struct stretch {
    std::uint32_t uses; // with less weight the longer ago
    bool resident;
    bool visited; // was used again without being resident, so that pages of it are
};

struct window {
    unsigned char *address; // null: by descriptor
    bool stores;            // written there, too: its space is reserved
    std::uint32_t writes;   // counted up to enough_writes
};

} // namespace

struct kuscratch {
    int descriptor;
    bool keeps;           // the file system keeps what it has reserved
    std::uint32_t mapped; // windows
    std::uint64_t size;   // bytes: end of what was written
    window table[windows];
    stretch parts[stretches];
    ku::crt::residents *shared; // null: nothing is resident
    kuscratch *next;            // of the files that share them
    std::uint16_t number;       // among those
};

namespace ku::crt
{

// ---- low-level files ----

// Locks what was opened and empties it. False with the reason.
static bool take(int descriptor, const char *name, unsigned bits)
{
    struct stat found;
    if (calls().fstat(descriptor, &found) < 0) return false;
    if (!S_ISREG(found.st_mode)) return true; // nothing to lock or empty
    if (!lock(descriptor, name, found)) {
        errno = EACCES;
        return false;
    }
    return (bits & low_empty) == 0 || repeat([=] { return calls().ftruncate(descriptor, 0); }) == 0;
}

// Opens a file, which is created if it does not exist and may be.
static int open_low(const char *name, unsigned bits, bool *created)
{
    const int flags = O_RDWR | ((bits & low_fresh) != 0 ? O_NOFOLLOW : 0);
    *created = false;
    if ((bits & low_create) == 0) return open_descriptor(name, flags, 0);
    const int made = open_descriptor(name, flags | O_CREAT | O_EXCL, private_permissions);
    *created = made >= 0;
    if (*created || errno != EEXIST) return made;
    // A link to nowhere exists, and what it names is created.
    return open_descriptor(name, flags | O_CREAT, private_permissions);
}

// Removes a file that was created and cannot be used, unless another has put a file
// in its place, or opened and locked it, meanwhile.
static void drop(int descriptor, const char *name)
{
    struct stat ours;
    struct stat named;
    if (calls().fstat(descriptor, &ours) == 0 && calls().stat(name, &named) == 0
        && (named.st_dev != ours.st_dev || named.st_ino != ours.st_ino))
        return;
    const auto lock_again = [=] { return calls().flock(descriptor, LOCK_EX | LOCK_NB); };
    if (repeat(lock_again) < 0 && errno == EWOULDBLOCK) return;
    repeat([=] { return calls().unlink(name); });
}

int low_open(const kulang *lang, const char *name, unsigned bits)
{
    const path where(lang, name);
    if (where.text() == nullptr) return -1;
    bool created = false;
    const int opened = open_low(where.text(), bits, &created);
    if (opened < 0) return -1;
    const bool low = opened < first_free;
    const int raised = low ? calls().duplicate(opened, first_free) : opened;
    const bool taken = raised >= 0 && take(raised, where.text(), bits);
    const int error = errno;
    if (!taken && created) drop(opened, where.text());
    if (low) calls().close(opened);
    if (!taken && raised >= 0) calls().close(raised);
    errno = error;
    return taken ? raised : -1;
}

bool low_close(int descriptor) { return calls().close(descriptor) == 0 || errno == EINTR; }

std::int64_t low_seek(int descriptor, std::int64_t offset, origin from)
{
    const int whence = from == origin::end ? SEEK_END : SEEK_SET;
    return calls().lseek(descriptor, static_cast<off_t>(offset), whence);
}

static low_moved moved(ssize_t bytes)
{
    if (bytes >= 0) return {static_cast<std::size_t>(bytes), low_failure::none};
    const bool nowhere = errno == ESPIPE || errno == EINVAL || errno == EOVERFLOW;
    return {0, nowhere ? low_failure::position : low_failure::transfer};
}

low_moved low_read(int descriptor, std::uint64_t position, void *bytes, std::size_t count)
{
    const auto at = static_cast<off_t>(position);
    return moved(repeat([=] { return calls().pread(descriptor, bytes, count, at); }));
}

low_moved low_write(int descriptor, std::uint64_t position, const void *bytes, std::size_t count)
{
    const auto at = static_cast<off_t>(position);
    return moved(repeat([=] { return calls().pwrite(descriptor, bytes, count, at); }));
}

bool accessible(const kulang *lang, const char *name, reach wanted)
{
    const path where(lang, name);
    return where.text() != nullptr
           && calls().access(where.text(), wanted == reach::exists ? F_OK : W_OK) == 0;
}

// ---- scratch files ----

// The local file systems.
struct local {
    std::uint64_t kind;
    bool keeps; // space once reserved is there for every later store, whoever takes the rest
};
static constexpr local locals[] = {
    {EXT4_SUPER_MAGIC, true},       {XFS_SUPER_MAGIC, true},    {TMPFS_MAGIC, true},
    {OVERLAYFS_SUPER_MAGIC, false}, {BTRFS_SUPER_MAGIC, false}, {F2FS_SUPER_MAGIC, false},
};

kuscratch *map_scratch(int descriptor)
{
    std::uint64_t kind = 0;
    if (calls().filesystem(descriptor, &kind) < 0) return nullptr;
    const local *found = std::find_if(std::begin(locals), std::end(locals),
                                      [=](const local &each) { return each.kind == kind; });
    if (found == std::end(locals)) return nullptr;
    auto *scratch = static_cast<kuscratch *>(std::calloc(1, sizeof(kuscratch)));
    if (scratch == nullptr) return nullptr;
    scratch->descriptor = descriptor;
    scratch->keeps = found->keeps;
    return scratch;
}

// The file of that number; null: it is free.
static kuscratch *numbered(const residents *shared, std::uint16_t number)
{
    kuscratch *each = shared->first;
    while (each != nullptr && each->number != number) each = each->next;
    return each;
}

void share_residents(kuscratch *scratch, residents *shared)
{
    if (scratch == nullptr) return;
    while (numbered(shared, scratch->number) != nullptr) scratch->number++;
    scratch->shared = shared;
    scratch->next = shared->first;
    shared->first = scratch;
}

// Gives up what is resident of a file.
static void leave(kuscratch *scratch)
{
    residents *shared = scratch->shared;
    if (shared == nullptr) return;
    for (std::uint32_t i = shared->count; i-- > 0;)
        if (shared->held[i].file == scratch->number)
            shared->held[i] = shared->held[--shared->count];
    kuscratch **link = &shared->first;
    while (*link != scratch) link = &(*link)->next;
    *link = scratch->next;
    scratch->shared = nullptr;
}

void release_residents(residents *shared)
{
    while (shared->first != nullptr) leave(shared->first);
}

void unmap_scratch(kuscratch *scratch)
{
    if (scratch == nullptr) return;
    leave(scratch);
    for (window &each : scratch->table)
        if (each.address != nullptr) calls().unmap(each.address, window_size);
    std::free(scratch);
}

// Reserves a window's disk space. What a try that failed took is given back where that is
// all behind the file's end: others may need it. This file tries no more then.
static bool reserve_window(kuscratch *scratch, off_t offset)
{
    if (!scratch->keeps) return false;
    if (calls().reserve(scratch->descriptor, offset, window_size) == 0) return true;
    scratch->keeps = false;
    const auto size = static_cast<off_t>(scratch->size);
    if (size <= offset + static_cast<off_t>(window_size))
        static_cast<void>(repeat([=] { return calls().ftruncate(scratch->descriptor, size); }));
    return false;
}

// Maps a window, once; it stays by descriptor when that fails.
static void map_window(kuscratch *scratch, std::size_t index)
{
    const auto offset = static_cast<off_t>(index * window_size);
    void *address = nullptr;
    if (scratch->mapped == most_mapped
        || calls().map(scratch->descriptor, offset, window_size, &address) < 0)
        return;
    scratch->mapped++;
    window &mapped = scratch->table[index];
    mapped.address = static_cast<unsigned char *>(address);
    mapped.stores = reserve_window(scratch, offset);
}

void scratch_written(kuscratch *scratch, std::uint64_t offset, std::size_t count)
{
    const std::uint64_t index = offset >> window_shift;
    if (scratch == nullptr || index >= windows) return;
    if (offset + count > scratch->size) scratch->size = offset + count;
    window &here = scratch->table[index];
    if (here.writes < enough_writes && ++here.writes == enough_writes) map_window(scratch, index);
}

// Makes a stretch's pages leave memory.
static bool forget(kuscratch *scratch, std::size_t number)
{
    const std::uint64_t offset = std::uint64_t{number} << stretch_shift;
    const window &here = scratch->table[offset >> window_shift];
    stretch &part = scratch->parts[number];
    if (calls().forget(here.address + (offset & (window_size - 1)), stretch_size) < 0) return false;
    part.resident = part.visited = false;
    return true;
}

// Lets what was before count half.
static void grow_old(residents *shared)
{
    shared->uses = 0;
    for (kuscratch *each = shared->first; each != nullptr; each = each->next)
        for (std::size_t i = 0; i < stretches && i << stretch_shift < each->size; i++) {
            each->parts[i].uses /= 2;
            if (each->parts[i].visited && !each->parts[i].resident) forget(each, i);
        }
}

// Finds room for a stretch among the residents, if it is used enough for that.
static bool admit(kuscratch *scratch, std::size_t number)
{
    residents *shared = scratch->shared;
    stretch &part = scratch->parts[number];
    std::uint32_t place = shared->count;
    if (place == shared->most) {
        if (part.uses % enough_uses != 0) return false; // looked at now and then
        const auto uses = [=](std::uint32_t i) {
            return numbered(shared, shared->held[i].file)->parts[shared->held[i].stretch].uses;
        };
        place = 0;
        for (std::uint32_t i = 1; i < shared->most; i++)
            if (uses(i) < uses(place)) place = i;
        if (part.uses < 2 * uses(place) + enough_uses
            || !forget(numbered(shared, shared->held[place].file), shared->held[place].stretch))
            return false;
        shared->count--;
    }
    shared->held[place] = {scratch->number, static_cast<std::uint16_t>(number)};
    shared->count++;
    return part.resident = true;
}

// Counts a use of a stretch; whether it is resident.
static bool use_stretch(kuscratch *scratch, std::size_t number)
{
    residents *shared = scratch->shared;
    if (shared == nullptr) return false;
    if (++shared->uses == residents::lifetime) grow_old(shared);
    stretch &part = scratch->parts[number];
    part.uses++;
    return part.resident || admit(scratch, number);
}

unsigned char *scratch_at(kuscratch *scratch, std::uint64_t offset, std::size_t count, purpose use)
{
    if (scratch == nullptr || offset + count > scratch->size) return nullptr;
    const window &here = scratch->table[offset >> window_shift];
    if (here.address == nullptr || (use == purpose::store && !here.stores)) return nullptr;
    const std::size_t number = offset >> stretch_shift;
    if (use == purpose::again)
        scratch->parts[number].visited = true;
    else if (!use_stretch(scratch, number))
        return nullptr;
    return here.address + (offset & (window_size - 1));
}

} // namespace ku::crt
