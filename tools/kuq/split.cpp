// split.cpp - kuq split: a script cut into its statements
//
// A statement goes from its first token that is no comment to the semicolon that
// ends it. The lexer says what a semicolon is: one inside a string, a quoted name,
// a comment, a hint or a label is part of that. With blocks=yes a semicolon
// between begin (or case) and its end does not count either.

#include <cstdio>

#include "codes.h"
#include "commands.h"
#include "console.h"
#include "scanner.h"
#include "statements.h"

namespace kuq
{
namespace
{

bool is_comment(uint32_t type)
{
    return type == KUKP_T_COMMENT || type == KUKP_T_COMMENTOPEN || type == KUKP_T_LINE
           || type == KUKP_T_HINT || type == KUKP_T_LINEHINT;
}

bool is(std::string_view text, std::string_view word)
{
    if (text.size() != word.size()) return false;
    for (size_t at = 0; at < text.size(); at++)
        if ((text[at] | 0x20) != word[at]) return false;
    return true;
}

// Follows begin ... end. A begin counts once the token after it is known, since
// "begin;" and "begin transaction" open no block; neither do if, loop and their
// like, whose end names them: "end if".
class nesting
{
public:
    bool inside() const { return depth_ > 0; }

    void see(const token &seen)
    {
        const bool word = is_word(seen.type);
        if (pending_ == begin && opens_block(seen, word)) depth_++;
        if (pending_ == end && depth_ > 0 && !(word && ends_statement(seen.text))) depth_--;
        const bool closes_case = pending_ == end && word && is(seen.text, "case");
        pending_ = none;
        if (!word || closes_case) return;
        if (is(seen.text, "begin")) pending_ = begin;
        if (is(seen.text, "end")) pending_ = end;
        if (is(seen.text, "case")) depth_++;
    }

private:
    enum opener { none, begin, end };

    static bool is_word(uint32_t type)
    {
        return type != KUKP_T_ERROR
               && (type < KUKP_T_OUTER || type == KUKP_T_WORD || type > KUKP_T_LINEHINT);
    }

    static bool opens_block(const token &seen, bool word)
    {
        if (seen.type == KUKP_T_SEMICOLON) return false;
        if (!word) return true;
        for (const char *other : {"transaction", "work", "tran", "isolation", "read", "deferred",
                                  "immediate", "exclusive", "not"})
            if (is(seen.text, other)) return false;
        return true;
    }

    // "end if" and the like end a statement that opened no block.
    static bool ends_statement(std::string_view text)
    {
        for (const char *other : {"if", "loop", "while", "repeat", "for"})
            if (is(text, other)) return true;
        return false;
    }

    int depth_ = 0;
    opener pending_ = none;
};

// Collects the statement being read and gives it away when it ends.
class cutter
{
public:
    cutter(bool blocks, const std::function<void(const statement &)> &visit)
        : blocks_(blocks), visit_(visit)
    {
    }

    void see(const token &seen, const std::string &line)
    {
        if (is_comment(seen.type) && !open_) return;
        if (!open_) {
            if (seen.type == KUKP_T_SEMICOLON) return; // an empty statement
            open_ = true;
            first_line_ = seen.line;
            taken_ = seen.start;
        }
        if (!is_comment(seen.type)) {
            last_line_ = seen.line;
            kept_ = text_.size() + seen.start + seen.text.size() - taken_;
            if (blocks_) blocks_seen_.see(seen);
        }
        if (seen.type != KUKP_T_SEMICOLON || blocks_seen_.inside()) return;
        text_.append(line, taken_, seen.start + seen.text.size() - taken_);
        taken_ = seen.start + seen.text.size();
        give();
    }

    // The rest of a line belongs to the statement that goes on.
    void end_line(const std::string &line)
    {
        if (open_) text_.append(line, taken_, std::string::npos);
        taken_ = 0;
    }

    // The last statement may lack its semicolon; comments behind it are left out.
    void end()
    {
        if (open_) {
            text_.resize(kept_);
            give();
        }
    }

private:
    void give()
    {
        count_++;
        visit_({count_, first_line_, last_line_, text_});
        text_.clear();
        open_ = false;
        blocks_seen_ = nesting();
    }

    bool blocks_;
    const std::function<void(const statement &)> &visit_;
    bool open_ = false;       // a statement is being read
    std::string text_;        // its text before the current line
    size_t taken_ = 0;        // bytes of the current line that belong to it or came before it
    size_t kept_ = 0;         // bytes up to the end of its last token that is no comment
    uint64_t first_line_ = 0; // from 1
    uint64_t last_line_ = 0;
    uint64_t count_ = 0; // statements given away
    nesting blocks_seen_;
};

void write_text(console &out, const statement &cut)
{
    char head[128];
    std::snprintf(head, sizeof head, "-- statement %llu, lines %llu-%llu\n",
                  static_cast<unsigned long long>(cut.number),
                  static_cast<unsigned long long>(cut.first_line),
                  static_cast<unsigned long long>(cut.last_line));
    out.write_in("2", head);
    out.write(cut.text);
    out.write("\n\n");
}

void write_json(console &out, const statement &cut, bool utf8)
{
    char head[128];
    std::snprintf(head, sizeof head,
                  "%s  {\"statement\": %llu, \"first_line\": %llu, \"last_line\": %llu, "
                  "\"text\": ",
                  cut.number == 1 ? "" : ",\n", static_cast<unsigned long long>(cut.number),
                  static_cast<unsigned long long>(cut.first_line),
                  static_cast<unsigned long long>(cut.last_line));
    out.write(head);
    out.write(json(cut.text, utf8));
    out.write("}");
}

} // namespace

bool each_statement(application &app, const std::function<bool(std::string *line)> &next,
                    uint32_t server, bool blocks,
                    const std::function<void(const statement &)> &visit)
{
    scanner lexer(app, server, false);
    cutter statements(blocks, visit);
    std::string line;
    bool well = true;
    while (well && next(&line)) {
        well = lexer.scan(line, [&](const token &seen) { statements.see(seen, line); });
        statements.end_line(line);
    }
    statements.end();
    return well;
}

const std::vector<argument> &split_arguments()
{
    static const std::vector<argument> table = {
        {"file", "the script; - for the standard input"},
        {"blocks", "keep begin ... end whole", {"no", "yes"}, "no"},
        {"dialect", "whose keywords count", {"native", "sqlserver", "db2"}, "native"},
        {"format", "how statements are printed", {"text", "json"}, "text"},
    };
    return table;
}

exit_status run_split(application &app, arguments &given)
{
    std::string blocks;
    std::string dialect;
    std::string format;
    if (!given.choice("blocks", &blocks) || !given.choice("dialect", &dialect)
        || !given.choice("format", &format))
        return app.report(wrong_usage);
    const std::string name = required(app, given, "file");
    if (name.empty()) return app.report(wrong_usage);
    source input(app, name);
    if (!input.open()) return app.report(failed);

    console out("auto");
    const bool utf8 = app.utf8();
    const bool as_json = format == "json";
    uint64_t count = 0;
    if (as_json) out.write("[\n");
    const auto write = [&](const statement &cut) {
        count = cut.number;
        as_json ? write_json(out, cut, utf8) : write_text(out, cut);
    };
    const bool well = each_statement(
        app, [&](std::string *line) { return !out.failed() && input.next(line); },
        server_of(dialect), blocks == "yes", write);
    if (as_json) out.write(count == 0 ? "]\n" : "\n]\n");
    return finish(app, out, well && !input.failed() ? succeeded : failed);
}

} // namespace kuq
