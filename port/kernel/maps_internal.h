// maps_internal.h - what is mapped into this process, read from the system's list
//
// The list is text, one mapping a line in ascending order:
//
//     55fda3a8d000-55fda3a8f000 r-xp 00002000 fe:00 247134      /usr/bin/cat
//
// It is read with a buffer on the stack, as the question may come up when there
// is no memory left.
#ifndef PORT_KERNEL_MAPS_INTERNAL_H
#define PORT_KERNEL_MAPS_INTERNAL_H

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ku::kernel
{

struct mapping {
    std::uint64_t begin; // first address
    std::uint64_t end;   // the one behind the last
    bool readable;
    bool writable;
    bool file;             // of a file, which may end before its mapping does
    std::string_view path; // of the file; until the next mapping is read
};

class map_reader
{
public:
    map_reader();
    ~map_reader();
    map_reader(const map_reader &) = delete;
    map_reader &operator=(const map_reader &) = delete;

    bool next(mapping *result);             // false: no more, or failed
    bool failed() const { return failed_; } // the list cannot be read, or not understood

private:
    bool fill();
    bool read_line(std::string_view *line);

    static constexpr std::size_t line_room = PATH_MAX + 128; // bytes; what is longer is cut
    int descriptor_;
    bool failed_;
    std::size_t at_ = 0;
    std::size_t filled_ = 0;
    char buffer_[4096];
    char line_[line_room];
};

} // namespace ku::kernel

#endif
