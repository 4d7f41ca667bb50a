// charset.cpp - conversions by the system's own tables

#include "charset.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>

namespace kuq
{
namespace
{

constexpr const char *utf16 = std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

// "SJIS" of "ja_JP.SJIS@x".
std::string named()
{
    for (const char *name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char *value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        const std::string locale = value;
        const size_t dot = locale.find('.');
        return dot == std::string::npos ? "" : locale.substr(dot + 1, locale.find('@') - dot - 1);
    }
    return "";
}

std::string_view bytes_of(std::u16string_view text)
{
    return {reinterpret_cast<const char *>(text.data()), text.size() * sizeof(char16_t)};
}

std::u16string units_of(const std::string &bytes)
{
    std::u16string result(bytes.size() / sizeof(char16_t), u'\0');
    bytes.copy(reinterpret_cast<char *>(result.data()), bytes.size());
    return result;
}

constexpr char16_t question_mark = u'?';
const std::string_view unknown_unit(reinterpret_cast<const char *>(&question_mark),
                                    sizeof question_mark);

// Converts all of `text`, whose units are `unit` bytes; a unit that cannot be converted
// becomes `unknown`.
std::string convert(iconv_t how, std::string_view text, size_t unit, std::string_view unknown)
{
    const auto failed = static_cast<size_t>(-1);
    std::string result;
    char block[4096];
    char *from = const_cast<char *>(text.data()); // the system's own signature; not changed
    size_t left = text.size();
    iconv(how, nullptr, nullptr, nullptr, nullptr);
    for (bool ending = false;;) {
        char *to = block;
        size_t room = sizeof block;
        const size_t done = ending ? iconv(how, nullptr, nullptr, &to, &room)
                                   : iconv(how, &from, &left, &to, &room);
        const int error = errno;
        result.append(block, sizeof block - room);
        if (done == failed && error == E2BIG) continue;
        if (done == failed && !ending && left > 0) {
            result += unknown;
            const size_t skipped = std::min(left, unit);
            from += skipped;
            left -= skipped;
            continue;
        }
        if (ending) return result;
        ending = true; // back to the initial shift state
    }
}

} // namespace

charset::charset(const application &app)
{
    const auto failed = reinterpret_cast<iconv_t>(-1);
    const std::string name = app.utf8() ? "UTF-8" : named();
    in_ = iconv_open(utf16, name.empty() ? "US-ASCII" : name.c_str());
    out_ = iconv_open(name.empty() ? "US-ASCII" : name.c_str(), utf16);
    if (in_ == failed) in_ = iconv_open(utf16, "US-ASCII");
    if (out_ == failed) out_ = iconv_open("US-ASCII", utf16);
}

charset::~charset()
{
    iconv_close(in_);
    iconv_close(out_);
}

std::string charset::from_utf16(std::u16string_view text) const
{
    return convert(out_, bytes_of(text), sizeof(char16_t), "?");
}

std::u16string charset::to_utf16(std::string_view text) const
{
    return units_of(convert(in_, text, 1, unknown_unit));
}

std::u16string to_utf8_units(std::u16string_view text)
{
    iconv_t how = iconv_open("UTF-8", utf16);
    std::u16string result;
    for (const char byte : convert(how, bytes_of(text), sizeof(char16_t), "?"))
        result += static_cast<unsigned char>(byte);
    iconv_close(how);
    return result;
}

std::u16string from_utf8_units(const std::u16string &text)
{
    iconv_t how = iconv_open(utf16, "UTF-8");
    const std::string bytes(text.begin(), text.end());
    std::u16string result = units_of(convert(how, bytes, 1, unknown_unit));
    iconv_close(how);
    return to_utf8_units(result) == text ? result : text;
}

} // namespace kuq
