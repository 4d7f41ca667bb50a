// grep.cpp - kuq grep: the lines of a text in which a pattern is found
//
// One line is in memory at a time. A fixed text is looked for byte by byte by the
// library's stream search where that finds whole characters only: in character sets
// of single bytes, and in UTF-8, where no character has another one's bytes inside.
// The search knows upper and lower case of single bytes alone. Everything else is left
// to patterns.

#include <cstdio>

#include "characters.h"
#include "codes.h"
#include "commands.h"
#include "console.h"
#include "pattern.h"
#include "scanner.h"

namespace kuq
{
namespace
{

// A fixed text, by the library's stream search.
class plain_search
{
public:
    explicit plain_search(application &app) : ctx_(app.ctx()) {}
    ~plain_search()
    {
        if (search_ != nullptr) kuusdestroy(ctx_, search_);
    }
    plain_search(const plain_search &) = delete;
    plain_search &operator=(const plain_search &) = delete;

    static bool serves(const application &app, bool any_case)
    {
        const bool bytes = (app.ctx()->kuxlangidh->flags_kulang & KULANG_SINGLEBYTE) != 0;
        return bytes || (app.utf8() && !any_case);
    }

    // text: must outlive the search. False with the reason pushed.
    bool create(const std::string &text, bool any_case)
    {
        search_ = kuuscreate(ctx_, text.data(), static_cast<uint32_t>(text.size()), next, this);
        if (search_ == nullptr) return false;
        kuusat letters = {};
        letters.mask_kuusat = KUUSAT_CMFUNC | KUUSAT_NOCASE;
        letters.cmfuncp_kuusat = kuusicmatch;
        return !any_case || kuusset(ctx_, search_, &letters) == 0;
    }

    // As pattern::each. A NUL ends the search's input, and what is behind it is another one.
    void each(std::string_view line, const pattern::visitor &visit)
    {
        line_ = line;
        visit_ = &visit;
        for (at_ = 0; at_ < line.size();) {
            start_ = at_;
            kuussearch(ctx_, search_, found, this);
        }
        visit_ = nullptr;
    }

private:
    static unsigned char next(kux *, void *data)
    {
        auto *self = static_cast<plain_search *>(data);
        if (self->at_ >= self->line_.size()) return 0;
        return static_cast<unsigned char>(self->line_[self->at_++]);
    }

    static int32_t found(kux *, void *data, uint32_t offset, uint32_t length)
    {
        auto *self = static_cast<plain_search *>(data);
        if ((*self->visit_)({self->start_ + offset, length})) return 0;
        self->at_ = self->line_.size();
        return 1;
    }

    kux *ctx_;
    kuus *search_ = nullptr;
    std::string_view line_;
    const pattern::visitor *visit_ = nullptr;
    size_t start_ = 0; // where the run began
    size_t at_ = 0;    // of the next byte
};

// What is looked for.
class finder
{
public:
    explicit finder(application &app) : app_(app), plain_(app), pattern_(app) {}

    bool create(const std::string &what, bool fixed, bool any_case)
    {
        stream_ = fixed && plain_search::serves(app_, any_case);
        if (stream_) return plain_.create(what, any_case);
        return pattern_.compile(what, fixed ? pattern_kind::plain : pattern_kind::regular,
                                any_case);
    }

    void each(std::string_view line, const pattern::visitor &visit)
    {
        stream_ ? plain_.each(line, visit) : pattern_.each(line, visit);
    }

private:
    application &app_;
    plain_search plain_;
    pattern pattern_;
    bool stream_ = false;
};

// Prints lines with their matches as they come.
class matched_lines
{
public:
    matched_lines(application &app, console &out, bool as_json, bool only_counted)
        : app_(app), out_(out), json_(as_json), counted_(only_counted)
    {
        if (json_ && !counted_) out_.write("[");
    }

    void look(finder &what, uint64_t number, std::string_view line)
    {
        const uint64_t before = matches_;
        characters place(app_, line);
        size_t written = 0; // bytes of the line
        uint64_t column = 1;
        const bool all = json_ || (out_.colours() && !counted_); // else one says what is wanted
        what.each(line, [&](const match &found) {
            matches_++;
            if (counted_) return all;
            for (uint32_t value = 0; place.at() < found.start && place.next(&value);) column++;
            const std::string_view text = line.substr(found.start, found.length);
            const bool first = matches_ == before + 1;
            if (json_) {
                write_match(first, number, column, text);
                return true;
            }
            if (first)
                out_.write_in("2", std::to_string(number) + ":" + std::to_string(column) + ":");
            out_.write(line.substr(written, found.start - written));
            out_.write_in("1;31", text);
            written = found.start + found.length;
            return all && !out_.failed();
        });
        if (matches_ == before) return;
        lines_++;
        if (counted_) return;
        if (json_)
            out_.write("], \"text\": " + json(line, app_.utf8()) + "}");
        else
            out_.write(std::string(line.substr(written)) + "\n");
    }

    bool end()
    {
        if (counted_ && json_)
            out_.write("{\"lines\": " + std::to_string(lines_)
                       + ", \"matches\": " + std::to_string(matches_) + "}\n");
        else if (counted_)
            out_.write(std::to_string(lines_) + "\n");
        else if (json_)
            out_.write(lines_ == 0 ? "]\n" : "\n]\n");
        return lines_ > 0;
    }

private:
    void write_match(bool first, uint64_t number, uint64_t column, std::string_view text)
    {
        if (first)
            out_.write(std::string(lines_ == 0 ? "" : ",")
                       + "\n  {\"line\": " + std::to_string(number) + ", \"matches\": [");
        out_.write(std::string(first ? "" : ", ") + "{\"column\": " + std::to_string(column)
                   + ", \"text\": " + json(text, app_.utf8()) + "}");
    }

    application &app_;
    console &out_;
    const bool json_;
    const bool counted_;
    uint64_t lines_ = 0;
    uint64_t matches_ = 0;
};

// A line without its line feed, or carriage return and line feed.
std::string_view without_end(std::string_view line)
{
    if (line.empty() || line.back() != '\n') return line;
    line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

} // namespace

const std::vector<argument> &grep_arguments()
{
    static const std::vector<argument> table = {
        {"pattern", "what to look for: a regular expression", {}, nullptr, 0, true},
        {"file", "where; - for the standard input"},
        {"fixed", "the pattern is a text like any other", {"no", "yes"}, "no"},
        {"icase", "upper and lower case are one", {"no", "yes"}, "no"},
        {"count", "only how many lines have it", {"no", "yes"}, "no"},
        {"format", "how lines are printed", {"text", "json"}, "text"},
        {"colour", "colours in the output", {"auto", "always", "never"}, "auto"},
    };
    return table;
}

// Whether a line was found is the status, so that what goes wrong has the other one.
exit_status run_grep(application &app, arguments &given)
{
    std::string fixed;
    std::string any_case;
    std::string counted;
    std::string format;
    std::string colour;
    if (!given.choice("fixed", &fixed) || !given.choice("icase", &any_case)
        || !given.choice("count", &counted) || !given.choice("format", &format)
        || !given.choice("colour", &colour))
        return app.report(wrong_usage);
    const std::string what = required(app, given, "pattern");
    const std::string name = what.empty() ? "" : required(app, given, "file");
    finder looked_for(app);
    if (name.empty() || !looked_for.create(what, fixed == "yes", any_case == "yes"))
        return app.report(wrong_usage);
    source input(app, name);
    if (!input.open()) return app.report(wrong_usage);

    console out(colour);
    matched_lines lines(app, out, format == "json", counted == "yes");
    std::string line;
    for (uint64_t number = 1; !out.failed() && input.next(&line); number++) {
        lines.look(looked_for, number, without_end(line));
    }
    const bool found = lines.end();
    const bool well = !input.failed() && kuxernerrors(app.ctx()) == 0;
    if (finish(app, out, well ? succeeded : wrong_usage) != succeeded) return wrong_usage;
    return found ? succeeded : failed;
}

} // namespace kuq
