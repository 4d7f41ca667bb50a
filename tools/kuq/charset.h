// charset.h - between a database's texts, which come as UTF-16, and the terminal's
#ifndef KUQ_CHARSET_H
#define KUQ_CHARSET_H

#include <iconv.h>

#include <string>
#include <string_view>

#include "application.h"

namespace kuq
{

// The character set that the environment names; US-ASCII where it names none that the
// system knows.
class charset
{
public:
    explicit charset(const application &app);
    ~charset();
    charset(const charset &) = delete;
    charset &operator=(const charset &) = delete;

    // What has no place in the other set becomes a question mark.
    std::string from_utf16(std::u16string_view text) const;
    std::u16string to_utf16(std::string_view text) const;

private:
    iconv_t in_;
    iconv_t out_;
};

// A text as UTF-8, a byte in each unit: what passes through a conversion to ISO 8859-1 whole.
std::u16string to_utf8_units(std::u16string_view text);

// The other way; a text that is not of that kind stays as it is.
std::u16string from_utf8_units(const std::u16string &text);

} // namespace kuq

#endif
