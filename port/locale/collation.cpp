// collation.cpp - order of texts as data, by the C library's locales
//
// A locale is opened when a context first asks for it and then kept while the
// process runs: the list only grows, by one atomic exchange at its head, and what
// is in it never changes. Two threads may open the same one; that costs memory once.
//
// The C library orders texts that end in a NUL. Ours have lengths and may hold
// NULs, so they are copied in pieces: a piece ends at a NUL, before the character
// that would pass its size, or with the text. Texts are ordered by their first
// pieces, then by how these end, then by the next ones. Where a text is cut depends
// on nothing but itself, so this is an order.
#include <langinfo.h>
#include <locale.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "charset_internal.h"
#include "port/locale/locale.h"

namespace ku::locale
{

namespace
{

constexpr std::size_t collation_piece = 2000; // bytes
constexpr std::size_t collation_name = 64;    // bytes of the longest name with its NUL

struct collation {
    char name[collation_name];
    locale_t order;
    const kucharset *set;
    const collation *next;
};

std::atomic<const collation *> opened = nullptr;

// Orders by character value, which needs no locale.
bool by_value(const char *name)
{
    return std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0
           || std::strncmp(name, "C.", 2) == 0;
}

const collation *open_collation(const char *name)
{
    const locale_t order = newlocale(LC_COLLATE_MASK | LC_CTYPE_MASK, name, nullptr);
    if (order == nullptr) return nullptr;
    auto *made = static_cast<collation *>(std::malloc(sizeof(collation)));
    if (made == nullptr) {
        freelocale(order);
        return nullptr;
    }
    *made = {{}, order, &find_charset(nl_langinfo_l(CODESET, order)), opened.load()};
    std::strcpy(made->name, name);
    while (!opened.compare_exchange_weak(made->next, made)) {
    }
    return made;
}

enum class ending : std::uint8_t { text, nul, more }; // in the order in which they count

struct piece {
    char bytes[collation_piece + 1];
    ending end;
};

// Takes the next piece off a text.
void cut_piece(const kulang &lang, const byte *&at, std::size_t &left, piece *into)
{
    const std::size_t limit = left < collation_piece ? left : collation_piece;
    std::size_t size = measure(lang, at, limit).bytes;
    // The beginning of a character, with nothing behind it, is bytes of the text, too.
    if (size < limit && limit == left && std::memchr(at + size, 0, left - size) == nullptr) {
        size = left;
    }
    std::memcpy(into->bytes, at, size);
    into->bytes[size] = 0;
    at += size;
    left -= size;
    into->end = left == 0 ? ending::text : (*at == 0 ? ending::nul : ending::more);
    if (into->end == ending::nul) {
        at++;
        left--;
    }
}

} // namespace

const void *find_collation(const char *name, const kucharset &set)
{
    if (by_value(name) || std::strlen(name) >= collation_name) return nullptr;
    const collation *found = opened.load();
    while (found != nullptr && std::strcmp(found->name, name) != 0) found = found->next;
    if (found == nullptr) found = open_collation(name);
    return found != nullptr && found->set == &set ? found : nullptr;
}

int collate(const kulang &lang, const void *a, std::size_t an, const void *b, std::size_t bn)
{
    if (lang.collation_kulang == nullptr) return compare_text(lang, a, an, b, bn);
    if (an == bn && std::memcmp(a, b, an) == 0) return 0;
    const auto *order = static_cast<const collation *>(lang.collation_kulang);
    const auto *left = static_cast<const byte *>(a), *right = static_cast<const byte *>(b);
    for (;;) {
        piece first, second;
        cut_piece(lang, left, an, &first);
        cut_piece(lang, right, bn, &second);
        const int found = strcoll_l(first.bytes, second.bytes, order->order);
        if (found != 0) return found < 0 ? -1 : 1;
        if (first.end != second.end) return first.end < second.end ? -1 : 1;
        if (first.end == ending::text) return 0;
    }
}

} // namespace ku::locale
