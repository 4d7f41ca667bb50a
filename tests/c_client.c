/*
 * c_client.c - a client in C99: includes every public header and uses each family once
 */
#include "c_client.h"

#include <string.h>

#include "ku.h"

#define HOLDS(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) return #condition;                                                       \
    } while (0)

static int32_t by_text(kux *ctx, void *a, void *b, void *clientarg)
{
    (void)ctx;
    (void)clientarg;
    return strcmp(a, b);
}

static const char *use_context(kux *ctx, const char *directory)
{
    kuxa attrs;
    kux *other;
    (void)ctx;
    (void)directory;
    memset(&attrs, 0, sizeof attrs);
    attrs.kuxamask = KUXA_ERSIZE;
    attrs.kuxaersize = 2;
    other = kuxcreate(&attrs);
    HOLDS(other != NULL);
    attrs.kuxamask = KUXA_ERSIZE | KUXA_VERSION;
    HOLDS(kuxget(other, &attrs) == 0 && attrs.kuxaersize == 2);
    HOLDS(strcmp(attrs.kuxaversion, "2.0.5.0.0") == 0);
    HOLDS(kuxdestroy(other) == NULL);
    return NULL;
}

static const char *use_errors(kux *ctx, const char *directory)
{
    char text[80];
    char letters[5];
    (void)directory;
    kuxer2push(ctx, KUXNM_NORESIZE, "a", "bc");
    HOLDS(kuxercode(ctx) == (kuxidbase("kuxnm") | 2));
    HOLDS(kuxiddecode(kuxercode(ctx), letters) == 2 && memcmp(letters, "kuxnm", 5) == 0);
    kuxerformat(ctx, kuxerget(ctx, 0), text, sizeof text, NULL);
    HOLDS(strcmp(text, "kuxnm 2  a, bc") == 0);
    kuxerclear(ctx);
    HOLDS(kuxernerrors(ctx) == 0);
    return NULL;
}

static const char *use_memory(kux *ctx, const char *directory)
{
    kuxhandle handle;
    char *address;
    (void)directory;
    HOLDS(kuxmlbegin(ctx) == 0);
    handle = kuxrlalloc(ctx, 8);
    HOLDS(handle != NULL && kuxnlalloc(ctx, 8) != NULL);
    address = kuxrmlock(ctx, handle);
    HOLDS(address != NULL && address[7] == 0);
    kuxrmunlock(ctx, handle);
    kuxmlrollback(ctx);
    address = kuxbmalloc(1);
    HOLDS(address != NULL && address[0] == 0 && kuxbmfree(address) == NULL);
    return NULL;
}

static uint32_t note_message(kux *ctx, kuxst *stream, const char *text)
{
    (void)ctx;
    *(const char **)stream->streamdata_kuxst = text;
    return 0;
}

static const char *use_properties_and_messages(kux *ctx, const char *directory)
{
    const char *shown = NULL;
    kuxsta attrs;
    kuxioa installed;
    (void)directory;
    HOLDS(kuxprset(ctx, kuxidencode("house", 1), &attrs, NULL) == 0);
    HOLDS(kuxprget(ctx, kuxidencode("house", 1)) == &attrs);
    memset(&attrs, 0, sizeof attrs);
    attrs.mask_kuxsta = KUXSTA_MESSAGE | KUXSTA_STREAMDATA;
    attrs.message_kuxsta = note_message;
    attrs.streamdata_kuxsta = &shown;
    installed.mask_kuxioa = KUXIOA_STDIO;
    installed.stdio_kuxioa = kuxstcreate(ctx, &attrs);
    HOLDS(installed.stdio_kuxioa != NULL && kuxioset(ctx, &installed) == 0);
    HOLDS(kuxiomessage(ctx, "hello") == 0 && strcmp(shown, "hello") == 0);
    HOLDS(kuxstdestroy(ctx, installed.stdio_kuxioa) == 0);
    kuxprremove(ctx, KUXIO_PROPERTY);
    return NULL;
}

static const char *use_text(kux *ctx, const char *directory)
{
    char upper[16] = "";
    uint32_t written = 0;
    int32_t order = LIZ_LESS;
    (void)directory;
    HOLDS(lizmcpy(ctx->kuxlangidh, &ctx->kuxlocglo, upper, sizeof upper, LIZ_MULTIBYTE, "abc1",
                  KU_NTS, LIZ_MULTIBYTE, LIZ_UPPER, &written)
          == LIZ_OK);
    HOLDS(strcmp(upper, "ABC1") == 0 && written == 4);
    HOLDS(lizmcmp(ctx->kuxlangidh, &ctx->kuxlocglo, upper, KU_NTS, LIZ_MULTIBYTE, "aBc1", KU_NTS,
                  LIZ_MULTIBYTE, LIZ_NOCASE, &order)
              == LIZ_OK
          && order == LIZ_EQUAL);
    HOLDS(lizcdigit(ctx->kuxlangidh, &ctx->kuxlocglo, upper + 3, 1, LIZ_MULTIBYTE) == 1);
    return NULL;
}

static const char *use_streams(kux *ctx, const char *directory)
{
    char name[512];
    char line[8];
    uint32_t length = sizeof name - 1;
    void *stream;
    HOLDS(skubadir(ctx, "c.txt", directory, name, &length) == 0);
    stream = skubopen(ctx, name, "w+");
    HOLDS(stream != NULL && skubsput(ctx, stream, "one\ntwo") == 0);
    HOLDS(skubposition(ctx, stream, 4) == 0 && skubsget(ctx, stream, line, sizeof line) == 0);
    HOLDS(strcmp(line, "two") == 0 && skubclose(ctx, stream) == 0);
    HOLDS(skubremove(ctx, name) == 0 && skubfexist(ctx, name) == 0);
    return NULL;
}

static const char *use_paged_files(kux *ctx, const char *directory)
{
    skuf *cache = skufcreate(ctx, 3);
    char *name = skufzname(ctx, cache, directory);
    skufv *file = skufvopen(ctx, cache, name, SKUF_SCRATCH);
    char text[6] = "bytes";
    HOLDS(file != NULL && skufvmove(ctx, cache, file, text, 6, SKUFV_PUT) == 0);
    text[0] = 0;
    file->skufvpos = 0;
    HOLDS(skufvmove(ctx, cache, file, text, 6, SKUFV_GET) == 0 && strcmp(text, "bytes") == 0);
    HOLDS(skufvclose(ctx, cache, file) == NULL && skubfexist(ctx, name) == 0);
    ctx->kuxnmfree(ctx, name);
    HOLDS(skufdestroy(ctx, cache) == NULL && kuxernerrors(ctx) == 0);
    return NULL;
}

static const char *use_heaps(kux *ctx, const char *directory)
{
    tag_skuhm *heap = skuhmi(ctx, 0);
    void *block;
    void *behind;
    uint32_t size = 0;
    (void)directory;
    HOLDS(heap != NULL);
    block = heap->skuhmalloc_pfn(ctx, heap, 8);
    HOLDS(block != NULL && heap->skuhmgetsize_pfn(ctx, heap, block, &size) == 0 && size == 8);
    HOLDS(heap->skuhmmemcpy_pfn(ctx, heap, block, "abcdefg", 8) == 0);
    HOLDS(heap->skuhmgetptr_pfn(ctx, heap, block, 3, &behind) == 0 && strcmp(behind, "defg") == 0);
    block = heap->skuhmrealloc_pfn(ctx, heap, block, 4);
    HOLDS(block != NULL && memcmp(block, "abcd", 4) == 0);
    heap->skuhmfree_pfn(ctx, heap, block);
    skuhmf(ctx, &heap);
    HOLDS(heap == NULL);
    return NULL;
}

static const char *use_lists(kux *ctx, const char *directory)
{
    void *words[] = {"pear", "fig", "apple"};
    void *list = kulpcreate(ctx, 3, words);
    int32_t index;
    (void)directory;
    HOLDS(list != NULL && kulpqsort(ctx, list, by_text, NULL) == 0);
    HOLDS(strcmp(kulpfirst(ctx, list), "apple") == 0);
    HOLDS(kulpsearch(ctx, list, "kiwi", by_text, NULL, 0, &index) == 0 && index == 2);
    HOLDS(kulplock(ctx, list)->nitems_kul == 3 && kulpunlock(ctx, list) == NULL);
    list = kulpdestroy(ctx, list);
    HOLDS(list == NULL);
    return NULL;
}

static const char *use_property_lists(kux *ctx, const char *directory)
{
    void *list = kuuplcreate(ctx, 0, NULL);
    uint32_t width = 0;
    char *text;
    (void)directory;
    HOLDS(list != NULL && kuuplmput(ctx, list, "title books rows 20") == 4);
    HOLDS(kuuplxput(ctx, list, "width", 80) == 0);
    HOLDS(kuuplxget(ctx, list, "width", &width) == 0 && width == 80);
    text = kuuplmget(ctx, list, "rows title");
    HOLDS(text != NULL && strcmp(text, "rows 20 title books") == 0);
    ctx->kuxnmfree(ctx, text);
    HOLDS(kuupldestroy(ctx, list) == NULL);
    return NULL;
}

static uint32_t note_title(kux *ctx, void *observer, uint32_t type, void *object, void *clientdata)
{
    uint32_t length = type;
    (void)clientdata;
    return kuu_ntset(ctx, observer, &length, 1, object);
}

static const char *use_cells_observers_and_fields(kux *ctx, const char *directory)
{
    kumr cell;
    kuoba wanted = {KUOBA_TYPE | KUOBA_NOTIFYFUN | KUOBA_OBSERVER, 6, note_title, "noted", 0, {0}};
    char *title = NULL;
    void *observers = kulpcreate(ctx, 0, NULL);
    (void)directory;
    HOLDS(kuobappend(ctx, observers, &wanted) == 0);
    HOLDS(kuoblnotify(ctx, observers, &title, 2) == 0 && strcmp(title, "no") == 0);
    HOLDS(kuobldestroy(ctx, observers) == 0);
    ctx->kuxnmfree(ctx, title);
    HOLDS(kumrinit(ctx, &cell, NULL) == 0 && kumrref(ctx, &cell) == 0);
    HOLDS(kumrdref(ctx, &cell) == 0 && cell.refcount_kumr == 1);
    return NULL;
}

static const char *use_virtual_memory(kux *ctx, const char *directory)
{
    kuva attrs;
    kuv *memory;
    void *handle;
    memset(&attrs, 0, sizeof attrs);
    attrs.mask_kuva = KUVA_SOFTVIRT | KUVA_CACHEPATH;
    attrs.softvirt_kuva = 1;
    attrs.cachepath_kuva = directory;
    memory = kuvcreate(ctx, &attrs);
    HOLDS(memory != NULL);
    handle = kuvsdup(memory, "out and in");
    HOLDS(handle != NULL && kuvhpurge(memory, handle) == NULL && memory->lfbo_kuv > 1);
    HOLDS(strcmp(kuvlock(memory, handle), "out and in") == 0);
    HOLDS(kuvunlock(memory, handle) == NULL && kuvfree(memory, handle) == NULL);
    HOLDS(kuvpfcompact(memory) == 0 && memory->lfbo_kuv == 1);
    HOLDS(kuvdestroy(memory) == 0 && kuxernerrors(ctx) == 0);
    return NULL;
}

static int32_t note_match(kux *ctx, int32_t transition, void *cctxp, uint32_t start,
                          uint32_t finish)
{
    uint32_t *match = cctxp;
    (void)ctx;
    if (transition != KURF_T_END) return KURF_A_GO;
    match[0] = start;
    match[1] = finish;
    return KURF_A_STOP;
}

static const char *use_regular_expressions(kux *ctx, const char *directory)
{
    uint32_t match[2] = {0, 0};
    kurx *syntax = kurxcreate(ctx, NULL);
    kurf *runner = kurfcreate(ctx, syntax, "(a|b)+", 6, KURF_MULTIBYTE);
    (void)directory;
    HOLDS(syntax != NULL && kurxispecial(ctx, syntax, kurxtbl[9]) == 1);
    HOLDS(kurxefind(ctx, syntax, 'w', NULL) == 1 && kurttype(ctx, syntax, '*', 0, 1) == KURT_STAR);
    HOLDS(runner != NULL && kurnomatch(ctx, runner->kurnp_kurf, NULL, KURT_DOT) == NULL);
    HOLDS(kurlequiv(ctx, runner->currkurlp_kurf, NULL) == 0);
    HOLDS(kurmlogleaf(ctx, runner->kurnp_kurf, runner->kurnp_kurf->nullkurnop_kurn) == 1);
    HOLDS(kurfrun(ctx, syntax, runner, "xxababx", 7, KURF_MULTIBYTE, note_match, match)
          == KURF_S_NONE);
    HOLDS(match[0] == 2 && match[1] == 5);
    HOLDS(kurfdestroy(ctx, syntax, runner) == NULL && kurxdestroy(ctx, syntax) == NULL);
    return NULL;
}

static const char *use_tokens(kux *ctx, const char *directory)
{
    kuka attrs;
    void *both;
    void *dialect;
    void *second = NULL;
    void *first = kukpcreate(ctx, "select a /* b", 0, KUKP_M_KEYWORDS, NULL, NULL, 0);
    (void)directory;
    HOLDS(first != NULL && kukosgstate(ctx, first) == KUKP_S_COMMENT);
    HOLDS(kukongtype(ctx, first, 0) == KUKP_T_SELECT);
    second = kukpcreate(ctx, "c */ d", 0, KUKP_M_KEYWORDS, NULL, NULL, KUKP_S_COMMENT);
    both = kukeconcat(ctx, first, second, ' ');
    HOLDS(both != NULL && kukemerge(ctx, both) == 0);
    HOLDS(kukosgnumtokens(ctx, both) == 4 && kukongtype(ctx, both, 2) == KUKP_T_COMMENT);
    memset(&attrs, 0, sizeof attrs);
    attrs.mask_kuka = KUKA_TEXT | KUKA_MODE | KUKA_SERVER;
    attrs.origtxp_kuka = "a *= b";
    attrs.srvrtype_kuka = KUKA_SERVER_SS;
    dialect = kukacreate(ctx, &attrs);
    HOLDS(dialect != NULL && kukongtype(ctx, dialect, 1) == KUKA_T_LEFTOUTER);
    kukpdestroy(ctx, dialect);
    kukpdestroy(ctx, both);
    kukpdestroy(ctx, second);
    kukpdestroy(ctx, first);
    return NULL;
}

static const char *use_preferences(kux *ctx, const char *directory)
{
    kupct *preferences = NULL;
    void *values = kulpcreate(ctx, 0, NULL);
    kuxhandle value = ctx->kuxrmalloc(ctx, 8);
    (void)directory;
    HOLDS(kupopen(ctx, "tool", &preferences) == (KUP_NOUSERFILE | KUP_NOGLOBALFILE));
    kuxerclear(ctx);
    strcpy(kuxrmlock(ctx, value), "blue");
    kuxrmunlock(ctx, value);
    HOLDS(kulpinsert(ctx, values, KUL_APPEND, value) == 0);
    HOLDS(kupset(preferences, "colour", values, KUP_SPECIFIC) == 0);
    HOLDS(kulpclear(ctx, values) == 0 && kupwrite(preferences) == 0);
    HOLDS(kupclose(preferences) == 0);
    HOLDS(kupopen(ctx, "TOOL", &preferences) == KUP_NOGLOBALFILE);
    HOLDS(kupget(preferences, "Colour", 0, values, NULL) == (KUP_USER | KUP_SPECIFIC));
    HOLDS(strcmp(kuxrmlock(ctx, kulpfirst(ctx, values)), "blue") == 0);
    kuxrmunlock(ctx, kulpfirst(ctx, values));
    kulpdestroy(ctx, values);
    HOLDS(kupclose(preferences) == 0);
    kuxerclear(ctx);
    return NULL;
}

static const char *use_command_line(kux *ctx, const char *directory)
{
    kucla user;
    void *arguments = kulpcreate(ctx, 0, NULL);
    char *vector[] = {"tool", "user=scott"};
    char *home;
    (void)directory;
    memset(&user, 0, sizeof user);
    user.kuclakwd = "user";
    HOLDS(kulpinsert(ctx, arguments, KUL_APPEND, &user) == 0);
    HOLDS(kuclpa(ctx, 2, vector, arguments, 0) == NULL);
    HOLDS(strcmp(kulpfirst(ctx, kuclgv(ctx, arguments, "USER")), "scott") == 0);
    ctx->kuxnmfree(ctx, kulpfirst(ctx, user.kuclaval));
    kulpdestroy(ctx, user.kuclaval);
    kulpdestroy(ctx, arguments);
    home = sku_gev(ctx, "KU_UPREFS");
    HOLDS(home != NULL && strcmp(home, directory) == 0);
    ctx->kuxnmfree(ctx, home);
    return NULL;
}

static unsigned char next_character(kux *ctx, void *text)
{
    const char **at = text;
    (void)ctx;
    return **at != 0 ? (unsigned char)*(*at)++ : 0;
}

static const char *use_search(kux *ctx, const char *directory)
{
    const char *names[] = {"x", "y"};
    const char *input = "xABCx";
    char text[16];
    kuumtdef *wildcards = kuumcreate(ctx, "a%c");
    kuusat attrs = {KUUSAT_CMFUNC, kuusicmatch, NULL};
    kuus *search = kuuscreate(ctx, "abc", 3, next_character, &input);
    (void)directory;
    HOLDS(kuusset(ctx, search, &attrs) == 0 && kuussearch(ctx, search, NULL, NULL) == 1);
    HOLDS(kuusdestroy(ctx, search) == NULL);
    HOLDS(kuumatch(ctx, wildcards, "abcabc") == 1 && kuumatch(ctx, wildcards, "ab") == 0);
    HOLDS(kuumfree(ctx, wildcards) == NULL);
    HOLDS(kuisequal(ctx, kuussb(ctx, sizeof text, text, "$0 to $1", 2, names), "x to y") == 1);
    return NULL;
}

static const char *use_element_lists(kux *ctx, const char *directory)
{
    kuela attrs;
    void *path = kulpcreate(ctx, 0, NULL);
    char name[300];
    char *spec = kuelbuilddbspec(ctx, "scott", NULL, "db", 0);
    uint32_t length = sizeof name;
    HOLDS(spec != NULL && strcmp(spec, "scott@db") == 0);
    ctx->kuxnmfree(ctx, spec);
    memset(&attrs, 0, sizeof attrs);
    attrs.mask_kuela = KUELA_DOMAIN | KUELA_NAME;
    attrs.domain_kuela = KUELD_DIRECTORY;
    strcpy(name, directory);
    attrs.name_kuela = name;
    HOLDS(kulpinsert(ctx, path, KUL_APPEND, kuelcreate(ctx, &attrs)) == 0);
    HOLDS(kuepnresolve(ctx, path, "absent", name, &length, NULL) == 0);
    HOLDS(length == 6 && strcmp(name, "absent") == 0);
    HOLDS(kuelldestroy(ctx, path) == 0);
    return NULL;
}

const c_client_family c_client_families[] = {
    {"context", use_context},
    {"errors", use_errors},
    {"memory", use_memory},
    {"properties and messages", use_properties_and_messages},
    {"text", use_text},
    {"streams", use_streams},
    {"paged files", use_paged_files},
    {"heaps", use_heaps},
    {"lists", use_lists},
    {"property lists", use_property_lists},
    {"cells, observers and text fields", use_cells_observers_and_fields},
    {"search, wildcards and templates", use_search},
    {"virtual memory", use_virtual_memory},
    {"regular expressions", use_regular_expressions},
    {"tokens", use_tokens},
    {"preferences", use_preferences},
    {"command line", use_command_line},
    {"element lists", use_element_lists},
    {NULL, NULL},
};
