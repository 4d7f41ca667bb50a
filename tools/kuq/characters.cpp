// characters.cpp - by the library's scan of multibyte text
//
// A scan ends at a NUL and in front of half a character; it is begun again behind
// that byte. Where characters do not depend on a shift state one is begun for every
// character that is not a byte by itself: nothing but its bytes is looked at.

#include "characters.h"

#include <algorithm>

namespace kuq
{
namespace
{

constexpr size_t longest_character = 8; // bytes

} // namespace

characters::characters(const application &app, std::string_view text) : app_(app), text_(text)
{
    const kulang &lang = *app.ctx()->kuxlangidh;
    plain_ = lang.shiftsensitive_kulang != 0                ? 0
             : (lang.flags_kulang & KULANG_SINGLEBYTE) != 0 ? 0x100
                                                            : 0x80;
    if (plain_ > 0) return;
    copy_ = text;
    text_ = copy_;
    begin();
}

void characters::begin()
{
    kux *ctx = app_.ctx();
    base_ = at_;
    size_t length = text_.size() - at_;
    if (plain_ > 0) length = std::min(length, longest_character);
    lizginit(ctx->kuxlangidh, &ctx->kuxlocglo, &scan_, text_.data() + at_,
             static_cast<uint32_t>(length), LIZ_MULTIBYTE, 0);
}

bool characters::next_wide(uint32_t *value)
{
    kux *ctx = app_.ctx();
    if (plain_ > 0) begin();
    if (lizggnc(ctx->kuxlangidh, &ctx->kuxlocglo, &scan_, value) == LIZ_OK) {
        at_ = base_ + scan_.boffset_lizg;
        return true;
    }
    const auto byte = static_cast<unsigned char>(text_[at_]);
    *value = byte == 0 ? 0 : KULANG_RAWBYTE | byte;
    at_++;
    begin();
    return true;
}

uint32_t upper_case(const application &app, uint32_t value)
{
    kux *ctx = app.ctx();
    const kulang &lang = *ctx->kuxlangidh;
    if ((lang.flags_kulang & KULANG_SINGLEBYTE) != 0) return lang.upper_kulang[value & 0xFF];
    if (value < 0x80) return value >= 'a' && value <= 'z' ? value - 'a' + 'A' : value;
    uint32_t upper[longest_character] = {};
    uint32_t written = 0;
    const uint32_t status = lizmcpy(&lang, &ctx->kuxlocglo, upper, sizeof upper, LIZ_WIDE, &value,
                                    sizeof value, LIZ_WIDE, LIZ_UPPER, &written);
    return status == LIZ_OK && written == sizeof value ? upper[0] : value;
}

} // namespace kuq
