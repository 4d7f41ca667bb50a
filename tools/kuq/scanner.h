// scanner.h - SQL text from a file or a pipe, line by line, as tokens
#ifndef KUQ_SCANNER_H
#define KUQ_SCANNER_H

#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "application.h"

namespace kuq
{

// The lines of a file, found as find_file says, or of the standard input for "-", with
// their line ends.
class source
{
public:
    source(application &app, const std::string &name);
    ~source();
    source(const source &) = delete;
    source &operator=(const source &) = delete;

    bool open() const { return file_ != nullptr; } // when not, the reason was pushed

    // The next line, however long; false at the end, or after a failure, which was pushed.
    bool next(std::string *line);
    bool failed() const { return failed_; }

private:
    void close(int error); // errno is `error` afterwards

    application &app_;
    std::string name_;
    std::FILE *file_;
    char *buffer_ = nullptr; // getline's
    size_t size_ = 0;
    bool failed_ = false;
};

// One token. A construct that goes on over a line end comes in one piece a line.
struct token {
    uint32_t type;         // KUKP_T_... or a keyword's
    uint64_t line;         // from 1
    uint64_t column;       // in characters, from 1
    uint64_t offset;       // in bytes of the whole text, from 0
    uint32_t start;        // in bytes of the line, from 0
    std::string_view text; // borrowed for the visit
    std::string_view hint; // the hint comment attached to a keyword; "" for none
};

// Analyses one line after the other; a construct may run over several.
class scanner
{
public:
    // server: KUKA_SERVER_...; hints: attach hint comments to their keywords
    scanner(application &app, uint32_t server, bool hints);

    using visitor = std::function<void(const token &)>;

    // Gives the tokens of the next line, line end included. Erroneous text is a token
    // like any other. False when memory ran out, with the reason pushed.
    bool scan(const std::string &line, const visitor &visit);

    uint64_t line() const { return line_; } // number of the last line, from 1

private:
    struct extent {
        uint32_t begin; // bytes of the piece
        uint32_t end;
    };
    extent extent_of(void *tokens, int32_t index, const char *text, uint32_t passed,
                     uint32_t next) const;
    bool scan_piece(const char *text, uint32_t start, const visitor &visit);

    kux *ctx_;
    uint32_t server_;
    bool hints_;
    int32_t state_ = KUKP_S_COMPLETE;
    uint64_t line_ = 0;
    uint64_t column_ = 1; // of the place that the line was counted to, in characters
    uint64_t offset_ = 0;
};

// What a token is, in words: "keyword", "string", "string, open" ...
const char *type_name(uint32_t type);

// The server type of a value of the argument dialect.
uint32_t server_of(const std::string &dialect);

} // namespace kuq

#endif
