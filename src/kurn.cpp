// kurn.cpp - pattern trees: a predictive parser whose stack is the tree
//
// The grammar is written with alternatives to try in order, but one look tells
// them apart: each basic begins with a token of its own, and whether an `re` is
// an or, a star, a plus or a basic is told by the one or two tokens behind its
// first basic. Where a basic ends is found for the whole table beforehand, in one
// pass from the right: a bracket ends at its partner, a literal with its run.
// (Where partners do not match, neither does the grammar, and any answer will do.)
// So nothing is parsed twice, and a production that fails once its first token
// has been seen fails for good: no other alternative begins with that token.
//
// A node knows its type, its parent and its children so far, and that is all
// there is to know about a production half done. So the parser keeps no stack: it
// advances one node by a child or a token, goes down into a new child and up from
// a finished one, however deep the tree.
//
// Nodes come from pools of 128 in the order in which they are made, parents before
// children; giving back is setting the position back.
#include "kurn.h"

#include <algorithm>
#include <cstring>

#include "kuguard.h"
#include "kurn_internal.h"

namespace
{

constexpr std::int32_t kurn_end = -1;           // type of the token behind the last
constexpr std::uint32_t kurn_open = UINT32_MAX; // no closing token behind

// Where the tokens and the pools stand.
struct kurnplace {
    std::int32_t token;
    std::int32_t pool;
    std::int32_t avail;
};

std::int32_t kurntype(const kurn &tree, std::uint32_t index)
{
    const kurt &table = *tree.kurtp_kurn;
    return index < table.numkurte_kurt ? table.tokens_kurt[index].type_kurte : kurn_end;
}

std::uint32_t kurnindex(const kurn &tree) { return static_cast<std::uint32_t>(tree.curtkni_kurn); }
std::int32_t kurncurrent(const kurn &tree) { return kurntype(tree, kurnindex(tree)); }

void kurnseek(kurn &tree, std::int32_t index)
{
    tree.curtkni_kurn = index;
    kurt &table = *tree.kurtp_kurn;
    const bool inside = kurnindex(tree) < table.numkurte_kurt;
    tree.curtknp_kurn = inside ? &table.tokens_kurt[index] : nullptr;
}

bool kurnisliteral(std::int32_t type) { return type == KURT_LITERAL || type == KURT_CLASS; }

bool kurnbeginsbasic(std::int32_t type)
{
    return kurnisliteral(type) || type == KURT_LPAREN || type == KURT_LTAG || type == KURT_LBRACK
           || type == KURT_DOT;
}

// ---- where basics end ----

// Closing parentheses and right tags wait in a chain through their own slots of
// `behind`, the nearest first. A pass over the tokens from right to left.
void kurnfindends(kurntree &tree)
{
    const kurt &table = *tree.open.kurtp_kurn;
    std::uint32_t *behind = tree.behind;
    std::uint32_t closing = kurn_open;
    std::uint32_t bracket = table.numkurte_kurt; // nearest right bracket
    for (std::uint32_t i = table.numkurte_kurt; i-- > 0;) {
        switch (table.tokens_kurt[i].type_kurte) {
        case KURT_RPAREN:
        case KURT_RTAG:
            behind[i] = closing;
            closing = i;
            break;
        case KURT_LPAREN:
        case KURT_LTAG:
            behind[i] = closing == kurn_open ? table.numkurte_kurt : closing + 1;
            if (closing != kurn_open) closing = behind[closing];
            break;
        case KURT_RBRACK: bracket = i; break;
        case KURT_LBRACK: behind[i] = bracket + 1; break;
        case KURT_CLASS:
        case KURT_LITERAL:
            behind[i] = kurnisliteral(kurntype(tree.open, i + 1)) ? behind[i + 1] : i + 1;
            break;
        default: behind[i] = i + 1; break;
        }
    }
}

// Type of the node that the tokens at the current one make below an `re`, or, when
// `left` is set, of the left side of an or.
std::int32_t kurnpredict(kurn &tree, bool left)
{
    if (!kurnbeginsbasic(kurncurrent(tree))) return KURN_BASIC; // which will fail
    const std::uint32_t end = kurntreeof(tree).behind[kurnindex(tree)];
    const std::int32_t repeat = kurntype(tree, end);
    const bool repeated = repeat == KURT_STAR || repeat == KURT_PLUS;
    if (!left && kurntype(tree, repeated ? end + 1 : end) == KURT_VBAR) return KURN_OR;
    return repeat == KURT_STAR ? KURN_STAR : repeat == KURT_PLUS ? KURN_PLUS : KURN_BASIC;
}

// ---- pools ----

bool kurngrowpools(kux *ctx, kurn &tree)
{
    const std::uint64_t bytes =
        std::uint64_t{2} * static_cast<std::uint32_t>(tree.numberpool_kurn) * sizeof(kurno *);
    if (bytes > INT32_MAX) return false;
    void *grown = ctx->kuxnmrealloc(ctx, tree.plkurnopp_kurn, static_cast<std::uint32_t>(bytes));
    if (grown == nullptr) return false;
    tree.plkurnopp_kurn = static_cast<kurno **>(grown);
    std::fill_n(tree.plkurnopp_kurn + tree.numberpool_kurn, tree.numberpool_kurn, nullptr);
    tree.numberpool_kurn *= 2;
    return true;
}

kurno *kurnnewpool(kux *ctx)
{
    return static_cast<kurno *>(ku::allocate(ctx, KURN_POOL, sizeof(kurno)));
}

// Makes the next pool the one that is filled; it may be there from an earlier parse.
bool kurnnextpool(kux *ctx, kurn &tree)
{
    if (tree.activepool_kurn == tree.numberpool_kurn - 1 && !kurngrowpools(ctx, tree)) return false;
    kurno *&pool = tree.plkurnopp_kurn[tree.activepool_kurn + 1];
    if (pool == nullptr) pool = kurnnewpool(ctx);
    if (pool == nullptr) return false;
    tree.activepool_kurn++;
    tree.activeavail_kurn = 0;
    return true;
}

// ---- the parser ----

enum class kurnoutcome : std::uint8_t { descend, finished, failed };

struct kurnstep {
    kux *ctx;
    kurn &tree;
    kurno *child = nullptr; // made last: to be parsed next

    bool at(std::int32_t type) const { return kurncurrent(tree) == type; }
    bool atliteral() const { return kurnisliteral(kurncurrent(tree)); }

    bool match(kurno &node, std::int32_t type) const
    {
        return kurnomatch(ctx, &tree, &node, type) != nullptr;
    }
    kurnoutcome last(kurno &node, std::int32_t type) const // the token that ends a production
    {
        return match(node, type) ? kurnoutcome::finished : kurnoutcome::failed;
    }
    kurnoutcome below(kurno &node, std::int32_t type)
    {
        child = kurnozget(ctx, &tree, type, &node);
        return child != nullptr ? kurnoutcome::descend : kurnoutcome::failed;
    }
    kurnoutcome behind(kurno &node, std::int32_t token, std::int32_t type)
    {
        return match(node, token) ? below(node, type) : kurnoutcome::failed;
    }
    // X and then, where more of the kind follows, the list of it: `x list | x`.
    kurnoutcome list(kurno &node, std::int32_t type, bool more)
    {
        if (node.numchild_kurno == 0) return below(node, type);
        const bool whole = node.numchild_kurno == 2 || !more;
        return whole ? kurnoutcome::finished : below(node, node.nodetype_kurno);
    }

    kurnoutcome beg(kurno &node);
    kurnoutcome either(kurno &node);
    kurnoutcome basic(kurno &node);
    kurnoutcome range(kurno &node);
    kurnoutcome advance(kurno &node);
};

kurnoutcome kurnstep::beg(kurno &node)
{
    const std::int32_t count = node.numchild_kurno;
    const std::int32_t before =
        count == 0 ? KURN_BEG : node.ckurnop_kurno[count - 1]->nodetype_kurno;
    if (before == KURN_BEG && at(KURT_CARET)) return below(node, KURN_CARET);
    if (before == KURN_BEG || before == KURN_CARET) return below(node, KURN_CONCAT);
    if (before == KURN_CONCAT && at(KURT_DOLLAR)) return below(node, KURN_DOLLAR);
    return last(node, KURT_NULL);
}

kurnoutcome kurnstep::either(kurno &node)
{
    switch (node.numchild_kurno) {
    case 0: return below(node, kurnpredict(tree, true));
    case 1: return behind(node, KURT_VBAR, KURN_RE);
    default: return kurnoutcome::finished;
    }
}

kurnoutcome kurnstep::basic(kurno &node)
{
    static constexpr struct {
        std::int32_t opening;
        std::int32_t inside;
        std::int32_t closing;
    } pairs[] = {
        {KURT_LTAG, KURN_TAGGED, KURT_RTAG},
        {KURT_LPAREN, KURN_CONCAT, KURT_RPAREN},
        {KURT_LBRACK, KURN_RLIS, KURT_RBRACK},
    };
    if (node.numchild_kurno == 1) return kurnoutcome::finished; // the literals
    if (node.numchild_kurno == 0 && atliteral()) return below(node, KURN_LITLIS);
    if (node.numchild_kurno == 0 && at(KURT_DOT)) return last(node, KURT_DOT);
    for (const auto &pair : pairs) {
        if (node.numchild_kurno == 2) {
            if (node.ckurnop_kurno[0]->kurtep_kurno->type_kurte == pair.opening)
                return last(node, pair.closing);
        } else if (match(node, pair.opening)) {
            const bool negated = pair.opening == KURT_LBRACK && at(KURT_TWIDDLE);
            return below(node, negated ? KURN_TWIDDLE : pair.inside);
        }
    }
    return kurnoutcome::failed;
}

kurnoutcome kurnstep::range(kurno &node)
{
    if (node.numchild_kurno == 0) return below(node, KURN_CLIT);
    if (node.numchild_kurno == 1 && at(KURT_DASH)) return behind(node, KURT_DASH, KURN_CLIT);
    return kurnoutcome::finished;
}

// The next child of a node that has some of its children.
kurnoutcome kurnstep::advance(kurno &node)
{
    const bool fresh = node.numchild_kurno == 0;
    switch (node.nodetype_kurno) {
    case KURN_BEG: return beg(node);
    case KURN_CARET: return last(node, KURT_CARET);
    case KURN_DOLLAR: return last(node, KURT_DOLLAR);
    case KURN_CONCAT: return list(node, KURN_RE, kurnbeginsbasic(kurncurrent(tree)));
    case KURN_RE: return fresh ? below(node, kurnpredict(tree, false)) : kurnoutcome::finished;
    case KURN_OR: return either(node);
    case KURN_STAR: return fresh ? below(node, KURN_BASIC) : last(node, KURT_STAR);
    case KURN_PLUS: return fresh ? below(node, KURN_BASIC) : last(node, KURT_PLUS);
    case KURN_BASIC: return basic(node);
    case KURN_TAGGED: return fresh ? below(node, KURN_CONCAT) : kurnoutcome::finished;
    case KURN_TWIDDLE: return fresh ? behind(node, KURT_TWIDDLE, KURN_RLIS) : kurnoutcome::finished;
    case KURN_RLIS: return list(node, KURN_RG, atliteral());
    case KURN_RG: return range(node);
    case KURN_LITLIS: return list(node, KURN_CLIT, atliteral());
    case KURN_CLIT: return last(node, at(KURT_CLASS) ? KURT_CLASS : KURT_LITERAL);
    default: return kurnoutcome::failed;
    }
}

bool kurnparsebelow(kux *ctx, kurn &tree, kurno &top)
{
    kurnstep step = {ctx, tree};
    kurno *node = &top;
    for (;;) {
        switch (step.advance(*node)) {
        case kurnoutcome::descend: node = step.child; break;
        case kurnoutcome::finished:
            if (node == &top) return true;
            node = node->pkurnop_kurno;
            break;
        case kurnoutcome::failed: return false;
        }
    }
}

// A whole production; on failure all is as it was.
kurno *kurnparse(kux *ctx, kurn *tree, kurno *parent, std::int32_t nodetype)
{
    if (kuxercode(ctx) != 0) return nullptr;
    const kurnplace place = {tree->curtkni_kurn, tree->activepool_kurn, tree->activeavail_kurn};
    kurno *node = kurnozget(ctx, tree, nodetype, parent);
    if (node == nullptr || kurnparsebelow(ctx, *tree, *node)) return node;
    kurnozunwind(ctx, tree, node, place.pool, place.avail);
    kurnseek(*tree, place.token);
    return nullptr;
}

// A production that is optional: absent where its token is.
kurno *kurnoptional(kux *ctx, kurn *tree, kurno *parent, std::int32_t nodetype, std::int32_t token)
{
    if (kurncurrent(*tree) == token) return kurnparse(ctx, tree, parent, nodetype);
    return kuxercode(ctx) == 0 && kurncurrent(*tree) != kurn_end ? &tree->truekurno_kurn : nullptr;
}

bool kurnprepare(kux *ctx, kurntree &tree, kurt *table)
{
    tree.open.kurtp_kurn = table;
    tree.behind = static_cast<std::uint32_t *>(
        ku::allocate(ctx, table->numkurte_kurt, sizeof(std::uint32_t)));
    tree.open.plkurnopp_kurn =
        static_cast<kurno **>(ku::allocate(ctx, KURN_POOLS, sizeof(kurno *)));
    if (tree.behind == nullptr || tree.open.plkurnopp_kurn == nullptr) return false;
    tree.open.numberpool_kurn = KURN_POOLS;
    tree.open.plkurnopp_kurn[0] = kurnnewpool(ctx);
    if (tree.open.plkurnopp_kurn[0] == nullptr) return false;
    kurnfindends(tree);
    return true;
}

} // namespace

kurn *kurncreate(kux *ctx, kurx *, kurt *table)
{
    auto *tree = ku::allocate<kurntree>(ctx);
    if (tree == nullptr || !kurnprepare(ctx, *tree, table)) {
        ku::failure(ctx);
        return tree != nullptr ? kurndestroy(ctx, &tree->open) : nullptr;
    }
    if (kurnocreate(ctx, &tree->open) == nullptr) return kurndestroy(ctx, &tree->open);
    return &tree->open;
}

kurn *kurndestroy(kux *ctx, kurn *tree)
{
    if (tree == nullptr) return nullptr;
    kurno **pools = tree->plkurnopp_kurn;
    for (std::int32_t i = 0; i < tree->numberpool_kurn && pools[i] != nullptr; i++)
        ctx->kuxnmfree(ctx, pools[i]);
    if (pools != nullptr) ctx->kuxnmfree(ctx, pools);
    kurntree &whole = kurntreeof(*tree);
    if (whole.behind != nullptr) ctx->kuxnmfree(ctx, whole.behind);
    kurlrowrelease(ctx, whole.positions);
    ctx->kuxnmfree(ctx, tree);
    return nullptr;
}

kurno *kurnocreate(kux *ctx, kurn *tree)
{
    kurnseek(*tree, 0);
    kurno *root = kurnobeg(ctx, tree, nullptr);
    if (root == nullptr) return nullptr;
    tree->rtkurnop_kurn = root;
    tree->nullkurnop_kurn = root->ckurnop_kurno[root->numchild_kurno - 1];
    return root;
}

kurno *kurnomatch(kux *ctx, kurn *tree, kurno *parent, std::int32_t type)
{
    if (type == kurn_end || kurncurrent(*tree) != type) return nullptr;
    kurno *node = kurnozget(ctx, tree, KURN_MATCH, parent);
    if (node != nullptr) kurnseek(*tree, tree->curtkni_kurn + 1);
    return node;
}

kurno *kurnozget(kux *ctx, kurn *tree, std::int32_t nodetype, kurno *parent)
{
    if (parent != nullptr && parent->numchild_kurno >= KURN_CHILDREN) return nullptr;
    if (tree->activeavail_kurn == KURN_POOL && !kurnnextpool(ctx, *tree)) {
        ku::failure(ctx);
        return nullptr;
    }
    kurno *node = &tree->plkurnopp_kurn[tree->activepool_kurn][tree->activeavail_kurn++];
    *node = {};
    node->nodetype_kurno = nodetype;
    node->pkurnop_kurno = parent;
    if (nodetype == KURN_MATCH) node->kurtep_kurno = tree->curtknp_kurn;
    if (parent != nullptr) parent->ckurnop_kurno[parent->numchild_kurno++] = node;
    return node;
}

void kurnozunwind(kux *, kurn *tree, kurno *node, std::int32_t pool, std::int32_t avail)
{
    kurno *parent = node->pkurnop_kurno;
    if (parent != nullptr) parent->ckurnop_kurno[--parent->numchild_kurno] = nullptr;
    tree->activepool_kurn = pool;
    tree->activeavail_kurn = avail;
}

kurno *kurnobeg(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_BEG);
}

kurno *kurnocaret(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnoptional(ctx, tree, parent, KURN_CARET, KURT_CARET);
}

kurno *kurnodollar(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnoptional(ctx, tree, parent, KURN_DOLLAR, KURT_DOLLAR);
}

kurno *kurnoconcat(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_CONCAT);
}

kurno *kurnore(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_RE);
}

kurno *kurnostar(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_STAR);
}

kurno *kurnotwiddle(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_TWIDDLE);
}

kurno *kurnoplus(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_PLUS);
}

kurno *kurnobasic(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_BASIC);
}

kurno *kurnotagged(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_TAGGED);
}

kurno *kurnoor(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_OR);
}

kurno *kurnorlis(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_RLIS);
}

kurno *kurnolitlis(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_LITLIS);
}

kurno *kurnorg(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_RG);
}

kurno *kurnoclit(kux *ctx, kurn *tree, kurno *parent)
{
    return kurnparse(ctx, tree, parent, KURN_CLIT);
}
