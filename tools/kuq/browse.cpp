// browse.cpp - kuq browse: the commands of the session, and the loop that runs them
//
// A line is a command's name and what it takes. Through a pipe there is one command a
// line and nothing but its output; whether one failed the exit status says.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <strings.h>

#include "browser.h"
#include "codes.h"
#include "commands.h"
#include "prompt.h"

namespace kuq
{
namespace
{

constexpr size_t usual_characters = 40; // of a value on a page
constexpr const char *blanks = " \t";

enum class completes { nothing, columns, files, commands };

struct action {
    const char *name;
    const char *letters; // the same, shorter
    const char *takes;
    const char *help;
    completes with;
    bool (browser::*run)(const std::string &rest); // null: the loop's own
};

constexpr action actions[] = {
    {"next", "n", "[PAGES]", "the next page", completes::nothing, &browser::next},
    {"previous", "p", "[PAGES]", "the previous page", completes::nothing, &browser::previous},
    {"first", "f", "", "the first page", completes::nothing, &browser::first},
    {"last", "l", "", "the last page", completes::nothing, &browser::last},
    {"row", "r", "NUMBER", "the page from that row on; the number alone does it, too",
     completes::nothing, &browser::row},
    {"jump", "j", "KEY ...", "the first row with that key, or else behind it: a key for each level",
     completes::nothing, &browser::jump},
    {"nextgroup", "ng", "[LEVEL]", "the next group, of level 1 or the one given",
     completes::nothing, &browser::next_group},
    {"previousgroup", "pg", "[LEVEL]", "the previous group", completes::nothing,
     &browser::previous_group},
    {"text", "/", "TEXT", "searches from the current row on; /TEXT does it, too",
     completes::nothing, &browser::text},
    {"like", "%", "PATTERN", "the same for values that fit: % any characters, _ one",
     completes::nothing, &browser::like},
    {"match", "~", "PATTERN", "the same for a regular expression", completes::nothing,
     &browser::match},
    {"again", "a", "", "the last search once more, from the next row on", completes::nothing,
     &browser::again},
    {"in", "i", "[COLUMN ...]", "the columns that are searched; all", completes::columns,
     &browser::in},
    {"case", "", "yes|no", "whether upper and lower case differ in searches from now on",
     completes::nothing, &browser::set_case},
    {"show", "s", "[ROW]", "the current row, or another, with its whole values", completes::nothing,
     &browser::show},
    {"delete", "d", "[ROW[-ROW]]", "marks the current row, or others; export leaves them out",
     completes::nothing, &browser::remove},
    {"undo", "u", "", "takes the last marks back", completes::nothing, &browser::undo},
    {"sort", "o", "COLUMN [desc]", "puts the rows in order; equal ones stay as they are",
     completes::columns, &browser::sort},
    {"columns", "c", "[COLUMN ...]", "the columns that are shown; all", completes::columns,
     &browser::columns},
    {"export", "e", "FILE [text|csv|json|html] [page]",
     "writes the rows with the columns shown, or the page; - for here", completes::files,
     &browser::export_rows},
    {"help", "?", "[COMMAND]", "the commands, or one of them", completes::commands, nullptr},
    {"quit", "q", "", "ends; so does the end of the input", completes::nothing, nullptr},
};

bool begins(const char *name, const std::string &with)
{
    return strncasecmp(name, with.c_str(), with.size()) == 0;
}

// By its name, its letters, or as many first letters as no other has.
const action *find_action(const std::string &word)
{
    const action *found = nullptr;
    for (const action &each : actions) {
        if (strcasecmp(word.c_str(), each.name) == 0 || strcasecmp(word.c_str(), each.letters) == 0)
            return &each;
    }
    for (const action &each : actions) {
        if (!begins(each.name, word)) continue;
        if (found != nullptr) return nullptr;
        found = &each;
    }
    return found;
}

std::string trimmed(const std::string &text)
{
    const size_t start = text.find_first_not_of(blanks);
    if (start == std::string::npos) return "";
    return text.substr(start, text.find_last_not_of(blanks) - start + 1);
}

// A line taken apart.
struct order_given {
    std::string name;
    std::string rest;
};

order_given take_apart(const std::string &line)
{
    const std::string whole = trimmed(line);
    if (whole.empty()) return {};
    if (std::strchr("/%~", whole[0]) != nullptr) {
        const std::string rest = whole.substr(1);
        return rest.empty() ? order_given{"again", ""} : order_given{whole.substr(0, 1), rest};
    }
    if (whole.find_first_not_of("0123456789") == std::string::npos) return {"row", whole};
    const size_t end = std::min(whole.find_first_of(blanks), whole.size());
    return {whole.substr(0, end), trimmed(whole.substr(end))};
}

class conversation
{
public:
    conversation(application &app, const result &of, bool sorted, const display &how)
        : app_(app), of_(of), rows_(app, of, sorted, how),
          prompt_(app, [this](const std::string &line) { return candidates(line); })
    {
    }

    // False when a command failed that no person could try again, or the output broke off.
    bool run()
    {
        of_.shown.stay(true);
        bool well = rows_.open();
        if (well && prompt_.interactive()) well = rows_.print_page();
        if (well && !of_.whole) tell_cut_short();
        while (well && !ended_ && listen()) {
        }
        of_.shown.stay(false);
        return well && !failed_;
    }

private:
    // The next line. False: the session ends.
    bool listen()
    {
        std::string line;
        const prompt::answer got = prompt_.next(&line);
        if (got == prompt::answer::end) return false;
        if (got == prompt::answer::line && !obey(line)) {
            failed_ = failed_ || !prompt_.interactive();
            app_.report(failed);
        }
        if (std::ferror(stdout) != 0) return !(failed_ = true);
        if (!interrupted()) return true;
        if (!prompt_.interactive() || interrupt() != SIGINT) return false; // it is told there
        of_.shown.forget_interrupt();
        return true;
    }

    bool obey(const std::string &line)
    {
        const order_given given = take_apart(line);
        if (given.name.empty() || given.name[0] == '#') return true;
        const action *chosen = find_action(given.name);
        if (chosen == nullptr) return refuse(given.name);
        if (chosen->run != nullptr) {
            rows_.set_usage(chosen->name, chosen->takes);
            return (rows_.*chosen->run)(given.rest);
        }
        if (chosen->with == completes::commands) return help(given.rest);
        ended_ = true;
        return true;
    }

    bool refuse(const std::string &name)
    {
        std::vector<const char *> names;
        for (const action &each : actions) names.push_back(each.name);
        kuxer2push(app_.ctx(), KUQAA_ACTION, name.c_str(), nearest(name, names).c_str());
        return false;
    }

    bool help(const std::string &name)
    {
        const action *only = name.empty() ? nullptr : find_action(name);
        if (!name.empty() && only == nullptr) return refuse(name);
        for (const action &each : actions) {
            if (only != nullptr && only != &each) continue;
            const std::string written = std::string(each.name) + " " + each.takes;
            std::printf("  %-2s %-40s %s\n", each.letters, written.c_str(), each.help);
        }
        return true;
    }

    void tell_cut_short()
    {
        const std::string text = std::string(product)
                                 + ": Reading was ended by the user; there are "
                                 + std::to_string(of_.from.count()) + " rows.\n";
        kuxiomessage(app_.ctx(), text.c_str());
    }

    // What can be completed behind the start of a line; nothing: a file's name.
    std::optional<std::vector<std::string>> candidates(const std::string &line) const
    {
        std::vector<std::string> words;
        const order_given given = take_apart(line);
        const action *chosen = given.name.empty() ? nullptr : find_action(given.name);
        if (chosen != nullptr && chosen->with == completes::files) return std::nullopt;
        if (given.name.empty() || (chosen != nullptr && chosen->with == completes::commands))
            for (const action &each : actions) words.push_back(each.name);
        else if (chosen != nullptr && chosen->with == completes::columns)
            for (const column &each : of_.from.columns()) words.push_back(each.name);
        return words;
    }

    application &app_;
    const result &of_;
    browser rows_;
    prompt prompt_;
    bool ended_ = false;
    bool failed_ = false;
};

std::vector<argument> all_arguments()
{
    std::vector<argument> table = session_arguments();
    table.erase(
        std::remove_if(table.begin(), table.end(),
                       [](const argument &each) { return std::strcmp(each.keyword, "out") == 0; }),
        table.end());
    table.push_back(
        {"columns", "the columns that are shown; without it all", {}, nullptr, KUCL_LIST});
    table.push_back({"long", "characters shown of a value on a page, or all; without it 40"});
    return table;
}

// What the arguments say before there are columns; when they are wrong the reason was pushed.
bool read_display(application &app, const arguments &given, display *how)
{
    how->names = given.values("columns");
    if (!read_long(app, given, &how->most)) return false;
    if (given.value("file") != "-") return true;
    kuxer0push(app.ctx(), KUQAA_STDIN);
    return false;
}

} // namespace

const std::vector<argument> &browse_arguments()
{
    static const std::vector<argument> table = all_arguments();
    return table;
}

exit_status run_browse(application &app, arguments &given)
{
    display how = {{}, usual_characters};
    session run(app, given);
    if (!read_display(app, given, &how) || !run.prepare()) return app.report(wrong_usage);
    bool well = run.run(order::numbered, [&](const result &each) {
        return conversation(app, each, run.sorted(), how).run();
    });
    run.tell_cut();
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        kuxer1push(app.ctx(), KUQAA_WRITE, std::strerror(errno));
        well = false;
    }
    return well ? succeeded : app.report(failed);
}

} // namespace kuq
