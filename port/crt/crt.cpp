// crt.cpp - buffered files over a replaceable table of system calls
//
// A file has one buffer that serves either direction, never both at once:
//
//     reading   | given out | not yet read | . . . . |    the descriptor stands at `end`
//               0         begin           end
//     writing   | accepted, not yet written  | . . . |    the descriptor stands at 0
//               0                           end           (begin is 0)
//
// An idle file (just opened or positioned) has an empty buffer. Turning from
// reading to writing steps the descriptor back over what was not read; turning
// from writing to reading writes the buffer out. So the two may alternate
// without a seek in between. Runs as long as the buffer bypass it.
//
// Output that the system did not take stays in the buffer and is tried again by
// the next flush; the mark that a call has failed stays for good.
//
// File objects come from the C library's allocator, as this layer stands for an
// outside library that knows no context. Each is one block: the record, its
// buffer and, for a replacing file, the two names.

#include "crt.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "../locale/locale.h"
#include "crt_internal.h"

namespace
{

enum class activity : std::uint8_t { idle, reading, writing };

constexpr std::size_t buffer_size = 32768;   // bytes
constexpr mode_t permission_bits = 0777;     // what is copied from file to file
constexpr mode_t created_permissions = 0666; // of a new file, less the process's mask
constexpr int name_attempts = 100;           // names tried before giving up
constexpr int suffix_letters = 8;            // random ones in a new file's name
constexpr char suffix_end[] = "~ku";         // behind them: a name that nobody else gives
constexpr std::size_t suffix_length = 1 + suffix_letters + sizeof suffix_end - 1; // full stop first
constexpr char access_list[] = "system.posix_acl_access"; // where a file keeps its access list
constexpr std::size_t access_list_room = 8192;            // bytes: a thousand entries

} // namespace

struct kufile {
    int descriptor;
    bool readable;
    bool writable;
    bool ended;  // a read has met the end
    bool failed; // a read or write has failed
    bool whole;  // closing fails when anything has failed before
    activity last;
    unsigned char *buffer; // buffer_size bytes; null: a standard file
    std::size_t begin;     // see above
    std::size_t end;
    char *beside; // replacing: the new file's name; else null
    char *target; // replacing: the name it gets
    int guard;    // replacing: the target, locked while the new file is made; -1: there is none
};

namespace ku::crt
{

static_assert(path::room >= PATH_MAX);

// ---- the table ----

// Space behind the process's limit for files cannot be used; and file systems that hold the
// limit against it end the process.
int system_reserve(int file, off_t from, off_t size)
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY
        && static_cast<std::uint64_t>(from) + static_cast<std::uint64_t>(size) > limit.rlim_cur) {
        errno = EFBIG;
        return -1;
    }
    return ::fallocate(file, FALLOC_FL_KEEP_SIZE, from, size);
}

static int system_filesystem(int descriptor, std::uint64_t *kind)
{
    struct statfs found;
    if (::fstatfs(descriptor, &found) < 0) return -1;
    *kind = static_cast<std::uint32_t>(found.f_type);
    return 0;
}

static int system_map(int descriptor, off_t offset, std::size_t size, void **address)
{
    *address = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, offset);
    return *address != MAP_FAILED ? 0 : -1;
}

static constexpr system_calls system_table = {
    .open = [](const char *name, int flags, mode_t mode) { return ::open(name, flags, mode); },
    .close = ::close,
    .read = ::read,
    .write = ::write,
    .pread = ::pread,
    .pwrite = ::pwrite,
    .lseek = ::lseek,
    .fstat = ::fstat,
    .stat = ::stat,
    .lstat = ::lstat,
    .access = ::access,
    .chmod = ::chmod,
    .fchmod = ::fchmod,
    .fchown = ::fchown,
    .fgetxattr = ::fgetxattr,
    .fsetxattr = ::fsetxattr,
    .fremovexattr = ::fremovexattr,
    .unlink = ::unlink,
    .rename = ::rename,
    .flock = ::flock,
    .ftruncate = ::ftruncate,
    .fsync = ::fsync,
    .resolve = [](const char *name, char *to) { return ::realpath(name, to) != nullptr ? 0 : -1; },
    .random = [](void *bytes, std::size_t count) { return ::getrandom(bytes, count, 0); },
    .duplicate = [](int file, int least) { return ::fcntl(file, F_DUPFD_CLOEXEC, least); },
    .filesystem = system_filesystem,
    .reserve = system_reserve,
    .map = system_map,
    .unmap = ::munmap,
    .forget = [](void *address,
                 std::size_t size) { return ::madvise(address, size, MADV_DONTNEED); },
    .list =
        [](const char *name, void (*visit)(void *about, const char *entry), void *about) {
            DIR *listing = ::opendir(name);
            if (listing == nullptr) return -1;
            while (const dirent *entry = ::readdir(listing)) visit(about, entry->d_name);
            return ::closedir(listing);
        },
};

static thread_local const system_calls *replacement = nullptr;

const system_calls &calls() { return replacement != nullptr ? *replacement : system_table; }

const system_calls *replace_calls(const system_calls *table)
{
    const system_calls *before = &calls();
    replacement = table;
    return before;
}

// ---- names ----

path::path(const kulang *lang, const char *name)
{
    const std::size_t length = name == nullptr ? 0 : ::strnlen(name, room);
    if (length == 0 || length == room) {
        error_ = length == 0 ? ENOENT : ENAMETOOLONG;
        return;
    }
    std::memcpy(bytes_, name, length);
    bytes_[length] = 0;
    if (std::memchr(bytes_, '\\', length) == nullptr) return;
    if (lang == nullptr || locale::single_byte(*lang)) {
        std::replace(bytes_, bytes_ + length, '\\', '/');
        return;
    }
    kucursor cursor;
    locale::open_exact(&cursor, bytes_, length, lang, locale::cursor_mode::read);
    for (; locale::current(cursor) != 0; locale::step(cursor)) {
        if (locale::is_single(cursor) && locale::current(cursor) == '\\')
            *cursor.position_kucursor = '/';
    }
}

const char *path::text() const
{
    if (error_ == 0) return bytes_;
    errno = error_;
    return nullptr;
}

// ---- files by name ----

static void describe(const struct stat &from, status *to)
{
    to->regular = S_ISREG(from.st_mode);
    to->directory = S_ISDIR(from.st_mode);
    to->permissions = from.st_mode & permission_bits;
    to->size = static_cast<std::uint64_t>(from.st_size);
    to->device = from.st_dev;
    to->inode = from.st_ino;
}

bool file_status(const kulang *lang, const char *name, status *result)
{
    const path where(lang, name);
    struct stat found;
    if (where.text() == nullptr || calls().stat(where.text(), &found) < 0) return false;
    describe(found, result);
    return true;
}

bool same_file(const status &a, const status &b)
{
    return a.device == b.device && a.inode == b.inode;
}

bool remove_file(const kulang *lang, const char *name)
{
    const path where(lang, name);
    return where.text() != nullptr && calls().unlink(where.text()) == 0;
}

bool set_permissions(const kulang *lang, const char *name, std::uint32_t permissions)
{
    const path where(lang, name);
    return where.text() != nullptr
           && calls().chmod(where.text(), static_cast<mode_t>(permissions) & permission_bits) == 0;
}

// Writes `count` characters, at most 12, that are hard to guess, and a NUL. The
// clock stands in where the system has no randomness to give.
static void random_letters(char *letters, int count)
{
    std::uint64_t bits = 0;
    if (calls().random(&bits, sizeof bits) != static_cast<ssize_t>(sizeof bits)) {
        timespec now = {};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        bits = (static_cast<std::uint64_t>(now.tv_nsec) ^ std::uint64_t{process_id()} << 32)
               * 0x9E3779B97F4A7C15u; // 2^64 / golden ratio: spreads close moments
        bits ^= bits >> 32;
    }
    for (int i = 0; i < count; i++, bits >>= 5)
        letters[i] = "abcdefghijklmnopqrstuvwxyz234567"[bits % 32];
    letters[count] = 0;
}

bool temporary_name(char *buffer)
{
    static constexpr char prefix[] = "/tmp/ku";
    constexpr std::size_t length = sizeof prefix - 1;
    for (int attempt = 0; attempt < name_attempts; attempt++) {
        char name[temporary_name_room];
        std::memcpy(name, prefix, length);
        random_letters(name + length, static_cast<int>(temporary_name_room - length - 1));
        struct stat found;
        if (calls().lstat(name, &found) == 0) continue;
        if (errno != ENOENT) return false;
        std::memcpy(buffer, name, sizeof name);
        return true;
    }
    errno = EEXIST;
    return false;
}

std::uint32_t process_id() { return static_cast<std::uint32_t>(::getpid()); }

// ---- opening and closing ----

namespace
{

// What a mode text asks for.
struct intent {
    bool readable;
    bool writable;
    bool truncates;
    int flags; // for open; -1: no such mode text
};

intent understand(const char *mode)
{
    const bool update = std::strchr(mode, '+') != nullptr;
    const int direction = update ? O_RDWR : O_WRONLY;
    switch (mode[0]) {
    case 'r': return {true, update, false, update ? O_RDWR : O_RDONLY};
    case 'w': return {update, true, true, direction | O_CREAT};
    case 'a': return {update, true, false, direction | O_CREAT | O_APPEND};
    default: return {false, false, false, -1};
    }
}

// A file object without a descriptor, with `extra` bytes behind its buffer.
kufile *make(std::size_t extra)
{
    auto *file = static_cast<kufile *>(std::calloc(1, sizeof(kufile) + buffer_size + extra));
    if (file == nullptr) return nullptr;
    file->descriptor = file->guard = -1;
    file->buffer = reinterpret_cast<unsigned char *>(file + 1);
    return file;
}

// Closes a descriptor (-1: none); an interrupted close has closed. Errno stays unless it fails.
bool close_descriptor(int descriptor)
{
    const int error = errno;
    if (descriptor >= 0 && calls().close(descriptor) < 0 && errno != EINTR) return false;
    errno = error;
    return true;
}

// Closes the descriptors and releases the object. Whether the file's own was closed well.
bool forget(kufile *file)
{
    const bool closed = close_descriptor(file->descriptor);
    const int error = errno;
    close_descriptor(file->guard);
    std::free(file);
    errno = error;
    return closed;
}

} // namespace

static int try_lock(int descriptor)
{
    return repeat([=] { return calls().flock(descriptor, LOCK_EX | LOCK_NB); });
}

bool lock(int descriptor, const char *name, const struct stat &opened)
{
    if (try_lock(descriptor) == 0) {
        struct stat named;
        if (calls().stat(name, &named) == 0 && named.st_dev == opened.st_dev
            && named.st_ino == opened.st_ino)
            return true;
    } else if (errno != EWOULDBLOCK) {
        return true; // no locks here: go on without
    }
    errno = EBUSY;
    return false;
}

int open_descriptor(const char *name, int flags, mode_t permissions)
{
    return repeat([=] { return calls().open(name, flags | always, permissions); });
}

// Looks at what was opened, locks it, and only then empties it.
static bool admit(int descriptor, const char *name, const intent &wanted, share sharing)
{
    struct stat found;
    if (calls().fstat(descriptor, &found) < 0) return false;
    if (S_ISDIR(found.st_mode)) {
        errno = EISDIR;
        return false;
    }
    if (!S_ISREG(found.st_mode)) return true; // terminals, pipes, devices: nothing to lock or empty
    if (wanted.writable && sharing == share::deny_writers && !lock(descriptor, name, found))
        return false;
    return !wanted.truncates || repeat([=] { return calls().ftruncate(descriptor, 0); }) == 0;
}

kufile *open(const kulang *lang, const char *name, const char *mode, share sharing)
{
    const intent wanted = understand(mode);
    const path where(lang, name);
    if (where.text() == nullptr) return nullptr;
    if (wanted.flags < 0) {
        errno = EINVAL;
        return nullptr;
    }
    kufile *file = make(0);
    if (file == nullptr) return nullptr;
    file->readable = wanted.readable;
    file->writable = wanted.writable;
    file->descriptor = open_descriptor(where.text(), wanted.flags, created_permissions);
    if (file->descriptor >= 0 && admit(file->descriptor, where.text(), wanted, sharing))
        return file;
    forget(file);
    return nullptr;
}

kufile *standard_file(int number)
{
    // Never written to: without a buffer every read and write is refused first.
    static constexpr kufile standard[] = {
        {.descriptor = 0, .failed = true},
        {.descriptor = 1, .failed = true},
        {.descriptor = 2, .failed = true},
    };
    return const_cast<kufile *>(&standard[number - 1]);
}

// ---- reading ----

// Reads once into `bytes`, marking the end or a failure. Bytes read.
// Not much at once: a count far above what the file has could reach past the end of
// the address space, which the system refuses before it reads at all.
static std::size_t fetch(kufile *file, void *bytes, std::size_t count)
{
    const std::size_t most = std::min(count, std::size_t{1} << 16);
    const ssize_t got = repeat([=] { return calls().read(file->descriptor, bytes, most); });
    if (got < 0) file->failed = true;
    if (got == 0) file->ended = true;
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

// Refills an empty buffer. False at the end or on a failure.
static bool refill(kufile *file)
{
    file->begin = 0;
    file->end = fetch(file, file->buffer, buffer_size);
    return file->end != 0;
}

// Makes a file ready to be read; false when there is nothing to be had.
static bool turn_to_reading(kufile *file)
{
    if (file == nullptr || file->buffer == nullptr) return false;
    if (!file->readable) {
        file->failed = true;
        errno = EBADF;
        return false;
    }
    if (file->last == activity::writing && !flush(file)) return false;
    file->last = activity::reading;
    return !file->ended;
}

std::size_t read(kufile *file, void *bytes, std::size_t count)
{
    if (count == 0 || !turn_to_reading(file)) return 0;
    auto *to = static_cast<unsigned char *>(bytes);
    std::size_t moved = 0;
    while (moved < count) {
        const std::size_t wanted = count - moved;
        if (file->begin == file->end && wanted >= buffer_size) {
            const std::size_t got = fetch(file, to + moved, wanted);
            if (got == 0) break;
            moved += got;
            continue;
        }
        if (file->begin == file->end && !refill(file)) break;
        const std::size_t run = std::min(file->end - file->begin, wanted);
        std::memcpy(to + moved, file->buffer + file->begin, run);
        file->begin += run;
        moved += run;
    }
    return moved;
}

std::size_t read_line(kufile *file, char *bytes, std::size_t most)
{
    if (most == 0 || !turn_to_reading(file)) return 0;
    std::size_t moved = 0;
    while (moved < most) {
        if (file->begin == file->end && !refill(file)) break;
        const unsigned char *from = file->buffer + file->begin;
        const std::size_t room = std::min(file->end - file->begin, most - moved);
        const void *newline = std::memchr(from, '\n', room);
        const std::size_t run =
            newline == nullptr
                ? room
                : static_cast<std::size_t>(static_cast<const unsigned char *>(newline) - from) + 1;
        std::memcpy(bytes + moved, from, run);
        file->begin += run;
        moved += run;
        if (newline != nullptr) break;
    }
    return moved;
}

// ---- writing ----

// Writes all of `bytes` to a descriptor, in as many calls as it takes. Bytes written; fewer
// are a failure, which marks the file.
static std::size_t store(kufile *file, int onto, const unsigned char *bytes, std::size_t count)
{
    std::size_t moved = 0;
    while (moved < count) {
        const std::size_t most = std::min(count - moved, std::size_t{SSIZE_MAX});
        const ssize_t put = repeat([=] { return calls().write(onto, bytes + moved, most); });
        if (put <= 0) {
            if (put == 0) errno = ENOSPC; // takes nothing and gives no reason
            file->failed = true;
            break;
        }
        moved += static_cast<std::size_t>(put);
    }
    return moved;
}

// Makes a file ready to be written; false on a failure.
static bool turn_to_writing(kufile *file)
{
    if (file == nullptr || file->buffer == nullptr) return false;
    if (!file->writable) {
        file->failed = true;
        errno = EBADF;
        return false;
    }
    if (file->last == activity::reading) {
        const auto unread = static_cast<off_t>(file->end - file->begin);
        if (unread != 0 && calls().lseek(file->descriptor, -unread, SEEK_CUR) < 0) {
            file->failed = true;
            return false;
        }
        file->begin = file->end = 0;
        file->ended = false;
    }
    file->last = activity::writing;
    return true;
}

std::size_t write(kufile *file, const void *bytes, std::size_t count)
{
    if (count == 0 || !turn_to_writing(file)) return 0;
    const auto *from = static_cast<const unsigned char *>(bytes);
    if (count > buffer_size - file->end && !flush(file)) return 0;
    if (count >= buffer_size) return store(file, file->descriptor, from, count);
    std::memcpy(file->buffer + file->end, from, count);
    file->end += count;
    return count;
}

bool flush(kufile *file)
{
    if (file == nullptr) return false;
    if (file->last != activity::writing) return true;
    const std::size_t written = store(file, file->descriptor, file->buffer, file->end);
    file->end -= written;
    if (file->end == 0) return true;
    std::memmove(file->buffer, file->buffer + written, file->end);
    return false;
}

// ---- position and state ----

bool seek(kufile *file, std::int64_t offset, origin from)
{
    if (file == nullptr || file->buffer == nullptr || !flush(file)) return false;
    const int whence = from == origin::end ? SEEK_END : SEEK_SET;
    if (calls().lseek(file->descriptor, static_cast<off_t>(offset), whence) < 0) return false;
    file->begin = file->end = 0;
    file->last = activity::idle;
    file->ended = false;
    return true;
}

bool at_end(const kufile *file) { return file != nullptr && file->ended; }

bool has_failed(const kufile *file) { return file == nullptr || file->failed; }

bool open_status(kufile *file, status *result)
{
    struct stat found;
    if (!flush(file) || calls().fstat(file->descriptor, &found) < 0) return false;
    describe(found, result);
    return true;
}

// ---- replacing a file as a whole ----

namespace
{

enum class placing { refused, in_place, beside };

// Whether a failure says that the file system does not allow it, so that the file must be
// written in place, and not that something went wrong.
bool disallowed(int error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG
           || error == EINVAL || error == EOPNOTSUPP || error == ERANGE;
}

// Decides how `name` can be replaced, and finds the file behind it: its name
// into `target` (path::room bytes), its status into *old, st_nlink 0 when there
// is none yet.
placing survey(const char *name, char *target, struct stat *old)
{
    if (calls().stat(name, old) < 0) {
        struct stat link;
        if (errno != ENOENT) return placing::refused;
        if (calls().lstat(name, &link) == 0) return placing::in_place; // the link stays one
        old->st_nlink = 0;
        std::memcpy(target, name, std::strlen(name) + 1);
        return placing::beside;
    }
    // Opening a pipe would wait for somebody to read it, maybe for ever.
    if (S_ISDIR(old->st_mode) || S_ISFIFO(old->st_mode)) {
        errno = S_ISDIR(old->st_mode) ? EISDIR : ENXIO;
        return placing::refused;
    }
    if (!S_ISREG(old->st_mode) || old->st_nlink > 1) return placing::in_place;
    if (calls().resolve(name, target) == 0) return placing::beside;
    return disallowed(errno) ? placing::in_place : placing::refused;
}

// Opens and locks the target, as any writer would. False when that is refused.
bool guard(kufile *file)
{
    struct stat found;
    file->guard = open_descriptor(file->target, O_WRONLY, 0);
    return file->guard >= 0 && calls().fstat(file->guard, &found) == 0
           && lock(file->guard, file->target, found);
}

// Creates the new file beside the target and locks it: a new file that nobody
// has locked is a leftover. False with the descriptor -1 when there is none.
bool create_beside(kufile *file, mode_t permissions)
{
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW;
    char *suffix = file->beside + std::strlen(file->target);
    *suffix++ = '.';
    for (int attempt = 0; attempt < name_attempts; attempt++) {
        random_letters(suffix, suffix_letters);
        std::memcpy(suffix + suffix_letters, suffix_end, sizeof suffix_end);
        file->descriptor = open_descriptor(file->beside, flags, permissions);
        if (file->descriptor < 0 && errno == EEXIST) continue;
        struct stat fresh;
        if (file->descriptor < 0 || calls().fstat(file->descriptor, &fresh) < 0) return false;
        if (lock(file->descriptor, file->beside, fresh)) return true;
        // Taken for a leftover before it was locked, and removed.
        close_descriptor(std::exchange(file->descriptor, -1));
    }
    return false;
}

// Gives a file the access list of another, or none.
bool take_access_list(int descriptor, int from)
{
    unsigned char list[access_list_room];
    const ssize_t size = calls().fgetxattr(from, access_list, list, sizeof list);
    if (size >= 0)
        return calls().fsetxattr(descriptor, access_list, list, static_cast<std::size_t>(size), 0)
               == 0;
    // The directory may have given the new file one that the old one does not have.
    return errno == EOPNOTSUPP || errno == ENOSYS
           || (errno == ENODATA
               && (calls().fremovexattr(descriptor, access_list) == 0 || errno == ENODATA
                   || errno == EOPNOTSUPP));
}

// Gives the new file the old one's owner, access list and permissions.
bool take_after(const kufile *file)
{
    struct stat old;
    struct stat fresh;
    if (calls().fstat(file->guard, &old) < 0 || calls().fstat(file->descriptor, &fresh) < 0)
        return false;
    if ((fresh.st_uid != old.st_uid || fresh.st_gid != old.st_gid)
        && calls().fchown(file->descriptor, old.st_uid, old.st_gid) < 0)
        return false;
    return take_access_list(file->descriptor, file->guard)
           && calls().fchmod(file->descriptor, old.st_mode & permission_bits) == 0;
}

kufile *open_in_place(const kulang *lang, const char *name)
{
    kufile *file = open(lang, name, "wb", share::deny_writers);
    if (file != nullptr) file->whole = true;
    return file;
}

// Removes a new file of this target that its maker, killed, has left: its lock
// is free. `about` is the file just put in place, whose second name gives room.
void remove_leftover(void *about, const char *entry)
{
    const auto *file = static_cast<const kufile *>(about);
    const char *slash = std::strrchr(file->target, '/');
    const char *base = slash == nullptr ? file->target : slash + 1;
    const std::size_t length = std::strlen(base);
    const char *suffix = entry + length;
    if (std::strlen(entry) != length + suffix_length || std::memcmp(entry, base, length) != 0
        || suffix[0] != '.' || std::strcmp(suffix + 1 + suffix_letters, suffix_end) != 0)
        return;
    std::memcpy(file->beside + std::strlen(file->target), suffix, suffix_length);
    const int left = open_descriptor(file->beside, O_WRONLY | O_NOFOLLOW | O_NONBLOCK, 0);
    if (left >= 0 && try_lock(left) == 0) calls().unlink(file->beside);
    close_descriptor(left);
}

void remove_leftovers(kufile *file)
{
    char directory[path::room];
    const char *slash = std::strrchr(file->target, '/');
    // A root keeps its slash, as what is beside it has no other name.
    const std::size_t length =
        slash == nullptr ? 0
                         : std::max<std::size_t>(1, static_cast<std::size_t>(slash - file->target));
    std::memcpy(directory, file->target, length);
    directory[length] = 0;
    calls().list(length == 0 ? "." : directory, remove_leftover, file);
}

int sync(int descriptor)
{
    return repeat([=] { return calls().fsync(descriptor); });
}

// Copies the new file, complete on the disk, over the target's bytes.
bool overwrite(kufile *file)
{
    if (calls().lseek(file->descriptor, 0, SEEK_SET) < 0) return false;
    off_t size = 0;
    while (const std::size_t got = fetch(file, file->buffer, buffer_size)) {
        if (store(file, file->guard, file->buffer, got) != got) return false;
        size += static_cast<off_t>(got);
    }
    return !file->failed && repeat([=] { return calls().ftruncate(file->guard, size); }) == 0
           && sync(file->guard) == 0;
}

// Puts a finished new file in the target's place. Its lock is held meanwhile, lest
// it is taken for a leftover.
bool commit(kufile *file)
{
    if (sync(file->descriptor) < 0) return false;
    // What has come into being under the target's name is not lost while it is written.
    if (file->guard < 0 && !guard(file) && errno != ENOENT) return false;
    if (calls().rename(file->beside, file->target) == 0) {
        remove_leftovers(file);
        file->beside = nullptr;
        return true;
    }
    const bool barred = errno == EBUSY || errno == EXDEV; // something is mounted there
    return barred && file->guard >= 0 && overwrite(file);
}

} // namespace

bool close(kufile *file)
{
    bool good = flush(file) && !(file->whole && file->failed);
    if (file->beside == nullptr) return forget(file) && good;
    good = good && commit(file);
    discard(file); // all of it was synced: closing tells nothing new
    return good;
}

kufile *open_replacing(const kulang *lang, const char *name)
{
    const path where(lang, name);
    if (where.text() == nullptr) return nullptr;
    char target[path::room];
    struct stat old;
    const placing how = survey(where.text(), target, &old);
    if (how == placing::refused) return nullptr;
    if (how == placing::in_place) return open_in_place(lang, name);

    const std::size_t size = std::strlen(target) + 1;
    kufile *file = make(size + size + suffix_length);
    if (file == nullptr) return nullptr;
    file->writable = true;
    file->whole = true;
    file->target = reinterpret_cast<char *>(file->buffer + buffer_size);
    std::memcpy(file->target, target, size);
    const bool exists = old.st_nlink != 0;
    if (exists && !guard(file)) {
        forget(file);
        return nullptr;
    }

    file->beside = file->target + size;
    std::memcpy(file->beside, target, size);
    const bool created = create_beside(file, exists ? private_permissions : created_permissions);
    if (created && (!exists || take_after(file))) return file;
    const bool elsewhere = disallowed(errno);
    if (file->descriptor < 0) file->beside = nullptr;
    discard(file);
    return elsewhere ? open_in_place(lang, name) : nullptr;
}

void discard(kufile *file)
{
    if (file == nullptr) return;
    const int error = errno;
    if (file->beside != nullptr) calls().unlink(file->beside);
    errno = error;
    forget(file);
}

} // namespace ku::crt
