// kux_test.cpp - the context: creation, attributes, dates, properties, identifiers, messages

#include <algorithm>
#include <csetjmp>
#include <cstddef>
#include <cstring>
#include <deque>
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

// The bits of the pointers in kuxa from kuxaerformat on, in the order of the fields.
constexpr uint32_t nm_callbacks = KUXA_NMALLOC | KUXA_NMFREE | KUXA_NMREALLOC;
constexpr uint32_t rm_callbacks = 0x1FE00;
constexpr uint32_t field_bits[] = {
    KUXA_ERFORMAT,     KUXA_NMALLOC,    KUXA_NMFREE,     KUXA_NMREALLOC,    KUXA_NMCLIENTDATA,
    KUXA_RMALLOC,      KUXA_RMFREE,     KUXA_RMREALLOC,  KUXA_RMLOCK,       KUXA_RMUNLOCK,
    KUXA_RMBEGINDEREF, KUXA_RMENDDEREF, KUXA_RMGETSTATE, KUXA_RMCLIENTDATA, KUXA_UIAPP,
};

// Differs from the defaults in every field: no callbacks, and data of its own.
kuxa own_attributes(uint32_t mask)
{
    static kuapp application = {nullptr, nullptr};
    kuxa attrs = {};
    attrs.kuxamask = mask;
    attrs.kuxanmclientdata = attrs.kuxarmclientdata = attrs.kuxauiapp = &application;
    return attrs;
}

kuxa current(kux *ctx)
{
    kuxa attrs = {};
    attrs.kuxamask = ~KUXA_ERSIZE;
    EXPECT_EQ(kuxget(ctx, &attrs), 0u);
    return attrs;
}

// Fields that the mask selects are as in `selected`, all others as in `other`.
void expect_fields(const kuxa &now, uint32_t mask, const kuxa &selected, const kuxa &other)
{
    const size_t first = offsetof(kuxa, kuxaerformat);
    if ((mask & KUXA_NMALL) != 0) mask |= nm_callbacks; // the callbacks, not the client data
    if ((mask & KUXA_RMALL) != 0) mask |= rm_callbacks;
    for (size_t i = 0; i < std::size(field_bits); i++) {
        const kuxa &expected = (mask & field_bits[i]) != 0 ? selected : other;
        const auto at = [&](const kuxa &record) {
            return reinterpret_cast<const char *>(&record) + first + i * sizeof(void *);
        };
        EXPECT_EQ(std::memcmp(at(now), at(expected), sizeof(void *)), 0)
            << std::hex << field_bits[i] << " with mask " << mask;
    }
}

} // namespace

TEST(Kux, EachMaskBitGivesItsFieldsAndNoOther)
{
    kux *ctx = kuxcreate(nullptr);
    const kuxa defaults = current(ctx);
    for (uint32_t bit = 1; bit != 0; bit <<= 1)
        for (const uint32_t mask : {bit & ~KUXA_ERSIZE, ~bit & ~KUXA_ERSIZE}) {
            const kuxa own = own_attributes(mask);
            kux *made = kuxcreate(&own);
            expect_fields(current(made), mask, own, defaults);
            kuxset(made, &defaults); // the streams are released through callbacks that are there
            kuxdestroy(made);

            EXPECT_EQ(kuxset(ctx, &own), 0u);
            expect_fields(current(ctx), mask, own, defaults);
            kuxset(ctx, &defaults);
            kuxa fetched = own;
            EXPECT_EQ(kuxget(ctx, &fetched), 0u);
            expect_fields(fetched, mask, defaults, own);
        }
    const kuxa refused = own_attributes(~0u); // with the level capacity nothing is changed
    EXPECT_EQ(kuxset(ctx, &refused), KUXRM_REFUSED);
    expect_fields(current(ctx), 0, defaults, defaults);
    EXPECT_ERRORS(ctx, {"kuxrm 2(error stack size)"});
    kuxdestroy(ctx);
}

TEST(Kux, ANewContextIsEmptyAndItsParametersHaveDefaults)
{
    kuxa attrs = {};
    kux *ctx = kuxcreate(&attrs);
    const kuxa now = current(ctx);
    EXPECT_EQ(ctx->kuxersize, 5);
    EXPECT_TRUE(now.kuxaerformat == kuxerdformat && now.kuxanmalloc == kuxdnalloc
                && now.kuxarmgetstate == kuxdrgetstate && now.kuxauiapp == nullptr);
    EXPECT_STREQ(now.kuxaversion, "2.0.5.0.0");
    EXPECT_TRUE(now.kuxalangidh == &ctx->kuxlbuffer && now.kuxadcxdef == ctx->kuxdcxdef);
    EXPECT_EQ(kuxernerrors(ctx) + ctx->kuxmldisabled + ctx->kuxprnprops, 0);
    EXPECT_TRUE(ctx->kuxstdin && ctx->kuxstdout && ctx->kuxstderr);
    ctx->kuxtokbuf = static_cast<unsigned char *>(ctx->kuxnmalloc(ctx, 10));
    ctx->kuxtoklen = 10; // released with the context, a leak otherwise
    EXPECT_EQ(kuxdestroy(ctx), nullptr);

    attrs.kuxamask = KUXA_ERSIZE | KUXA_NMALL; // no callbacks at all, no room for errors
    attrs.kuxaersize = -3;
    ctx = kuxcreate(&attrs);
    kuxer0push(ctx, 8), kuxer0push(ctx, 9);
    EXPECT_EQ(kuxernerrors(ctx), 1);
    EXPECT_EQ(ctx->kuxstdout, nullptr);
    EXPECT_EQ(kuxiomessage(ctx, "nothing shows"), 0u);
    kuxdestroy(ctx);
    EXPECT_EQ(kuxdestroy(nullptr), nullptr);
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

TEST(Kux, AFailedDateConversionJumpsWithItsReasonOnTheStack)
{
    ku::test::context ctx;
    ku::core::date date = {};
    if (setjmp(ctx->kuxdacxp->jbuf_kuxdacx) == 0) {
        EXPECT_TRUE(
            ku::core::text_to_date(ctx->kuxdcxdef, "29-fEB-2024", 11, "DD-MON-YYYY", &date));
        ku::core::text_to_date(ctx->kuxdcxdef, "2023-02-29", 10, "YYYY-MM-DD", &date);
        ADD_FAILURE() << "the conversion came back";
    }
    EXPECT_ERRORS(ctx, {"kuxaa 2(the month has no such day)"});
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
        {"ZzZzZ", 127, 0xCE739CFF, "zzzzz"},
        {"a-\xC4\x7F{", 1, 1, "aaaaa"},
        {"kuxaa", 128, KU_CODE('k', 'u', 'x', 'a', 'b', 0), "kuxab"}, // spills into the letter
    };
    for (const auto &row : rows) {
        EXPECT_EQ(kuxidencode(row.prefix, row.number), row.identifier) << row.prefix;
        char letters[6] = "#####";
        EXPECT_EQ(kuxiddecode(row.identifier, letters), row.number & 0x7F) << row.prefix;
        EXPECT_STREQ(letters, row.letters);
    }
    EXPECT_EQ(kuxidextract(0xFFFFFFFF, 0), 'z');
    EXPECT_EQ(kuxidextract(0xFFFFFFFF, 6), 'a');
    EXPECT_EQ(kuxidextract(0xFFFFFFFF, -1), 'a');
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
    using table = std::vector<std::pair<uint32_t, property *>>;
    table model;
    std::deque<property> values;
    for (int step = 0; step < 2000; step++) {
        const uint32_t name = dice.below(70);
        const auto at = std::find_if(model.begin(), model.end(),
                                     [name](const auto &each) { return each.first == name; });
        property *old = at != model.end() ? at->second : nullptr;
        if (dice.one_in(2)) {
            property *value = dice.one_in(8) ? nullptr : &values.emplace_back();
            ASSERT_EQ(kuxprset(ctx, name, value, release), 0u);
            if (at != model.end())
                at->second = value;
            else
                model.emplace_back(name, value);
            ASSERT_EQ(kuxprget(ctx, name), value);
            ASSERT_EQ(kuxprexists(ctx, name), 1);
        } else {
            kuxprremove(ctx, name);
            if (at != model.end()) model.erase(at);
            ASSERT_EQ(kuxprget(ctx, name), nullptr);
            ASSERT_EQ(kuxprexists(ctx, name), 0);
        }
        ASSERT_EQ(old != nullptr ? old->released : 1, 1);
        table walked;
        const auto note = [](kux *, uint32_t each, void *value, void *list) {
            static_cast<table *>(list)->emplace_back(each, static_cast<property *>(value));
        };
        kuxpriterate(ctx, note, &walked);
        ASSERT_EQ(walked, model);
    }
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
        {"sets itself to what is to be released",
         [](kux *ctx) {
             static property meanwhile;
             const int before = meanwhile.released;
             if (kuxprset(ctx, 2, &meanwhile, release) == 0)
                 kuxprremove(ctx, 2);
             else // refused while the context ends
                 meanwhile.released++;
             EXPECT_EQ(meanwhile.released, before + 1);
         },
         {"1 3 2", "1 3"}},
        {"switches the logs on",
         [](kux *ctx) {
             kuxmlon(ctx);
             kuxnlfree(ctx, kuxnlalloc(ctx, 5));
         },
         {"1 2 3", "1 3"}},
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
            const std::vector<int> released = {first.released, middle.released, last.released,
                                               other.released};
            EXPECT_EQ(released, (std::vector<int>{1, 1, 1, how == 0})) << row.why << how;
        }
}

// ---- messages and confirmations ----

namespace
{

// A message stream that keeps what it is told.
struct notes {
    strings shown;
};

uint32_t note_message(kux *, kuxst *stream, const char *text)
{
    static_cast<notes *>(stream->streamdata_kuxst)->shown.emplace_back(text);
    return 42;
}

int32_t note_question(kux *ctx, kuxst *stream, const char *text)
{
    note_message(ctx, stream, text);
    return 1;
}

} // namespace

TEST(Kuxio, MessagesGoToTheInstalledStreamOrNowhere)
{
    ku::test::context ctx;
    notes seen;
    kuxsta attrs = {KUXSTA_STREAMDATA, note_message, note_question, &seen};
    kuxst *stream = kuxstcreate(ctx, &attrs);
    EXPECT_TRUE(stream->message_kuxst == kuxstdmessage && stream->confirm_kuxst == kuxstdconfirm);
    kuxioa io = {KUXIOA_STDIO, stream};
    EXPECT_EQ(kuxioset(ctx, &io), 0u);
    EXPECT_EQ(kuxiomessage(ctx, "lost"), 0u); // the default functions
    EXPECT_EQ(kuxioconfirm(ctx, "Lost?"), 0);

    attrs.mask_kuxsta = KUXSTA_MESSAGE | KUXSTA_CONFIRM;
    EXPECT_EQ(kuxstset(ctx, stream, &attrs), 0u);
    EXPECT_EQ(kuxiomessage(ctx, "Hello"), 42u);
    EXPECT_EQ(kuxioconfirm(ctx, "Sure?"), 1);
    const kuxioa untouched = {0, nullptr}; // without its bit nothing is set
    EXPECT_EQ(kuxioset(ctx, &untouched), 0u);
    EXPECT_EQ(kuxiomessage(ctx, "again"), 42u);
    kuxsta now = {KUXSTA_MESSAGE, nullptr, kuxstdconfirm, nullptr};
    EXPECT_EQ(kuxstget(ctx, stream, &now), 0u);
    EXPECT_TRUE(now.message_kuxsta == note_message && now.confirm_kuxsta == kuxstdconfirm);

    kuxer0push(ctx, 77); // these answer with the newest code, whoever pushed it
    io.stdio_kuxioa = nullptr;
    EXPECT_EQ(kuxioget(ctx, &io), 77u);
    EXPECT_EQ(io.stdio_kuxioa, stream);
    EXPECT_EQ(kuxstdestroy(ctx, stream), 77u);
    ctx.clear();
    io.stdio_kuxioa = nullptr; // a null stream is none, though the property is there
    kuxioset(ctx, &io);
    EXPECT_EQ(kuxprexists(ctx, KUXIO_PROPERTY), 1);
    EXPECT_EQ(kuxiomessage(ctx, "lost"), 0u);
    EXPECT_EQ(seen.shown, (strings{"Hello", "Sure?", "again"}));
    kuxprremove(ctx, KUXIO_PROPERTY);
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
    static const std::string path = KU_SOURCE_DIR "/msg/ku.msg";
    static constexpr char opening[] = "A date could not be converted: ";
    const auto work = [](uint32_t number, std::string *result) {
        kuapp application = {path.c_str(), nullptr};
        kuxa attrs = {};
        attrs.kuxamask = KUXA_UIAPP;
        attrs.kuxauiapp = &application;
        kux *ctx = kuxcreate(&attrs);
        for (int round = 0; round < 50; round++) {
            property value;
            kuxprset(ctx, number, &value, release);
            kuxmlbegin(ctx);
            kuxnlalloc(ctx, 100 + number);
            kuxmlrollback(ctx);
            if (setjmp(ctx->kuxdacxp->jbuf_kuxdacx) == 0)
                kuxdaterr(ctx->kuxdcxdef, static_cast<int32_t>(1000 + number));
            char text[200];
            uint32_t length = 199;
            kuxerfmtmsg(ctx, kuxerget(ctx, 0), "text", text, &length, nullptr);
            *result = text;
            kuxerclear(ctx);
            kuxprremove(ctx, number);
        }
        kuxdestroy(ctx);
    };
    std::vector<std::string> results(4);
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < 4; i++) threads.emplace_back(work, i, &results[i]);
    for (std::thread &thread : threads) thread.join();
    for (size_t i = 0; i < 4; i++)
        EXPECT_EQ(results[i], opening + ("error " + std::to_string(1000 + i)) + ".");
}
