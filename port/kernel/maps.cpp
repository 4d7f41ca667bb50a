// maps.cpp - the process's memory map, and what can be read and written
//
// Three ways to ask, none of which touches the memory from this thread:
//
// - A short range: have the system make its pages ready to be read or written. That
//   is one call, exact, and needed soon anyway; but it takes memory for pages
//   that have none yet, and older kernels do not know it.
// - The memory map says for every address whether it may be read or written. It does
//   not say whether there is anything behind the pages of a file, which may have
//   been cut since it was mapped.
// - The system reads a byte of each page on our behalf, which fails where we would be
//   killed: for pages of files, and for all of them where there is no map.

#include "maps_internal.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include "kernel.h"
#include "port/crt/crt.h"

namespace ku::kernel
{

// ---- the list ----

map_reader::map_reader()
    : descriptor_(crt::calls().open("/proc/self/maps", O_RDONLY | O_CLOEXEC, 0)),
      failed_(descriptor_ < 0)
{
}

map_reader::~map_reader()
{
    if (descriptor_ >= 0) crt::calls().close(descriptor_);
}

bool map_reader::fill()
{
    ssize_t count = 0;
    do count = crt::calls().read(descriptor_, buffer_, sizeof buffer_);
    while (count < 0 && errno == EINTR);
    if (count < 0) failed_ = true;
    at_ = 0;
    filled_ = count < 0 ? 0 : static_cast<std::size_t>(count);
    return filled_ != 0;
}

bool map_reader::read_line(std::string_view *line)
{
    std::size_t length = 0;
    while (!failed_ && (at_ < filled_ || fill())) {
        const char c = buffer_[at_++];
        if (c == '\n') {
            *line = {line_, length};
            return true;
        }
        if (length < line_room) line_[length++] = c;
    }
    return false;
}

// Takes a number and the character behind it from the front of a text.
static bool take(std::string_view *text, int base, char behind, std::uint64_t *value)
{
    const char *const end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, *value, base);
    if (error != std::errc() || stop == end || *stop != behind) return false;
    text->remove_prefix(static_cast<std::size_t>(stop - text->data()) + 1);
    return true;
}

static bool understand(std::string_view line, mapping *result)
{
    std::uint64_t offset = 0;
    std::uint64_t device = 0;
    std::uint64_t node = 0;
    if (!take(&line, 16, '-', &result->begin) || !take(&line, 16, ' ', &result->end)) return false;
    if (line.size() < 5) return false;
    result->readable = line[0] == 'r';
    result->writable = line[1] == 'w';
    line.remove_prefix(5);
    if (!take(&line, 16, ' ', &offset) || !take(&line, 16, ':', &device)) return false;
    if (!take(&line, 16, ' ', &device) || !take(&line, 10, ' ', &node)) return false;
    result->file = node != 0;
    result->path = line.substr(std::min(line.find_first_not_of(' '), line.size()));
    return true;
}

bool map_reader::next(mapping *result)
{
    std::string_view line;
    if (failed_ || !read_line(&line)) return false;
    failed_ = !understand(line, result);
    return !failed_;
}

// ---- ranges ----

namespace
{

struct range {
    std::uint64_t first;
    std::uint64_t last; // the last byte itself: the end may be past all numbers
};

enum class answer { no, yes, unknown };

constexpr std::size_t short_range = 262144; // bytes
constexpr int populate_read = 22;           // advice of Linux 5.14, which headers may lack
constexpr int populate_write = 23;

std::uint64_t page_size() { return static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)); }

void *address_of(std::uint64_t number)
{
    return reinterpret_cast<void *>(static_cast<std::uintptr_t>(number));
}

answer populate(range wanted, bool to_write)
{
    const std::uint64_t begin = wanted.first - wanted.first % page_size();
    const auto length = static_cast<std::size_t>(wanted.last - begin + 1);
    if (madvise(address_of(begin), length, to_write ? populate_write : populate_read) == 0)
        return answer::yes;
    return errno == EFAULT ? answer::no : answer::unknown;
}

// The system reads a byte of each page; true also where it does not do so for us. Pages that
// can be written but not read are made ready for that instead.
bool ask_pages(range wanted, bool to_write)
{
    constexpr std::size_t batch = 64; // pages asked for by one call
    const std::uint64_t page = page_size();
    char bytes[batch];
    iovec pages[batch];
    for (bool more = true; more;) {
        const std::uint64_t first = wanted.first;
        std::size_t count = 0;
        while (more && count < batch) {
            pages[count++] = {address_of(wanted.first), 1};
            const std::uint64_t left =
                page - 1 - wanted.first % page; // bytes behind it in its page
            more = wanted.last - wanted.first > left;
            wanted.first += left + 1;
        }
        iovec here = {bytes, count};
        const ssize_t moved = process_vm_readv(getpid(), &here, 1, pages, count, 0);
        if (moved < 0 && errno != EFAULT) return true;
        if (moved != static_cast<ssize_t>(count)
            && !(to_write && populate({first, wanted.first - 1}, true) == answer::yes))
            return false;
    }
    return true;
}

// Unknown: there is no map.
answer ask_map(range wanted, bool to_write)
{
    map_reader maps;
    mapping here;
    while (maps.next(&here)) {
        if (here.end <= wanted.first) continue;
        if (here.begin > wanted.first) return answer::no;
        if (to_write ? !here.writable : !here.readable) return answer::no;
        const range part = {wanted.first, std::min(here.end - 1, wanted.last)};
        if (here.file && !ask_pages(part, to_write)) return answer::no;
        if (part.last == wanted.last) return answer::yes;
        wanted.first = here.end;
    }
    return maps.failed() ? answer::unknown : answer::no;
}

bool good(const void *address, std::size_t size, bool to_write)
{
    if (size == 0) return true;
    const auto first = reinterpret_cast<std::uintptr_t>(address);
    if (first == 0 || size - 1 > UINTPTR_MAX - first) return false;
    const range wanted = {first, std::uint64_t{first} + (size - 1)};
    answer said = size <= short_range ? populate(wanted, to_write) : answer::unknown;
    if (said == answer::unknown) said = ask_map(wanted, to_write);
    return said == answer::unknown ? ask_pages(wanted, to_write) : said == answer::yes;
}

} // namespace

bool readable(const void *address, std::size_t size) { return good(address, size, false); }

bool writable(const void *address, std::size_t size) { return good(address, size, true); }

} // namespace ku::kernel
