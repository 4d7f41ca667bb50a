// kuxid.cpp - identifiers: five letters of five bits from bit 31 down, seven bits of number
//
// Letters are told by ASCII range, never by the C library's classes, so that a
// code means the same in every language.

#include "kuxid.h"

namespace
{

constexpr int kuxid_letters = 5;    // letters of an identifier
constexpr int kuxid_letterbits = 5; // bits of a letter
constexpr int kuxid_numberbits = 7; // bits of the number
constexpr uint32_t kuxid_last = 25; // value of the last letter

constexpr int kuxidshift(int letter)
{
    return kuxid_numberbits + kuxid_letterbits * (kuxid_letters - 1 - letter);
}

} // namespace

const char kuxidalphabet[27] = "abcdefghijklmnopqrstuvwxyz";

uint32_t kuxidencode(const char *prefix, uint8_t number) { return kuxidbase(prefix) | number; }

uint32_t kuxidbase(const char *prefix)
{
    uint32_t identifier = 0;
    for (int letter = 0; letter < kuxid_letters; letter++)
        identifier |= static_cast<uint32_t>(kuxidcharval(prefix[letter])) << kuxidshift(letter);
    return identifier;
}

uint8_t kuxiddecode(uint32_t identifier, char *area)
{
    for (int letter = 0; letter < kuxid_letters; letter++)
        area[letter] = static_cast<char>(kuxidextract(identifier, letter));
    return kuxidextract(identifier, kuxid_letters);
}

uint8_t kuxidextract(uint32_t identifier, int32_t field)
{
    if (field == kuxid_letters) return identifier & 0x7F;
    if (field < 0 || field > kuxid_letters) return static_cast<uint8_t>(kuxidalphabet[0]);
    const uint32_t value = (identifier >> kuxidshift(field)) & 0x1F;
    return static_cast<uint8_t>(kuxidalphabet[value > kuxid_last ? kuxid_last : value]);
}

uint8_t kuxidcharval(char character)
{
    if (character >= 'a' && character <= 'z') return static_cast<uint8_t>(character - 'a');
    if (character >= 'A' && character <= 'Z') return static_cast<uint8_t>(character - 'A');
    return 0;
}
