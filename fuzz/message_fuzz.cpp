// message_fuzz.cpp - any message file, any parameters, any room: no byte outside the buffer
//
// Input: one byte for the language, one for the room, then the first parameter
// up to a NUL, the second up to a NUL, and the message file.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "kuapp.h"
#include "kux.h"
#include "kuxer.h"
#include "port/locale/locale.h"

namespace
{

constexpr const char *languages[] = {"ascii", "iso-8859-1", "utf8",
                                     "sjis",  "euc-jp",     "iso-2022-kr"};

void check(bool holds)
{
    if (!holds) std::abort();
}

// Takes the text up to the next NUL off the front.
std::string take_text(const char *&from, const char *end)
{
    const char *stop = std::find(from, end, '\0');
    std::string text(from, stop);
    from = stop == end ? end : stop + 1;
    return text;
}

void format(kux *ctx, const char *type, uint32_t most)
{
    std::string buffer(most + 2, '#');
    uint32_t length = most;
    int32_t truncated = -1;
    kuxerfmtmsg(ctx, kuxerget(ctx, 0), type, buffer.data(), &length, &truncated);
    check(buffer[most + 1] == '#');
    const size_t used = std::strlen(buffer.c_str());
    check(used <= most);
    check(length == most || used == length || used == length + 1); // a closing shift is not counted
    check(truncated == 0 || truncated == 1);
    check(kuxernerrors(ctx) == 1 && ctx->kuxernstacks == 1);

    buffer.assign(most + 2, '#');
    length = most;
    kuxergmsg(ctx, kuxercode(ctx), type, buffer.data(), &length, &truncated);
    check(buffer[most + 1] == '#' && length <= most);
    check(length == 0 || std::strlen(buffer.c_str()) == length);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) return 0;
    const char *at = reinterpret_cast<const char *>(data) + 2;
    const char *end = reinterpret_cast<const char *>(data) + size;
    const std::string first = take_text(at, end), second = take_text(at, end);

    const int file = memfd_create("messages", MFD_CLOEXEC);
    check(file >= 0 && write(file, at, static_cast<size_t>(end - at)) == end - at);
    const std::string path = "/proc/self/fd/" + std::to_string(file);
    kuapp application = {path.c_str(), nullptr};
    kuxa attrs = {};
    attrs.kuxamask = KUXA_UIAPP;
    attrs.kuxauiapp = &application;
    kux *ctx = kuxcreate(&attrs);
    ku::locale::fill_named(ctx->kuxlangidh, &ctx->kuxlocglo, languages[data[0] % 6]);

    kuxer2push(ctx, KU_CODE('k', 'u', 'l', 'a', 'a', 3), first.c_str(), second.c_str());
    format(ctx, "text", data[1]);
    format(ctx, "text", 600);
    kuxdestroy(ctx);
    close(file);
    return 0;
}
