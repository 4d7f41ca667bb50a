// liz2.cpp - one converter behind nine names: any representation into any other
//
//     scan (lizg) --- wide values, case option ---> sink
//
// A scan reads characters from whatever the source is, a sink writes them into
// whatever the target is, a whole character or nothing. What ends a text (the
// closing byte of a shifted run, a NUL, a 0 unit) is written behind the sink's
// place but not stepped over: a streaming copy goes on over it.
//
// Between texts that are both bytes of the same set without shift states, all
// options but initial capitals go in blocks: measured to whole characters, then
// copied or mapped in bulk, small enough that the second pass finds its bytes in
// the cache. A block is no longer than what its mapping fits into for certain;
// the last few characters before a full target go one by one.
#include "liz_internal.h"

namespace ku::liz
{

namespace
{

constexpr std::size_t block_bytes = 16 * 1024;
constexpr std::size_t least_block = 16; // below it single characters are cheaper

// Place of a scan, to go back to when a character does not fit.
struct scan_place {
    unsigned char *position;
    std::uint8_t shifted;
    std::int32_t lcnum;
    std::uint32_t boffset;
};

scan_place place_of(const lizg &scan)
{
    return {scan.osctx_lizg.position_kucursor, scan.osctx_lizg.shifted_kucursor, scan.lcnum_lizg,
            scan.boffset_lizg};
}

void go_back(lizg &scan, const scan_place &place)
{
    scan.osctx_lizg.position_kucursor = place.position;
    scan.osctx_lizg.shifted_kucursor = place.shifted;
    scan.lcnum_lizg = place.lcnum;
    scan.boffset_lizg = place.boffset;
}

std::uint32_t upper(const kulang &lang, std::uint32_t value)
{
    if (locale::table_mapped(lang)) return lang.upper_kulang[value & 0xFF];
    return locale::wide_upper(lang, value);
}

std::uint32_t lower(const kulang &lang, std::uint32_t value)
{
    if (locale::table_mapped(lang)) return lang.lower_kulang[value & 0xFF];
    return locale::wide_lower(lang, value);
}

bool is_letter(const kulang &lang, std::uint32_t value)
{
    const std::uint16_t word = locale::table_mapped(lang) ? locale::byte_classes(lang, value & 0xFF)
                                                          : locale::wide_classes(lang, value);
    return (word & KULANG_LETTER) != 0;
}

// The case option applied to one character; `in_word` is the state of capitals.
std::uint32_t map(const kulang &lang, std::uint32_t value, std::int32_t option, bool &in_word)
{
    if (option == LIZ_UPPER) return upper(lang, value);
    if (option == LIZ_LOWER) return lower(lang, value);
    if (option != LIZ_CAPITALS) return value;
    const bool begins = !in_word;
    in_word = is_letter(lang, value);
    if (!in_word) return value;
    return begins ? upper(lang, value) : lower(lang, value);
}

bool put(sink &to, std::uint32_t value)
{
    const std::uint32_t left = to.room - to.written;
    if (to.rep == LIZ_WIDE) {
        if (left < sizeof value) return false;
        std::memcpy(to.bytes + to.written, &value, sizeof value);
        to.written += sizeof value;
        return true;
    }
    const std::uint32_t bytes = locale::put(to.cursor, value, left);
    to.written += bytes;
    return bytes != 0;
}

bool goes_in_blocks(const kulang &lang, const sink &to, const lizg &from, std::int32_t option)
{
    return to.rep != LIZ_WIDE && from.rep_lizg != LIZ_WIDE && option != LIZ_CAPITALS
           && lang.shiftsensitive_kulang == 0 && !locale::table_mapped(lang)
           && to.cursor.lang_kucursor == from.osctx_lizg.lang_kucursor;
}

std::size_t map_block(const kulang &lang, const sink &to, const lizg &from, std::size_t bytes,
                      std::int32_t option)
{
    unsigned char *target = to.cursor.position_kucursor;
    const unsigned char *source = from.osctx_lizg.position_kucursor;
    const std::size_t left = to.room - to.written;
    if (option == LIZ_UPPER) return locale::upper_copy(lang, target, left, source, bytes);
    if (option == LIZ_LOWER) return locale::lower_copy(lang, target, left, source, bytes);
    std::memmove(target, source, bytes);
    return bytes;
}

// Case mapping stores ahead of what it has read: blocks need the two apart. A text
// that is mapped onto itself goes character by character.
bool overlap(const sink &to, const kucursor &from, std::size_t limit)
{
    const auto target = reinterpret_cast<std::uintptr_t>(to.cursor.position_kucursor);
    const auto source = reinterpret_cast<std::uintptr_t>(from.position_kucursor);
    return target < source + limit && source < target + (to.room - to.written);
}

// One block; false when what is left, of source or target, is not worth one.
bool move_block(const kulang &lang, sink &to, lizg &from, std::int32_t option)
{
    kucursor &cursor = from.osctx_lizg;
    const std::size_t growth = option == LIZ_COPY ? 1 : lang.expansion_kulang;
    std::size_t limit = std::min(block_bytes, (to.room - to.written) / growth);
    limit = std::min(limit, cursor.size_kucursor - locale::offset(cursor));
    if (limit < least_block) return false;
    if (option != LIZ_COPY && overlap(to, cursor, limit)) return false;
    const locale::extent block = locale::measure(lang, cursor.position_kucursor, limit);
    if (block.bytes == 0) return false;

    const std::size_t written = map_block(lang, to, from, block.bytes, option);
    to.cursor.position_kucursor += written;
    to.written += static_cast<std::uint32_t>(written);
    cursor.position_kucursor += block.bytes;
    from.boffset_lizg += static_cast<std::uint32_t>(block.bytes);
    from.lcnum_lizg += static_cast<std::int32_t>(block.characters);
    return true;
}

} // namespace

void open_sink(const kulang &lang, sink &to, void *target, std::uint32_t room, std::int32_t rep)
{
    to = sink{};
    to.rep = rep;
    to.room = room;
    to.bytes = static_cast<unsigned char *>(target);
    if (rep == LIZ_MULTIBYTE)
        locale::open_exact(&to.cursor, target, room, &lang, locale::cursor_mode::write);
    if (rep == LIZ_CURSOR) to.cursor = *static_cast<const kucursor *>(target);
}

void reopen(const kulang &lang, void *target, std::size_t length)
{
    auto *cursor = static_cast<kucursor *>(target);
    const auto mode = static_cast<locale::cursor_mode>(cursor->mode_kucursor);
    locale::open_exact(cursor, cursor->start_kucursor, length, &lang, mode);
}

std::uint32_t transfer(const kulang &lang, sink &to, lizg &from, std::int32_t option)
{
    if (goes_in_blocks(lang, to, from, option))
        while (move_block(lang, to, from, option)) continue;
    bool in_word = false;
    for (;;) {
        const scan_place place = place_of(from);
        const std::uint32_t value = next(lang, from);
        if (value == 0) return LIZ_OK;
        if (!put(to, map(lang, value, option, in_word))) {
            go_back(from, place);
            return LIZ_END;
        }
    }
}

std::uint32_t finish(sink &to, std::uint32_t status)
{
    const std::uint32_t left = to.room - to.written;
    if (to.rep == LIZ_WIDE) {
        if (status == LIZ_OK && left >= sizeof(std::uint32_t))
            std::memset(to.bytes + to.written, 0, sizeof(std::uint32_t));
        return 0;
    }
    kucursor end = to.cursor;
    std::uint32_t closed = 0;
    if (to.written != 0 && left != 0) closed = locale::close_shift(end);
    if (to.rep == LIZ_MULTIBYTE && status == LIZ_OK && left > closed)
        to.cursor.start_kucursor[to.written + closed] = 0;
    return closed;
}

outcome convert(const kulang &lang, void *target, std::uint32_t room, std::int32_t trep,
                const text &source, std::int32_t option)
{
    if (locale::single_byte(lang)) {
        const byte_run from = bytes_of(source);
        if (trep == LIZ_CURSOR) target = static_cast<const kucursor *>(target)->start_kucursor;
        return copy_bytes(lang, target, room, from.bytes, from.length, option);
    }
    sink to;
    open_sink(lang, to, target, room, trep);
    if (!is_copy_option(option)) {
        if (trep == LIZ_WIDE) finish(to, LIZ_OK);
        return {LIZ_OK, 0, 0};
    }
    lizg from;
    open_scan(lang, from, source);
    const std::uint32_t status = transfer(lang, to, from, option);
    const std::uint32_t closed = finish(to, status);
    return {status, to.written, closed};
}

} // namespace ku::liz
