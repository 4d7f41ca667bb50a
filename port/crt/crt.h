// crt.h - the runtime library's files: shared open, buffered streams, low-level files, names
//
// What the library needs of a C runtime library for files, and nothing more.
// Every call that takes a name takes the language it is written in: single-byte
// backslashes become '/' before the system sees them, a backslash byte inside a
// multibyte character stays. A null language means byte by byte. Null and empty
// names fail with ENOENT, those of PATH_MAX bytes and more with ENAMETOOLONG.
//
// Calls that fail leave the reason in errno.
#ifndef PORT_CRT_CRT_H
#define PORT_CRT_CRT_H

#include <cstddef>
#include <cstdint>

#include <sys/stat.h>
#include <sys/types.h>

#include "kulang.h"

struct kufile;    // an open buffered file
struct kuscratch; // the pages of a scratch file

namespace ku::crt
{

// ---- the system calls: the one place where the operating system is reached ----

// One member per call; every one returns a negative value and sets errno when it
// fails. A test puts a copy with members of its own in place, to make a call
// fail or move fewer bytes.
struct system_calls {
    int (*open)(const char *path, int flags, mode_t permissions);
    int (*close)(int descriptor);
    ssize_t (*read)(int descriptor, void *bytes, std::size_t count);
    ssize_t (*write)(int descriptor, const void *bytes, std::size_t count);
    ssize_t (*pread)(int descriptor, void *bytes, std::size_t count, off_t offset);
    ssize_t (*pwrite)(int descriptor, const void *bytes, std::size_t count, off_t offset);
    off_t (*lseek)(int descriptor, off_t offset, int whence);
    int (*fstat)(int descriptor, struct stat *status);
    int (*stat)(const char *path, struct stat *status);  // follows symbolic links
    int (*lstat)(const char *path, struct stat *status); // does not
    int (*access)(const char *path, int mode);
    int (*chmod)(const char *path, mode_t permissions);
    int (*fchmod)(int descriptor, mode_t permissions);
    int (*fchown)(int descriptor, uid_t owner, gid_t group);
    ssize_t (*fgetxattr)(int descriptor, const char *name, void *bytes, std::size_t room);
    int (*fsetxattr)(int descriptor, const char *name, const void *bytes, std::size_t count,
                     int flags);
    int (*fremovexattr)(int descriptor, const char *name);
    int (*unlink)(const char *path);
    int (*rename)(const char *from, const char *to);
    int (*flock)(int descriptor, int operation);
    int (*ftruncate)(int descriptor, off_t size);
    int (*fsync)(int descriptor);
    int (*resolve)(const char *path, char *resolved);  // realpath; PATH_MAX bytes, 0 when it worked
    ssize_t (*random)(void *bytes, std::size_t count); // getrandom
    int (*duplicate)(int descriptor, int least);       // to the first free number from `least` up
    int (*filesystem)(int descriptor, std::uint64_t *kind);   // the kind's magic number
    int (*reserve)(int descriptor, off_t offset, off_t size); // disk space; the size stays
    int (*map)(int descriptor, off_t offset, std::size_t size, void **address); // shared
    int (*unmap)(void *address, std::size_t size);
    int (*forget)(void *address, std::size_t size); // mapped pages, which are no longer resident
    // Calls `visit` with every name in a directory, "." and ".." too (opendir, readdir).
    int (*list)(const char *path, void (*visit)(void *about, const char *entry), void *about);
};

// The table in force on this thread: the system's own unless it was replaced.
const system_calls &calls();

// Puts another table in force on the calling thread (null: the system's own) and
// returns the one before, never null. The table is borrowed until it is replaced.
const system_calls *replace_calls(const system_calls *table);

// ---- names ----

// A name as the system takes it, in memory of its own.
class path
{
public:
    path(const kulang *lang, const char *name);
    // The translated name; null, with errno set, when there is none.
    const char *text() const;
    static constexpr std::size_t room = 4096; // bytes, the NUL included

private:
    char bytes_[room];
    int error_ = 0;
};

// ---- files by name ----

struct status {
    bool regular;              // a regular file
    bool directory;            // a directory
    std::uint32_t permissions; // permission bits, 0777 at most
    std::uint64_t size;        // bytes
    std::uint64_t device;      // with `inode`: which file it is
    std::uint64_t inode;
};

bool file_status(const kulang *lang, const char *name, status *result); // follows symbolic links
bool same_file(const status &a, const status &b);
bool remove_file(const kulang *lang, const char *name);
bool set_permissions(const kulang *lang, const char *name,
                     std::uint32_t permissions); // 0777 at most

// A name in /tmp that names nothing yet, into `temporary_name_room` bytes.
constexpr std::size_t temporary_name_room = 20;
bool temporary_name(char *buffer);

std::uint32_t process_id();

// ---- buffered files ----

enum class share : std::uint32_t {
    deny_writers = 0x20, // no second writer while this file is open
    deny_none = 0x40,
};

// Opens as the standard library's mode texts say: "r", "w", "a", with "+" and
// "b" in any order. Directories are refused (EISDIR). deny_writers takes an
// advisory lock of a regular file, before it is emptied; it fails with EBUSY
// when another writer has it, and goes without where the file system has no
// locks. Descriptors are closed on exec. Null on failure.
kufile *open(const kulang *lang, const char *name, const char *mode, share sharing);

// Writes what is buffered and closes. The file is gone also when that failed. A
// replacing file commits (below).
bool close(kufile *file);

// The process's standard input, output or error for number 1, 2 or 3: for
// open_status alone. Borrowed.
kufile *standard_file(int number);

// As for the standard library's streams: once the end is met reads give nothing
// until a seek; a failure marks the file for good, reads and writes go on being
// tried. Reads and writes may alternate freely. `read` and `write` return the
// bytes moved; fewer mean the end or a failure. Interrupted calls are repeated,
// short ones continued. All take a null file as one that has failed.
std::size_t read(kufile *file, void *bytes, std::size_t count);
std::size_t write(kufile *file, const void *bytes, std::size_t count);

// Reads up to and with the next newline, at most `most` bytes. Bytes read.
std::size_t read_line(kufile *file, char *bytes, std::size_t most);

enum class origin { start, end };
bool seek(kufile *file, std::int64_t offset, origin from); // forgets that the end was met
bool flush(kufile *file);
bool at_end(const kufile *file);                // a read has met the end
bool has_failed(const kufile *file);            // a read or write has failed
bool open_status(kufile *file, status *result); // flushes first

// ---- low-level files: by descriptor, unbuffered ----

// Bits for low_open.
constexpr unsigned low_create = 1; // create the file if it does not exist, for its owner alone
constexpr unsigned low_empty = 2;  // empty it, once it is locked
constexpr unsigned low_fresh = 4;  // refuse a symbolic link (ELOOP)

// Opens for reading and writing with a lock against other writers, as above; a
// file that is locked is refused with EACCES. The descriptor is above 2, where
// no standard stream can meet it, and closed on exec. Negative on failure; a file
// that was created for it is removed then.
int low_open(const kulang *lang, const char *name, unsigned bits);
bool low_close(int descriptor); // an interrupted close has closed

// The new position; negative on failure.
std::int64_t low_seek(int descriptor, std::int64_t offset, origin from);

// Read or write at a position, wherever the descriptor's own is. The bytes moved by
// one call, or why there are none. Interrupted calls are repeated.
enum class low_failure { none, position, transfer }; // position: the file has no such
struct low_moved {
    std::size_t bytes;
    low_failure failure;
};
low_moved low_read(int descriptor, std::uint64_t position, void *bytes, std::size_t count);
low_moved low_write(int descriptor, std::uint64_t position, const void *bytes, std::size_t count);

enum class reach { exists, writable };
bool accessible(const kulang *lang, const char *name, reach wanted);

// ---- the pages of a scratch file ----

// A file that is its opener's alone can be reached through memory where it is
// written much: its pages are read there, and those whose disk space is reserved
// are written there. A full disk is a failed write, never a signal. The file must
// be empty at first and must not be cut short afterwards.

// What is resident of the scratch files that share one of these, which is bounded:
// the stretches of 1 MB that are used most; the others are reached by descriptor.
struct residents {
    static constexpr std::uint32_t lifetime = 32768; // uses until what was before counts half
    struct place {                                   // many of them are set aside
        std::uint16_t file;                          // number of a file
        std::uint16_t stretch;                       // of it
    };
    place *held;         // room for `most`, the owner's
    std::uint32_t most;  // stretches
    std::uint32_t count; // of those held
    std::uint32_t uses;  // counted up to the lifetime
    kuscratch *first;    // of the files
};
// Its files are reached by descriptor from now on.
void release_residents(residents *shared);

// Starts; null where the file system is not suited, or memory ran out.
kuscratch *map_scratch(int descriptor);
void unmap_scratch(kuscratch *scratch); // null is ignored
// Until it shares residents, a file is reached by descriptor. Once for a file; null is ignored.
void share_residents(kuscratch *scratch, residents *shared);

// Notes that low_write wrote `count` bytes, within one page, at `offset`.
void scratch_written(kuscratch *scratch, std::uint64_t offset, std::size_t count);

// The address of `count` bytes within one page at `offset`; null when they are to
// be read or written by descriptor. Valid until unmap_scratch; what low_write
// writes is seen there. Null scratch: null. What could be loaded once is there
// again without fail.
enum class purpose { load, again, store };
unsigned char *scratch_at(kuscratch *scratch, std::uint64_t offset, std::size_t count, purpose use);

// ---- replacing a file as a whole ----

// Opens a file for writing whose contents become those of `name` when it is
// closed: a new file in the same directory (of what a symbolic link leads to),
// with the same permissions, access list and owner, synced and renamed over the
// target. Where no such file can be made, or the target is not a plain file with
// one name, it is emptied and written in place. A target that cannot be written
// is refused. Its lock is held as by open with deny_writers, and refused alike.
// A target that did not exist has no lock: close() fails when somebody has made
// it since and still writes it; if he is done, his contents are replaced.
//
// close() commits, and fails with the target as it was when any write failed.
// Where something is mounted on the target, the new contents are copied over the
// old ones: only a failure of that copy leaves the target incomplete.
//
// The new file is named as the target with ".", eight letters and "~ku" behind
// it. A process that is killed leaves it; the next close() that puts a new file
// in the place of the same target removes it. A lock tells that it is in use:
// where the file system has no locks it stays.
kufile *open_replacing(const kulang *lang, const char *name);

// Closes a replacing file without committing; the new file is removed. Null is ignored.
void discard(kufile *file);

} // namespace ku::crt

#endif
