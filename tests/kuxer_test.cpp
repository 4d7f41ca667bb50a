// kuxer_test.cpp - the error stack, and how its records become text

#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kuxer.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

namespace
{

constexpr uint32_t some_error = KU_CODE('k', 'u', 'l', 'a', 'a', 3);
using texts = std::vector<std::string>;

void push(kux *ctx, uint32_t code, const texts &params)
{
    std::vector<const char *> pointers;
    for (const std::string &param : params) pointers.push_back(param.c_str());
    kuxerpush(ctx, code, static_cast<int32_t>(pointers.size()), pointers.data());
}

// A context whose application has a message file.
class messages
{
public:
    explicit messages(const std::string &file, const char *language = "ascii", int errors = 20)
        : ctx(language, errors),
          path_(directory_.write("m.msg", file)), application_{path_.c_str(), nullptr}
    {
        kuxa attrs = {};
        attrs.kuxamask = KUXA_UIAPP;
        attrs.kuxauiapp = &application_;
        kuxset(ctx, &attrs);
    }

    ku::test::context ctx;

    // The user's text of an error, or its bare message; never more than `most` bytes and a NUL
    // are written.
    std::string format(const texts &params, uint32_t most = 300, const char *type = "text",
                       bool bare = false)
    {
        push(ctx, some_error, params);
        std::string buffer(most + 2, '#');
        length = most;
        truncated = -1;
        if (bare)
            kuxergmsg(ctx, some_error, type, buffer.data(), &length, &truncated);
        else
            kuxerfmtmsg(ctx, kuxerget(ctx, 0), type, buffer.data(), &length, &truncated);
        EXPECT_EQ(buffer[most + 1], '#');
        kuxerclear(ctx);
        return buffer.substr(0, buffer.find('\0'));
    }
    uint32_t length = 0;
    int32_t truncated = 0;

private:
    ku::test::directory directory_;
    std::string path_;
    kuapp application_;
};

} // namespace

TEST(Kuxer, LevelsHoldTheNewestRecordsLikeBoundedQueues)
{
    for (const int capacity : {1, 2, 5}) {
        ku::test::context ctx("ascii", capacity);
        ku::test::dice dice;
        std::vector<std::deque<std::string>> model(1);
        const auto pushed = [&](const std::string &record) {
            model.back().push_back(record);
            if (model.back().size() > static_cast<size_t>(capacity)) model.back().pop_front();
        };
        for (int step = 0; step < 4000; step++) {
            const uint32_t number = dice.below(128);
            const std::string plain = "kulaa " + std::to_string(number);
            const uint32_t code = KU_CODE('k', 'u', 'l', 'a', 'a', number);
            switch (dice.below(9)) {
            case 0: kuxerpush(ctx, code, dice.one_in(2) ? -1 : 3, nullptr), pushed(plain); break;
            case 1: kuxer2push(ctx, code, nullptr, "x"), pushed(plain + "((null), x)"); break;
            case 2: kuxer4push(ctx, code, "a", "", "c", "d"), pushed(plain + "(a, , c, d)"); break;
            case 3: // what was just read from the stack, which the push itself may drop
            case 4: // or in place of all there is
                if (const kuxer *old = kuxerget(ctx, 0)) {
                    const bool alone = dice.one_in(2);
                    const std::string record = model.back().front();
                    if (alone) model.back().clear();
                    pushed(record);
                    (alone ? kuxerset : kuxerpush)(ctx, old->kuxercode, old->kuxernparams,
                                                   old->kuxerparams);
                }
                break;
            case 5:
                kuxerpop(ctx);
                if (!model.back().empty()) model.back().pop_back();
                break;
            case 6: // as likely as restoring, so that the array of levels grows
                if (!dice.one_in(2)) break;
                ASSERT_EQ(kuxersavestack(ctx), 0u);
                model.emplace_back();
                break;
            case 7:
                if (!dice.one_in(2)) break;
                ASSERT_EQ(kuxerrestorestack(ctx), model.size() > 1 ? 0u : KUXER_LAST);
                if (model.size() > 1)
                    model.pop_back();
                else
                    pushed("kuxer 3");
                break;
            default:
                if (dice.one_in(4)) kuxerclear(ctx), model.back().clear();
            }
            const std::vector<std::string> expected(model.back().begin(), model.back().end());
            ASSERT_EQ(ctx.errors(), expected);
            ASSERT_EQ(kuxernerrors(ctx), static_cast<int32_t>(expected.size()));
            if (!expected.empty()) {
                ASSERT_EQ(kuxercode(ctx), kuxerget(ctx, 99)->kuxercode);
                ASSERT_EQ(kuxerget(ctx, -1), kuxerget(ctx, kuxernerrors(ctx) - 1));
            }
        }
        while (kuxerrestorestack(ctx) == 0) {
        }
        ctx.clear();
        EXPECT_EQ(kuxercode(ctx), 0u);
        EXPECT_EQ(kuxerget(ctx, 0), nullptr);
    }
}

TEST(Kuxer, WithoutMemoryRecordsLoseParametersButAreThere)
{
    ku::test::sweep_basic_allocations([](ku::test::context &ctx) {
        kuxer3push(ctx, some_error, "a", "b", "c");
        const std::string record = ctx.errors().at(0), all = "kulaa 3(a, b, c)";
        EXPECT_TRUE(record == all || record == "kulaa 3" || record == "kulaa 3(a)"
                    || record == "kulaa 3(a, b)")
            << record;
        return record == all;
    });
    ku::test::sweep_basic_allocations([](ku::test::context &ctx) {
        while (ctx->kuxernstacks < 10)
            if (kuxersavestack(ctx) != 0) break;
        const int levels = ctx->kuxernstacks;
        const bool saved = levels == 10 && kuxersavestack(ctx) == 0; // the array has to grow
        if (!saved) {
            EXPECT_EQ(ctx->kuxernstacks, levels);
            EXPECT_EQ(ctx.errors(), texts{"kuxer 2"});
        }
        ku::test::fail_basic_from_now(0);
        while (ctx->kuxernstacks > 1) kuxerrestorestack(ctx);
        return saved;
    });
}

TEST(Kuxer, IterationVisitsNewestFirstAndSurvivesItsCallback)
{
    struct walk {
        void (*act)(kux *ctx);
        const char *visited;
        std::string seen;
    };
    walk walks[] = {
        {[](kux *) {}, "321", ""},
        {kuxerpop, "321", ""},
        {[](kux *ctx) { kuxerpop(ctx), kuxerpop(ctx); }, "3", ""}, // the next record is gone
        {kuxerclear, "3", ""},
        {[](kux *ctx) { kuxer0push(ctx, some_error); }, "321", ""},
        {[](kux *ctx) { kuxersavestack(ctx); }, "3", ""}, // another level
        {[](kux *ctx) {                                   // another one, maybe at the same address
             kuxerrestorestack(ctx);
             kuxersavestack(ctx);
             for (int record = 0; record < 3; record++) kuxer1push(ctx, some_error, "4");
         },
         "3", ""},
    };
    const auto visit = [](kux *ctx, kuxer *record, void *clientarg) {
        auto *state = static_cast<walk *>(clientarg);
        state->seen += record->kuxerparams[0];
        state->act(ctx);
    };
    for (walk &each : walks) {
        ku::test::context ctx;
        kuxersavestack(ctx);
        for (const char *digit : {"1", "2", "3"}) kuxer1push(ctx, some_error, digit);
        kuxeriterate(ctx, visit, &each);
        EXPECT_EQ(each.seen, each.visited);
        while (ctx->kuxernstacks > 1) kuxerrestorestack(ctx);
        ctx.clear();
    }
}

TEST(Kuxer, PlainTextIsCutToItsSize)
{
    static const struct {
        uint32_t code;
        texts params;
        std::string text;
    } rows[] = {
        {some_error, {}, "kulaa 3"},
        {KU_CODE('z', 'z', 'z', 'z', 'z', 127), {}, "zzzzz 127"},
        {0xFFFFFFFF, {}, "zzzzz 127"}, // letters above the alphabet
        {some_error, {"a", "bc"}, "kulaa 3  a, bc"},
        {some_error, {""}, "kulaa 3  "},
    };
    ku::test::context ctx;
    for (const auto &row : rows) {
        push(ctx, row.code, row.params);
        for (uint32_t size = 0; size < 20; size++) {
            SCOPED_TRACE(row.text + " in " + std::to_string(size));
            const bool room = size >= 10; // for any code; nothing is touched without
            std::string want = room ? row.text.substr(0, size - 1) + '\0' : "";
            const auto used = static_cast<uint32_t>(want.size());
            std::string buffer(30, '#');
            int32_t truncated = -1;
            EXPECT_EQ(kuxerdformat(ctx, kuxerget(ctx, 0), buffer.data(), size, &truncated), used);
            EXPECT_EQ(truncated, !room || row.text.size() >= size ? 1 : 0);
            EXPECT_EQ(buffer, want.append(30 - used, '#'));
            EXPECT_EQ(kuxerformat(ctx, kuxerget(ctx, 0), buffer.data(), size, nullptr), used);
        }
        ctx.clear();
    }
}

TEST(Kuxer, MessagesTakeTheirParametersOrFallBackToPlainText)
{
    static const struct {
        texts messages;
        std::string text;
    } rows[] = {
        {{"File %s not found in %s"}, "File a.txt not found in dir"},
        {{"%[2]s: %[1]s"}, "dir: a.txt"},
        {{"%[2]s %s, %[01]s %s"}, "dir a.txt, a.txt dir"}, // a number does not move the counter
        {{"no parameter"}, "no parameter"},
        {{"%%", "%d", "100%", "%[0]s", "%[3]s", "%s %s %s", "%[]s", "%[ 1]s", "%[+1]s", "%[-1]s",
          "%[1]d", "%[1]", "%[1", "%[", "%[4294967298]s", "%[99999999999999999999999999]s"},
         "kulaa 3  a.txt, dir"}, // no such parameter, or no directive: the plain text
    };
    for (const auto &row : rows)
        for (const std::string &message : row.messages) {
            const bool plain = row.messages.size() > 1;
            messages file("kulaa3 text " + message + "\n");
            EXPECT_EQ(file.format({"a.txt", "dir"}), row.text) << message;
            EXPECT_EQ(file.length, plain ? 300u : row.text.size());
            EXPECT_EQ(file.truncated, 0);

            messages generic("kuxer1 text !%s!\nkulaa3 text " + message + "\n");
            EXPECT_EQ(generic.format({"a.txt", "dir"}), plain ? "!" + row.text + "!" : row.text);
        }
}

TEST(Kuxer, MessagesKeepToTheirRoomAndToWholeCharacters)
{
    static const struct {
        const char *language, *message, *param;
        uint32_t most;
        const char *text;
        uint32_t length; // of a message; plain text leaves it
    } rows[] = {
        {"ascii", "ab %s", "wxyz", 7, "ab wxyz", 7},
        {"ascii", "ab %s", "wxyz", 5, "ab wx", 5},
        {"ascii", "ab %s", "wxyz", 3, "ab ", 3},
        {"ascii", "ab %s", "wxyz", 2, "", 2}, // a literal that does not fit, no room for more
        {"ascii", "%s 123456789", "wxyz", 13, "kulaa 3  wxy", 13},
        {"ascii", "ab %s", "wxyz", 0, "", 0},
        {"utf8", "\xC3\xA4%s", "\xC3\xB6\xC3\xB6", 5, "\xC3\xA4\xC3\xB6", 4},
        {"utf8", "%s\xC3\xA4", "\xFF", 3, "\xFF\xC3\xA4", 3}, // a broken byte passes through
        {"sjis", "\x83\x5C%s", "\x95\x5C", 4, "\x83\x5C\x95\x5C", 4},
        {"sjis", "\x83\x5C%s", "\x95\x5C", 3, "\x83\x5C", 2},
        // Shifted bytes are no directives; a closing byte is not counted but has its room.
        {"iso-2022-kr", "\x0E%s\x0F%s", "b", 9, "\x0E%s\x0F\x62", 5},
        {"iso-2022-kr", "a%s", "\x0E\x30\x30\x0F", 5, "a\x0E\x30\x30\x0F", 4},
        {"iso-2022-kr", "a%s", "\x0E\x30\x30\x0F", 4, "a", 1},
        {"iso-2022-kr", "a%s b", "\x0E\x30\x30\x0F", 9, "a\x0E\x30\x30\x0F b", 7},
        {"iso-2022-kr", "a%s%s", "\x0E\x30\x30\x0F", 9, "a\x0E\x30\x30\x31\x31\x0F", 6},
    };
    for (const auto &row : rows) {
        const std::string charset = std::string("charset ") + row.language;
        messages file(charset + "\nkulaa3 text " + row.message + "\n", row.language);
        EXPECT_EQ(file.format({row.param, "\x0E\x31\x31\x0F"}, row.most), row.text)
            << row.language << " " << row.message << " in " << row.most;
        EXPECT_EQ(file.length, row.length) << row.message << " in " << row.most;
    }
}

TEST(Kuxer, MessageTextsAreCutToTheWantedLength)
{
    messages file("kulaa3 text " + std::string(600, 'x') + "\nkulaa3 cause Why.\n");
    static constexpr struct {
        const char *type;
        uint32_t most, length;
        int32_t truncated;
    } rows[] = {
        {"text", 4, 4, 1},  {"text", 600, 600, 0}, {"text", 599, 599, 1},
        {"cause", 4, 4, 0}, {"action", 100, 0, 0},
    };
    for (const auto &row : rows) {
        const std::string text = file.format({}, row.most, row.type, true);
        EXPECT_EQ(file.length, row.length) << row.type;
        EXPECT_EQ(file.truncated, row.truncated) << row.type;
        EXPECT_EQ(text.size(), row.length != 0 ? row.length : row.most + 2); // or untouched
    }
    EXPECT_EQ(file.format({}, 700).size(), KUXER_TEXTMAX);
    EXPECT_EQ(file.truncated, 1);
    EXPECT_EQ(file.format({}, 300, "cause"), "Why.");
}

TEST(Kuxer, NoApplicationMeansPlainTextByTheContextsFormatter)
{
    messages file("kulaa3 text There is a message\n");
    kuxa attrs = {};
    attrs.kuxamask = KUXA_UIAPP | KUXA_ERFORMAT;
    attrs.kuxaerformat = [](kux *, kuxer *record, char *buffer, uint32_t, int32_t *truncated) {
        *truncated = 0;
        buffer[0] = static_cast<char>('A' + record->kuxernparams);
        return 1u; // a formatter that counts without a NUL and writes none
    };
    kuxset(file.ctx, &attrs);
    EXPECT_EQ(file.format({"a", "b"}), "C");
    attrs.kuxamask = KUXA_ERFORMAT;
    attrs.kuxaerformat = nullptr;
    kuxset(file.ctx, &attrs);
    EXPECT_EQ(file.format({"a", "b"}), "kulaa 3  a, b");
}

TEST(Kuxer, WithoutMemoryMessagesFallBackAndTheStackStays)
{
    messages file("kulaa3 text Message of %s\n", "ascii", 1);
    const std::string message = "Message of a";
    bool formatted = false;
    for (int n = 1; !formatted; n++) {
        kuxer1push(file.ctx, some_error, "a");
        char buffer[100];
        uint32_t length = 99;
        ku::test::fail_basic_from_now(n);
        kuxerfmtmsg(file.ctx, kuxerget(file.ctx, 0), "text", buffer, &length, nullptr);
        formatted = !ku::test::basic_failed();
        ku::test::fail_basic_from_now(0);
        const std::string result = buffer;
        // A level that cannot be saved takes the only record's place: its code is left.
        const bool dropped = kuxercode(file.ctx) == KUXER_NOLEVEL;
        EXPECT_EQ(result, formatted ? message : dropped ? "kulaa 3" : "kulaa 3  a") << n;
        EXPECT_EQ(file.ctx->kuxernstacks, 1);
        EXPECT_ERRORS(file.ctx, {dropped ? "kuxer 2" : "kulaa 3(a)"});
        ASSERT_LT(n, 50);
    }
}
