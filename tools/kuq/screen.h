// screen.h - what fits on a terminal, and how it is shown there
#ifndef KUQ_SCREEN_H
#define KUQ_SCREEN_H

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "application.h"
#include "pattern.h"

namespace kuq
{

class screen
{
public:
    explicit screen(const application &app);
    ~screen();
    screen(const screen &) = delete;
    screen &operator=(const screen &) = delete;

    bool terminal() const { return terminal_; }

    // Of now: the terminal's, else LINES and COLUMNS, else 24 and 80.
    size_t lines() const;
    size_t columns() const;

    // Cells that a text takes, its control characters as escapes.
    size_t width(std::string_view text) const;

    // A text on exactly so many cells, cut or filled up; control characters as escapes.
    // The matches are highlighted where colours can be shown.
    std::string fitted(std::string_view text, size_t cells,
                       const std::vector<match> &matches = {}) const;
    // The same without a limit, and with brackets around the matches where there are no colours.
    std::string marked(std::string_view text, const std::vector<match> &matches) const;

    // Where long texts go: to the pager of a terminal, else to the standard output.
    std::FILE *open_pager();
    void close_pager(); // when it was left early that is no failure

private:
    // A character as it is shown, and the cells that takes.
    size_t shown(std::string_view bytes, uint32_t value, std::string *text) const;

    const application &app_;
    bool terminal_;
    bool colours_;
    std::FILE *pager_ = nullptr;
};

// Lines of cells under a head, in columns as wide as they need to be.
class table
{
public:
    struct column {
        std::string name;
        bool right; // on the right side of its column
    };
    struct cell {
        std::string text = {};
        std::vector<match> matches = {};
    };

    table(const screen &on, std::vector<column> columns);
    void add(const std::string &margin, std::vector<cell> cells);

    // Prints as many columns as there is room for, the last of them cut; returns how many.
    size_t print() const;

private:
    struct line {
        std::string margin;
        std::vector<cell> cells;
    };
    void print_line(const line &each, size_t margin, size_t *fitting) const;

    const screen &on_;
    std::vector<column> columns_;
    std::vector<size_t> widths_; // cells
    std::vector<line> lines_;    // the head first
};

} // namespace kuq

#endif
