// printer.h - lines of fields as text, CSV, JSON or HTML
#ifndef KUQ_PRINTER_H
#define KUQ_PRINTER_H

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "console.h"

namespace kuq
{

// What a line has in a place: nothing for NULL, a text, or a text that comes in pieces
// of whole characters.
struct field {
    using visitor = std::function<bool(std::string_view piece)>;

    std::optional<std::string> text = std::nullopt;
    std::function<bool(const visitor &visit)> pieces = nullptr; // false: it failed
};

// Prints lines of fields under one head; a line's first field says what it is.
class printer
{
public:
    // widths: of the fields, in characters, for columns of text
    printer(console &out, const std::string &format, bool utf8, std::vector<std::string> head,
            std::vector<size_t> widths);

    bool row(const std::vector<field> &fields) { return line(fields, "", "td"); }
    bool sums(const std::vector<field> &fields) { return line(fields, "1", "td"); }
    void end();

private:
    enum class form { text, csv, json, html };

    bool line(const std::vector<field> &fields, const char *colour, const char *cell);
    bool put(const field &given, size_t at);
    std::string escaped(std::string_view piece) const;
    size_t characters(std::string_view text) const;

    console &out_;
    form form_;
    bool utf8_;
    std::vector<std::string> head_;
    std::vector<size_t> widths_;
    const char *colour_ = "";
    std::string line_; // what of the line is not written yet
    bool first_ = true;
};

} // namespace kuq

#endif
