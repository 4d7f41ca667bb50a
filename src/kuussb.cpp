// kuussb.cpp - templates: one pass over the template, pieces appended until the buffer is full
//
// A substitution is put in as it is: a `$` in it has no meaning. Sizes are summed
// in 64 bits; a sum that 32 bits cannot say is a failed allocation.

#include "kuussb.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "kuguard.h"

namespace
{

std::string_view kuussbtext(const char *text) { return text != nullptr ? text : ""; }

// Room for the template, every substitution once, and a NUL.
std::uint64_t kuussbsize(std::string_view tmplate, std::int32_t numsub, const char *const *sub)
{
    std::uint64_t size = std::uint64_t{tmplate.size()} + 1;
    for (std::int32_t i = 0; i < numsub; i++) size += kuussbtext(sub[i]).size();
    return size;
}

// Where text goes: what does not fit before the last byte, the NUL's, is cut.
class kuussbtarget
{
public:
    kuussbtarget(char *buffer, std::uint32_t size) : next_(buffer), left_(size - 1) {}
    void append(std::string_view text)
    {
        const std::size_t length = std::min(text.size(), left_);
        std::memcpy(next_, text.data(), length);
        next_ += length;
        left_ -= length;
    }
    void end() { *next_ = 0; }

private:
    char *next_;
    std::size_t left_;
};

void kuussbfill(kuussbtarget &target, std::string_view tmplate, std::int32_t numsub,
                const char *const *sub)
{
    while (!tmplate.empty()) {
        const std::size_t plain = std::min(tmplate.find('$'), tmplate.size());
        target.append(tmplate.substr(0, plain));
        tmplate.remove_prefix(plain);
        if (tmplate.empty()) return;
        const char next = tmplate.size() > 1 ? tmplate[1] : '$';
        const bool named = next >= '0' && next <= '9' && next - '0' < numsub;
        target.append(named ? kuussbtext(sub[next - '0']) : tmplate.substr(0, 1));
        tmplate.remove_prefix(named ? 2 : 1);
    }
}

} // namespace

char *kuussb(kux *ctx, std::uint32_t buflen, char *buffer, const char *tmplate, std::int32_t numsub,
             const char *const *sub)
{
    const std::string_view text = kuussbtext(tmplate);
    if (sub == nullptr) numsub = 0;
    if (buffer == nullptr) {
        const std::uint64_t size = buflen != 0 ? buflen : kuussbsize(text, numsub, sub);
        buffer = static_cast<char *>(ku::allocate(ctx, size, 1));
        if (buffer == nullptr) return nullptr;
        buflen = static_cast<std::uint32_t>(size);
    }
    if (buflen == 0) return buffer;
    kuussbtarget target(buffer, buflen);
    kuussbfill(target, text, numsub, sub);
    target.end();
    return buffer;
}
