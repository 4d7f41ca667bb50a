// kuu_test.cpp - text fields
#include "kuu.h"

#include <gtest/gtest.h>

#include <string>

#include "kuxdn.h"
#include "kuxrm.h"
#include "support/context.h"

namespace
{

using ku::test::context;

constexpr uint32_t none = UINT32_MAX; // no length supplied

// A plain field (kind 0), or a relocatable one that is dereferenced (1) or locked (2).
struct field {
    context &ctx;
    int kind;
    char *plain = nullptr;
    kuxhandle handle = nullptr;

    field(context &owner, int which, const char *text) : ctx(owner), kind(which)
    {
        if (kind == 2) ctx->kuxrmfree(ctx, ku::test::relocatable(ctx, "")); // every second one
        if (text != nullptr && kind == 0) kuu_copytext(ctx, &plain, nullptr, 0, text);
        if (text != nullptr && kind != 0) handle = ku::test::relocatable(ctx, text);
    }
    ~field()
    {
        if (plain != nullptr) ctx->kuxnmfree(ctx, plain);
        if (handle != nullptr) ctx->kuxrmfree(ctx, handle);
    }
    field(const field &) = delete;
    field &operator=(const field &) = delete;
    std::string text() const
    {
        return plain != nullptr ? plain : handle != nullptr ? ku::test::text(ctx, handle) : "-";
    }
    uint32_t set(const char *value, uint32_t *length)
    {
        return kind == 0 ? kuu_ntset(ctx, value, length, *length != none, &plain)
                         : kuu_rtset(ctx, value, length, *length != none, &handle);
    }
    uint32_t get(char **dest, uint32_t *length)
    {
        return kind == 0 ? kuu_ntget(ctx, dest, length, *length != none, plain)
                         : kuu_rtget(ctx, dest, length, *length != none, handle);
    }
    // Lets nothing (0), an allocation (1), or the first or second access fail; and the code.
    void fail(int which)
    {
        ctx.fail_from_now(which == 1 ? 1 : 0);
        ctx.fail_access_from_now(which > 1 ? which - 1 : 0);
    }
    uint32_t code(int failing) const
    {
        if (!ctx.failed()) return 0;
        return failing == 1 ? KUXNM_NOMEM : kind == 1 ? KUXRM_NODEREF : KUXRM_NOLOCK;
    }
};

TEST(Kuu, FieldsAreSetAndReadToALengthThatTheTextHasOrStayAsTheyWere)
{
    static constexpr struct {
        const char *before, *value; // of the field
        uint32_t supplied, length;
        const char *after;
    } rows[] = {{"-", "abcdef", none, 6, "abcdef"}, {"-", "abcdef", 3, 3, "abc"},
                {"-", "abcdef", 6, 6, "abcdef"},    {"-", "abcdef", 10, 6, "abcdef"},
                {"-", "abcdef", 0, 0, ""},          {"xy", "abcdef", none, 6, "abcdef"},
                {"xy", "abcdef", 2, 2, "ab"},       {"xy", "abcdef", 3, 3, "abc"},
                {"longer", "abc", none, 3, "abc"}};
    for (const auto &row : rows) {
        for (int run = 0; run < 24; run++) {
            SCOPED_TRACE(row.after + std::string(" run ") + std::to_string(run));
            const int failing = run % 4;
            context setting;
            context getting;
            field set(setting, run / 8, *row.before != '-' ? row.before : nullptr);
            uint32_t length = row.supplied;
            set.fail(failing);
            const uint32_t status = set.set(row.value, &length);
            EXPECT_EQ(status, set.code(failing));
            EXPECT_EQ(length, status == 0 ? row.length : row.supplied);
            EXPECT_EQ(set.text(), status == 0 ? row.after : row.before);

            field got(getting, run / 8, row.value);
            char buffer[] = "????????";
            char *const given = run % 8 < 4 ? buffer : nullptr;
            char *dest = given;
            length = row.supplied;
            got.fail(failing);
            const bool read = got.get(&dest, &length) == 0;
            EXPECT_EQ(kuxercode(getting), got.code(failing));
            EXPECT_EQ(length, read ? row.length : row.supplied);
            EXPECT_EQ(dest == given, !read || (given != nullptr && row.supplied != none));
            EXPECT_EQ(read ? dest : row.after, std::string(row.after));
            EXPECT_EQ(buffer[row.length + 1], '?');
            if (dest != given) getting->kuxnmfree(getting, dest);
            setting.clear();
            getting.clear();
        }
    }
}

TEST(Kuu, NullEmptiesAndAFieldCanBeSetToAPartOfItself)
{
    context ctx;
    for (const int kind : {0, 1, 2}) {
        field old(ctx, kind, "abcdef");
        uint32_t length = 5;
        const auto *text = kind == 0 ? old.plain : static_cast<char *>(kuxrmlock(ctx, old.handle));
        EXPECT_EQ(old.set(text + 1, &length), 0u);
        if (kind != 0) kuxrmunlock(ctx, old.handle);
        field set(ctx, kind, nullptr);
        set.plain = old.plain;
        set.handle = old.handle;
        EXPECT_EQ(set.set(nullptr, &length), 0u);
        EXPECT_EQ(set.text() + old.text(), "-bcdef"); // not released
        for (const uint32_t supplied : {none, 3u}) {
            char buffer[] = "buffer";
            char *dest = buffer;
            length = supplied;
            EXPECT_EQ(set.get(&dest, &length), 0u);
            EXPECT_EQ(dest, supplied == none ? nullptr : buffer);
            EXPECT_STREQ(buffer, supplied == none ? "buffer" : "");
            EXPECT_EQ(length, 0u);
        }
    }
}

TEST(Kuu, CopiesHaveANulWhereAByteIsLeft)
{
    static constexpr struct {
        const char *text;
        uint32_t size, copied;
        const char *after; // as far as the caller's bytes, and one more
    } copies[] = {{"abcdef", 7, 6, "abcdef\0?"}, {"abcdef", 6, 6, "abcdef??"},
                  {"abcdef", 2, 2, "ab??????"},  {"abcdef", 0, 0, "????????"},
                  {nullptr, 3, 0, "\0???????"},  {nullptr, 0, 0, "????????"}};
    context ctx;
    for (const auto &row : copies) {
        char bytes[] = "????????";
        char *buffer = bytes;
        uint32_t length = row.size;
        EXPECT_EQ(kuu_copytext(ctx, &buffer, &length, 1, row.text), 0u);
        EXPECT_EQ(length, row.copied);
        EXPECT_EQ(std::string(bytes, 8), std::string(row.after, 8));
    }
    static constexpr int32_t lengths[][2] = {{-1, 3}, {2, 2}, {0, 0}, {50, 3}};
    for (const auto &[asked, copied] : lengths) {
        kuxhandle copy = kuu_rmcopytext(ctx, "abc", asked);
        EXPECT_EQ(ku::test::text(ctx, copy), std::string("abc", static_cast<size_t>(copied)));
        const auto *bytes = static_cast<char *>(kuxrmlock(ctx, copy));
        for (int32_t i = 3; i <= asked; i++) EXPECT_EQ(bytes[i], 0);
        kuxrmunlock(ctx, copy);
        ctx->kuxrmfree(ctx, copy);
    }
    char *copy = nullptr;
    EXPECT_EQ(kuu_rmcopytext(ctx, nullptr, -1), nullptr);
    ctx.fail_access_from_now(1);
    EXPECT_EQ(kuu_rmcopytext(ctx, "abc", -1), nullptr);
    ctx.fail_from_now(1);
    EXPECT_EQ(kuu_rmcopytext(ctx, "abc", -1), nullptr);
    EXPECT_ERRORS(ctx, {"kuxrm 4"});
    ctx.fail_from_now(1);
    EXPECT_EQ(kuu_copytext(ctx, &copy, nullptr, 0, "abc"), KUXNM_NOMEM);
    EXPECT_EQ(kuu_copytext(ctx, &copy, nullptr, 0, nullptr), 0u);
    EXPECT_ERRORS(ctx, {"kuxnm 1"});
    EXPECT_EQ(copy, nullptr);
}

} // namespace
