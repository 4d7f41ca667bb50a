// kurm.cpp - position automata: followpos of every position, and nothing more
//
// The construction of Aho, Sethi and Ullman 1986, section 3.9, over a tree that
// may be a megabyte deep: the walks below go from a node to its parent and its
// next child instead of keeping a stack.
//
// Sets that equal a child's are the child's, counted once more. The others are
// windows on shared rows (kurl.cpp): those of a position alone are windows on
// the row of all positions. A tree joins each firstpos and lastpos once, which
// that sharing makes cheap. Followpos is joined position by position: `(a|b)*c` gives
// a and b the same set twice. So kurmfpadd compares each position with the one
// before it: what it held was the same, or the end of the same row's window, or
// its result lies at the end of the last one's; only else is anything joined.
#include "kurm.h"

#include <algorithm>

#include "kuguard.h"
#include "kurn_internal.h"

namespace
{

const kurno *kurmchild(const kurno &node, std::int32_t index) { return node.ckurnop_kurno[index]; }

bool kurmisposition(const kurno &node)
{
    if (node.nodetype_kurno == KURN_RLIS || node.nodetype_kurno == KURN_TWIDDLE) return true;
    if (node.nodetype_kurno != KURN_MATCH || node.kurtep_kurno == nullptr) return false;
    const std::int32_t type = node.kurtep_kurno->type_kurte;
    return type == KURT_LITERAL || type == KURT_CLASS || type == KURT_DOT || type == KURT_NULL;
}

// ---- walks without a stack ----

// The child behind `node` among its parent's, or null.
kurno *kurmsibling(const kurno &node)
{
    const kurno &parent = *node.pkurnop_kurno;
    std::int32_t next = 1;
    while (parent.ckurnop_kurno[next - 1] != &node) next++;
    return next < parent.numchild_kurno ? parent.ckurnop_kurno[next] : nullptr;
}

// The first child that a walk goes into, or null.
kurno *kurminside(const kurno &node)
{
    return node.numchild_kurno > 0 && !kurmisposition(node) ? node.ckurnop_kurno[0] : nullptr;
}

// Calls `before` with each node ahead of its children and `after` behind them; the
// first status that is not 0 ends the walk.
template <typename Before, typename After>
std::uint32_t kurmwalk(kurno *top, Before before, After after)
{
    kurno *node = top;
    for (;;) {
        before(*node);
        if (kurno *child = kurminside(*node)) {
            node = child;
            continue;
        }
        kurno *next = nullptr;
        while (next == nullptr) {
            kurno *parent = node->pkurnop_kurno;
            kurno *sibling = node != top ? kurmsibling(*node) : nullptr;
            if (const std::uint32_t status = after(*node); status != 0) return status;
            if (node == top) return 0;
            next = sibling;
            node = sibling != nullptr ? sibling : parent;
        }
    }
}

template <typename After> std::uint32_t kurmafter(kurno *top, After after)
{
    return kurmwalk(
        top, [](kurno &) {}, after);
}

// ---- sets of nodes ----

// The set of one position: a window on the row of all, once they are numbered.
kurl *kurmsingle(kux *ctx, kurn *tree, kurno &node)
{
    kurlrow *row = kurntreeof(*tree).positions;
    const std::uint32_t slot = node.nodeid_kurno - 1;
    if (row != nullptr && slot < row->high && row->items[slot] == &node)
        return kurlwindow(ctx, {row, row->items + slot, 1});
    kurno *items[] = {&node};
    return kurlcreate(ctx, 1, items);
}

kurl *kurmset(const kurno &node, std::int32_t which)
{
    switch (which) {
    case KURM_FIRST: return node.firstkurlp_kurno;
    case KURM_LAST: return node.lastkurlp_kurno;
    default: return node.followkurlp_kurno;
    }
}

kurl *kurmshared(kux *ctx, const kurno &node, std::int32_t child, std::int32_t which)
{
    if (child < 0 || child >= node.numchild_kurno) return nullptr;
    return kurlcopy(ctx, kurmset(*kurmchild(node, child), which));
}

// Which child's set is a node's own set; or that sets are put together, or none.
struct kurmrule {
    enum { share, join, nothing } kind;
    std::int32_t from; // the child shared, or the first one joined
    std::int32_t to;   // the last one joined
};

kurmrule kurmshare(std::int32_t child) { return {kurmrule::share, child, child}; }
kurmrule kurmjoin(std::int32_t from, std::int32_t to) { return {kurmrule::join, from, to}; }
kurmrule kurmnothing() { return {kurmrule::nothing, 0, 0}; }

kurmrule kurmfirstrule(const kurno &node)
{
    const std::int32_t count = node.numchild_kurno;
    if (count == 0) return kurmnothing();
    const bool nullable = kurmchild(node, 0)->nullable_kurno != 0;
    switch (node.nodetype_kurno) {
    case KURN_BASIC: return kurmshare(count == 3 ? 1 : 0);
    case KURN_BEG: {
        const std::int32_t k = kurmchild(node, 0)->nodetype_kurno == KURN_CARET ? 1 : 0;
        return nullable && k + 1 < count ? kurmjoin(k, k + 1) : kurmshare(k);
    }
    case KURN_CLIT:
    case KURN_LITLIS:
    case KURN_PLUS:
    case KURN_RE:
    case KURN_RG:
    case KURN_STAR:
    case KURN_TAGGED: return kurmshare(0);
    case KURN_CONCAT: return count == 2 && nullable ? kurmjoin(0, 1) : kurmshare(0);
    case KURN_OR: return kurmjoin(0, count - 1);
    default: return kurmnothing();
    }
}

kurmrule kurmlastrule(const kurno &node)
{
    const std::int32_t count = node.numchild_kurno;
    if (count == 0) return kurmnothing();
    const bool nullable = kurmchild(node, count - 1)->nullable_kurno != 0;
    switch (node.nodetype_kurno) {
    case KURN_BASIC: return kurmshare(count == 3 ? 1 : 0);
    case KURN_CLIT:
    case KURN_LITLIS:
    case KURN_RE:
    case KURN_RG: return kurmshare(count - 1);
    case KURN_CONCAT: return count == 2 && nullable ? kurmjoin(0, 1) : kurmshare(count - 1);
    case KURN_OR: return kurmjoin(0, count - 1);
    case KURN_PLUS:
    case KURN_STAR:
    case KURN_TAGGED: return kurmshare(0);
    default: return kurmnothing();
    }
}

// Fills firstpos or lastpos of one node whose children have theirs.
std::uint32_t kurmfill(kux *ctx, kurn *tree, kurno &node, std::int32_t which, kurl *&field)
{
    if (kurmisposition(node)) {
        field = kurmsingle(ctx, tree, node);
        return field != nullptr ? 0 : ku::failure(ctx);
    }
    const kurmrule rule = which == KURM_FIRST ? kurmfirstrule(node) : kurmlastrule(node);
    if (rule.kind == kurmrule::share) field = kurmshared(ctx, node, rule.from, which);
    if (rule.kind != kurmrule::join) return 0;
    field = kurmconcat(ctx, tree, &node, rule.from, rule.to, which);
    return field != nullptr ? 0 : ku::failure(ctx);
}

// What the last position of a kurmfpadd held and holds.
struct kurmjoined {
    kurlspan held;
    kurlspan holds;

    // `span` ends where what was held ended, and was appended to: so it ends as what is held now.
    bool carries(const kurlspan &span, const kurlspan &added) const
    {
        return span.row != nullptr && span.row == held.row && span.end() == held.end()
               && span.count <= held.count && holds.count == held.count + added.count
               && held.end()[-1]->nodeid_kurno < added.items[0]->nodeid_kurno;
    }
    // What is held now ends with `span` and then `added`.
    bool endswith(const kurlspan &span, const kurlspan &added) const
    {
        const std::uint64_t count = std::uint64_t{span.count} + added.count;
        if (holds.row == nullptr || holds.count < count || span.count == 0) return false;
        kurno **at = holds.end() - count;
        return std::equal(span.items, span.end(), at)
               && std::equal(added.items, added.end(), at + span.count)
               && span.end()[-1]->nodeid_kurno < added.items[0]->nodeid_kurno;
    }
    kurlspan tail(std::uint32_t count) const { return {holds.row, holds.end() - count, count}; }
};

std::uint32_t kurmjoinone(kux *ctx, kurl &set, const kurlspan &added, kurmjoined &last)
{
    const kurlspan held = kurlview(set);
    kurlspan holds;
    if (held.row != nullptr && held == last.held)
        holds = last.holds;
    else if (last.carries(held, added) || last.endswith(held, added))
        holds = last.tail(held.count + added.count);
    else if (!kurlunite(ctx, held, added, holds))
        return ku::failure(ctx);
    kurlassign(ctx, set, holds);
    last = {held, holds};
    return 0;
}

// The positions whose followpos a node adds to, and what it adds.
struct kurmaddition {
    kurl *to = nullptr;
    kurl *what = nullptr;
};

kurmaddition kurmadded(const kurno &node)
{
    const std::int32_t count = node.numchild_kurno;
    switch (node.nodetype_kurno) {
    case KURN_BEG:
        for (std::int32_t i = 0; i < count; i++)
            if (kurmchild(node, i)->nodetype_kurno == KURN_CONCAT)
                return {kurmchild(node, i)->lastkurlp_kurno,
                        kurmchild(node, count - 1)->firstkurlp_kurno};
        return {};
    case KURN_CONCAT:
    case KURN_LITLIS:
        if (count != 2) return {};
        return {kurmchild(node, 0)->lastkurlp_kurno, kurmchild(node, 1)->firstkurlp_kurno};
    case KURN_PLUS:
    case KURN_STAR: return {node.lastkurlp_kurno, node.firstkurlp_kurno};
    default: return {};
    }
}

bool kurmiscounted(const kurno &node)
{
    return node.nodetype_kurno != KURN_CARET && node.nodetype_kurno != KURN_DOLLAR;
}

bool kurmisnullable(kux *ctx, kurn *tree, kurno &node)
{
    switch (node.nodetype_kurno) {
    case KURN_BASIC:
    case KURN_OR: return kurmor(ctx, tree, &node) != 0;
    case KURN_BEG:
    case KURN_CONCAT:
    case KURN_RE: return kurmand(ctx, tree, &node) != 0;
    case KURN_PLUS:
    case KURN_TAGGED: return kurmchild(node, 0)->nullable_kurno != 0;
    case KURN_STAR: return true;
    default: return false;
    }
}

// The row of all positions, by number.
std::uint32_t kurmcollect(kux *ctx, kurn *tree, kurno *top, std::uint32_t count)
{
    kurntree &whole = kurntreeof(*tree);
    kurlrowrelease(ctx, whole.positions);
    whole.positions = kurlrowcreate(ctx, count, 0);
    if (whole.positions == nullptr) return ku::failure(ctx);
    kurlrow &row = *whole.positions;
    return kurmafter(top, [&row](kurno &node) -> std::uint32_t {
        if (node.nodeid_kurno != 0) row.items[row.high++] = &node;
        return 0;
    });
}

std::uint32_t kurmbuild(kux *ctx, kurn *tree)
{
    kurno *root = tree->rtkurnop_kurn;
    std::uint32_t position = 1;
    tree->tag_kurn = 0;
    std::uint32_t status = kurmprep(ctx, tree, root, &position, &tree->tag_kurn);
    if (status == 0) status = kurmcollect(ctx, tree, root, position - 1);
    if (status == 0) status = kurmnullable(ctx, tree, root);
    if (status == 0) status = kurmfirstpos(ctx, tree, root);
    if (status == 0) status = kurmlastpos(ctx, tree, root);
    if (status == 0) status = kurmfollowpos(ctx, tree, root);
    return status == 0 ? kurmaccepting(ctx, tree, root) : status;
}

} // namespace

std::uint32_t kurmcreate(kux *ctx, kurn *tree)
{
    const std::uint32_t status = kurmbuild(ctx, tree);
    if (status != 0) kurmdestroy(ctx, tree, tree->rtkurnop_kurn);
    return status;
}

std::uint32_t kurmdestroy(kux *ctx, kurn *, kurno *node)
{
    if (node != nullptr)
        kurmafter(node, [ctx](kurno &each) -> std::uint32_t {
            each.firstkurlp_kurno = kurldestroy(ctx, each.firstkurlp_kurno);
            each.lastkurlp_kurno = kurldestroy(ctx, each.lastkurlp_kurno);
            each.followkurlp_kurno = kurldestroy(ctx, each.followkurlp_kurno);
            return 0;
        });
    return kuxercode(ctx);
}

std::uint32_t kurmprep(kux *, kurn *, kurno *node, std::uint32_t *position, std::uint32_t *tag)
{
    const auto number = [position, tag](kurno &each) {
        const kurno *parent = each.pkurnop_kurno;
        if (each.nodetype_kurno == KURN_TAGGED)
            each.tag_kurno = ++*tag;
        else
            each.tag_kurno = parent != nullptr ? parent->tag_kurno : 0;
        if (kurmisposition(each)) each.nodeid_kurno = (*position)++;
    };
    return kurmwalk(node, number, [](kurno &) -> std::uint32_t { return 0; });
}

std::int32_t kurmlogleaf(kux *, kurn *, kurno *node) { return kurmisposition(*node) ? 1 : 0; }

std::uint32_t kurmnullable(kux *ctx, kurn *tree, kurno *node)
{
    return kurmafter(node, [ctx, tree](kurno &each) -> std::uint32_t {
        each.nullable_kurno = kurmisnullable(ctx, tree, each) ? 1 : 0;
        return 0;
    });
}

std::uint32_t kurmfirstpos(kux *ctx, kurn *tree, kurno *node)
{
    return kurmafter(node, [ctx, tree](kurno &each) {
        return kurmfill(ctx, tree, each, KURM_FIRST, each.firstkurlp_kurno);
    });
}

std::uint32_t kurmlastpos(kux *ctx, kurn *tree, kurno *node)
{
    return kurmafter(node, [ctx, tree](kurno &each) {
        return kurmfill(ctx, tree, each, KURM_LAST, each.lastkurlp_kurno);
    });
}

// A position's set must be there before any node adds to it, and those are above it.
std::uint32_t kurmfollowpos(kux *ctx, kurn *tree, kurno *node)
{
    return kurmafter(node, [ctx, tree](kurno &each) -> std::uint32_t {
        if (kurmisposition(each)) {
            each.followkurlp_kurno = kurlwindow(ctx, {});
            return each.followkurlp_kurno != nullptr ? 0 : ku::failure(ctx);
        }
        const kurmaddition addition = kurmadded(each);
        return kurmfpadd(ctx, tree, addition.to, addition.what);
    });
}

std::uint32_t kurmaccepting(kux *ctx, kurn *tree, kurno *node)
{
    return kurmafter(node, [ctx, tree](kurno &each) -> std::uint32_t {
        if (kurmisposition(each))
            each.accepting_kurno = kurmcnull(ctx, tree, each.followkurlp_kurno);
        return 0;
    });
}

std::int32_t kurmor(kux *, kurn *, kurno *node)
{
    for (std::int32_t i = 0; i < node->numchild_kurno; i++)
        if (kurmiscounted(*kurmchild(*node, i)) && kurmchild(*node, i)->nullable_kurno != 0)
            return 1;
    return 0;
}

std::int32_t kurmand(kux *, kurn *, kurno *node)
{
    for (std::int32_t i = 0; i < node->numchild_kurno; i++)
        if (kurmiscounted(*kurmchild(*node, i)) && kurmchild(*node, i)->nullable_kurno == 0)
            return 0;
    return 1;
}

kurl *kurmconcat(kux *ctx, kurn *, kurno *node, std::int32_t first, std::int32_t last,
                 std::int32_t which)
{
    kurlspan joined;
    for (std::int32_t i = std::max(first, 0); i <= last && i < node->numchild_kurno; i++) {
        const kurl *set = kurmset(*kurmchild(*node, i), which);
        const kurlspan added = set != nullptr ? kurlview(*set) : kurlspan();
        if (added.count == 0) continue;
        const kurlspan before = joined;
        if (!kurlappend(ctx, before, added, joined)) {
            kurldrop(ctx, before);
            return nullptr;
        }
        if (before.row != joined.row) kurldrop(ctx, before);
    }
    kurl *set = kurlwindow(ctx, joined);
    if (set == nullptr) kurldrop(ctx, joined);
    return set;
}

std::uint32_t kurmfpadd(kux *ctx, kurn *, kurl *a, kurl *b)
{
    if (a == nullptr || b == nullptr) return 0;
    const kurlspan positions = kurlview(*a);
    const kurlspan added = kurlview(*b);
    if (added.count == 0) return 0;
    kurmjoined last;
    for (std::uint32_t i = 0; i < positions.count; i++) {
        kurl *follow = positions.items[i]->followkurlp_kurno;
        if (follow == nullptr || follow == b) continue;
        const std::uint32_t status = kurmjoinone(ctx, *follow, added, last);
        if (status != 0) return status;
    }
    return 0;
}

std::int32_t kurmcnull(kux *ctx, kurn *tree, kurl *set)
{
    std::int32_t index = 0;
    if (set == nullptr || set->nfalist_kurl == nullptr || tree->nullkurnop_kurn == nullptr)
        return 0;
    return kulpsearch(ctx, set->nfalist_kurl, tree->nullkurnop_kurn, kurlcomp, nullptr, 0, &index);
}
