// kuka.cpp - dialects: a token callback between the lexer and the caller's
//
//     lexer --> kukacbss or kukacbdb2 --> the caller's callback
//               maps the type             answers with the action
//
// A dialect is data: the words that its server reserves, and the words that
// get a type of their own. Native reserved words that are not among the former
// become plain words. The lexer stores the mapped type, whatever the caller's
// callback writes. The operators *= and =* need no mapping: they are client
// tokens, appended to a copy of the caller's.
#include "kuka.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <string_view>

#include "kuguard.h"
#include "kul.h"
#include "port/locale/locale.h"

constexpr const char *const kukakwss[KUKAKWSS_COUNT] = {
    "add",         "all",         "alter",        "and",        "any",       "as",
    "asc",         "avg",         "begin",        "between",    "break",     "browse",
    "bulk",        "by",          "checkpoint",   "clustered",  "commit",    "compute",
    "confirm",     "continue",    "controlrow",   "convert",    "count",     "create",
    "database",    "dbcc",        "debug",        "declare",    "default",   "delete",
    "desc",        "disk",        "distinct",     "drop",       "dummy",     "dump",
    "else",        "end",         "errlvl",       "errorexit",  "except",    "exec",
    "execute",     "exists",      "exit",         "fillfactor", "for",       "from",
    "getdefault",  "goto",        "grant",        "group",      "having",    "holdlock",
    "if",          "in",          "index",        "insert",     "intersect", "into",
    "is",          "kill",        "like",         "lineno",     "load",      "max",
    "min",         "mirrorexit",  "nonclustered", "not",        "null",      "off",
    "offsets",     "on",          "once",         "or",         "order",     "over",
    "perm",        "permanent",   "plan",         "prepare",    "print",     "proc",
    "procedure",   "processexit", "public",       "raiserror",  "readtext",  "reconfigure",
    "return",      "revoke",      "rollback",     "rowcount",   "rule",      "save",
    "select",      "set",         "setuser",      "statistics", "sum",       "table",
    "tape",        "temp",        "temporary",    "textsize",   "to",        "tran",
    "transaction", "trigger",     "truncate",     "tsequal",    "union",     "unique",
    "update",      "use",         "values",       "view",       "waitfor",   "where",
    "while",       "with",        "writetext",
};

constexpr const char *const kukakwdb2[KUKAKWDB2_COUNT] = {
    "add",        "all",      "alter",      "and",       "any",        "as",         "asc",
    "audit",      "between",  "bufferpool", "by",        "cluster",    "collection", "column",
    "concat",     "count",    "current",    "cursor",    "database",   "delete",     "desc",
    "descriptor", "distinct", "drop",       "editproc",  "end-exec",   "erase",      "escape",
    "except",     "execute",  "exists",     "fieldproc", "for",        "from",       "go",
    "grant",      "group",    "having",     "immediate", "in",         "index",      "insert",
    "into",       "is",       "key",        "like",      "locksize",   "not",        "null",
    "numparts",   "obid",     "of",         "on",        "optimize",   "or",         "order",
    "package",    "part",     "plan",       "priqty",    "privileges", "program",    "secqty",
    "select",     "set",      "some",       "stogroup",  "synonym",    "table",      "tablespace",
    "to",         "union",    "update",     "user",      "using",      "validproc",  "values",
    "vcat",       "view",     "volumes",    "where",     "with",
};

constexpr kukptb kukaid2kw[KUKAID2KW_COUNT] = {
    {"browse", KUKA_T_BROWSE, 6},
    {"holdlock", KUKA_T_HOLDLOCK, 8},
};

namespace
{

// ---- mapping types ----

// Native types that are narrowed: the reserved words lie inside.
constexpr std::uint32_t kuka_firstreserved = 1;
constexpr std::uint32_t kuka_lastreserved = 112;

// A lexer type under which the words of a table get their own types. Known in
// single-byte languages only.
struct kukaspecial {
    std::uint32_t type;
    const kukptb *words;
    std::size_t count;
};

struct kukadialect {
    const char *const *reserved; // ascending
    std::size_t nreserved;
    const kukaspecial *specials;
    std::size_t nspecials;
    std::uint32_t spare; // bytes that the copy of a word has more than the word
};

constexpr kukaspecial kukaspecialsss[] = {
    {KUKP_T_WORD, kukaid2kw, KUKAID2KW_COUNT},
};
constexpr kukptb kukaconcat[] = {{"concat", KUKP_T_CONCAT, 6}};
constexpr kukptb kukaoptimize[] = {{"optimize", KUKA_T_OPTIMIZE, 8}};
constexpr kukaspecial kukaspecialsdb2[] = {
    {KUKP_T_CONCATKW, kukaconcat, std::size(kukaconcat)},
    {KUKP_T_WORD, kukaoptimize, std::size(kukaoptimize)},
};

constexpr kukadialect kukass = {kukakwss, KUKAKWSS_COUNT, kukaspecialsss, std::size(kukaspecialsss),
                                0};
constexpr kukadialect kukadb2 = {kukakwdb2, KUKAKWDB2_COUNT, kukaspecialsdb2,
                                 std::size(kukaspecialsdb2), 1};

// Types of the special words that the lexer gives `type`; null: none, or not in this language.
const kukaspecial *kukaspecialsof(const kulang &lang, const kukadialect &dialect,
                                  std::uint32_t type)
{
    if (!ku::locale::single_byte(lang)) return nullptr;
    for (std::size_t i = 0; i < dialect.nspecials; i++)
        if (dialect.specials[i].type == type) return &dialect.specials[i];
    return nullptr;
}

bool kukaisreserved(std::uint32_t type)
{
    return type >= kuka_firstreserved && type <= kuka_lastreserved;
}

// The type that the lower-cased word gets.
std::uint32_t kukalookup(const kukadialect &dialect, const kukaspecial *special,
                         std::string_view word, std::uint32_t type)
{
    if (special != nullptr) {
        for (std::size_t i = 0; i < special->count; i++)
            if (word == special->words[i].keyp_kukptb) return special->words[i].type_kukptb;
        return type;
    }
    const auto *end = dialect.reserved + dialect.nreserved;
    return std::binary_search(dialect.reserved, end, word) ? type : KUKP_T_WORD;
}

// The type that a token gets in the dialect. False: no memory.
bool kukamap(kux *ctx, const kukadialect &dialect, const unsigned char *token, std::uint32_t length,
             std::uint32_t *type)
{
    const kulang &lang = *ctx->kuxlangidh;
    const kukaspecial *special = kukaspecialsof(lang, dialect, *type);
    if (special == nullptr && !kukaisreserved(*type)) return true;

    const std::uint64_t room = std::uint64_t{length} * lang.expansion_kulang + dialect.spare;
    ku::owned<char> word(
        ctx, static_cast<char *>(ku::allocate(ctx, std::max<std::uint64_t>(room, 1), 1)));
    if (!word) return false;
    const std::size_t size = ku::locale::lower_copy(lang, word.get(), room, token, length);
    *type = kukalookup(dialect, special, {word.get(), size}, *type);
    return true;
}

std::uint8_t kukacall(const kukadialect &dialect, void *cctxp, const unsigned char *token,
                      std::uint32_t length, std::uint32_t type, std::uint32_t *typep)
{
    const auto &wrapper = *static_cast<const kukastctxt *>(cctxp);
    if (!kukamap(wrapper.kuxp_kukastctxt, dialect, token, length, &type)) return KUKP_A_STOP;
    *typep = type;
    if (wrapper.ccfunp_kukastctxt == nullptr) return KUKP_A_KEEP;
    std::uint32_t ignored = type;
    return wrapper.ccfunp_kukastctxt(wrapper.cctxp_kukastctxt, token, length, type, &ignored);
}

// ---- client token lists ----

// What a failed allocation is reported as: the code that it pushed, if it did.
std::uint32_t kukafailed(kux *ctx)
{
    const std::uint32_t code = kuxercode(ctx);
    return code != 0 ? code : KULAA_NOMEM;
}

// Appends a client token with a copy of its bytes. Returns 0, or a code.
std::uint32_t kukaappend(kux *ctx, void *list, const kukat &original)
{
    const std::uint32_t length = original.tokenl_kukat;
    ku::owned<kukat> token(ctx, ku::allocate<kukat>(ctx));
    if (!token) return kukafailed(ctx);
    ku::owned<unsigned char> bytes(
        ctx, static_cast<unsigned char *>(ku::allocate(ctx, std::max(length, 1u), 1)));
    if (!bytes) return kukafailed(ctx);
    if (length > 0) std::memcpy(bytes.get(), original.token_kukat, length);
    *token.get() = {bytes.get(), length, original.ttype_kukat};

    const std::uint32_t status = kulpinsert(ctx, list, KUL_APPEND, token.get());
    if (status != 0) return status;
    static_cast<void>(bytes.keep());
    static_cast<void>(token.keep());
    return 0;
}

constexpr unsigned char kukaleftouter[] = {'*', '='};
constexpr unsigned char kukarightouter[] = {'=', '*'};
constexpr kukat kukaouters[] = {
    {kukaleftouter, sizeof kukaleftouter, KUKA_T_LEFTOUTER},
    {kukarightouter, sizeof kukarightouter, KUKA_T_RIGHTOUTER},
};

// ---- attributes ----

void kukadefaults(kuka &attributes)
{
    const std::uint32_t given = attributes.mask_kuka;
    if ((given & KUKA_WEIGHT) == 0) attributes.weight_kuka = 1;
    if ((given & KUKA_MODE) == 0) attributes.mode_kuka = KUKP_M_WORDS;
    if ((given & KUKA_CALLBACK) == 0) attributes.cfunp_kuka = nullptr;
    if ((given & KUKA_CONTEXT) == 0) attributes.cctxp_kuka = nullptr;
    if ((given & KUKA_STATE) == 0) attributes.state_kuka = KUKP_S_COMPLETE;
    if ((given & KUKA_SERVER) == 0) attributes.srvrtype_kuka = KUKA_SERVER_NONE;
    attributes.mask_kuka |=
        KUKA_WEIGHT | KUKA_MODE | KUKA_CALLBACK | KUKA_CONTEXT | KUKA_STATE | KUKA_SERVER;
}

} // namespace

void *kukacreate(kux *ctx, kuka *kukap)
{
    if (kukap == nullptr || (kukap->mask_kuka & KUKA_TEXT) == 0) return nullptr;
    kukadefaults(*kukap);
    kuka copy = *kukap;
    kukastctxt wrapper = {copy.cfunp_kuka, copy.cctxp_kuka, ctx};
    const bool sybase = copy.srvrtype_kuka == KUKA_SERVER_SS;
    if (sybase || copy.srvrtype_kuka == KUKA_SERVER_DB2) {
        copy.cfunp_kuka = sybase ? kukacbss : kukacbdb2;
        copy.cctxp_kuka = &wrapper;
    }
    if (sybase && kukaspss(ctx, kukap, &copy) != 0) return nullptr;

    void *args[] = {copy.ctoklist_kuka};
    void *object = kukpxcreate(ctx, copy.origtxp_kuka, copy.weight_kuka, copy.mode_kuka,
                               copy.cfunp_kuka, copy.cctxp_kuka, copy.state_kuka, args, 1);
    if (sybase) kukafrtoklist(ctx, copy.ctoklist_kuka);
    return object;
}

std::uint32_t kukaspss(kux *ctx, const kuka *kukap, kuka *rkukap)
{
    void *list = nullptr;
    std::uint32_t status = kukaclctoklst(ctx, kukap->ctoklist_kuka, &list);
    for (const kukat &token : kukaouters)
        if (status == 0) status = kukaappend(ctx, list, token);
    if (status == 0)
        rkukap->ctoklist_kuka = list;
    else
        kukafrtoklist(ctx, list);
    return status;
}

std::uint8_t kukacbss(void *cctxp, const unsigned char *token, std::uint32_t length,
                      std::uint32_t type, std::uint32_t *typep)
{
    return kukacall(kukass, cctxp, token, length, type, typep);
}

std::uint8_t kukacbdb2(void *cctxp, const unsigned char *token, std::uint32_t length,
                       std::uint32_t type, std::uint32_t *typep)
{
    return kukacall(kukadb2, cctxp, token, length, type, typep);
}

std::uint32_t kukaclctoklst(kux *ctx, void *ctoklist, void **rtoklisthp)
{
    *rtoklisthp = nullptr;
    const std::int32_t count = ctoklist != nullptr ? kulpnitems(ctx, ctoklist) : 0;
    void *copy = kulpcreate(ctx, count, nullptr);
    if (copy == nullptr) return kukafailed(ctx);
    std::uint32_t status = 0;
    if (count > 0) {
        const kul *original = kulplock(ctx, ctoklist);
        for (std::int32_t i = 0; i < count && status == 0; i++) {
            const auto *token = static_cast<const kukat *>(original->items_kul[i]);
            if (token != nullptr) status = kukaappend(ctx, copy, *token);
        }
        kulpunlock(ctx, ctoklist);
    }
    if (status == 0)
        *rtoklisthp = copy;
    else
        kukafrtoklist(ctx, copy);
    return status;
}

void kukafrtoklist(kux *ctx, void *toklisth)
{
    if (toklisth == nullptr) return;
    const auto release = [](kux *context, void *item, void *) -> std::uint32_t {
        auto *token = static_cast<kukat *>(item);
        context->kuxnmfree(context, const_cast<unsigned char *>(token->token_kukat));
        context->kuxnmfree(context, token);
        return 0;
    };
    kulpitrate(ctx, toklisth, release, nullptr, 1);
    kulpdestroy(ctx, toklisth);
}
