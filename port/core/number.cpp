// number.cpp - numbers: a sign and exponent byte, then two digits a byte
//
// A value is 0.d1d2..dn x 10^e with d1 and dn not 0. Its bytes are
//
//     positive   0x81 + (e + 63) | d1 + 1, d2 + 1 | d3 + 1, d4 + 1 | ...
//     zero       0x80
//     negative   0x7F - (e + 63) | 14 - d1, 14 - d2 | ...
//
// with one nibble a digit. So a larger exponent sorts later among the positive
// and earlier among the negative; a digit nibble is 1 to 10 (or 14 to 5) and what
// fills up the last byte is below (above) all of them: 0 for the positive, 15 for
// the negative, which always end in one so that a head sorts behind its longer
// numbers. No byte is zero. Reading accepts this one form of a value and no other.

#include "number.h"

#include <algorithm>
#include <cstring>

#include "output.h"

namespace ku::core
{

namespace
{

constexpr int exponent_bound = 63;        // exponents are -63 to 63
constexpr unsigned char zero_byte = 0x80; // the number 0
constexpr unsigned negative_end = 15;     // nibble behind the digits of a negative number

struct decimal {
    bool negative = false;
    int exponent = 0;                        // the value is 0.digits x 10^exponent
    std::size_t count = 0;                   // digits in use; 0: the value is zero
    unsigned char digits[number_digits + 1]; // 0 to 9, the first and the last not 0

    // Keeps the first `kept` digits, rounded half away from zero; zeros may be left at the end.
    void round(std::size_t kept)
    {
        if (kept >= count) return;
        bool up = digits[kept] >= 5;
        count = kept;
        while (up && count > 0 && digits[count - 1] == 9) count--;
        if (up && count > 0) {
            digits[count - 1]++;
        } else if (up) {
            digits[count++] = 1;
            exponent++;
        }
        if (count == 0) *this = decimal();
    }
};

// ---- bytes ----

unsigned nibble(const unsigned char *bytes, std::size_t index)
{
    return index % 2 == 0 ? bytes[index / 2] >> 4 : bytes[index / 2] & 15;
}

// The digits behind the first byte; false when they are not in the one form.
bool read_digits(const unsigned char *bytes, std::size_t length, decimal *value)
{
    const std::size_t nibbles = length * 2;
    for (std::size_t i = 0; i < nibbles; i++) {
        const unsigned here = nibble(bytes, i);
        const unsigned digit = value->negative ? 14 - here : here - 1;
        if (digit <= 9) {
            if (value->count == number_digits) return false;
            value->digits[value->count++] = static_cast<unsigned char>(digit);
            continue;
        }
        if (here != (value->negative ? negative_end : 0)) return false;
        const bool fills = i + 1 == nibbles;
        const bool ends = value->negative && i + 2 == nibbles && nibble(bytes, i + 1) == here;
        if (!fills && !ends) return false;
        return value->count != 0 && value->digits[0] != 0 && value->digits[value->count - 1] != 0;
    }
    return !value->negative && value->count != 0 && value->digits[0] != 0
           && value->digits[value->count - 1] != 0;
}

bool read_bytes(const unsigned char *bytes, std::size_t length, decimal *value)
{
    *value = decimal();
    if (length == 0 || bytes[0] == 0) return false;
    if (bytes[0] == zero_byte) return length == 1;
    value->negative = bytes[0] < zero_byte;
    value->exponent = (value->negative ? 0x7F - bytes[0] : bytes[0] - 0x81) - exponent_bound;
    return read_digits(bytes + 1, length - 1, value);
}

std::size_t write_bytes(const decimal &value, unsigned char *bytes)
{
    if (value.count == 0) {
        bytes[0] = zero_byte;
        return 1;
    }
    const int scaled = value.exponent + exponent_bound;
    bytes[0] = static_cast<unsigned char>(value.negative ? 0x7F - scaled : 0x81 + scaled);
    const unsigned fill = value.negative ? negative_end : 0;
    const std::size_t nibbles = value.count + (value.negative ? 1 : 0);
    const std::size_t length = (nibbles + 1) / 2;
    for (std::size_t i = 0; i < length; i++) {
        const auto half = [&](std::size_t index) {
            if (index >= value.count) return fill;
            const unsigned digit = value.digits[index];
            return value.negative ? 14 - digit : digit + 1;
        };
        bytes[1 + i] = static_cast<unsigned char>(half(2 * i) << 4 | half(2 * i + 1));
    }
    return 1 + length;
}

// ---- text ----

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Text that is being read, from the left.
struct input {
    const char *at;
    const char *end;

    bool more() const { return at != end; }
    bool take(char c)
    {
        if (at == end || *at != c) return false;
        at++;
        return true;
    }
    bool take_minus()
    {
        if (take('-')) return true;
        take('+');
        return false;
    }
};

// Collects digits as they come: leading zeros only move the exponent, digits
// beyond those that are kept only say which way to round.
class collector
{
public:
    explicit collector(decimal *value) : value_(value) {}

    void add(char c, bool fraction)
    {
        const auto digit = static_cast<unsigned char>(c - '0');
        seen_ = true;
        if (value_->count == 0 && digit == 0) {
            if (fraction) exponent_--;
            return;
        }
        if (!fraction) exponent_++;
        if (value_->count <= number_digits) value_->digits[value_->count++] = digit;
    }
    bool seen() const { return seen_; }
    std::int64_t exponent() const { return exponent_; }

private:
    decimal *value_;
    std::int64_t exponent_ = 0;
    bool seen_ = false;
};

// The exponent behind an E, held at a bound that no digits can bring back.
bool read_exponent(input &from, std::int64_t *exponent)
{
    constexpr std::int64_t bound = std::int64_t{1} << 62;
    const bool negative = from.take_minus();
    if (!from.more()) return false;
    std::int64_t value = 0;
    for (; from.more() && is_digit(*from.at); from.at++)
        value = std::min(bound, std::min(value, bound / 10) * 10 + (*from.at - '0'));
    *exponent = negative ? -value : value;
    return true;
}

bool read_text(input from, decimal *value)
{
    *value = decimal();
    value->negative = from.take_minus();
    collector digits(value);
    for (; from.more() && is_digit(*from.at); from.at++) digits.add(*from.at, false);
    if (from.take('.'))
        for (; from.more() && is_digit(*from.at); from.at++) digits.add(*from.at, true);
    if (!digits.seen()) return false;
    std::int64_t shift = 0;
    if ((from.take('E') || from.take('e')) && !read_exponent(from, &shift)) return false;
    if (from.more()) return false;
    if (value->count == 0) {
        *value = decimal();
        return true;
    }
    constexpr std::int64_t beyond = 4 * exponent_bound;
    value->exponent = static_cast<int>(std::clamp(digits.exponent() + shift, -beyond, beyond));
    value->round(number_digits);
    while (value->count > 0 && value->digits[value->count - 1] == 0) value->count--;
    if (value->exponent < -exponent_bound) *value = decimal();
    return value->exponent <= exponent_bound;
}

void write_text(output &to, const decimal &value)
{
    if (value.negative) to.put('-');
    const auto digit = [&](int place) { // place 0 stands behind the point
        const int index = place + value.exponent;
        const bool given = index >= 0 && index < static_cast<int>(value.count);
        return static_cast<char>('0' + (given ? value.digits[index] : 0));
    };
    if (value.exponent <= 0) to.put('0');
    for (int place = -value.exponent; place < 0; place++) to.put(digit(place));
    const int places = static_cast<int>(value.count) - value.exponent;
    if (places <= 0) return;
    to.put('.');
    for (int place = 0; place < places; place++) to.put(digit(place));
}

bool store(const decimal &value, char *buffer, std::size_t capacity)
{
    output measured;
    write_text(measured, value);
    if (measured.length >= capacity) return false;
    output stored{buffer};
    write_text(stored, value);
    buffer[stored.length] = '\0';
    return true;
}

// Stands in for a number that cannot be shown.
bool store_reason(char reason, std::size_t count, char *buffer, std::size_t capacity)
{
    if (capacity == 0) return false;
    if (count >= capacity) count = 0;
    std::memset(buffer, reason, count);
    buffer[count] = '\0';
    return false;
}

} // namespace

bool text_to_number(const char *text, std::size_t length, unsigned char *number, std::size_t *bytes)
{
    decimal value;
    if (!read_text({text, text + length}, &value)) return false;
    *bytes = write_bytes(value, number);
    return true;
}

bool number_to_text(const unsigned char *number, std::size_t bytes, char *buffer,
                    std::size_t capacity)
{
    decimal value;
    return read_bytes(number, bytes, &value) && store(value, buffer, capacity);
}

bool number_to_picture(const unsigned char *number, std::size_t bytes, const char *picture,
                       char *buffer, std::size_t capacity)
{
    decimal value;
    const std::size_t width = std::strlen(picture);
    if (width == 0 || std::strspn(picture, "9") != width || !read_bytes(number, bytes, &value))
        return store_reason('?', 1, buffer, capacity);
    if (value.exponent < 0)
        value = decimal(); // below a tenth
    else
        value.round(static_cast<std::size_t>(value.exponent));
    if (value.exponent > 0 && static_cast<std::size_t>(value.exponent) > width)
        return store_reason('#', width, buffer, capacity);
    return store(value, buffer, capacity) || store_reason('?', 0, buffer, capacity);
}

int compare_bytes(const void *a, std::size_t a_length, const void *b, std::size_t b_length)
{
    const std::size_t both = std::min(a_length, b_length);
    const int order = both == 0 ? 0 : std::memcmp(a, b, both);
    if (order != 0 || a_length == b_length) return order;
    return a_length < b_length ? -1 : 1;
}

} // namespace ku::core
