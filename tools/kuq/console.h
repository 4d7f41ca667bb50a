// console.h - the standard output: terminal or not, colours, the pager, write errors
#ifndef KUQ_CONSOLE_H
#define KUQ_CONSOLE_H

#include <cstdio>
#include <string>
#include <string_view>

namespace kuq
{

class console
{
public:
    // `colour` is "always", "never" or "auto": on a terminal unless NO_COLOR is set.
    // A terminal is paged: PAGER, else less where it is installed; "cat" for none.
    explicit console(const std::string &colour = "never");
    explicit console(std::FILE *to); // without colours or pager; the caller closes it
    ~console();
    console(const console &) = delete;
    console &operator=(const console &) = delete;

    bool colours() const { return colours_; }
    bool paged() const { return pager_ > 0; }
    bool failed() const { return failed_; } // something could not be written
    void write(std::string_view text);
    // The text in a colour (an escape sequence's number, such as "1;34"); "" for none.
    void write_in(const char *colour, std::string_view text);

    // Ends the output, waits for the pager. False when something could not be written;
    // *why then says what the system said.
    bool finish(std::string *why);

private:
    void start_pager();

    std::FILE *to_ = stdout;
    bool colours_ = false;
    bool failed_ = false;
    int error_ = 0;
    int pager_ = 0; // process of the pager, 0 for none
};

// Text as a JSON string, with its quotes. Bytes above 127 go through as they are in a
// UTF-8 language, else each as \u00xx; malformed UTF-8 too.
std::string json(std::string_view text, bool utf8);

// Text on one line: line ends, tabs and other control characters as escapes.
std::string one_line(std::string_view text);

} // namespace kuq

#endif
