// Preferences: both files, read, looked up, changed and written back.
#include "kup.h"

#include <algorithm>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

#include "kul.h"
#include "port/locale/locale.h"
#include "skub.h"
#include "support/context.h"
#include "support/files.h"
#include "support/random.h"
#include "support/sweep.h"

using namespace ku::test;
using values = std::vector<std::string>;

namespace
{

constexpr const char *userfile = "kuuprefs.xdb";
constexpr const char *globalfile = "kugprefs.xdb";

std::string times(int count, const std::string &text)
{
    std::string result;
    while (count-- > 0) result += text;
    return result;
}

// Both files in a directory of their own.
struct home {
    directory dir;
    variable user{"KU_UPREFS", dir.path()};
    variable global{"KU_GPREFS", dir.path()};
};

values listed(context &ctx, void *list)
{
    values result;
    for (int32_t i = 0; list != nullptr && i < kulpnitems(ctx, list); i++)
        result.push_back(text(ctx, static_cast<kuxhandle>(kulpitem(ctx, list, i))));
    return result;
}

std::string spell(const values &all)
{
    std::string result;
    for (const std::string &each : all) result += "[" + each + "]";
    return result;
}

// Preferences opened for a product named "prod", closed at the end.
struct opened {
    context &ctx;
    kupct *prefs = nullptr;
    uint16_t status;

    explicit opened(context &with, const char *product = "prod")
        : ctx(with), status(kupopen(ctx, product, &prefs))
    {
    }
    opened(const opened &) = delete;
    opened &operator=(const opened &) = delete;
    ~opened() { EXPECT_EQ(kupclose(prefs), 0); }

    std::string entries(void *list, const char *prefix) const
    {
        const spared undisturbed(ctx);
        std::string result;
        for (int32_t i = 0; i < kulpnitems(ctx, list); i++) {
            auto entry = static_cast<kuxhandle>(kulpitem(ctx, list, i));
            const kuppf record = *static_cast<kuppf *>(ctx->kuxrmlock(ctx, entry));
            ctx->kuxrmunlock(ctx, entry);
            result += prefix + (record.kuppfprd ? text(ctx, record.kuppfprd) + "." : "")
                      + text(ctx, record.kuppfprf) + "=" + spell(listed(ctx, record.kuppfval))
                      + "\n";
        }
        return result;
    }
    // All entries of a file, as read.
    std::string user() const
    {
        return entries(prefs->kupctugn, "") + entries(prefs->kupctusp, "prod.")
               + entries(prefs->kupcttmp, "");
    }
    std::string global() const
    {
        return entries(prefs->kupctggn, "") + entries(prefs->kupctgsp, "prod.");
    }
    uint16_t set(const char *name, const values &given, uint16_t flags)
    {
        void *list = nullptr;
        {
            const spared undisturbed(ctx);
            list = kulpcreate(ctx, 0, nullptr);
            for (const std::string &each : given)
                kulpinsert(ctx, list, KUL_APPEND, relocatable(ctx, each));
        }
        const uint16_t result = kupset(prefs, name, list, flags);
        for (int32_t i = 0; result != 0 && i < kulpnitems(ctx, list); i++) // still ours
            ctx->kuxrmfree(ctx, static_cast<kuxhandle>(kulpitem(ctx, list, i)));
        kulpdestroy(ctx, list);
        return result;
    }
    values get(const char *name, uint16_t flag, uint16_t *found = nullptr)
    {
        void *list = this;
        const uint16_t result = kupget(prefs, name, flag, nullptr, &list);
        const values got = listed(ctx, list);
        kulpdestroy(ctx, list);
        if (found != nullptr) *found = result;
        return got;
    }
};

TEST(Kup, ReaderMakesEntriesOfTokensAndLosesOnlyWhatAnErrorInterrupts)
{
    const struct {
        const char *reason;
        std::string text;
        std::string entries;
        uint32_t line = 0;                    // of the first error
        const char *global_entries = nullptr; // in the global file, where they differ
        uint32_t global_line = 0;
    } rows[] = {
        {"nothing", "", ""},
        {"names are sorted without case", "b = 1\nC = 2\na = 3", "a=[3]\nb=[1]\nC=[2]\n"},
        {"entries share a line", "a=1 b=2", "a=[1]\nb=[2]\n"},
        {"lists", "x = (a, b)\ny = ()\nz\n=\n(c,\n 'd e')\n", "x=[a][b]\ny=\nz=[c][d e]\n"},
        {"a comma wants a value", "x = (a, )\n", "", 1},
        {"kinds", "PROD.x = 1\nother.y = 2\nz = 3\n", "z=[3]\nprod.x=[1]\nother.y=[2]\n", 0,
         "z=[3]\nprod.x=[1]\n"},
        {"a dropped entry takes no glue", "other.x = a-b\ny = 1\n", "y=[1]\nother.x=[a-b]\n", 0,
         "y=[1]\n", 1},
        {"adjacent tokens are one value", "x = a-b\ny = c:\\work\nz = (12abc, _foo, a'b')\n",
         "x=[a-b]\ny=[c:\\work]\nz=[12abc][_foo][a'b']\n"},
        {"nothing is glued to quotes", "x = 'a'b", "x=[a]\n"},
        {"a value ends at punctuation", "x = a.b c = d\n", "x=[a]\n", 1},
        {"a stray word takes the next line", "x = a b\ny = 2\nz = 3\n", "x=[a]\nz=[3]\n", 2},
        {"quotes", "x = 'it''s'\ny = \"a\"\"b'\"\nz = ''\n", "x=[it's]\ny=[a\"b']\nz=[]\n"},
        {"comments", "-- a\nx /* = \n ) */ = <<b>> 1 -- c\n", "x=[1]\n"},
        {"a hint is no comment", "--+ a\nx = /*+ b */\n", "x=[/*+ b */]\n", 1},
        {"values over lines", "x = 'one\ntwo'\ny = (\"a\n\nb\", c)\n",
         "x=[one\ntwo]\ny=[a\n\nb][c]\n"},
        {"later lines keep doubled quotes, lose leading ones", "x = 'a\nit''s\n\"b\nc'",
         "x=[a\nit''s\nb\nc]\n"},
        {"an unclosed text in the wrong place", "x = 1\n'a\nb' y\nz = 2", "x=[1]\nz=[2]\n", 3},
        {"the end of the file", "x = 1\ny = ('a', 'b\n", "x=[1]\n"},
        {"the first error counts", "=\nx = (a b\ny = 1\n)\n", "y=[1]\n", 1},
        {"a general entry of the product's name", "Prod = 1\nx = 2\n", "x=[2]\n", 1},
        {"the product's name, a list, no name", "prod = (1,\n2)\nx = 3\n", "x=[3]\n", 2},
        {"a long line is several", "x = " + times(2000, "a") + "\ny = 1\nz = 2\n",
         "x=[" + times(1019, "a") + "]\nz=[2]\n", 3},
    };
    for (const char *language : {"ascii", "utf8", "iso-2022-kr"}) {
        for (const auto &row : rows) {
            SCOPED_TRACE(std::string(language) + ": " + row.reason);
            const home files;
            files.dir.write(userfile, row.text);
            files.dir.write(globalfile, row.text);
            context ctx(language);
            opened file(ctx);
            const uint32_t line = row.global_entries ? row.global_line : row.line;
            EXPECT_EQ(file.user(), row.entries);
            EXPECT_EQ(file.global(), row.global_entries ? row.global_entries : row.entries);
            EXPECT_EQ(kuperrlin(file.prefs, KUP_USER), row.line);
            EXPECT_EQ(kuperrlin(file.prefs, KUP_GLOBALERR), line);
            EXPECT_EQ(file.status, (row.line ? KUP_USERERR : 0) | (line ? KUP_GLOBALERR : 0));
        }
    }
}

using line = std::pair<std::string, std::string>; // name, value

int32_t compare_lines(kux *ctx, void *a, void *b, void *)
{
    const std::string &first = static_cast<line *>(a)->first;
    const std::string &second = static_cast<line *>(b)->first;
    return ku::locale::compare_text_nocase(*ctx->kuxlangidh, first.data(), first.size(),
                                           second.data(), second.size());
}

TEST(Kup, EntriesOfOneNameComeInTheOrderThatSortingTheListGives)
{
    dice random;
    for (const uint32_t different : {1, 2, 5, 90, 1000})
        for (const std::string beyond : {"", "\xC3\xA9"}) { // names of ASCII, and not
            const home files;
            std::vector<line> lines(300);
            std::string text, sorted;
            context ctx(beyond.empty() ? "ascii" : "utf8");
            void *model = kulpcreate(ctx, 0, nullptr);
            for (line &each : lines) {
                each.first = (random.one_in(2) ? "aB" : "Ab") + (random.one_in(2) ? beyond : "")
                             + std::to_string(random.below(random.one_in(9) ? 90 : different));
                each.second = std::to_string(&each - lines.data());
                text += each.first + "=" + each.second + "\n";
                kulpinsert(ctx, model, KUL_APPEND, &each);
            }
            files.dir.write(userfile, text);
            opened file(ctx);
            kulpqsort(ctx, model, compare_lines, nullptr);
            for (int32_t i = 0; i < kulpnitems(ctx, model); i++) {
                const auto &[name, value] = *static_cast<line *>(kulpitem(ctx, model, i));
                sorted += name + "=[" + value + "]\n";
            }
            kulpdestroy(ctx, model);
            EXPECT_EQ(file.user(), sorted) << "seed " << seed();
        }
}

TEST(Kup, ManyEqualNamesAndValuesAreSortedLikeAnyOthers)
{
    // Minutes if each of them went through all others.
    constexpr int count = 100000;
    const home files;
    std::string same, list;
    for (int i = 0; i < count; i++) same += i % 1000 == 7 ? "other=1\n" : "x=2\n";
    for (int i = 0; i < count; i++) list += i == 0 ? "(v" : i % 1000 == 7 ? ",a\n" : ",v\n";
    files.dir.write(userfile, same + "many=" + list + ")\n");
    files.dir.write(globalfile, same);
    context ctx;
    opened file(ctx);
    EXPECT_EQ(kulpnitems(ctx, file.prefs->kupctugn), count + 1);
    EXPECT_EQ(kulpnitems(ctx, file.prefs->kupctggn), count);
    void *found = nullptr;
    EXPECT_EQ(kupget(file.prefs, "many", 0, nullptr, &found), 0x6000);
    ASSERT_EQ(kulpnitems(ctx, found), count);
    EXPECT_EQ(text(ctx, static_cast<kuxhandle>(kulpitem(ctx, found, count / 1000 - 1))), "a");
    EXPECT_EQ(text(ctx, static_cast<kuxhandle>(kulpitem(ctx, found, count / 1000))), "v");
    // The entry's own handles given back: none is looked for among all others.
    EXPECT_EQ(kupset(file.prefs, "many", found, KUP_GENERAL), 0);
    kulpdestroy(ctx, found);
}

TEST(Kup, LinesOfMegabytesAreRead)
{
    const home files;
    const std::string much = times(1 << 20, "ten bytes ");
    const std::string value = times(1 << 16, "ten bytes ");
    files.dir.write(userfile, "x = '" + value + "'\n/*" + much + "*/ y = 1\n");
    files.dir.write(globalfile, much + "\nz = 1\n");
    context ctx;
    opened file(ctx);
    EXPECT_EQ(file.status, KUP_GLOBALERR);
    EXPECT_TRUE(file.user() == "x=[" + value + "]\ny=[1]\n");
    EXPECT_EQ(file.global(), "z=[1]\n");
    EXPECT_EQ(kuperrlin(file.prefs, KUP_USERERR | KUP_GLOBAL), 0u);
    EXPECT_EQ(kuperrlin(file.prefs, KUP_SPECIFIC), 0u);
}

TEST(Kup, MissingFilesAreNormal)
{
    const home files;
    context ctx;
    kuxer0push(ctx, KU_CODE('a', 'b', 'c', 'd', 'e', 1));
    {
        const variable user("KU_UPREFS", nullptr);
        const variable global("KU_GPREFS", times(512, "a"));
        opened file(ctx, nullptr);
        EXPECT_EQ(file.status, KUP_NOUSERFILE | KUP_NOGLOBALFILE);
        EXPECT_EQ(kupwrite(file.prefs), KUP_NOUSERFILE);
        EXPECT_EQ(ctx.errors().size(), 1u); // a name that cannot be built clears nothing
    }
    mkdir(files.dir.path(globalfile).c_str(), 0777);
    opened file(ctx);
    EXPECT_EQ(file.status, KUP_NOUSERFILE | KUP_NOGLOBALFILE);
    EXPECT_EQ(file.user() + file.global(), "");
    EXPECT_EQ(file.set("x", {"1"}, KUP_GENERAL), 0);
    EXPECT_EQ(kupwrite(file.prefs), 0);
    EXPECT_ERRORS(ctx, {});
    EXPECT_EQ(files.dir.read(userfile), "x = 1\n");
}

// What a lookup of an entry answers that is in the places whose bits are set in `present`.
uint16_t answer(const values (&places)[4], int present, uint16_t flag, values &model)
{
    uint16_t status = 0;
    for (const uint16_t file : {KUP_USER, KUP_GLOBAL}) {
        if ((flag & (KUP_USER | KUP_GLOBAL)) != 0 ? (flag & file) == 0 : status != 0) continue;
        for (const uint16_t kind : {KUP_SPECIFIC, KUP_GENERAL}) {
            const bool here = (status & file) != 0;
            if ((flag & (KUP_SPECIFIC | KUP_GENERAL)) != 0 ? (flag & kind) == 0 : here) continue;
            const int place = (file == KUP_GLOBAL ? 2 : 0) + (kind == KUP_GENERAL ? 1 : 0);
            if ((present >> place & 1) == 0) continue;
            status |= file | kind;
            const bool sort = (flag & KUP_NOSORT) == 0;
            const values before = model;
            for (const std::string &each : places[place])
                if (!sort || std::count(before.begin(), before.end(), each) == 0)
                    model.push_back(each);
            if (sort) std::sort(model.begin(), model.end());
        }
    }
    return status == 0 ? KUP_NOTFOUND : status;
}

TEST(Kup, LookupFollowsThePrecedenceForEveryChoiceOfPlaces)
{
    const values places[] = {{"b", "a", "b"}, {"c", "a"}, {"d", "a"}, {"e", "b"}};
    const char *lines[] = {"prod.X = (b, a, b)\n", "x = (c, a)\nw = 1\ny = 1\n",
                           "prod.x = (d, a)\n", "w = 2\nx = (e, b)\n"};
    for (int present = 0; present < 16; present++) {
        const home files;
        std::string texts[2];
        for (int place = 0; place < 4; place++)
            if ((present >> place & 1) != 0) texts[place / 2] += lines[place];
        files.dir.write(userfile, texts[0]);
        files.dir.write(globalfile, texts[1]);
        context ctx;
        opened file(ctx);
        for (const uint16_t order : {KUP_NOSORT, 0u}) { // sorting changes the lists for good
            for (uint16_t choice = 0; choice < 16; choice++) {
                const auto flag = static_cast<uint16_t>(choice << 12 | order);
                values model;
                uint16_t found = 0;
                const uint16_t status = answer(places, present, flag, model);
                EXPECT_EQ(file.get("X", flag, &found), model) << present << ", flag " << flag;
                EXPECT_EQ(found, status);
            }
        }
    }
}

TEST(Kup, LookupAddsToTheCallersListAndSettingTakesHandlesBack)
{
    const home files;
    files.dir.write(userfile, "x = (c, a)\nprod.x = (b)\ny = ()\n");
    context ctx;
    opened file(ctx);
    void *list = kulpcreate(ctx, 0, nullptr);
    EXPECT_EQ(kupget(file.prefs, "y", 0, list, nullptr), KUP_USER | KUP_GENERAL);
    EXPECT_EQ(kupget(file.prefs, "none", 0, list, nullptr), KUP_NOTFOUND);
    EXPECT_EQ(kupget(file.prefs, "x", KUP_GENERAL | KUP_NOSORT, list, nullptr), 0x6000);
    EXPECT_EQ(listed(ctx, list), (values{"c", "a"}));

    // Given back to both entries: its own are not freed, the general one gets copies.
    kulpdelete(ctx, list, 0);
    EXPECT_EQ(kupset(file.prefs, "X", list, KUP_SPECIFIC | KUP_GENERAL), 0);
    EXPECT_EQ(file.user(), "x=[a]\ny=\nprod.x=[a]\n");
    EXPECT_EQ(kupget(file.prefs, "x", KUP_GENERAL | KUP_SPECIFIC, list, nullptr), 0xE000);
    EXPECT_EQ(listed(ctx, list), (values{"a"}));
    kulpdestroy(ctx, list);

    // An entry's own list given back to it stays its own; the general one gets copies again.
    auto *entry = static_cast<kuxhandle>(kulpfirst(ctx, file.prefs->kupctusp));
    auto *record = static_cast<kuppf *>(ctx.operator kux *()->kuxrmlock(ctx, entry));
    void *own = record->kuppfval;
    ctx.operator kux *()->kuxrmunlock(ctx, entry);
    EXPECT_EQ(kupset(file.prefs, "x", own, KUP_SPECIFIC | KUP_GENERAL), 0);
    EXPECT_EQ(kupset(file.prefs, "x", own, KUP_SPECIFIC), 0);
    EXPECT_EQ(file.user(), "x=[a]\ny=\nprod.x=[a]\n");

    void *items[] = {relocatable(ctx, "b"), nullptr, relocatable(ctx, "a")}; // null: empty
    list = kulpcreate(ctx, 3, items);
    EXPECT_EQ(kupset(file.prefs, "x", list, KUP_GENERAL), 0);
    void *got = kulpdestroy(ctx, list);
    EXPECT_EQ(kupget(file.prefs, "x", KUP_GENERAL | KUP_SPECIFIC, nullptr, &got), 0xE000);
    EXPECT_EQ(kulpnitems(ctx, got), 3); // what is equal in both places is there once
    EXPECT_EQ(kulpfirst(ctx, got), nullptr);
    kulpdestroy(ctx, got);

    EXPECT_EQ(kupset(file.prefs, "x", nullptr, KUP_GENERAL), 0);
    EXPECT_EQ(file.set("Y", {"1", "2"}, KUP_GENERAL), 0);
    EXPECT_EQ(kupset(file.prefs, "z", nullptr, KUP_USER), 0);
    EXPECT_EQ(file.user(), "x=\ny=[1][2]\nprod.x=[a]\n");

    EXPECT_EQ(kupremove(file.prefs, "x", KUP_USER | KUP_GLOBAL), 1);
    EXPECT_EQ(kupremove(file.prefs, "x", KUP_GENERAL), 1);
    EXPECT_EQ(kupremove(file.prefs, "x", KUP_GLOBAL | KUP_GENERAL), 0);
    EXPECT_EQ(kupremove(file.prefs, "X", KUP_USER | KUP_SPECIFIC | KUP_GENERAL), 0);
    EXPECT_EQ(file.user(), "x=\ny=[1][2]\n");
    EXPECT_EQ(kupclose(nullptr), 0);
}

TEST(Kup, ValuesAreQuotedWhereTheReaderWouldTakeThemForSomethingElse)
{
    const std::string full = times(1016, "a"); // with its name, a whole line buffer
    const std::string rows[][3] = {
        {"ascii", "c:\\a/b*/>>@!", "c:\\a/b*/>>@!"},
        {"ascii", "", "\"\""},
        {"ascii", "say \"x\"", "\"say \"\"x\"\"\""},
        {"ascii", "a/*b", "\"a/*b\""},
        {"ascii", "a<<b", "\"a<<b\""},
        {"ascii", full, full},
        {"ascii", full + "a", "\"" + full + "a\""},
        {"utf8", "\xC3\xA9", "\xC3\xA9"},
        {"utf8", "\xE3\x80\x80\"", "\"\xE3\x80\x80\"\"\""},
        {"sjis", "\x95\x5C", "\x95\x5C"},
        {"iso-2022-kr", "\x0E\x30\x22", "\"\x0E\x30\x22\x0F\""}, // what follows stays readable
    };
    const auto written = [](const std::string &language, const std::string &value) {
        const home files;
        context ctx(language.c_str());
        opened file(ctx);
        EXPECT_EQ(file.set("name", {value}, KUP_GENERAL), 0);
        EXPECT_EQ(kupwrite(file.prefs), 0);
        return files.dir.read(userfile);
    };
    for (const auto &[language, value, text] : rows)
        EXPECT_EQ(written(language, value), "name = " + text + "\n");
    for (const char sign : std::string("=(),'-.\n\t\v "))
        for (const char *language : {"ascii", "utf8"})
            EXPECT_EQ(written(language, {'a', sign}), std::string("name = \"a") + sign + "\"\n");
}

// Random texts: pieces that mean something to the reader, and characters of the language.
std::string nasty(dice &random, const values &pieces)
{
    std::string result;
    for (uint32_t n = random.below(8); n > 0; n--)
        result += pieces[random.below(static_cast<uint32_t>(pieces.size()))];
    // What cannot come back: quotes in a value of several lines.
    if (result.find('\n') != std::string::npos)
        std::erase_if(result, [](char c) { return c == '"' || c == '\''; });
    return result;
}

const std::pair<const char *, values> languages[] = {
    {"ascii", {"\xE9", "\x01"}},
    {"iso-8859-1", {"\xE9", "\xA0", "\xDF"}},
    {"utf8", {"\xC3\xA9", "\xE3\x80\x80", "\xF0\x9F\x98\x80", "\xC3", "\xA9"}},
    {"sjis", {"\x95\x5C", "\x83", "\xB1", "\x81\x40"}},
    {"euc-jp", {"\xA4\xA2", "\xA1\xA1", "\x8E\xB1", "\x8F\xB0\xA1"}},
    {"iso-2022-kr", {"\x0E\x30\x21\x22\x22\x0F-", "\x0E\x27\x27\x30\x29\x0F+"}},
};

TEST(Kup, WhatIsSetWrittenAndReadAgainIsTheSame)
{
    dice random;
    for (const auto &[language, characters] : languages) {
        SCOPED_TRACE(std::string(language) + ", seed " + std::to_string(seed()));
        values pieces = {"a", "Z",  "9",  "1e", ".", ",",  "(",  ")",   "=",
                         "'", "\"", "-",  "--", "/", "/*", "*/", "<<",  ">>",
                         " ", "\t", "\n", "!",  "+", "_",  "|",  "(+)", "''"};
        pieces.insert(pieces.end(), characters.begin(), characters.end());
        const home files;
        files.dir.write(userfile, "other.z = (1, 'a b')\n");
        context ctx(language);
        std::map<std::pair<uint16_t, std::string>, values> model;
        for (int round = 0; round < 12; round++) {
            opened file(ctx);
            ASSERT_EQ(file.status & ~KUP_NOGLOBALFILE, 0u);
            for (int step = 0; step < 25; step++) {
                const std::string name = times(1 + random.below(5), random.one_in(2) ? "n" : "N");
                const uint16_t kind = random.one_in(2) ? KUP_SPECIFIC : KUP_GENERAL;
                const std::pair key(kind, times(static_cast<int>(name.size()), "n"));
                if (random.one_in(4)) {
                    EXPECT_EQ(kupremove(file.prefs, name.c_str(), KUP_USER | kind), 0);
                    model.erase(key);
                    continue;
                }
                values given;
                for (uint32_t n = random.below(5); n > 0; n--)
                    given.push_back(nasty(random, pieces));
                EXPECT_EQ(file.set(name.c_str(), given, kind), 0);
                model[key] = given;
            }
            ASSERT_EQ(kupwrite(file.prefs), 0);
            opened again(ctx);
            ASSERT_EQ(again.user(), file.user()) << files.dir.read(userfile);
            for (const auto &[key, given] : model)
                ASSERT_EQ(again.get(key.second.c_str(), KUP_USER | KUP_NOSORT | key.first), given);
        }
        opened file(ctx, "OTHER");
        EXPECT_EQ(file.get("z", KUP_SPECIFIC), (values{"1", "a b"}));
    }
}

TEST(Kup, QuotedValuesComeBackWhereverTheLineBufferCutsThem)
{
    dice random;
    for (const auto &[language, characters] : languages) {
        SCOPED_TRACE(std::string(language) + ", seed " + std::to_string(seed()));
        const home files;
        context ctx(language);
        values given;
        for (uint32_t i = 0; i < 300; i++) {
            std::string value = " ";
            for (const uint32_t size = 1000 + random.below(1100); value.size() < size;) {
                const uint32_t piece = random.below(static_cast<uint32_t>(characters.size()) + 1);
                value += piece < characters.size() ? characters[piece] : "a ";
            }
            given.push_back(value);
        }
        for (size_t at = 990; at < 1040; at++) // one quote, around the cut
            for (const char quote : {'"', '\''})
                given.push_back(times(1300, "v").replace(at, 1, 1, quote));
        {
            opened file(ctx);
            EXPECT_EQ(file.set("all", given, KUP_GENERAL), 0);
            EXPECT_EQ(file.set("one", {given.back()}, KUP_GENERAL), 0);
            EXPECT_EQ(kupwrite(file.prefs), 0);
        }
        opened again(ctx);
        EXPECT_EQ(again.get("all", KUP_NOSORT), given);
        EXPECT_EQ(again.get("one", KUP_NOSORT), values{given.back()});
    }
}

TEST(Kup, WritingKeepsOrderAndPrefixesInTheLinkedFile)
{
    const home files;
    files.dir.write("real", "--c\nother.b=(1,2)\nProd.z=3 prod.y=4\nx=()\nother.a='b-c'");
    ASSERT_EQ(symlink("real", files.dir.path(userfile).c_str()), 0);
    context ctx;
    opened file(ctx);
    EXPECT_EQ(kupwrite(file.prefs), 0);
    EXPECT_EQ(files.dir.read("real"), "x = ()\nprod.y = 4\nprod.z = 3\n"
                                      "other.b = \n (1,\n  2)\nother.a = \"b-c\"\n");
    EXPECT_EQ(files.dir.names(), (values{userfile, "real"}));
}

TEST(Kup, WritingThatFailsSaysSoAndLosesNothing)
{
    const home files;
    context ctx;
    opened file(ctx);
    ASSERT_EQ(file.set("x", {"1"}, KUP_GENERAL), 0);
    ASSERT_EQ(mkdir(files.dir.path(userfile).c_str(), 0777), 0);
    EXPECT_EQ(kupwrite(file.prefs), KUP_NOUSERFILE);
    EXPECT_ERRORS(ctx, {});
    ASSERT_EQ(rmdir(files.dir.path(userfile).c_str()), 0);
    ASSERT_EQ(symlink("/dev/full", files.dir.path(userfile).c_str()), 0);
    EXPECT_EQ(kupwrite(file.prefs), 0);
    EXPECT_ERRORS(ctx, {"skuba 5"});
    ASSERT_EQ(unlink(files.dir.path(userfile).c_str()), 0);
    files.dir.write(userfile, "y = (a, 'b c')\nother.z = 1\n");
    void *writer = skubopen(ctx, files.dir.path(userfile).c_str(), "a");
    EXPECT_EQ(kupwrite(file.prefs), KUP_NOUSERFILE) << "somebody writes it just now";
    EXPECT_EQ(skubclose(ctx, writer), 0u);
    for (int n = 1; n < 1000; n++) { // access to one text after the other fails
        const std::string before = files.dir.read(userfile);
        opened again(ctx);
        ctx.fail_access_from_now(n);
        EXPECT_EQ(kupwrite(again.prefs), 0);
        ctx.fail_access_from_now(0);
        const std::vector<std::string> errors = ctx.errors();
        ctx.clear();
        if (errors.empty() && n > 6) break;
        EXPECT_TRUE(errors.size() == 1 && (errors[0] == "kuxrm 1" || errors[0] == "kuxrm 4")) << n;
        EXPECT_EQ(files.dir.read(userfile), before);
    }

    sweep_system_calls(
        [](context &swept) {
            const home faulty;
            const std::string before = "x = old\n" + times(40, "y = 1\n");
            faulty.dir.write(userfile, before);
            opened again(swept);
            if (again.status != KUP_NOGLOBALFILE || kuxernerrors(swept) != 0) return false;
            EXPECT_EQ(again.set("x", {"new"}, KUP_GENERAL), 0);
            const uint16_t status = kupwrite(again.prefs);
            const bool written = status == 0 && kuxernerrors(swept) == 0;
            EXPECT_EQ(faulty.dir.read(userfile),
                      (written ? "x = new\n" : "x = old\n") + times(40, "y = 1\n"));
            EXPECT_EQ(faulty.dir.names(), (values{userfile}));
            return written;
        },
        {EIO, ENOSPC});
}

TEST(Kup, AnAllocationThatFailsChangesNothing)
{
    const std::string before = "x = (1, 3)\nprod.x = ('a\nb', 1)\nother.y = 4\nz = 4-5\n";
    for (const char *language : {"ascii", "utf8", "iso-2022-kr"})
        sweep_allocations(
            [&](context &ctx) {
                const home files;
                files.dir.write(userfile, before);
                files.dir.write(globalfile, before);
                opened file(ctx);
                EXPECT_EQ(file.prefs == nullptr, file.status == KUP_NOMEM);
                if (file.status != 0) return false; // or a stream without memory: no file
                void *item = nullptr;
                void *list = nullptr;
                {
                    const spared undisturbed(ctx);
                    item = relocatable(ctx, "2");
                    list = kulpcreate(ctx, 1, &item);
                }
                bool good = kupget(file.prefs, "x", 0xF000, list, nullptr) != KUP_NOMEM;
                EXPECT_EQ(kulpnitems(ctx, list), good ? 4 : 1); // 1, 2, 3 and the text of two lines
                kulpdestroy(ctx, list);
                ctx->kuxrmfree(ctx, static_cast<kuxhandle>(item));
                for (const char *name : {"x", "new"}) {
                    const std::string entries = file.user();
                    const bool set = file.set(name, {"5"}, KUP_SPECIFIC | KUP_GENERAL) == 0;
                    EXPECT_TRUE(set || file.user() == entries);
                    good = good && set;
                }
                const uint16_t status = kupwrite(file.prefs);
                EXPECT_EQ(files.dir.read(userfile) == before, status != 0);
                return good && status == 0;
            },
            language);
}

TEST(Kup, AnAccessThatFailsChangesNothing)
{
    const home files;
    std::string many = "many = (b";
    for (int i = 99; i > 9; i--) many += ", v" + std::to_string(i);
    files.dir.write(userfile, "name = old\n" + many + ")\nfew = (c, a, d)\nprod.name = old\n");
    files.dir.write(globalfile, "few = (b, a)\n");
    const struct {
        uint16_t (*call)(opened &file, void *list);
        uint16_t good;
        const char *after; // what the list holds then, joined
    } rows[] = {
        {[](opened &file, void *list) {
             return kupset(file.prefs, "name", list, KUP_SPECIFIC | KUP_GENERAL);
         },
         0, "new"},
        {[](opened &file, void *list) {
             return kupset(file.prefs, "other", list, KUP_SPECIFIC | KUP_GENERAL);
         },
         0, "new"},
        {[](opened &file, void *list) {
             return kupget(file.prefs, "few", KUP_USER | KUP_GLOBAL, list, nullptr);
         },
         KUP_USER | KUP_GLOBAL | KUP_GENERAL, "abcdnew"},
        {[](opened &file, void *list) { return kupget(file.prefs, "many", 0, list, nullptr); },
         KUP_USER | KUP_GENERAL, nullptr},
    };
    for (const auto &row : rows) {
        bool failed = true;
        for (int n = 1; failed; n++) {
            SCOPED_TRACE(std::to_string(&row - rows) + ", access " + std::to_string(n));
            context ctx;
            opened file(ctx);
            const std::string before = file.user();
            void *item = relocatable(ctx, "new");
            void *list = kulpcreate(ctx, 1, &item);
            ctx.fail_access_from_now(n);
            const uint16_t status = row.call(file, list);
            failed = ctx.failed();
            ctx.fail_access_from_now(0);
            EXPECT_EQ(status, failed ? KUP_NOMEM : row.good);
            const values got = listed(ctx, list);
            std::string joined;
            for (const std::string &each : got) joined += each;
            if (failed || row.after != nullptr) {
                EXPECT_EQ(joined, failed ? "new" : row.after);
            }
            EXPECT_TRUE(std::is_sorted(got.begin(), got.end()));
            if (failed && row.good == 0) {
                EXPECT_EQ(file.user(), before);
            }
            if (failed || row.good != 0) ctx->kuxrmfree(ctx, static_cast<kuxhandle>(item));
            kulpdestroy(ctx, list);
        }
    }
    for (int n = 1; n < 60; n++) { // opened without access it would not find what it holds
        context ctx;
        ctx.fail_access_from_now(n);
        opened file(ctx);
        const bool failed = ctx.failed();
        ctx.fail_access_from_now(0);
        EXPECT_EQ(file.status == KUP_NOMEM, failed) << n;
    }
}

} // namespace
