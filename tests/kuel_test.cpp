// kuel_test.cpp - location elements, connect texts, and names resolved through element lists
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kuel.h"
#include "kuep.h"
#include "kul.h"
#include "skub.h"
#include "support/context.h"
#include "support/files.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;

constexpr uint32_t all_given = 0x7F;
constexpr uint32_t all_wanted = all_given & ~KUELA_NAMELEN;

kuela attributes(uint32_t mask, uint32_t domain, const char *name, void *pointer = nullptr)
{
    return {mask, domain, 5, const_cast<char *>(name), 3, pointer, pointer, -9};
}

kuel *element(kux *ctx, uint32_t domain, const std::string &name)
{
    const kuela attrs = attributes(KUELA_DOMAIN | KUELA_NAME, domain, name.c_str());
    return kuelcreate(ctx, &attrs);
}

TEST(Elements, KeepWhatIsGivenAndOnlyAHostsElementKeepsAHostDefinition)
{
    context ctx;
    int host = 0, other = 0;
    for (const uint32_t domain : {KUELD_DIRECTORY, KUELD_HOST, KUELD_DEFAULT, 77u}) {
        const uint32_t mask = KUELA_HSTDEF | (domain != KUELD_DEFAULT ? KUELA_DOMAIN : 0);
        kuela given = attributes(mask, domain, "unseen", &host);
        kuel *made = kuelcreate(ctx, &given);
        kuela got = {all_wanted};
        EXPECT_EQ(kuelget(ctx, made, &got), 0u);
        EXPECT_TRUE(got.domain_kuela == domain && got.content_kuela == KUELC_DEFAULT);
        EXPECT_EQ(got.hstdef_kuela, domain == KUELD_HOST ? &host : nullptr);
        EXPECT_TRUE(!got.name_kuela && !got.namelen_kuela && !got.osid_kuela && !got.modid_kuela);

        given = attributes(all_given, KUELD_HOST, "name", &other);
        EXPECT_EQ(kuelset(ctx, made, &given), 0u);
        kuela now = {all_wanted};
        EXPECT_EQ(kuelget(ctx, made, &now), 0u);
        EXPECT_TRUE(now.domain_kuela == KUELD_HOST && now.content_kuela == 5
                    && now.osid_kuela == &other && now.modid_kuela == -9
                    && now.hstdef_kuela == got.hstdef_kuela); // fixed at creation
        EXPECT_STREQ(now.name_kuela, "nam");
        ctx->kuxnmfree(ctx, now.name_kuela);
        kueldestroy(ctx, made);
    }
    kuel *plain = kuelcreate(ctx, nullptr);
    EXPECT_EQ(plain->domain_kuel, KUELD_DEFAULT);
    kueldestroy(ctx, plain);
}

TEST(Elements, ANameIsCutToTheCallersBufferAndANullOneTakesTheOldAway)
{
    context ctx;
    kuel *made = element(ctx, KUELD_HOST, "place");
    char buffer[] = "~~~~~~~";
    kuela attrs = attributes(KUELA_NAME | KUELA_NAMELEN, 0, buffer);
    EXPECT_EQ(kuelget(ctx, made, &attrs), 0u);
    EXPECT_EQ(std::string(buffer, 7), std::string("pla\0~~~", 7));
    attrs = attributes(KUELA_NAMELEN, 0, nullptr);
    EXPECT_TRUE(kuelget(ctx, made, &attrs) == 0 && attrs.namelen_kuela == 5);
    attrs = attributes(KUELA_NAME, 0, made->name_kuel + 1); // part of itself
    EXPECT_EQ(kuelset(ctx, made, &attrs), 0u);
    EXPECT_STREQ(made->name_kuel, "lace");
    attrs.name_kuela = nullptr;
    EXPECT_EQ(kuelset(ctx, made, &attrs), 0u); // the context sees that nothing is leaked
    EXPECT_EQ(made->name_kuel, nullptr);
    kueldestroy(ctx, made);
}

TEST(Elements, TheLastHolderReleasesAnElementOnce)
{
    context ctx;
    const int before = ctx.live();
    kuel *shared = element(ctx, KUELD_HOST, "a");
    void *const items[] = {shared, nullptr, element(ctx, KUELD_HOST, "b")};
    kumrref(ctx, shared);
    EXPECT_EQ(kuelldestroy(ctx, kulpcreate(ctx, 3, items)), 0u);
    EXPECT_STREQ(shared->name_kuel, "a");
    EXPECT_EQ(kueldestroy(ctx, shared), 0u);
    EXPECT_EQ(ctx.live(), before);
    EXPECT_EQ(kueldestroy(ctx, nullptr) + kuelldestroy(ctx, nullptr), 0u);
}

TEST(Elements, WithoutMemoryNothingIsMadeOrChanged)
{
    ku::test::sweep_allocations([](context &ctx) {
        kuel *made = element(ctx, KUELD_DIRECTORY, "one");
        if (made == nullptr) return false;
        const kuela attrs = attributes(KUELA_DOMAIN | KUELA_NAME, KUELD_HOST, "a longer name");
        const uint32_t status = kuelset(ctx, made, &attrs);
        EXPECT_EQ(status, kuxercode(ctx));
        EXPECT_STREQ(made->name_kuel, status == 0 ? attrs.name_kuela : "one");
        EXPECT_EQ(made->domain_kuel, status == 0 ? KUELD_HOST : KUELD_DIRECTORY);
        kuela got = {KUELA_DOMAIN | KUELA_NAME};
        const uint32_t read = kuelget(ctx, made, &got);
        EXPECT_EQ(got.domain_kuela, read == 0 ? made->domain_kuel : 0u);
        char *text = kuelbuilddbspec(ctx, "u", "p", "h", 1);
        const bool all = status == 0 && read == 0 && text != nullptr;
        ctx->kuxnmfree(ctx, got.name_kuela);
        ctx->kuxnmfree(ctx, text);
        kueldestroy(ctx, made);
        return all;
    });
}

TEST(ConnectTexts, PartsThatAreGivenGoBeforeThoseOfTheUserText)
{
    static constexpr const char *none = nullptr;
    static const struct {
        const char *user, *password, *host;
        int32_t include;
        const char *text, *language = "ascii";
    } rows[] = {
        {"u1/pw1@h1", none, none, 1, "u1/pw1@h1"},
        {"u1/pw1@h1", none, none, 0, "u1@h1"},
        {"u1", "pw2", "h2", 1, "u1/pw2@h2"},
        {"u1/pw1@h1", "pw2", "h2", 7, "u1/pw2@h2"},
        {"u1/pw1@h1", "pw2", "h2", 0, "u1@h2"},
        {"u1@h1", none, "h3", 1, "u1@h3"},
        {"u1@h1", "p", none, 1, "u1/p@h1"},
        {"u@x/p/q@h@i", none, none, 0, "u@x@h@i"}, // an @ before the / is the user's
        {"u1/pw1@h1", "", "", 1, "u1"},            // empty ones are given, too
        {"/p", none, none, 1, "/p"},
        {"/p", none, none, 0, none},
        {none, "", none, 1, none},
        {"", none, "", 0, ""}, // a host there is
        {"@", none, none, 0, ""},
        {none, "p", "h", 1, "/p@h"},
        {"\x83@\x83@h", none, none, 0, "\x83@\x83@h", "sjis"}, // a trail byte is no @
        {"\x83@@h", none, "i", 0, "\x83@@i", "sjis"},
        {"\x0E/@\x0F/p\x0E@/\x0F@h", none, none, 1, "\x0E/@\x0F/p\x0E@/\x0F@h", "iso-2022-kr"},
        {"\x0E/@\x0F/p\x0E@/\x0F@h", none, none, 0, "\x0E/@\x0F@h", "iso-2022-kr"},
        {"u\xC3/p\xC3@h", none, none, 0, "u\xC3@h", "utf8"}, // half a character hides nothing
    };
    for (const auto &row : rows) {
        context ctx(row.language);
        char *made = kuelbuilddbspec(ctx, row.user, row.password, row.host, row.include);
        EXPECT_STREQ(made, row.text) << &row - rows;
        ctx->kuxnmfree(ctx, made);
    }
}

// ---- path resolution ----

// A path and types in a context of their own, which does not run short of memory.
struct resolving {
    context own;
    void *path = kulpcreate(own, 0, nullptr);
    void *types = kulpcreate(own, 0, nullptr);
    uint32_t status = 0;

    resolving(const std::vector<std::string> &directories, const std::vector<const char *> &each)
    {
        for (const std::string &name : directories)
            kulpinsert(own, path, KUL_APPEND, element(own, KUELD_DIRECTORY, name));
        for (const char *type : each) kulpinsert(own, types, KUL_APPEND, const_cast<char *>(type));
    }
    ~resolving()
    {
        kuelldestroy(own, path);
        kulpdestroy(own, types);
    }
    resolving(const resolving &) = delete;
    resolving &operator=(const resolving &) = delete;

    // The result, in a buffer of that size behind which no byte is written; "" after a failure.
    std::string operator()(context &ctx, const std::string &name, uint32_t size = 400)
    {
        std::string buffer(size + 1, '~');
        uint32_t length = size;
        status = kuepnresolve(ctx, path, name.c_str(), buffer.data(), &length, types);
        EXPECT_EQ(buffer[size], '~');
        const std::string result = status != 0 || size == 0 ? "" : buffer.c_str();
        EXPECT_EQ(length, status != 0 ? size : result.size());
        return result;
    }
};

TEST(Paths, TheFirstNameThatIsAFileIsTheResult)
{
    context ctx;
    const ku::test::directory one, two, hidden;
    std::filesystem::create_directory(one.path("sub"));
    for (const char *file : {"both.a", "both.b", "here.b", "sub/in.a", "lone.sql.a", "dir"})
        one.write(file, "");
    for (const char *file : {"here.a", "there.b", "typed.sql", "dir.a"}) two.write(file, "");
    std::filesystem::create_directory(one.path("folder.a"));
    hidden.write("secret.a", "");
    const std::string first = one.path() + "\\", second = two.path() + "\\";
    resolving resolve({one.path(), two.path()}, {"a", "b"});
    kulpinsert(resolve.own, resolve.path, 0, element(resolve.own, KUELD_HOST, hidden.path()));
    const std::string rows[][2] = {
        {"both", first + "both.a"},
        {"here", first + "here.b"}, // all types here before the next directory
        {"there", second + "there.b"},
        {"typed.sql", second + "typed.sql"},
        {"lone.sql", "lone.sql"},  // has a type: none is added
        {"dir", second + "dir.a"}, // has no type: never alone in a directory
        {"folder", "folder"},      // is no file
        {"secret", "secret"},      // the host is no directory
        {"sub\\in", "sub\\in"},    // has a directory: not looked for in others
        {one.path("both.b"), one.path("both.b")},
        {first + "sub\\in", first + "sub\\in.a"},
        {"", ""},
    };
    for (const auto &row : rows) EXPECT_EQ(resolve(ctx, row[0]), row[1]);
    char buffer[8];
    uint32_t length = sizeof buffer;
    EXPECT_EQ(kuepnresolve(ctx, nullptr, nullptr, buffer, &length, nullptr), 0u);
    EXPECT_STREQ(buffer, "");
}

TEST(Paths, AResultThatDoesNotFitIsNotFoundAndANameIsCutToWholeCharacters)
{
    static const struct {
        const char *language, *name;
        std::vector<const char *> cut; // by size, from 0
    } rows[] = {
        {"ascii", "file", {"", "", "f", "fi", "fil"}},
        {"sjis", "\x83\\z", {"", "", "", "\x83\\"}},
        {"iso-2022-kr", "\x0E!!\"\"\x0F", {"", "", "", "", "", "\x0E!!\x0F", "\x0E!!\x0F"}},
    };
    for (const auto &row : rows) {
        context ctx(row.language);
        const ku::test::directory files;
        files.write(std::string(row.name) + ".t", "");
        resolving resolve({files.path()}, {"t"});
        const std::string found = files.path() + "\\" + row.name + ".t";
        for (uint32_t size = 0; size <= found.size() + 1; size++) {
            const char *cut = size < row.cut.size() ? row.cut[size] : row.name;
            EXPECT_EQ(resolve(ctx, row.name, size), size > found.size() ? found : cut) << size;
        }
    }
}

TEST(Paths, OnlyADirectoryAndANameTooLongTogetherAreAnError)
{
    context ctx("ascii", 2); // a level that a third error would fill
    const ku::test::directory files;
    files.write("x.t", "");
    for (const size_t length : {253u, 254u, 300u, 70000u}) { // and a separator, and the name
        resolving resolve({std::string(length, 'd'), files.path()}, {"t", "type"});
        EXPECT_EQ(resolve(ctx, "x"), length == 253 ? files.path() + "\\x.t" : "");
        EXPECT_EQ(resolve.status, length == 253 ? 0 : SKUBA_ROOM);
        ctx.clear();
        kuxer0push(ctx, KULAA_RANGE);
        kuxer0push(ctx, KULAA_LOCKED);
        const std::string huge = "\\" + std::string(5000, 'n'); // no system has such names
        EXPECT_EQ(resolve(ctx, huge), huge.substr(0, 399));
        EXPECT_EQ(resolve(ctx, "a\\x", 4), "a\\x"); // no type fits
        EXPECT_ERRORS(ctx, {"kulaa 3", "kulaa 2"});
    }
}

TEST(Paths, WhatTheSystemOrMemoryRefusesIsNotFoundOrAnError)
{
    const ku::test::directory files;
    files.write("x.t", "");
    const auto run = [&](context &ctx) {
        resolving resolve({files.path()}, {"t"});
        const std::string result = resolve(ctx, "x");
        EXPECT_EQ(resolve.status, kuxercode(ctx));
        return result == files.path() + "\\x.t";
    };
    ku::test::sweep_allocations(run);
    ku::test::sweep_system_calls(run, {EACCES, ELOOP});
}

} // namespace
