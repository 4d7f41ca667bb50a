// values.h - values as the data cache keeps them, and exact decimal arithmetic
#ifndef KUQ_VALUES_H
#define KUQ_VALUES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kuq
{

// A decimal of any length, exact.
class decimal
{
public:
    // "-12.50", ".5", "1e-3": the whole text must be a number.
    static std::optional<decimal> parse(std::string_view text);

    void add(const decimal &other);
    // By a count above 0, rounded half away from zero to six digits more than it has.
    decimal divided(uint64_t count) const;
    std::string text() const; // without needless zeros or exponent

    // The bytes that the cache sorts as numbers; "" when there are more than 38
    // significant digits or the magnitude is out of range.
    std::string encoded() const;
    static std::string decoded(std::string_view bytes); // as text

private:
    void scale_to(size_t scale);

    bool negative_ = false;
    std::string digits_ = "0"; // a whole number, most significant digit first
    size_t scale_ = 0;         // of its digits so many are behind the point
};

// "YYYY-MM-DD", with " HH:MM:SS" or nothing behind it, as the cache's five bytes; "" when
// it is no date of the years 1 to 9999.
std::string encoded_date(std::string_view text);
std::string decoded_date(std::string_view bytes); // with the time unless it is midnight

} // namespace kuq

#endif
