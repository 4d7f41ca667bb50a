// screen.cpp - texts cut by the cells that a terminal gives their characters

#include "screen.h"

#include <sys/ioctl.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>

#include "characters.h"
#include "console.h"

namespace kuq
{
namespace
{

constexpr size_t usual_lines = 24;
constexpr size_t usual_columns = 80;
constexpr size_t most_cells = 10000; // of a terminal that says nonsense
constexpr size_t gap = 2;            // cells between columns
constexpr const char *highlight = "\033[7m";
constexpr const char *plain = "\033[0m";

size_t number_of(const char *name, size_t otherwise)
{
    const char *text = std::getenv(name);
    const unsigned long number = text == nullptr ? 0 : std::strtoul(text, nullptr, 10);
    return number == 0 || number > most_cells ? otherwise : number;
}

winsize size_of_terminal()
{
    winsize size = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) size = {};
    return size;
}

bool is_dumb()
{
    const char *name = std::getenv("TERM");
    return name == nullptr || *name == '\0' || std::strcmp(name, "dumb") == 0;
}

bool inside(size_t at, const std::vector<match> &matches)
{
    for (const match &each : matches)
        if (at >= each.start && at < each.start + each.length) return true;
    return false;
}

} // namespace

screen::screen(const application &app) : app_(app), terminal_(isatty(STDOUT_FILENO) == 1)
{
    const char *no_color = std::getenv("NO_COLOR");
    colours_ = terminal_ && !is_dumb() && (no_color == nullptr || *no_color == '\0');
    // The system tells how wide characters are.
    if (std::setlocale(LC_CTYPE, "") == nullptr && app.utf8()) std::setlocale(LC_CTYPE, "C.UTF-8");
}

screen::~screen() { close_pager(); }

size_t screen::lines() const
{
    const size_t told = size_of_terminal().ws_row;
    return told > 0 ? told : number_of("LINES", usual_lines);
}

size_t screen::columns() const
{
    const size_t told = size_of_terminal().ws_col;
    return told > 0 ? told : number_of("COLUMNS", usual_columns);
}

size_t screen::shown(std::string_view bytes, uint32_t value, std::string *text) const
{
    const bool control = value < 0x20 || value == 0x7F;
    *text = control ? one_line(bytes) : std::string(bytes);
    if (control || !app_.utf8()) return text->size();
    const int cells = wcwidth(static_cast<wchar_t>(value));
    if (cells >= 0) return static_cast<size_t>(cells);
    *text = "?"; // what no terminal can show, and what it would take for a command
    return 1;
}

size_t screen::width(std::string_view text) const
{
    size_t cells = 0;
    characters all(app_, text);
    std::string character;
    size_t start = 0;
    for (uint32_t value = 0; all.next(&value); start = all.at())
        cells += shown(text.substr(start, all.at() - start), value, &character);
    return cells;
}

std::string screen::fitted(std::string_view text, size_t cells,
                           const std::vector<match> &matches) const
{
    std::string line;
    std::string character;
    size_t used = 0;
    size_t start = 0;
    bool lit = false;
    characters all(app_, text);
    for (uint32_t value = 0; all.next(&value); start = all.at()) {
        const size_t more = shown(text.substr(start, all.at() - start), value, &character);
        if (used + more > cells) break;
        const bool found = colours_ && inside(start, matches);
        if (found != lit) line += found ? highlight : plain;
        lit = found;
        line += character;
        used += more;
    }
    if (lit) line += plain;
    return line.append(cells - used, ' ');
}

std::string screen::marked(std::string_view text, const std::vector<match> &matches) const
{
    if (colours_ || matches.empty()) return fitted(text, width(text), matches);
    std::string line;
    size_t at = 0;
    for (const match &each : matches) {
        const std::string_view before = text.substr(at, each.start - at);
        const std::string_view found = text.substr(each.start, each.length);
        line += fitted(before, width(before)) + "[" + fitted(found, width(found)) + "]";
        at = each.start + each.length;
    }
    const std::string_view rest = text.substr(at);
    return line + fitted(rest, width(rest));
}

// ---- tables ----

table::table(const screen &on, std::vector<column> columns) : on_(on), columns_(std::move(columns))
{
    widths_.resize(columns_.size());
    std::vector<cell> names;
    for (const column &each : columns_) names.push_back({each.name});
    add("", std::move(names));
}

void table::add(const std::string &margin, std::vector<cell> cells)
{
    for (size_t at = 0; at < cells.size(); at++)
        widths_[at] = std::max(widths_[at], on_.width(cells[at].text));
    lines_.push_back({margin, std::move(cells)});
}

size_t table::print() const
{
    size_t margin = 0;
    for (const line &each : lines_) margin = std::max(margin, on_.width(each.margin));
    size_t fitting = 0;
    for (const line &each : lines_) print_line(each, margin, &fitting);
    return fitting;
}

void table::print_line(const line &each, size_t margin, size_t *fitting) const
{
    const size_t room = on_.columns();
    size_t used = std::min(margin, room);
    std::string text = on_.fitted(each.margin, used);
    size_t at = 0;
    for (; at < each.cells.size() && used + gap < room; at++) {
        const cell &shown = each.cells[at];
        const size_t width = std::min(widths_[at], room - used - gap);
        const size_t needed = std::min(on_.width(shown.text), width);
        text.append(gap + (columns_[at].right ? width - needed : 0), ' ');
        text += on_.fitted(shown.text, columns_[at].right ? needed : width, shown.matches);
        used += gap + width;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    std::puts(text.c_str());
    *fitting = at;
}

// ---- the pager ----

std::FILE *screen::open_pager()
{
    const char *named = std::getenv("PAGER");
    const std::string pager = named != nullptr && *named != '\0' ? named : "less";
    std::fflush(stdout);
    if (terminal_ && !is_dumb() && pager != "cat") {
        setenv("LESS", "FRX", 0);
        pager_ = popen(pager.c_str(), "w");
    }
    return pager_ != nullptr ? pager_ : stdout;
}

void screen::close_pager()
{
    if (pager_ != nullptr) pclose(pager_);
    pager_ = nullptr;
}

} // namespace kuq
