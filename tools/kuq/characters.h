// characters.h - a text character by character, in the terminal's character set
#ifndef KUQ_CHARACTERS_H
#define KUQ_CHARACTERS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "application.h"

namespace kuq
{

// Goes through a text. A NUL is a character like any other; a byte that is part of no
// character is one by itself, above all others.
class characters
{
public:
    characters(const application &app, std::string_view text);

    bool next(uint32_t *value)
    {
        if (at_ >= text_.size()) return false;
        const auto byte = static_cast<unsigned char>(text_[at_]);
        if (byte >= plain_) return next_wide(value);
        at_++;
        *value = byte;
        return true;
    }
    size_t at() const { return at_; } // bytes passed

private:
    bool next_wide(uint32_t *value);
    void begin(); // a scan from here on

    const application &app_;
    std::string copy_; // of a text with shifts: ended by a NUL
    std::string_view text_;
    size_t at_ = 0;
    unsigned plain_; // bytes below it are characters by themselves
    size_t base_ = 0;
    lizg scan_ = {};
};

// The upper case of a character where that is one character, else itself.
uint32_t upper_case(const application &app, uint32_t value);

} // namespace kuq

#endif
