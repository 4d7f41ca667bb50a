// wildcard_fuzz.cpp - any pattern, any subject, any template: right answers, no byte out of bounds
//
// Input: one byte for the room of the filled template, then the pattern up to a
// NUL, which is the template too, and the subject.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kuum.h"
#include "kuussb.h"
#include "kux.h"

namespace
{

void check(bool holds)
{
    if (!holds) std::abort();
}

// One row of answers for each byte of the pattern: which beginnings of the subject it covers.
bool covers(const std::string &pattern, const std::string &subject)
{
    std::vector<bool> before(subject.size() + 1);
    before[0] = true;
    for (const char wanted : pattern) {
        std::vector<bool> now(subject.size() + 1);
        now[0] = wanted == '%' && before[0];
        for (size_t i = 1; i <= subject.size(); i++)
            now[i] = wanted == '%' ? before[i] || now[i - 1]
                                   : before[i - 1] && (wanted == '_' || wanted == subject[i - 1]);
        before = now;
    }
    return before[subject.size()];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1 || size > 4096) return 0;
    const char *text = reinterpret_cast<const char *>(data) + 1;
    const char *end = text + size - 1;
    const char *stop = std::find(text, end, '\0');
    const std::string pattern(text, stop);
    const std::string subject =
        stop == end ? "" : std::string(stop + 1, std::find(stop + 1, end, '\0'));

    static kux *ctx = kuxcreate(nullptr);
    kuumtdef *tokens = kuumcreate(ctx, pattern.c_str());
    const bool expected = covers(pattern, subject);
    check((kuumatch(ctx, tokens, subject.c_str()) != 0) == expected);
    check((kuumatch(ctx, tokens, subject.c_str()) != 0) == expected); // again: no mark is left
    kuumfree(ctx, tokens);

    const char *const names[] = {subject.c_str(), nullptr, "$1"};
    const auto buffer = std::make_unique<char[]>(data[0]); // not null for 0 bytes
    std::memset(buffer.get(), '~', data[0]);
    kuussb(ctx, data[0], buffer.get(), pattern.c_str(), 3, names);
    check(data[0] == 0 || std::memchr(buffer.get(), 0, data[0]) != nullptr);
    char *made = kuussb(ctx, 0, nullptr, pattern.c_str(), 3, names);
    check(std::strlen(made) <= pattern.size() + subject.size() + 2);
    ctx->kuxnmfree(ctx, made);
    return 0;
}
