// kuu_test.cpp - text fields
#include "kuu.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>

#include "kuxdn.h"
#include "kuxrm.h"
#include "support/context.h"
#include "support/sweep.h"

namespace
{

using ku::test::context;
using optional = std::optional<std::string>; // a text, or null

const char *pointer(const optional &text) { return text ? text->c_str() : nullptr; }

char *plain(const context &ctx, const optional &text)
{
    const ku::test::spared whole(ctx);
    char *copy = nullptr;
    EXPECT_EQ(kuu_copytext(ctx, &copy, nullptr, 0, pointer(text)), 0u);
    return copy;
}

optional taken(const context &ctx, char *text)
{
    const optional copy = text != nullptr ? optional(text) : std::nullopt;
    if (text != nullptr) ctx->kuxnmfree(ctx, text);
    return copy;
}

const uint32_t none = UINT32_MAX; // no length supplied

const struct {
    const char *before, *value; // of the field
    uint32_t supplied, length;
    const char *after;
} rows[] = {
    {nullptr, "abcdef", none, 6, "abcdef"},
    {nullptr, "abcdef", 3, 3, "abc"},
    {nullptr, "abcdef", 6, 6, "abcdef"},
    {nullptr, "abcdef", 10, 6, "abcdef"},
    {nullptr, "abcdef", 0, 0, ""},
    {nullptr, "", none, 0, ""},
    {"xy", "abcdef", none, 6, "abcdef"}, // resized
    {"xy", "abcdef", 3, 3, "abc"},
    {"xy", "abcdef", 2, 2, "ab"}, // just fits
    {"longer than that", "abcdef", none, 6, "abcdef"},
    {"", "a", none, 1, "a"},
};

TEST(Kuu, SettersTakeALengthThatTheTextHasAndResizeWhatIsTooShort)
{
    for (const auto &row : rows) {
        const auto trace = std::string(row.value) + " " + std::to_string(row.supplied);
        ku::test::sweep_allocations([&](context &ctx) {
            SCOPED_TRACE(trace);
            uint32_t length = row.supplied;
            char *field = plain(ctx, row.before != nullptr ? optional(row.before) : std::nullopt);
            const uint32_t status =
                kuu_ntset(ctx, row.value, &length, row.supplied != none, &field);
            EXPECT_EQ(status, ctx.failed() ? KUXNM_NOMEM : 0);
            EXPECT_EQ(status, kuxercode(ctx));
            EXPECT_EQ(length, status == 0 ? row.length : row.supplied);
            EXPECT_EQ(taken(ctx, field).value_or("-"), status == 0             ? row.after
                                                       : row.before != nullptr ? row.before
                                                                               : "-");
            return status == 0;
        });
        // Relocatable: one allocation at most, then up to two accesses that may fail, too.
        for (int failing = 0; failing < 4; failing++) {
            for (int skipped = 0; skipped < 2; skipped++) { // both kinds of access
                SCOPED_TRACE(trace + " fails " + std::to_string(failing));
                context ctx;
                kuxhandle other = skipped ? ku::test::relocatable(ctx, "") : nullptr;
                kuxhandle field =
                    row.before != nullptr ? ku::test::relocatable(ctx, row.before) : nullptr;
                uint32_t length = row.supplied;
                if (failing == 1) ctx.fail_from_now(1);
                if (failing > 1) ctx.fail_access_from_now(failing - 1);
                const uint32_t status =
                    kuu_rtset(ctx, row.value, &length, row.supplied != none, &field);
                EXPECT_EQ(status, kuxercode(ctx));
                EXPECT_TRUE(status == 0 || failing == 1
                                ? status == 0 || status == KUXNM_NOMEM
                                : status == KUXRM_NOLOCK || status == KUXRM_NODEREF);
                EXPECT_TRUE(failing != 2 || status != 0); // the first access is always made
                ctx.fail_access_from_now(0);
                ctx.fail_from_now(0);
                EXPECT_EQ(length, status == 0 ? row.length : row.supplied);
                EXPECT_EQ(field != nullptr ? ku::test::text(ctx, field) : "-",
                          status == 0             ? row.after
                          : row.before != nullptr ? row.before
                                                  : "-");
                if (field != nullptr) ctx->kuxrmfree(ctx, field);
                if (other != nullptr) ctx->kuxrmfree(ctx, other);
                ctx.clear();
            }
        }
    }
}

TEST(Kuu, GettersFillTheCallersBufferOrMakeOne)
{
    for (const auto &row : rows) {
        for (const bool relocated : {false, true}) {
            for (const bool given : {false, true}) {
                const auto get = [&](context &ctx, char **dest, uint32_t *length) {
                    const int32_t supplied = row.supplied != none ? 1 : 0;
                    if (!relocated) return kuu_ntget(ctx, dest, length, supplied, row.value);
                    kuxhandle value = ku::test::relocatable(ctx, row.value);
                    const uint32_t status = kuu_rtget(ctx, dest, length, supplied, value);
                    ctx->kuxrmfree(ctx, value);
                    return status;
                };
                ku::test::sweep_allocations([&](context &ctx) {
                    char buffer[8] = "???????";
                    char *dest = given ? buffer : nullptr;
                    uint32_t length = row.supplied;
                    const uint32_t status = get(ctx, &dest, &length);
                    EXPECT_EQ(status, ctx.failed() ? KUXNM_NOMEM : 0);
                    EXPECT_EQ(status, kuxercode(ctx));
                    if (status != 0) {
                        EXPECT_EQ(dest, given ? buffer : nullptr);
                        return false;
                    }
                    EXPECT_EQ(length, row.length);
                    EXPECT_STREQ(dest, row.after);
                    EXPECT_EQ(dest == buffer, given && row.supplied != none);
                    EXPECT_EQ(buffer[row.length + 1 < 7 ? row.length + 1 : 0] == '?',
                              row.length + 1 < 7 || dest != buffer);
                    if (dest != buffer) ctx->kuxnmfree(ctx, dest);
                    return true;
                });
            }
        }
    }
    for (int deref = 0; deref < 2; deref++) {
        context ctx;
        kuxhandle values[2] = {ku::test::relocatable(ctx, "a"), ku::test::relocatable(ctx, "b")};
        char *dest = nullptr;
        ctx.fail_access_from_now(1);
        const uint32_t status = kuu_rtget(ctx, &dest, nullptr, 0, values[deref]);
        EXPECT_TRUE(status == KUXRM_NOLOCK || status == KUXRM_NODEREF);
        EXPECT_EQ(dest, nullptr);
        EXPECT_EQ(kuu_rtget(ctx, &dest, nullptr, 1, values[deref]), 0u); // no length to look at
        EXPECT_EQ(taken(ctx, dest), deref == 0 ? "a" : "b");
        for (kuxhandle value : values) ctx->kuxrmfree(ctx, value);
        ctx.clear();
    }
}

TEST(Kuu, NullValuesEmptyWhatTheyAreSetOrCopiedTo)
{
    context ctx;
    char *old = plain(ctx, "old");
    char *field = old;
    uint32_t length = 3;
    EXPECT_EQ(kuu_ntset(ctx, nullptr, &length, 1, &field), 0u);
    EXPECT_EQ(field, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(taken(ctx, old), "old"); // the caller's
    kuxhandle old_handle = ku::test::relocatable(ctx, "old");
    kuxhandle handle = old_handle;
    EXPECT_EQ(kuu_rtset(ctx, nullptr, nullptr, 0, &handle), 0u);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(ku::test::text(ctx, old_handle), "old");
    ctx->kuxrmfree(ctx, old_handle);

    char buffer[] = "buffer";
    for (const bool relocated : {false, true}) {
        for (const bool supplied : {false, true}) {
            char *dest = std::strcpy(buffer, "buffer");
            length = 3;
            EXPECT_EQ(relocated ? kuu_rtget(ctx, &dest, &length, supplied, nullptr)
                                : kuu_ntget(ctx, &dest, &length, supplied, nullptr),
                      0u);
            EXPECT_EQ(dest, supplied ? buffer : nullptr);
            EXPECT_STREQ(buffer, supplied ? "" : "buffer");
            EXPECT_EQ(length, 0u);
        }
    }
}

TEST(Kuu, AFieldCanBeSetToAPartOfItself)
{
    context ctx;
    char *field = plain(ctx, "abcdef");
    EXPECT_EQ(kuu_ntset(ctx, field + 2, nullptr, 0, &field), 0u);
    EXPECT_STREQ(field, "cdef");
    EXPECT_EQ(kuu_ntset(ctx, field, nullptr, 0, &field), 0u);
    EXPECT_EQ(taken(ctx, field), "cdef");
    for (int deref = 0; deref < 2; deref++) {
        kuxhandle handle = ku::test::relocatable(ctx, "abcdef");
        const auto *text = static_cast<char *>(kuxrmlock(ctx, handle));
        EXPECT_EQ(kuu_rtset(ctx, text + 1, nullptr, 0, &handle), 0u);
        kuxrmunlock(ctx, handle);
        EXPECT_EQ(ku::test::text(ctx, handle), "bcdef");
        ctx->kuxrmfree(ctx, handle);
    }
}

TEST(Kuu, CopiesIntoABufferHaveANulOnlyWhereAByteIsLeft)
{
    static constexpr struct {
        const char *text;
        uint32_t size, copied;
        const char *after; // all eight bytes
    } copies[] = {
        {"abcdef", 8, 6, "abcdef.?"}, {"abcdef", 7, 6, "abcdef.?"}, {"abcdef", 6, 6, "abcdef??"},
        {"abcdef", 2, 2, "ab??????"}, {"abcdef", 0, 0, "????????"}, {"", 3, 0, ".???????"},
        {nullptr, 3, 0, ".???????"},  {nullptr, 0, 0, "????????"},
    };
    for (const auto &row : copies) {
        context ctx;
        std::string bytes(8, '?');
        char *buffer = bytes.data();
        uint32_t length = row.size;
        EXPECT_EQ(kuu_copytext(ctx, &buffer, &length, 1, row.text), 0u);
        EXPECT_EQ(length, row.copied);
        for (char &byte : bytes) byte = byte == 0 ? '.' : byte;
        EXPECT_EQ(bytes, row.after);
    }
    for (const char *text : {"", "text", static_cast<const char *>(nullptr)}) {
        ku::test::sweep_allocations([&](context &ctx) {
            char *copy = nullptr;
            uint32_t length = 99;
            const uint32_t status = kuu_copytext(ctx, &copy, &length, 0, text);
            EXPECT_EQ(status, ctx.failed() ? KUXNM_NOMEM : 0);
            EXPECT_EQ(length, status != 0 ? 99 : text != nullptr ? std::strlen(text) : 0);
            EXPECT_EQ(taken(ctx, copy).value_or("-"), status == 0 && text != nullptr ? text : "-");
            return status == 0;
        });
    }
}

TEST(Kuu, ARelocatableCopyHasTheBytesAskedForAndANul)
{
    static constexpr struct {
        const char *text;
        int32_t length;
        const char *copied;
    } copies[] = {{"abc", -1, "abc"}, {"abc", 2, "ab"}, {"abc", 0, ""},
                  {"abc", 50, "abc"}, {"", -1, ""},     {nullptr, 3, nullptr}};
    for (const auto &row : copies) {
        ku::test::sweep_allocations([&](context &ctx) {
            kuxhandle copy = kuu_rmcopytext(ctx, row.text, row.length);
            EXPECT_EQ(copy != nullptr, row.text != nullptr && !ctx.failed());
            if (copy == nullptr) return row.text == nullptr;
            EXPECT_EQ(ku::test::text(ctx, copy), row.copied);
            const auto *bytes = static_cast<char *>(kuxrmlock(ctx, copy));
            for (int32_t i = 3; i <= row.length; i++) EXPECT_EQ(bytes[i], 0);
            kuxrmunlock(ctx, copy);
            ctx->kuxrmfree(ctx, copy);
            return true;
        });
    }
    context ctx;
    ctx.fail_access_from_now(1);
    EXPECT_EQ(kuu_rmcopytext(ctx, "abc", -1), nullptr);
    EXPECT_ERRORS(ctx, {"kuxrm 4"});
}

} // namespace
