// printer.cpp - a line is put together and written; a long field of it piece by piece

#include "printer.h"

#include <algorithm>

namespace kuq
{

printer::printer(console &out, const std::string &format, bool utf8, std::vector<std::string> head,
                 std::vector<size_t> widths)
    : out_(out), form_(format == "csv"    ? form::csv
                       : format == "json" ? form::json
                       : format == "html" ? form::html
                                          : form::text),
      utf8_(utf8), head_(std::move(head)), widths_(std::move(widths))
{
    widths_.resize(head_.size());
    for (size_t at = 0; at < head_.size(); at++)
        widths_[at] = std::max(widths_[at], characters(head_[at]));
    if (form_ == form::json) out_.write("[\n");
    if (form_ == form::html) out_.write("<table>\n");
    if (form_ == form::json) return;
    std::vector<field> names;
    for (const std::string &name : head_) names.push_back({name});
    line(names, "1", "th");
}

void printer::end()
{
    if (form_ == form::json) out_.write(first_ ? "]\n" : "\n]\n");
    if (form_ == form::html) out_.write("</table>\n");
}

size_t printer::characters(std::string_view text) const
{
    if (!utf8_) return text.size();
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    }));
}

std::string printer::escaped(std::string_view piece) const
{
    if (form_ == form::text) return one_line(piece);
    if (form_ == form::json) {
        const std::string quoted = json(piece, utf8_);
        return quoted.substr(1, quoted.size() - 2);
    }
    std::string result;
    for (const char letter : piece)
        if (form_ == form::csv)
            result += letter == '"' ? "\"\"" : std::string(1, letter);
        else
            result += letter == '&'   ? "&amp;"
                      : letter == '<' ? "&lt;"
                      : letter == '>' ? "&gt;"
                                      : std::string(1, letter);
    return result;
}

// In CSV an empty text is quoted, NULL is nothing; in JSON NULL is a word.
bool printer::put(const field &given, size_t at)
{
    const bool null = !given.text && !given.pieces;
    const bool plain = given.text && !given.text->empty()
                       && given.text->find_first_of("\",\r\n") == std::string::npos;
    const bool quoted = !null && (form_ == form::json || (form_ == form::csv && !plain));
    if (quoted) line_ += '"';
    if (null && form_ == form::json) line_ += "null";
    size_t width = 0;
    const auto add = [&](std::string_view piece) {
        const std::string text = escaped(piece);
        if (form_ == form::text) width += characters(text);
        line_ += text;
        return true;
    };
    const auto write = [&](std::string_view piece) {
        add(piece);
        out_.write_in(colour_, line_);
        line_.clear();
        return !out_.failed();
    };
    if (given.text) add(*given.text);
    if (given.pieces && !given.pieces(write)) return false;
    if (quoted) line_ += '"';
    if (form_ == form::text) line_.append(std::max(widths_[at], width) - width + 2, ' ');
    return true;
}

bool printer::line(const std::vector<field> &fields, const char *colour, const char *cell)
{
    const std::string open = std::string("<") + cell + ">";
    const std::string close = std::string("</") + cell + ">";
    colour_ = colour;
    line_ = form_ == form::html ? "<tr>" : form_ != form::json ? "" : first_ ? "  {" : ",\n  {";
    first_ = false;
    for (size_t at = 0; at < fields.size(); at++) {
        if (form_ == form::html) line_ += open;
        if (at > 0 && form_ == form::csv) line_ += ",";
        if (form_ == form::json) line_ += (at == 0 ? "" : ", ") + json(head_[at], utf8_) + ": ";
        if (!put(fields[at], at)) return false;
        if (form_ == form::html) line_ += close;
    }
    if (form_ == form::html) line_ += "</tr>";
    if (form_ == form::json) line_ += "}";
    if (form_ == form::text) line_.erase(line_.find_last_not_of(' ') + 1);
    out_.write_in(colour, line_);
    if (form_ != form::json) out_.write("\n");
    return !out_.failed();
}

} // namespace kuq
