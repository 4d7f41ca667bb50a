// skub.cpp - buffered streams over the runtime layer's files
//
// A stream is a record of the context around a file of the runtime layer, which
// does the buffering and remembers the end and failures; what is added here is
// the choice of how to open, the codes, and the inert streams: a null stream and
// those on the standard files, which every reading or writing operation passes
// over before it looks at anything else.
//
// The name services read names character by character and never allocate; only
// the two builders need a temporary, as nothing may be written to the caller's
// buffer before the whole name is known to fit.

#include "skub.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>

#include "../port/crt/crt.h"
#include "../port/locale/locale.h"
#include "kuguard.h"
#include "kuxer.h"
#include "skub_internal.h"

namespace crt = ku::crt;

static_assert(SKUB_TMPNAMLEN == crt::temporary_name_room);

static constexpr uint32_t skub_block = 8192;      // bytes copied at a time
static constexpr uint32_t skub_spare_single = 12; // spare bytes of a builder's temporary
static constexpr uint32_t skub_spare_multi = 48;  // the same in multibyte languages

static uint32_t skubrefuse(kux *ctx, uint32_t code)
{
    kuxer0push(ctx, code);
    return code;
}

// The stream when it does input and output; null when it is inert.
static skub *skubactive(void *stream)
{
    auto *active = static_cast<skub *>(stream);
    return active != nullptr && active->spec_skub == 0 ? active : nullptr;
}

// ---- creating ----

// A copy of the name on the context's heap; null without memory.
static char *skubcopyname(kux *ctx, const char *name)
{
    const std::size_t size = std::strlen(name) + 1;
    auto *copy = static_cast<char *>(ku::allocate(ctx, size, 1));
    if (copy != nullptr) std::memcpy(copy, name, size);
    return copy;
}

// The mode text of the runtime layer's open; null for truncation without writing.
static const char *skubmodetext(uint32_t mode)
{
    if ((mode & SKUB_WRITE) == 0) return (mode & SKUB_TRUNCATE) == 0 ? "r" : nullptr;
    if ((mode & SKUB_TRUNCATE) != 0) return "w+";
    return (mode & SKUB_CREATE) != 0 ? "a+" : "r+";
}

static bool skubattach(skub *stream, int32_t number)
{
    if (number < 1 || number > 3) return false;
    stream->spec_skub = number;
    stream->fp_skub = crt::standard_file(number);
    return true;
}

// Opens the file as the mode says. False with the code pushed, or with none when
// the system refused.
static bool skubopenfile(kux *ctx, skub *stream, const char *name)
{
    const uint32_t mode = stream->mode_skub;
    if ((mode & SKUB_CREATE) == 0 && skubfexist(ctx, name) == 0) {
        kuxer0push(ctx, SKUBA_NOFILE);
        return false;
    }
    const char *text = skubmodetext(mode);
    if (text == nullptr) {
        kuxer0push(ctx, SKUBA_NOWRITE);
        return false;
    }
    const bool writes = (mode & SKUB_WRITE) != 0;
    stream->fp_skub = crt::open(ctx->kuxlangidh, name, text,
                                writes ? crt::share::deny_writers : crt::share::deny_none);
    return stream->fp_skub != nullptr;
}

static bool skubstart(kux *ctx, skub *stream, const char *name, const skuba *attrs)
{
    stream->mode_skub = attrs->mode_skuba;
    if (!skubopenfile(ctx, stream, name)) return false;
    stream->name_skub = skubcopyname(ctx, name);
    if (stream->name_skub != nullptr) {
        if ((attrs->mask_skuba & SKUBA_POSN) == 0) return true;
        stream->posn_skub = attrs->posn_skuba;
        if (skubposition(ctx, stream, attrs->posn_skuba) == 0) return true;
        ctx->kuxnmfree(ctx, stream->name_skub);
    }
    crt::close(stream->fp_skub);
    return false;
}

void *skubcreate(kux *ctx, const char *name, const skuba *attrs)
{
    static constexpr skuba usual = {SKUBA_MODE | SKUBA_POSN, SKUB_CREATE | SKUB_WRITE, 0, 0};
    if (attrs == nullptr) attrs = &usual;
    ku::owned<skub> stream(ctx, ku::allocate<skub>(ctx));
    if (!stream) return nullptr;
    *stream.get() = skub{};

    const bool standard = (attrs->mask_skuba & SKUBA_SPEC) != 0;
    const bool given = standard ? skubattach(stream.get(), attrs->spec_skuba)
                                : (attrs->mask_skuba & SKUBA_MODE) != 0;
    if (!given) {
        kuxer0push(ctx, SKUBA_NOMODE);
        return nullptr;
    }
    if (!standard && !skubstart(ctx, stream.get(), name, attrs)) return nullptr;
    return stream.keep();
}

// Turns a mode text into attributes; false when there is no such mode.
static bool skubunderstand(const char *mode, skuba *attrs)
{
    if (mode == nullptr) return false;
    static constexpr struct {
        char letter;
        uint32_t plain, update; // mode bits without and with a plus
        int32_t position;
    } rows[] = {
        {'r', 0, SKUB_WRITE, 0},
        {'w', SKUB_TRUNCATE | SKUB_CREATE | SKUB_WRITE, SKUB_TRUNCATE | SKUB_CREATE | SKUB_WRITE,
         0},
        {'a', SKUB_CREATE | SKUB_WRITE, SKUB_CREATE | SKUB_WRITE, SKUB_END},
    };
    for (const auto &row : rows) {
        if (mode[0] != row.letter) continue;
        const char *rest = mode + 1;
        const bool update = std::strcmp(rest, "+") == 0 || std::strcmp(rest, "+b") == 0
                            || std::strcmp(rest, "b+") == 0;
        if (!update && rest[0] != 0 && std::strcmp(rest, "b") != 0) return false;
        *attrs = {SKUBA_MODE | SKUBA_POSN, update ? row.update : row.plain, row.position, 0};
        return true;
    }
    return false;
}

void *skubopen(kux *ctx, const char *name, const char *mode)
{
    skuba attrs;
    void *stream = skubunderstand(mode, &attrs) ? skubcreate(ctx, name, &attrs) : nullptr;
    if (stream == nullptr) kuxer0push(ctx, SKUBA_OPEN);
    return stream;
}

// ---- closing ----

static void skubrelease(kux *ctx, skub *stream)
{
    if (stream->name_skub != nullptr) ctx->kuxnmfree(ctx, stream->name_skub);
    ctx->kuxnmfree(ctx, stream);
}

void *skubdestroy(kux *ctx, void *stream)
{
    skubclose(ctx, stream);
    return nullptr;
}

uint32_t skubclose(kux *ctx, void *stream)
{
    if (stream == nullptr) return 0;
    if (skub *active = skubactive(stream)) {
        kufile *file = active->fp_skub;
        active->fp_skub = nullptr; // gone, whether or not closing works
        if (file != nullptr && !crt::close(file)) return skubrefuse(ctx, SKUBA_CLOSE);
        if ((active->mode_skub & SKUB_TEMPORARY) != 0)
            crt::remove_file(ctx->kuxlangidh, active->name_skub);
    }
    skubrelease(ctx, static_cast<skub *>(stream));
    return 0;
}

// ---- position ----

// Reads over `count` characters, or to the end. False when a read failed.
static bool skubskip(kux *ctx, void *stream, int32_t count)
{
    for (; count > 0; count--) {
        unsigned char passed;
        uint32_t nread = 0;
        const uint32_t status = skubread(ctx, stream, &passed, 1, 1, &nread);
        if (status != 0 && status != SKUBA_EOF) return false;
        if (nread == 0) break;
    }
    return true;
}

uint32_t skubposition(kux *ctx, void *stream, int32_t position)
{
    skub *active = skubactive(stream);
    if (active == nullptr) return 0;
    const crt::origin from = position == SKUB_END ? crt::origin::end : crt::origin::start;
    if (position < SKUB_END || !crt::seek(active->fp_skub, 0, from)
        || !skubskip(ctx, stream, position))
        return skubrefuse(ctx, SKUBA_POSITION);
    return 0;
}

// ---- reading ----

uint32_t skubcget(kux *ctx, void *stream, unsigned char *byte)
{
    skub *active = skubactive(stream);
    if (active == nullptr) return 0;
    if (byte == nullptr) return skubrefuse(ctx, SKUBA_CGET);
    if (crt::at_end(active->fp_skub)) return SKUBA_EOF;
    crt::read(active->fp_skub, byte, 1);
    if (crt::has_failed(active->fp_skub)) return skubrefuse(ctx, SKUBA_CGET);
    return crt::at_end(active->fp_skub) ? SKUBA_EOF : 0;
}

// Whether `count` items of `length` bytes at `buffer` can exist.
static bool skubholds(const void *buffer, uint32_t count, uint32_t length)
{
    const uint64_t bytes = uint64_t{count} * length;
    return bytes == 0 || (buffer != nullptr && bytes <= SIZE_MAX);
}

uint32_t skubread(kux *ctx, void *stream, void *buffer, uint32_t count, uint32_t length,
                  uint32_t *nread)
{
    skub *active = skubactive(stream);
    if (active == nullptr) return 0;
    if (crt::at_end(active->fp_skub)) return SKUBA_EOF;
    const bool holds = skubholds(buffer, count, length);
    const std::size_t moved =
        holds ? crt::read(active->fp_skub, buffer, std::size_t{count} * length) : 0;
    if (nread != nullptr) *nread = length == 0 ? 0 : static_cast<uint32_t>(moved / length);
    return !holds || crt::has_failed(active->fp_skub) ? skubrefuse(ctx, SKUBA_READ) : 0;
}

uint32_t skubsget(kux *ctx, void *stream, char *buffer, uint32_t size)
{
    skub *active = skubactive(stream);
    if (active == nullptr) return 0;
    if (crt::at_end(active->fp_skub)) return SKUBA_EOF;
    if (buffer == nullptr) return skubrefuse(ctx, SKUBA_SGET);
    if (size == 0) return SKUBA_EOF;
    const std::size_t length = crt::read_line(active->fp_skub, buffer, size - 1);
    buffer[length] = 0;
    if (crt::has_failed(active->fp_skub)) return skubrefuse(ctx, SKUBA_SGET);
    return length == 0 ? SKUBA_EOF : 0;
}

// ---- writing ----

uint32_t skubcput(kux *ctx, void *stream, unsigned char byte)
{
    skub *active = skubactive(stream);
    if (active == nullptr) return 0;
    crt::write(active->fp_skub, &byte, 1);
    return crt::has_failed(active->fp_skub) ? skubrefuse(ctx, SKUBA_CPUT) : 0;
}

uint32_t skubwrite(kux *ctx, void *stream, const void *buffer, uint32_t count, uint32_t length,
                   uint32_t *nwritten)
{
    skub *active = skubactive(stream);
    if (active == nullptr) return 0;
    const bool holds = skubholds(buffer, count, length);
    const std::size_t moved =
        holds ? crt::write(active->fp_skub, buffer, std::size_t{count} * length) : 0;
    if (nwritten != nullptr) *nwritten = length == 0 ? 0 : static_cast<uint32_t>(moved / length);
    return !holds || crt::has_failed(active->fp_skub) ? skubrefuse(ctx, SKUBA_WRITE) : 0;
}

uint32_t skubsput(kux *ctx, void *stream, const char *text)
{
    skub *active = skubactive(stream);
    if (active == nullptr) return 0;
    if (text != nullptr) crt::write(active->fp_skub, text, std::strlen(text));
    return text == nullptr || crt::has_failed(active->fp_skub) ? skubrefuse(ctx, SKUBA_SPUT) : 0;
}

void skubflush(kux *, void *stream)
{
    if (skub *active = skubactive(stream)) crt::flush(active->fp_skub);
}

uint32_t skubfsize(kux *ctx, void *stream, uint32_t *size)
{
    if (stream == nullptr) return 0;
    crt::status found;
    if (size == nullptr || !crt::open_status(static_cast<skub *>(stream)->fp_skub, &found)
        || found.size > UINT32_MAX)
        return skubrefuse(ctx, SKUBA_SIZE);
    *size = static_cast<uint32_t>(found.size);
    return 0;
}

// ---- replacing a file whole ----

void *skubreplace(kux *ctx, const char *name)
{
    if (name == nullptr) return nullptr;
    ku::owned<skub> stream(ctx, ku::allocate<skub>(ctx));
    if (!stream) return nullptr;
    ku::owned<char> copy(ctx, skubcopyname(ctx, name));
    if (!copy) return nullptr;
    kufile *file = crt::open_replacing(ctx->kuxlangidh, name);
    if (file == nullptr) return nullptr;
    *stream.get() = {file, copy.keep(), SKUB_TRUNCATE | SKUB_CREATE | SKUB_WRITE, 0, 0};
    return stream.keep();
}

void *skubdiscard(kux *ctx, void *stream)
{
    if (stream == nullptr) return nullptr;
    auto *abandoned = static_cast<skub *>(stream);
    crt::discard(abandoned->fp_skub);
    skubrelease(ctx, abandoned);
    return nullptr;
}

// ---- files by name ----

int32_t skubfexist(kux *ctx, const char *name)
{
    crt::status found;
    if (crt::file_status(ctx->kuxlangidh, name, &found)) return found.regular ? 1 : 0;
    if (errno != ENOENT && errno != ENOTDIR) kuxer0push(ctx, SKUBA_STATUS);
    return 0;
}

uint32_t skubremove(kux *ctx, const char *name)
{
    if (skubfexist(ctx, name) == 0 || crt::remove_file(ctx->kuxlangidh, name)) return 0;
    return skubrefuse(ctx, SKUBA_REMOVE);
}

// Both names lead to one existing file.
static bool skubsame(kux *ctx, const char *source, const char *target)
{
    crt::status from;
    crt::status onto;
    return crt::file_status(ctx->kuxlangidh, source, &from)
           && crt::file_status(ctx->kuxlangidh, target, &onto) && crt::same_file(from, onto);
}

uint32_t skubrename(kux *ctx, const char *source, const char *target)
{
    if (skubsame(ctx, source, target)) return 0;
    if (skubremove(ctx, target) == 0 && skubcopy(ctx, source, target) == 0
        && skubremove(ctx, source) == 0)
        return 0;
    kuxerpop(ctx);
    return skubrefuse(ctx, SKUBA_RENAME);
}

// Copies what is left of one stream to another. Returns 0 or the code pushed.
static uint32_t skubpour(kux *ctx, skub *from, skub *onto)
{
    unsigned char block[skub_block];
    while (!crt::at_end(from->fp_skub)) {
        uint32_t nread = 0;
        uint32_t nwritten = 0;
        uint32_t failure = skubread(ctx, from, block, skub_block, 1, &nread);
        if (failure == 0) failure = skubwrite(ctx, onto, block, nread, 1, &nwritten);
        if (failure != 0) return failure;
        if (nwritten < nread) return skubrefuse(ctx, SKUBA_SHORT);
    }
    return 0;
}

// Copies a file's bytes over another. Returns 0 or the code pushed.
static uint32_t skubcopybytes(kux *ctx, const char *source, const char *target)
{
    skub from = {};
    skub onto = {};
    from.fp_skub = crt::open(ctx->kuxlangidh, source, "rb", crt::share::deny_none);
    if (from.fp_skub != nullptr)
        onto.fp_skub = crt::open(ctx->kuxlangidh, target, "wb", crt::share::deny_writers);

    uint32_t failure = 0;
    if (onto.fp_skub == nullptr)
        failure = skubrefuse(ctx, SKUBA_OPEN);
    else
        failure = skubpour(ctx, &from, &onto);
    if (from.fp_skub != nullptr) crt::close(from.fp_skub);
    if (onto.fp_skub != nullptr && !crt::close(onto.fp_skub) && failure == 0)
        failure = skubrefuse(ctx, SKUBA_CLOSE); // a full disk may show only here
    return failure;
}

// Gives a file its permissions; devices and pipes that were written keep theirs.
static uint32_t skubsetmode(kux *ctx, const char *name, uint32_t permissions)
{
    crt::status found;
    if (!crt::file_status(ctx->kuxlangidh, name, &found)
        || (found.regular && !crt::set_permissions(ctx->kuxlangidh, name, permissions)))
        return skubrefuse(ctx, SKUBA_SETMODE);
    return 0;
}

uint32_t skubcopy(kux *ctx, const char *source, const char *target)
{
    crt::status from;
    if (!crt::file_status(ctx->kuxlangidh, source, &from)) return skubrefuse(ctx, SKUBA_STATUS);
    if (skubsame(ctx, source, target)) return 0;
    const uint32_t failure = skubcopybytes(ctx, source, target);
    return failure != 0 ? failure : skubsetmode(ctx, target, from.permissions);
}

uint32_t skubtmpnam(kux *ctx, char *buffer)
{
    return buffer != nullptr && crt::temporary_name(buffer) ? 0 : skubrefuse(ctx, SKUBA_TMPNAM);
}

// ---- names as texts ----

// Walks a name; a null one is empty. Separators are told by their wide values,
// which no character of several bytes shares.
static kucursor skubwalk(kux *ctx, const char *name)
{
    static char empty[] = "";
    kucursor cursor;
    ku::locale::open_exact(&cursor, name == nullptr ? empty : const_cast<char *>(name), SIZE_MAX,
                           ctx->kuxlangidh, ku::locale::cursor_mode::read);
    return cursor;
}

int32_t skubdspecified(kux *ctx, const char *name)
{
    kucursor at = skubwalk(ctx, name);
    while (const uint32_t wide = ku::locale::next(at)) {
        if (wide == '\\') return 1;
    }
    return 0;
}

int32_t skubtspecified(kux *ctx, const char *name)
{
    kucursor at = skubwalk(ctx, name);
    int32_t specified = 0;
    while (const uint32_t wide = ku::locale::next(at)) {
        if (wide == '.') specified = 1;
        if (wide == '\\') specified = 0;
    }
    return specified;
}

static std::size_t skubcharacters(kucursor at)
{
    std::size_t characters = 0;
    while (ku::locale::next(at) != 0) characters++;
    return characters;
}

int32_t skubstspecified(kux *ctx, const char *name, const char *type)
{
    kucursor at = skubwalk(ctx, name);
    kucursor wanted = skubwalk(ctx, type);
    const std::size_t characters = skubcharacters(at);
    const std::size_t tail = skubcharacters(wanted) + 1;
    if (characters < tail) return 0;
    for (std::size_t i = tail; i < characters; i++) ku::locale::step(at);
    if (ku::locale::next(at) != '.') return 0;
    while (const uint32_t wide = ku::locale::next(wanted)) {
        if (ku::locale::next(at) != wide) return 0;
    }
    return 1;
}

// Last character of a name; 0 when it is empty.
static uint32_t skublast(kux *ctx, const char *name)
{
    kucursor at = skubwalk(ctx, name);
    uint32_t last = 0;
    while (const uint32_t wide = ku::locale::next(at)) last = wide;
    return last;
}

// Joins texts character by character: runs left shifted are closed, runs that
// meet become one. Bytes written.
static std::size_t skubconvert(kux *ctx, std::initializer_list<const char *> parts, char *joined,
                               std::size_t room)
{
    kucursor target;
    ku::locale::open_exact(&target, joined, room, ctx->kuxlangidh, ku::locale::cursor_mode::write);
    for (const char *part : parts) {
        kucursor at = skubwalk(ctx, part);
        while (const uint32_t wide = ku::locale::next(at))
            ku::locale::put(target, wide, room - ku::locale::offset(target));
    }
    ku::locale::close_shift(target);
    return ku::locale::offset(target);
}

// How the parts of a name are joined where characters depend on a shift state:
// as they stand, or converted.
enum class skubjoining { plain, converted };

// Joins three texts, the last two optional, into the caller's buffer.
static uint32_t skubjoin(kux *ctx, skubjoining how, const char *first, const char *middle,
                         const char *last, char *buffer, uint32_t *length)
{
    const kulang &lang = *ctx->kuxlangidh;
    const uint64_t room = uint64_t{std::strlen(first)} + std::strlen(middle) + std::strlen(last)
                          + (ku::locale::single_byte(lang) ? skub_spare_single : skub_spare_multi);
    ku::owned<char> joined(ctx, static_cast<char *>(ku::allocate(ctx, room, 1)));
    if (!joined) { // a client's allocator need not push anything
        if (kuxercode(ctx) == 0) kuxer0push(ctx, SKUBA_ROOM);
        return kuxercode(ctx);
    }
    joined.get()[0] = 0;
    std::size_t size = 0;
    if (how == skubjoining::converted && lang.shiftsensitive_kulang != 0)
        size = skubconvert(ctx, {first, middle, last}, joined.get(), room);
    else
        for (const char *part : {first, middle, last})
            size = ku::locale::concatenate(lang, joined.get(), part);
    if (buffer == nullptr || length == nullptr || size > *length)
        return skubrefuse(ctx, SKUBA_ROOM);
    std::memcpy(buffer, joined.get(), size);
    if (size < *length) buffer[size] = 0;
    *length = static_cast<uint32_t>(size);
    return 0;
}

uint32_t skubatype(kux *ctx, const char *base, const char *type, char *buffer, uint32_t *length)
{
    return skubjoin(ctx, skubjoining::plain, base == nullptr ? "" : base, ".",
                    type == nullptr ? "" : type, buffer, length);
}

uint32_t skubadir(kux *ctx, const char *base, const char *directory, char *buffer, uint32_t *length)
{
    if (directory == nullptr) directory = "";
    const uint32_t last = skublast(ctx, directory);
    const bool separated = last == 0 || last == '\\';
    return skubjoin(ctx, skubjoining::converted, directory, separated ? "" : "\\",
                    base == nullptr ? "" : base, buffer, length);
}
