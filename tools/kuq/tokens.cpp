// tokens.cpp - kuq tokens: every token of a script; kuq highlight: the script in colours

#include <cstdio>

#include "codes.h"
#include "commands.h"
#include "console.h"
#include "scanner.h"

namespace kuq
{
namespace
{

const argument file_argument = {"file", "the script; - for the standard input"};
const argument dialect_argument = {
    "dialect", "whose keywords count", {"native", "sqlserver", "db2"}, "native"};
const argument colour_argument = {
    "colour", "colours in the output", {"auto", "always", "never"}, "auto"};

struct style {
    const char *name;   // as type_name gives it
    const char *colour; // number of the escape sequence
};
constexpr style styles[] = {
    {"keyword", "1;34"},   {"string", "32"},        {"string, open", "32"},
    {"quoted name", "33"}, {"number", "36"},        {"quoted name, open", "33"},
    {"comment", "2"},      {"line comment", "2"},   {"comment, open", "2"},
    {"hint", "35"},        {"line hint", "35"},     {"error", "1;37;41"},
    {"label", "1;33"},     {"label, open", "1;33"},
};

const char *colour_of(uint32_t type)
{
    const std::string_view name = type_name(type);
    for (const style &entry : styles)
        if (name == entry.name) return entry.colour;
    return "";
}

void write_text(console &out, const token &seen)
{
    char place[64];
    std::snprintf(
        place, sizeof place, "%6llu:%-5llu %8llu %6zu  %-18s ",
        static_cast<unsigned long long>(seen.line), static_cast<unsigned long long>(seen.column),
        static_cast<unsigned long long>(seen.offset), seen.text.size(), type_name(seen.type));
    out.write(place);
    out.write_in(colour_of(seen.type), one_line(seen.text));
    if (!seen.hint.empty()) {
        out.write("  hint: ");
        out.write_in(colour_of(KUKP_T_HINT), one_line(seen.hint));
    }
    out.write("\n");
}

void write_json(console &out, const token &seen, bool first, bool in_utf8)
{
    char place[160];
    std::snprintf(place, sizeof place,
                  "%s  {\"type\": \"%s\", \"code\": %u, \"line\": %llu, \"column\": %llu, "
                  "\"offset\": %llu, \"length\": %zu, \"text\": ",
                  first ? "" : ",\n", type_name(seen.type), seen.type,
                  static_cast<unsigned long long>(seen.line),
                  static_cast<unsigned long long>(seen.column),
                  static_cast<unsigned long long>(seen.offset), seen.text.size());
    out.write(place);
    out.write(json(seen.text, in_utf8));
    if (!seen.hint.empty()) {
        out.write(", \"hint\": ");
        out.write(json(seen.hint, in_utf8));
    }
    out.write("}");
}

} // namespace

const std::vector<argument> &tokens_arguments()
{
    static const std::vector<argument> table = {
        file_argument,
        dialect_argument,
        {"format", "how tokens are printed", {"text", "json"}, "text"},
        {"hints", "attach hint comments to their keyword", {"no", "yes"}, "no"},
        colour_argument,
    };
    return table;
}

exit_status run_tokens(application &app, arguments &given)
{
    std::string dialect;
    std::string format;
    std::string hints;
    std::string colour;
    if (!given.choice("dialect", &dialect) || !given.choice("format", &format)
        || !given.choice("hints", &hints) || !given.choice("colour", &colour))
        return app.report(wrong_usage);
    const std::string name = required(app, given, "file");
    if (name.empty()) return app.report(wrong_usage);
    source input(app, name);
    if (!input.open()) return app.report(failed);

    console out(colour);
    scanner lexer(app, server_of(dialect), hints == "yes");
    const bool as_json = format == "json";
    const bool in_utf8 = app.utf8();
    bool first = true;
    const auto show = [&](const token &seen) {
        if (as_json)
            write_json(out, seen, first, in_utf8);
        else
            write_text(out, seen);
        first = false;
    };
    if (as_json) out.write("[\n");
    std::string line;
    bool well = true;
    while (well && !out.failed() && input.next(&line)) well = lexer.scan(line, show);
    if (as_json) out.write(first ? "]\n" : "\n]\n");
    return finish(app, out, well && !input.failed() ? succeeded : failed);
}

const std::vector<argument> &highlight_arguments()
{
    static const std::vector<argument> table = {file_argument, dialect_argument, colour_argument};
    return table;
}

exit_status run_highlight(application &app, arguments &given)
{
    std::string dialect;
    std::string colour;
    if (!given.choice("dialect", &dialect) || !given.choice("colour", &colour))
        return app.report(wrong_usage);
    const std::string name = required(app, given, "file");
    if (name.empty()) return app.report(wrong_usage);
    source input(app, name);
    if (!input.open()) return app.report(failed);

    console out(colour);
    scanner lexer(app, server_of(dialect), false);
    std::string line;
    bool well = true;
    while (well && !out.failed() && input.next(&line)) {
        size_t written = 0; // bytes of the line
        well = lexer.scan(line, [&](const token &seen) {
            out.write(std::string_view(line).substr(written, seen.start - written));
            out.write_in(colour_of(seen.type), seen.text);
            written = seen.start + seen.text.size();
        });
        out.write(std::string_view(line).substr(written));
    }
    return finish(app, out, well && !input.failed() ? succeeded : failed);
}

} // namespace kuq
