// kux_test.cpp - the context: creation, attributes, dates, properties, identifiers, messages

#include <algorithm>
#include <csetjmp>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kuapp.h"
#include "kux.h"
#include "kuxdn.h"
#include "kuxdr.h"
#include "kuxer.h"
#include "kuxid.h"
#include "kuxio.h"
#include "kuxml.h"
#include "kuxnl.h"
#include "kuxpr.h"
#include "kuxst.h"
#include "port/core/core.h"
#include "support/context.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

using strings = std::vector<std::string>;

// Attributes that differ from the defaults in every field, and work like them.
kuxa own_attributes(uint32_t mask)
{
    static kuapp application = {nullptr, nullptr};
    static int data[2];
    kuxa attrs = {};
    attrs.kuxamask = mask;
    attrs.kuxaersize = 7;
    attrs.kuxaerformat = [](kux *ctx, kuxer *record, char *buffer, uint32_t size, int32_t *cut) {
        return kuxerdformat(ctx, record, buffer, size, cut);
    };
    attrs.kuxanmalloc = [](kux *ctx, uint32_t size) { return kuxdnalloc(ctx, size); };
    attrs.kuxanmfree = [](kux *ctx, void *block) { return kuxdnfree(ctx, block); };
    attrs.kuxanmrealloc = [](kux *ctx, void *block, uint32_t size) {
        return kuxdnrealloc(ctx, block, size);
    };
    attrs.kuxanmclientdata = &data[0];
    attrs.kuxarmalloc = [](kux *ctx, uint32_t size) { return kuxdralloc(ctx, size); };
    attrs.kuxarmfree = [](kux *ctx, kuxhandle handle) { return kuxdrfree(ctx, handle); };
    attrs.kuxarmrealloc = [](kux *ctx, kuxhandle handle, uint32_t size) {
        return kuxdrrealloc(ctx, handle, size);
    };
    attrs.kuxarmlock = [](kux *ctx, kuxhandle handle) { return kuxdrlock(ctx, handle); };
    attrs.kuxarmunlock = [](kux *ctx, kuxhandle handle) { return kuxdrunlock(ctx, handle); };
    attrs.kuxarmbeginderef = [](kux *ctx, kuxhandle handle) {
        return kuxdrbeginderef(ctx, handle);
    };
    attrs.kuxarmendderef = [](kux *ctx, kuxhandle handle) { return kuxdrendderef(ctx, handle); };
    attrs.kuxarmgetstate = [](kux *ctx, kuxhandle handle) { return kuxdrgetstate(ctx, handle); };
    attrs.kuxarmclientdata = &data[1];
    attrs.kuxauiapp = &application;
    return attrs;
}

// One letter for each field of `of` that equals the one in `as`.
std::string same(const kuxa &of, const kuxa &as)
{
    std::string letters;
    const auto note = [&](bool equal, char letter) {
        letters += equal ? std::string(1, letter) : "";
    };
    note(of.kuxaersize == as.kuxaersize, 's');
    note(of.kuxaerformat == as.kuxaerformat, 'f');
    note(of.kuxanmalloc == as.kuxanmalloc, 'a');
    note(of.kuxanmfree == as.kuxanmfree, 'b');
    note(of.kuxanmrealloc == as.kuxanmrealloc, 'c');
    note(of.kuxanmclientdata == as.kuxanmclientdata, 'd');
    note(of.kuxarmalloc == as.kuxarmalloc, '1');
    note(of.kuxarmfree == as.kuxarmfree, '2');
    note(of.kuxarmrealloc == as.kuxarmrealloc, '3');
    note(of.kuxarmlock == as.kuxarmlock, '4');
    note(of.kuxarmunlock == as.kuxarmunlock, '5');
    note(of.kuxarmbeginderef == as.kuxarmbeginderef, '6');
    note(of.kuxarmendderef == as.kuxarmendderef, '7');
    note(of.kuxarmgetstate == as.kuxarmgetstate, '8');
    note(of.kuxarmclientdata == as.kuxarmclientdata, '9');
    note(of.kuxauiapp == as.kuxauiapp, 'u');
    return letters;
}

// What a context has now.
kuxa current(kux *ctx)
{
    kuxa attrs = {};
    attrs.kuxamask = 0xFFFFFFFF;
    EXPECT_EQ(kuxget(ctx, &attrs), 0u);
    return attrs;
}

constexpr struct {
    uint32_t mask;
    const char *fields; // letters of `same`
} selections[] = {
    {0, ""},
    {KUXA_ERSIZE, "s"},
    {KUXA_ERFORMAT, "f"},
    {KUXA_NMALL, "abc"}, // whatever the single bits say, and not the client data
    {KUXA_NMALL | KUXA_NMFREE, "abc"},
    {KUXA_NMALLOC, "a"},
    {KUXA_NMFREE, "b"},
    {KUXA_NMREALLOC, "c"},
    {KUXA_NMCLIENTDATA, "d"},
    {KUXA_RMALL, "12345678"},
    {KUXA_RMALLOC, "1"},
    {KUXA_RMFREE, "2"},
    {KUXA_RMREALLOC, "3"},
    {KUXA_RMLOCK, "4"},
    {KUXA_RMUNLOCK, "5"},
    {KUXA_RMBEGINDEREF, "6"},
    {KUXA_RMENDDEREF, "7"},
    {KUXA_RMGETSTATE, "8"},
    {KUXA_RMCLIENTDATA, "9"},
    {KUXA_UIAPP, "u"},
    {0xFFC00040 | KUXA_LANGIDH | KUXA_DCXDEF | KUXA_VERSION, ""},
};

} // namespace

TEST(Kux, EachMaskBitGivesItsFieldsAndNoOther)
{
    for (const auto &row : selections) {
        const kuxa own = own_attributes(row.mask);
        kux *ctx = kuxcreate(&own); // created with them
        ASSERT_NE(ctx, nullptr);
        EXPECT_EQ(same(current(ctx), own), row.fields) << std::hex << row.mask;
        kuxdestroy(ctx);

        ctx = kuxcreate(nullptr); // set later
        const kuxa defaults = current(ctx);
        const bool refused = (row.mask & KUXA_ERSIZE) != 0;
        EXPECT_EQ(kuxset(ctx, &own), refused ? KUXRM_REFUSED : 0u);
        EXPECT_EQ(same(current(ctx), own), refused ? "" : row.fields) << std::hex << row.mask;

        kuxa fetched = own_attributes(row.mask); // fetched: only these fields change
        kuxset(ctx, &defaults);
        kuxerclear(ctx);
        kuxa before = defaults;
        before.kuxamask = 0x3FFFFF & ~KUXA_ERSIZE;
        kuxset(ctx, &before);
        EXPECT_EQ(kuxget(ctx, &fetched), 0u);
        EXPECT_EQ(same(fetched, defaults), row.fields) << std::hex << row.mask;
        kuxdestroy(ctx);
    }
}

TEST(Kux, ANewContextIsEmptyAndSpeaksTheLanguageOfTheEnvironment)
{
    kuxa attrs = {};
    kux *ctx = kuxcreate(&attrs);
    const kuxa now = current(ctx);
    EXPECT_EQ(now.kuxaersize, 5);
    EXPECT_EQ(now.kuxaerformat, kuxerdformat);
    EXPECT_EQ(now.kuxanmalloc, kuxdnalloc);
    EXPECT_EQ(now.kuxarmgetstate, kuxdrgetstate);
    EXPECT_EQ(now.kuxauiapp, nullptr);
    EXPECT_STREQ(now.kuxaversion, "2.0.5.0.0");
    EXPECT_EQ(now.kuxalangidh, &ctx->kuxlbuffer);
    EXPECT_EQ(now.kuxadcxdef, ctx->kuxdcxdef);
    EXPECT_EQ(ctx->kuxdacxp->syscx_kuxdacx, ctx);
    EXPECT_EQ(kuxernerrors(ctx), 0);
    EXPECT_EQ(ctx->kuxmldisabled + ctx->kuxnlnrecords + ctx->kuxrlnrecords + ctx->kuxprnprops, 0);
    EXPECT_TRUE(ctx->kuxstdin && ctx->kuxstdout && ctx->kuxstderr);
    EXPECT_EQ(kuxdestroy(ctx), nullptr);

    attrs.kuxamask = KUXA_ERSIZE | KUXA_NMALL; // no callbacks at all, no room for errors
    attrs.kuxaersize = -3;
    ctx = kuxcreate(&attrs);
    EXPECT_EQ(current(ctx).kuxaersize, 1);
    EXPECT_EQ(ctx->kuxstdout, nullptr);
    kuxer0push(ctx, 8), kuxer0push(ctx, 9);
    EXPECT_EQ(kuxercode(ctx), 9u);
    EXPECT_EQ(kuxiomessage(ctx, "nothing shows"), 0u);
    kuxdestroy(ctx);
    EXPECT_EQ(kuxdestroy(nullptr), nullptr);
    EXPECT_EQ(kuxset(nullptr, &attrs) + kuxget(nullptr, &attrs), 0u);
}

TEST(Kux, ARefusedLevelCapacityChangesNothing)
{
    ku::test::context ctx;
    const kuxa before = current(ctx), own = own_attributes(0x3FFFFF);
    EXPECT_EQ(kuxset(ctx, &own), KUXRM_REFUSED);
    EXPECT_EQ(same(current(ctx), before), "sfabcd123456789u");
    EXPECT_ERRORS(ctx, {"kuxrm 2(error stack size)"});
}

TEST(Kux, CreationWithoutMemoryGivesBackWhatItHad)
{
    bool complete = false;
    for (int n = 1; !complete; n++) {
        ku::test::fail_basic_from_now(n);
        kux *ctx = kuxcreate(nullptr);
        const bool failed = ku::test::basic_failed();
        ku::test::fail_basic_from_now(0);
        ASSERT_LT(n, 30);
        complete = ctx != nullptr && !failed;
        if (ctx == nullptr) continue; // leaks are the sanitizer's to find
        // Only a standard stream can be missing, and the stack says why.
        const int streams =
            (ctx->kuxstdin != nullptr) + (ctx->kuxstdout != nullptr) + (ctx->kuxstderr != nullptr);
        EXPECT_EQ(streams, failed ? 2 : 3);
        EXPECT_EQ(kuxercode(ctx), failed ? KUXNM_NOMEM : 0u);
        EXPECT_EQ(kuxioconfirm(ctx, "Well?"), 0);
        kuxdestroy(ctx);
    }
}

TEST(Kux, DestroyReleasesTheTokenBuffer)
{
    kux *ctx = kuxcreate(nullptr);
    ctx->kuxtokbuf = static_cast<unsigned char *>(ctx->kuxnmalloc(ctx, 10));
    ctx->kuxtoklen = 10;
    kuxdestroy(ctx); // a leak otherwise, which the sanitizer finds
}

TEST(Kux, AFailedDateConversionJumpsWithItsReasonOnTheStack)
{
    static const struct {
        const char *text, *picture, *reason;
    } rows[] = {
        {"2023-02-29", "YYYY-MM-DD", "the month has no such day"},
        {"2023-02", "YYYY-MM-DD", "the date ends before its format does"},
    };
    ku::test::context ctx;
    for (const auto &row : rows) {
        ku::core::date date = {};
        if (setjmp(ctx->kuxdacxp->jbuf_kuxdacx) == 0) {
            EXPECT_TRUE(
                ku::core::text_to_date(ctx->kuxdcxdef, "2024-02-29", 10, "YYYY-MM-DD", &date));
            ku::core::text_to_date(ctx->kuxdcxdef, row.text,
                                   std::char_traits<char>::length(row.text), row.picture, &date);
            ADD_FAILURE() << "the conversion came back";
        }
        EXPECT_ERRORS(ctx, {std::string("kuxaa 2(") + row.reason + ")"});
    }
    if (setjmp(ctx->kuxdacxp->jbuf_kuxdacx) == 0) kuxdaterr(ctx->kuxdcxdef, 0x12345);
    EXPECT_ERRORS(ctx, {"kuxaa 2(error 9029)"}); // 16 bits of it
}

// ---- identifiers ----

TEST(Kuxid, IdentifiersPackFiveLettersAndANumber)
{
    static constexpr struct {
        const char *prefix;
        uint8_t number;
        uint32_t identifier;
        const char *letters;
    } rows[] = {
        {"kuxer", 3, KU_CODE('k', 'u', 'x', 'e', 'r', 3), "kuxer"},
        {"KuXeR", 127, KU_CODE('k', 'u', 'x', 'e', 'r', 127), "kuxer"},
        {"aaaaa", 0, 0, "aaaaa"},
        {"zzzzz", 127, 0xCE739CFF, "zzzzz"},
        {"a-\xC4\x7F"
         "b",
         1, KU_CODE('a', 'a', 'a', 'a', 'b', 1), "aaaab"},
        {"kuxaa", 128, KU_CODE('k', 'u', 'x', 'a', 'b', 0), "kuxab"}, // spills into the letter
    };
    for (const auto &row : rows) {
        EXPECT_EQ(kuxidencode(row.prefix, row.number), row.identifier) << row.prefix;
        char letters[6] = "#####";
        EXPECT_EQ(kuxiddecode(row.identifier, letters), row.number & 0x7F) << row.prefix;
        EXPECT_STREQ(letters, row.letters);
        EXPECT_EQ(kuxidextract(row.identifier, 4), row.letters[4]);
    }
    EXPECT_EQ(kuxidbase("kuxio"), KUXIO_PROPERTY);
    EXPECT_EQ(kuxidextract(0xFFFFFFFF, 0), 'z');
    EXPECT_EQ(kuxidextract(0xFFFFFFFF, 5), 127);
    EXPECT_EQ(kuxidextract(0xFFFFFFFF, 6), 'a');
    EXPECT_EQ(kuxidextract(0xFFFFFFFF, -1), 'a');
    EXPECT_STREQ(kuxidalphabet, "abcdefghijklmnopqrstuvwxyz");
}

// ---- properties ----

namespace
{

// Values that say when they were released, and may do something then.
struct property {
    int released = 0;
    std::function<void(kux *)> act;
};

void release(kux *ctx, void *value)
{
    auto *mine = static_cast<property *>(value);
    mine->released++;
    if (mine->act) mine->act(ctx);
}

} // namespace

TEST(Kuxpr, TheTableHoldsItsPropertiesInOrderLikeAVector)
{
    ku::test::context ctx;
    ku::test::dice dice;
    std::vector<std::pair<uint32_t, property *>> model;
    std::vector<property> values(200);
    for (int step = 0; step < 3000; step++) {
        const uint32_t name = dice.below(70);
        const auto at = std::find_if(model.begin(), model.end(),
                                     [name](const auto &each) { return each.first == name; });
        if (dice.one_in(2)) {
            property *value = dice.one_in(8) ? nullptr : &values[dice.below(200)];
            const bool in_use =
                value != nullptr && std::any_of(model.begin(), model.end(), [&](const auto &each) {
                    return each.second == value;
                });
            if (in_use) continue;
            const int before = at != model.end() && at->second ? at->second->released : 0;
            ASSERT_EQ(kuxprset(ctx, name, value, release), 0u);
            if (at != model.end()) {
                ASSERT_EQ(at->second ? at->second->released : 1, before + 1);
                at->second = value;
            } else {
                model.emplace_back(name, value);
            }
        } else {
            kuxprremove(ctx, name);
            if (at != model.end()) model.erase(at);
        }
        const auto now = std::find_if(model.begin(), model.end(),
                                      [name](const auto &each) { return each.first == name; });
        ASSERT_EQ(kuxprexists(ctx, name), now != model.end());
        ASSERT_EQ(kuxprget(ctx, name), now != model.end() ? now->second : nullptr);
        std::vector<std::pair<uint32_t, property *>> walked;
        kuxpriterate(
            ctx,
            [](kux *, uint32_t each, void *value, void *list) {
                static_cast<decltype(model) *>(list)->emplace_back(each,
                                                                   static_cast<property *>(value));
            },
            &walked);
        ASSERT_EQ(walked, model);
    }
    EXPECT_EQ(ctx->kuxprsize % 20, 0);
    while (ctx->kuxprnprops > 0) kuxprremove(ctx, ctx->kuxprlist[0].kuxprname);
}

TEST(Kuxpr, ATableThatCannotGrowRefusesThePropertyAndKeepsTheOthers)
{
    ku::test::context ctx;
    for (uint32_t name = 0; name < 20; name++) kuxprset(ctx, name, nullptr, nullptr);
    ku::test::fail_basic_from_now(1);
    property value;
    EXPECT_EQ(kuxprset(ctx, 20, &value, release), KUXPR_FULL);
    EXPECT_ERRORS(ctx, {"kuxpr 1"});
    EXPECT_EQ(ctx->kuxprnprops, 20);
    EXPECT_EQ(kuxprset(ctx, 20, &value, release), 0u);
    EXPECT_EQ(ctx->kuxprsize, 40);
    kuxprremove(ctx, 20);
    EXPECT_EQ(value.released, 1);
}

TEST(Kuxpr, ReleaseFunctionsMayTouchTheTable)
{
    static const struct {
        const char *why;
        void (*act)(kux *ctx);
        strings after; // names left by replacing and by removing property 2 of 1, 2, 3
    } rows[] = {
        {"nothing", [](kux *) {}, {"1 2 3", "1 3"}},
        {"removes itself", [](kux *ctx) { kuxprremove(ctx, 2); }, {"1 3 2", "1 3"}},
        {"removes the first", [](kux *ctx) { kuxprremove(ctx, 1); }, {"2 3", "3"}},
        {"removes the last", [](kux *ctx) { kuxprremove(ctx, 3); }, {"1 2", "1"}},
        {"sets itself", [](kux *ctx) { kuxprset(ctx, 2, nullptr, nullptr); }, {"1 2 3", "1 3"}},
        {"grows the table",
         [](kux *ctx) {
             for (uint32_t name = 100; name < 130; name++) kuxprset(ctx, name, nullptr, nullptr);
             for (uint32_t name = 100; name < 130; name++) kuxprremove(ctx, name);
         },
         {"1 2 3", "1 3"}},
        {"fails and logs",
         [](kux *ctx) {
             kuxer0push(ctx, 77);
             kuxnlfree(ctx, kuxnlalloc(ctx, 5));
         },
         {"1 2 3", "1 3"}},
    };
    for (const auto &row : rows)
        for (const int how : {0, 1, 2}) { // replaced, removed, destroyed with the context
            kux *ctx = kuxcreate(nullptr);
            property first, middle, last, other;
            middle.act = row.act;
            kuxprset(ctx, 1, &first, release);
            kuxprset(ctx, 2, &middle, release);
            kuxprset(ctx, 3, &last, release);
            if (how == 0) kuxprset(ctx, 2, &other, release);
            if (how == 1) kuxprremove(ctx, 2);
            std::string names;
            for (int32_t slot = 0; slot < ctx->kuxprnprops; slot++)
                names += (slot ? " " : "") + std::to_string(ctx->kuxprlist[slot].kuxprname);
            EXPECT_EQ(names, how < 2 ? row.after[static_cast<size_t>(how)] : "1 2 3") << row.why;
            kuxdestroy(ctx);
            const strings released = {
                std::to_string(first.released), std::to_string(middle.released),
                std::to_string(last.released), std::to_string(other.released)};
            EXPECT_EQ(released, (strings{"1", "1", "1", how == 0 ? "1" : "0"})) << row.why << how;
        }
}

// ---- messages and confirmations ----

namespace
{

// A message stream that keeps what it is told.
struct notes {
    strings shown;
    int32_t answer = 1;
};

uint32_t note_message(kux *, kuxst *stream, const char *text)
{
    static_cast<notes *>(stream->streamdata_kuxst)->shown.emplace_back(text);
    return 42;
}

int32_t note_question(kux *ctx, kuxst *stream, const char *text)
{
    note_message(ctx, stream, text);
    return static_cast<notes *>(stream->streamdata_kuxst)->answer;
}

} // namespace

TEST(Kuxio, MessagesGoToTheInstalledStreamOrNowhere)
{
    ku::test::context ctx;
    EXPECT_EQ(kuxiomessage(ctx, "lost"), 0u);
    EXPECT_EQ(kuxioconfirm(ctx, "Lost?"), 0);

    notes seen;
    const kuxsta attrs = {KUXSTA_MESSAGE | KUXSTA_CONFIRM | KUXSTA_STREAMDATA, note_message,
                          note_question, &seen};
    kuxst *stream = kuxstcreate(ctx, &attrs);
    kuxioa io = {KUXIOA_STDIO, stream};
    EXPECT_EQ(kuxioset(ctx, &io), 0u);
    io.stdio_kuxioa = nullptr;
    EXPECT_EQ(kuxioget(ctx, &io), 0u);
    EXPECT_EQ(io.stdio_kuxioa, stream);
    EXPECT_EQ(kuxiomessage(ctx, "Hello"), 42u);
    EXPECT_EQ(kuxioconfirm(ctx, "Sure?"), 1);
    EXPECT_EQ(seen.shown, (strings{"Hello", "Sure?"}));

    const kuxioa untouched = {0, nullptr}; // without its bit nothing is set
    EXPECT_EQ(kuxioset(ctx, &untouched), 0u);
    EXPECT_EQ(kuxiomessage(ctx, "again"), 42u);
    io.stdio_kuxioa = nullptr; // a null stream is none
    kuxioset(ctx, &io);
    EXPECT_EQ(kuxprexists(ctx, KUXIO_PROPERTY), 1);
    EXPECT_EQ(kuxiomessage(ctx, "lost"), 0u);
    EXPECT_EQ(seen.shown.size(), 3u);
    kuxprremove(ctx, KUXIO_PROPERTY);

    kuxer0push(ctx, 77); // answers with the newest code, whoever pushed it
    EXPECT_EQ(kuxioget(ctx, &io), 77u);
    EXPECT_EQ(kuxstdestroy(ctx, stream), 77u);
    ctx.clear();
}

TEST(Kuxio, StreamsTakeTheFieldsOfTheirMask)
{
    ku::test::context ctx;
    int data = 0;
    const kuxsta attrs = {KUXSTA_STREAMDATA, note_message, note_question, &data};
    kuxst *stream = kuxstcreate(ctx, &attrs);
    kuxsta now = {KUXSTA_MESSAGE | KUXSTA_STREAMDATA, nullptr, note_question, nullptr};
    EXPECT_EQ(kuxstget(ctx, stream, &now), 0u);
    EXPECT_EQ(now.message_kuxsta, kuxstdmessage);
    EXPECT_EQ(now.confirm_kuxsta, note_question); // not asked for
    EXPECT_EQ(now.streamdata_kuxsta, &data);
    EXPECT_EQ(stream->confirm_kuxst, kuxstdconfirm);
    now.mask_kuxsta = KUXSTA_CONFIRM;
    kuxstset(ctx, stream, &now);
    EXPECT_EQ(stream->confirm_kuxst, note_question);
    EXPECT_EQ(stream->message_kuxst, kuxstdmessage);
    EXPECT_EQ(kuxstdestroy(ctx, stream), 0u);
    ku::test::sweep_allocations([&](ku::test::context &short_of) {
        kuxst *made = kuxstcreate(short_of, &attrs);
        EXPECT_ERRORS(short_of, {}); // silently
        kuxstdestroy(short_of, made);
        return made != nullptr;
    });
}

TEST(Kuxio, TheErrorDumpShowsALineForEachRecordOldestFirst)
{
    notes seen;
    ku::test::context ctx;
    const kuxsta attrs = {KUXSTA_MESSAGE | KUXSTA_STREAMDATA, note_message, nullptr, &seen};
    kuxst *stream = kuxstcreate(ctx, &attrs);
    const kuxioa io = {KUXIOA_STDIO, stream};
    kuxioset(ctx, &io);
    kuxioperrors(ctx, 1);
    EXPECT_TRUE(seen.shown.empty());

    kuxer2push(ctx, KUXNM_NORESIZE, "a", "bc");
    kuxer1push(ctx, KUXNM_NOMEM, std::string(100, 'x').c_str());
    kuxioperrors(ctx, 0);
    const std::string cut = "ERROR: kuxnm 1  " + std::string(63, 'x') + "\n"; // 79 bytes and a NUL
    EXPECT_EQ(seen.shown, (strings{"ERROR: kuxnm 2  a, bc\n", cut}));
    EXPECT_EQ(kuxernerrors(ctx), 2);

    kuxa format = {}; // a formatter that fills its room, counts no NUL and writes none
    format.kuxamask = KUXA_ERFORMAT;
    format.kuxaerformat = [](kux *, kuxer *, char *buffer, uint32_t size, int32_t *truncated) {
        *truncated = 1;
        std::fill_n(buffer, size, 'y');
        return size;
    };
    kuxset(ctx, &format);
    seen.shown.clear();
    kuxerpop(ctx);
    kuxioperrors(ctx, 1);
    EXPECT_EQ(seen.shown, strings{"ERROR: " + std::string(73, 'y') + "\n"});
    EXPECT_EQ(kuxernerrors(ctx), 0);

    stream->message_kuxst = [](kux *context, kuxst *to, const char *text) {
        kuxerpop(context); // the dump stops where the level ends
        return note_message(context, to, text);
    };
    seen.shown.clear();
    for (uint32_t code = 1; code <= 4; code++) kuxer0push(ctx, code);
    kuxioperrors(ctx, 0);
    EXPECT_EQ(seen.shown.size(), 2u);
    ctx.clear();
    kuxprremove(ctx, KUXIO_PROPERTY);
    kuxstdestroy(ctx, stream);
}

// ---- threads ----

TEST(KuxThreads, ContextsShareNothing)
{
    const auto work = [](uint32_t number, std::string *result) {
        kuxa attrs = {};
        kux *ctx = kuxcreate(&attrs);
        static const std::string path = KU_SOURCE_DIR "/msg/ku.msg";
        kuapp application = {path.c_str(), nullptr};
        attrs.kuxamask = KUXA_UIAPP;
        attrs.kuxauiapp = &application;
        kuxset(ctx, &attrs);
        for (int round = 0; round < 50; round++) {
            property value;
            kuxprset(ctx, number, &value, release);
            kuxmlbegin(ctx);
            kuxnlalloc(ctx, 100 + number);
            kuxmlrollback(ctx);
            ku::core::date date = {};
            if (setjmp(ctx->kuxdacxp->jbuf_kuxdacx) == 0)
                ku::core::text_to_date(ctx->kuxdcxdef, number % 2 ? "x" : "1-1-1", 5,
                                       number % 2 ? "YYYY" : "YYYY/MM", &date);
            char text[200];
            uint32_t length = 199;
            kuxerfmtmsg(ctx, kuxerget(ctx, 0), "text", text, &length, nullptr);
            *result = text;
            kuxerclear(ctx);
            kuxprremove(ctx, number);
        }
        kuxdestroy(ctx);
    };
    std::vector<std::thread> threads;
    std::vector<std::string> results(4);
    for (uint32_t number = 0; number < 4; number++)
        threads.emplace_back(work, number, &results[number]);
    for (std::thread &thread : threads) thread.join();
    for (size_t number = 0; number < 4; number++)
        EXPECT_EQ(results[number],
                  number % 2 ? "A date could not be converted: a digit is expected where the date "
                               "has something else."
                             : "A date could not be converted: the date has other punctuation than "
                               "its format.");
}
