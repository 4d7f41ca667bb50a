// kurl_internal.h - position sets that share their items, as the construction makes them
#ifndef KURL_INTERNAL_H
#define KURL_INTERNAL_H

#include "kul.h"
#include "kurl.h"

// A row of positions that sets look at through windows. What lies in a window never
// changes; the row grows at either end of what is filled, into the room that it has.
struct kurlrow {
    std::int32_t holders;
    std::uint32_t room; // slots
    std::uint32_t low;  // first slot filled
    std::uint32_t high; // behind the last one
    kurno *items[1];
};

// A set as allocated. Its list is either one of its own, made by kulpcreate, or
// the window below: a locked list over slots of a row.
struct kurlset {
    kurl open;
    kul window;
    kurlrow *row; // of the window; null when it is empty
};

// A window's place, without holding it.
struct kurlspan {
    kurlrow *row = nullptr;
    kurno **items = nullptr;
    std::uint32_t count = 0;

    kurno **end() const { return items + count; }
    bool operator==(const kurlspan &other) const = default;
    bool covers(const kurlspan &other) const // as windows on one row
    {
        return row != nullptr && row == other.row && items <= other.items && other.end() <= end();
    }
};

// What a set holds, whatever its list. The row is null for a list of its own.
kurlspan kurlview(const kurl &set);

kurlrow *kurlrowcreate(kux *ctx, std::uint32_t room, std::uint32_t low); // with one holder, or null
void kurlrowrelease(kux *ctx, kurlrow *row);                             // null is ignored

// A new set over a window, with one holder; or null, code pushed.
kurl *kurlwindow(kux *ctx, const kurlspan &span);

// Makes the set a window on `span`, instead of what it holds. Cannot fail.
void kurlassign(kux *ctx, kurl &set, const kurlspan &span);

// Finds or makes a window that holds the items of a and then those of b; of their
// sorted union. False without memory, code pushed. The row has no holder yet when
// it is new: what is not assigned to a set must be dropped with kurldrop.
bool kurlappend(kux *ctx, const kurlspan &a, const kurlspan &b, kurlspan &joined);
bool kurlunite(kux *ctx, const kurlspan &a, const kurlspan &b, kurlspan &joined);
void kurldrop(kux *ctx, const kurlspan &span);

#endif
