// dbclient.h - database client: error texts and file names
//
// What the library needs of a database client library, and nothing more. The
// default host handle belongs to the calling thread: an error number that one
// thread sets is never seen by another. Nothing allocates.
#ifndef PORT_DBCLIENT_DBCLIENT_H
#define PORT_DBCLIENT_DBCLIENT_H

#include <cstddef>
#include <cstdint>

namespace ku::dbclient
{

struct host; // host handle

// The thread's default handle; never null, lives as long as the thread.
host *default_host();

// Puts a number into the handle's error record.
void set_error(host *handle, std::uint16_t number);

// Writes the message text of the handle's error number, at most `capacity`
// bytes, not NUL-terminated; a longer text is cut. Numbers without a text of
// their own give "error N". Returns the bytes written.
std::uint32_t error_text(const host *handle, char *buffer, std::uint32_t capacity);

enum class name_status { built, no_room };

// Joins directory, base, part, full stop and extension into `length` bytes, the
// NUL included. A '/' comes after a directory that does not end in '/' or '\'; an empty
// directory or a null one adds nothing, an empty or null extension no full stop, part
// may be null. When the room is short the buffer is unchanged.
name_status build_file_name(const char *directory, const char *base, const char *extension,
                            const char *part, char *buffer, std::size_t length);

} // namespace ku::dbclient

#endif
