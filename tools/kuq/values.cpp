// values.cpp - numbers and dates in the cache's form, decimal sums on digits
//
// A number 0.d1d2...dn x 10^E is a byte for sign and exponent and a nibble for
// each digit; negative numbers have everything turned round, so that bytes
// compare as values. A date is its seconds since the year 1 in base 255. No byte
// is ever zero.

#include "values.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace kuq
{
namespace
{

constexpr size_t most_digits = 38;
constexpr int most_exponent = 63;
constexpr unsigned char zero_number = 0x80;
constexpr size_t average_digits = 6;
constexpr int date_bytes = 5;
constexpr int64_t date_base = 255;
constexpr int64_t day_seconds = 86400;
constexpr long longest_exponent = 1000; // longer ones are no amounts

bool is_digit(char letter) { return letter >= '0' && letter <= '9'; }

void strip_zeros(std::string *digits)
{
    digits->erase(0, std::min(digits->find_first_not_of('0'), digits->size() - 1));
}

// Both of one length, the first not below the second when they are subtracted.
std::string combined(const std::string &a, const std::string &b, bool subtract)
{
    std::string result(a.size(), '0');
    int carry = 0;
    for (size_t at = a.size(); at-- > 0;) {
        int digit = subtract ? a[at] - b[at] - carry : a[at] - '0' + b[at] - '0' + carry;
        carry = subtract ? digit < 0 : digit > 9;
        if (carry != 0) digit += subtract ? 10 : -10;
        result[at] = static_cast<char>('0' + digit);
    }
    return carry != 0 ? "1" + result : result;
}

int64_t days_to(int year, unsigned month, unsigned day)
{
    using namespace std::chrono;
    const auto first = sys_days(year_month_day(std::chrono::year(1), January, std::chrono::day(1)));
    const year_month_day date{std::chrono::year(year), std::chrono::month(month),
                              std::chrono::day(day)};
    return date.ok() ? (sys_days(date) - first).count() : -1;
}

} // namespace

std::optional<decimal> decimal::parse(std::string_view text)
{
    decimal result;
    size_t at = 0;
    if (at < text.size() && (text[at] == '-' || text[at] == '+'))
        result.negative_ = text[at++] == '-';
    result.digits_.clear();
    bool point = false;
    for (; at < text.size() && (is_digit(text[at]) || (text[at] == '.' && !point)); at++) {
        if (text[at] == '.') {
            point = true;
            continue;
        }
        result.digits_ += text[at];
        if (point) result.scale_++;
    }
    if (result.digits_.empty()) return std::nullopt;
    long exponent = 0;
    if (at < text.size() && (text[at] | 0x20) == 'e') {
        const bool down = ++at < text.size() && text[at] == '-';
        if (at < text.size() && (text[at] == '-' || text[at] == '+')) at++;
        if (at == text.size()) return std::nullopt;
        for (; at < text.size() && is_digit(text[at]) && exponent < longest_exponent; at++)
            exponent = exponent * 10 + (text[at] - '0');
        if (down) exponent = -exponent;
    }
    if (at != text.size()) return std::nullopt;
    const long scale = static_cast<long>(result.scale_) - exponent;
    if (scale < 0) result.digits_.append(static_cast<size_t>(-scale), '0');
    result.scale_ = scale < 0 ? 0 : static_cast<size_t>(scale);
    strip_zeros(&result.digits_);
    return result;
}

void decimal::scale_to(size_t scale)
{
    if (scale <= scale_) return;
    digits_.append(scale - scale_, '0');
    scale_ = scale;
}

void decimal::add(const decimal &other)
{
    decimal term = other;
    scale_to(term.scale_);
    term.scale_to(scale_);
    const size_t width = std::max(digits_.size(), term.digits_.size());
    digits_.insert(0, width - digits_.size(), '0');
    term.digits_.insert(0, width - term.digits_.size(), '0');
    const bool subtract = negative_ != term.negative_;
    if (subtract && digits_ < term.digits_) {
        digits_.swap(term.digits_);
        negative_ = term.negative_;
    }
    digits_ = combined(digits_, term.digits_, subtract);
    strip_zeros(&digits_);
    if (digits_ == "0") negative_ = false;
}

decimal decimal::divided(uint64_t count) const
{
    decimal result = *this;
    result.scale_to(scale_ + average_digits);
    uint64_t rest = 0; // below the count, which is far below 2^60
    for (char &digit : result.digits_) {
        rest = rest * 10 + static_cast<uint64_t>(digit - '0');
        digit = static_cast<char>('0' + static_cast<int>(rest / count));
        rest %= count;
    }
    strip_zeros(&result.digits_);
    if (rest * 2 < count) return result;
    decimal step;
    step.digits_ = "1";
    step.scale_ = result.scale_;
    step.negative_ = negative_;
    result.add(step);
    return result;
}

std::string decimal::text() const
{
    std::string shown = digits_;
    if (shown.size() <= scale_) shown.insert(0, scale_ + 1 - shown.size(), '0');
    if (scale_ > 0) {
        shown.insert(shown.size() - scale_, ".");
        shown.erase(shown.find_last_not_of('0') + 1);
        if (shown.back() == '.') shown.pop_back();
    }
    return negative_ && shown != "0" ? "-" + shown : shown;
}

std::string decimal::encoded() const
{
    if (digits_ == "0") return std::string(1, static_cast<char>(zero_number));
    const int exponent = static_cast<int>(digits_.size()) - static_cast<int>(scale_);
    const std::string kept = digits_.substr(0, digits_.find_last_not_of('0') + 1);
    if (kept.size() > most_digits || exponent > most_exponent || exponent < -most_exponent)
        return "";
    std::string nibbles;
    for (const char digit : kept)
        nibbles += static_cast<char>(negative_ ? 14 - (digit - '0') : digit - '0' + 1);
    if (negative_) nibbles += '\x0F';
    if (nibbles.size() % 2 != 0) nibbles += negative_ ? '\x0F' : '\0';
    const int lead = exponent + most_exponent;
    std::string bytes(1, static_cast<char>(negative_ ? 0x7F - lead : 0x81 + lead));
    for (size_t at = 0; at < nibbles.size(); at += 2)
        bytes += static_cast<char>(nibbles[at] << 4 | nibbles[at + 1]);
    return bytes;
}

std::string decimal::decoded(std::string_view bytes)
{
    if (bytes.empty()) return "?";
    const int first = static_cast<unsigned char>(bytes[0]);
    if (first == zero_number) return "0";
    decimal value;
    value.negative_ = first < zero_number;
    value.digits_.clear();
    for (size_t at = 2; at < bytes.size() * 2; at++) {
        const int byte = static_cast<unsigned char>(bytes[at / 2]);
        const int nibble = at % 2 == 0 ? byte >> 4 : byte & 15;
        const int digit = value.negative_ ? 14 - nibble : nibble - 1;
        if (digit < 0 || digit > 9) break;
        value.digits_ += static_cast<char>('0' + digit);
    }
    const int exponent = (value.negative_ ? 0x7F - first : first - 0x81) - most_exponent;
    const int scale = static_cast<int>(value.digits_.size()) - exponent;
    if (scale < 0) value.digits_.append(static_cast<size_t>(-scale), '0');
    value.scale_ = scale < 0 ? 0 : static_cast<size_t>(scale);
    return value.text();
}

std::string encoded_date(std::string_view text)
{
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    unsigned hour = 0;
    unsigned minute = 0;
    unsigned second = 0;
    int end = 0;
    const std::string copy(text);
    const int got = std::sscanf(copy.c_str(), "%4d-%2u-%2u%n %2u:%2u:%2u%n", &year, &month, &day,
                                &end, &hour, &minute, &second, &end);
    const bool whole = (got == 3 || got == 6) && static_cast<size_t>(end) == text.size();
    if (!whole || year < 1 || hour > 23 || minute > 59 || second > 59) return "";
    const int64_t days = days_to(year, month, day);
    if (days < 0) return "";
    int64_t seconds = days * day_seconds + hour * 3600 + minute * 60 + second;
    std::string bytes(date_bytes, '\0');
    for (int at = date_bytes; at-- > 0; seconds /= date_base)
        bytes[static_cast<size_t>(at)] = static_cast<char>(seconds % date_base + 1);
    return bytes;
}

std::string decoded_date(std::string_view bytes)
{
    using namespace std::chrono;
    int64_t seconds = 0;
    for (const char byte : bytes)
        seconds = seconds * date_base + static_cast<unsigned char>(byte) - 1;
    const auto first = sys_days(year_month_day(year(1), January, day(1)));
    const year_month_day date(first + days(seconds / day_seconds));
    const auto time = static_cast<int>(seconds % day_seconds);
    char shown[64];
    std::snprintf(shown, sizeof shown, "%04d-%02u-%02u", int(date.year()), unsigned(date.month()),
                  unsigned(date.day()));
    std::string result = shown;
    if (time == 0) return result;
    std::snprintf(shown, sizeof shown, " %02d:%02d:%02d", time / 3600, time / 60 % 60, time % 60);
    return result + shown;
}

} // namespace kuq
