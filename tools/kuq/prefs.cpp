// prefs.cpp - kuq prefs: the settings of the preference files
//
// Names and scopes are the library's: an entry is general or specific to a
// product, in the user's file or the global one. Only the user's file is ever
// written, and it is written whole.

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "codes.h"
#include "commands.h"
#include "console.h"
#include "places.h"

namespace fs = std::filesystem;

namespace kuq
{
namespace
{

// The four lists of an open preference context, in the order in which a look-up asks them.
struct place {
    void *kupct::*list;
    const char *file;
    const char *scope;
    uint16_t where;
};
constexpr place places[] = {
    {&kupct::kupctusp, "user", "specific", KUP_USER | KUP_SPECIFIC},
    {&kupct::kupctugn, "user", "general", KUP_USER | KUP_GENERAL},
    {&kupct::kupctgsp, "global", "specific", KUP_GLOBAL | KUP_SPECIFIC},
    {&kupct::kupctggn, "global", "general", KUP_GLOBAL | KUP_GENERAL},
};

std::string joined(const std::vector<std::string> &values)
{
    if (values.size() == 1) return values.front();
    std::string text = "(";
    for (size_t index = 0; index < values.size(); index++)
        text += (index == 0 ? "" : ", ") + values[index];
    return text + ")";
}

std::vector<std::string> values_of(application &app, const kuppf &entry)
{
    std::vector<std::string> values;
    for (int32_t index = 0;
         entry.kuppfval != nullptr && index < kulpnitems(app.ctx(), entry.kuppfval); index++)
        values.push_back(
            app.text(static_cast<kuxhandle>(kulpitem(app.ctx(), entry.kuppfval, index))));
    return values;
}

struct listing {
    const place *from;
    std::string name;
    std::vector<std::string> values;
};

std::vector<listing> list_all(application &app, kupct *prefs)
{
    kux *ctx = app.ctx();
    std::vector<listing> all;
    for (const place &from : places) {
        void *list = prefs->*from.list;
        for (int32_t index = 0; index < kulpnitems(ctx, list); index++) {
            auto *item = static_cast<kuxhandle>(kulpitem(ctx, list, index));
            const auto *entry = static_cast<const kuppf *>(kuxrmlock(ctx, item));
            all.push_back({&from, app.text(entry->kuppfprf), values_of(app, *entry)});
            kuxrmunlock(ctx, item);
        }
    }
    return all;
}

exit_status list_settings(application &app, bool as_json)
{
    kupct *prefs = app.preferences();
    if (prefs == nullptr) return app.report(failed);
    const bool utf8 = app.utf8();
    console out("auto");
    if (as_json) out.write("[");
    const char *separator = "\n";
    for (const listing &entry : list_all(app, prefs)) {
        if (!as_json) {
            char origin[32];
            std::snprintf(origin, sizeof origin, "%-7s %-9s", entry.from->file, entry.from->scope);
            out.write_in("2", origin);
            out.write(" " + entry.name + " = " + one_line(joined(entry.values)) + "\n");
            continue;
        }
        out.write(std::string(separator) + "  {\"file\": \"" + entry.from->file
                  + "\", \"scope\": \"" + entry.from->scope
                  + "\", \"name\": " + json(entry.name, utf8) + ", \"values\": [");
        for (size_t index = 0; index < entry.values.size(); index++)
            out.write((index == 0 ? "" : ", ") + json(entry.values[index], utf8));
        out.write("]}");
        separator = ",\n";
    }
    if (as_json) out.write("\n]\n");
    const exit_status status = finish(app, out, succeeded);
    return app.user_file_is_whole() ? status : app.report(failed); // some may be missing
}

// Says "user file, specific to kuq" for the bits of a look-up.
std::string origin(uint16_t where)
{
    std::string text = (where & KUP_USER) != 0 ? "user file" : "global file";
    text += (where & KUP_SPECIFIC) != 0 ? ", specific to " + std::string(product) : ", general";
    return text;
}

exit_status get_setting(application &app, const std::string &name, uint16_t scope)
{
    const std::optional<setting> found = app.find_setting(name, scope);
    if (!found) {
        if (kuxernerrors(app.ctx()) == 0) kuxer1push(app.ctx(), KUQAA_NOSETTING, name.c_str());
        return app.report(failed);
    }
    console out("never");
    for (const std::string &value : found->values) out.write(value + "\n");
    std::string why;
    out.finish(&why);
    kuxiomessage(app.ctx(), ("(" + origin(found->where) + ")\n").c_str());
    return finish(app, out, succeeded);
}

// A name is one word to the lexer; any other could be written but not read back.
bool valid_name(application &app, const std::string &name)
{
    kux *ctx = app.ctx();
    void *tokens = kukpcreate(ctx, name.c_str(), 1, KUKP_M_WORDS, nullptr, nullptr, 0);
    if (tokens == nullptr) return false;
    const bool word = kukosgnumtokens(ctx, tokens) == 1 && kukongtype(ctx, tokens, 0) == KUKP_T_WORD
                      && kukonglength(ctx, tokens, 0) == name.size();
    kukpdestroy(ctx, tokens);
    return word;
}

bool write_user_file(application &app)
{
    if (!app.user_file_is_whole()) return false;
    std::error_code error;
    fs::create_directories(app.user_directory(), error);
    kuxerclear(app.ctx());
    if (kupwrite(app.preferences()) == 0 && kuxernerrors(app.ctx()) == 0) return true;
    kuxer1push(app.ctx(), KUQAA_NOWRITE, app.user_directory().c_str());
    return false;
}

exit_status set_setting(application &app, const std::string &name,
                        const std::vector<std::string> &values, uint16_t scope)
{
    kux *ctx = app.ctx();
    kupct *prefs = app.preferences();
    if (prefs == nullptr) return app.report(failed);
    if (!valid_name(app, name)) {
        kuxer1push(ctx, KUQAA_NAME, name.c_str());
        return app.report(wrong_usage);
    }
    void *list = kulpcreate(ctx, static_cast<int32_t>(values.size()), nullptr);
    for (const std::string &value : values) kulpinsert(ctx, list, KUL_APPEND, app.handle(value));
    // The entry takes the values over; the list stays ours.
    const bool set = kupset(prefs, name.c_str(), list, scope) == 0;
    kulpdestroy(ctx, list);
    if (!set) {
        kuxer0push(ctx, KUQAA_MEMORY);
        return app.report(failed);
    }
    return write_user_file(app) ? succeeded : app.report(failed);
}

exit_status remove_setting(application &app, const std::string &name, uint16_t scope)
{
    kupct *prefs = app.preferences();
    if (prefs == nullptr) return app.report(failed);
    if (!app.find_setting(name, KUP_USER | scope)) {
        kuxer1push(app.ctx(), KUQAA_NOSETTING, name.c_str());
        return app.report(failed);
    }
    kupremove(prefs, name.c_str(), KUP_USER | scope);
    return write_user_file(app) ? succeeded : app.report(failed);
}

// A directory of its own, with the file to check under the user file's name: the
// library finds preference files by directory.
class checked_directory
{
public:
    explicit checked_directory(const fs::path &file)
    {
        const char *temporary = std::getenv("TMP");
        std::string pattern = std::string(temporary == nullptr ? "/tmp" : temporary) + "/kuqXXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) return;
        directory_ = pattern;
        std::error_code error;
        fs::create_symlink(fs::absolute(file, error), directory_ / "kuuprefs.xdb", error);
        setenv("KU_UPREFS", directory_.c_str(), 1);
        setenv("KU_GPREFS", (directory_ / "none").c_str(), 1);
    }
    ~checked_directory()
    {
        std::error_code error;
        if (!directory_.empty()) fs::remove_all(directory_, error);
    }
    checked_directory(const checked_directory &) = delete;
    checked_directory &operator=(const checked_directory &) = delete;
    bool made() const { return !directory_.empty(); }

private:
    fs::path directory_;
};

exit_status check_file(application &app, const std::string &name)
{
    kux *ctx = app.ctx();
    std::error_code error;
    const bool missing = fs::status(name, error).type() == fs::file_type::not_found;
    const std::string why = missing ? std::strerror(ENOENT) : unreadable(name);
    if (!why.empty()) {
        kuxer2push(ctx, KUQAA_OPEN, name.c_str(), why.c_str());
        return app.report(failed);
    }

    const checked_directory directory{fs::path(name)};
    if (!directory.made()) {
        kuxer2push(ctx, KUQAA_OPEN, "TMP", std::strerror(errno));
        return app.report(failed);
    }
    kupct *prefs = nullptr;
    const uint16_t status = kupopen(ctx, product, &prefs);
    if (prefs == nullptr || (status & KUP_NOUSERFILE) != 0) {
        kuxerclear(ctx);
        kuxer2push(ctx, KUQAA_READ, name.c_str(), "a read failed");
        if (prefs != nullptr) kupclose(prefs);
        return app.report(failed);
    }
    const uint32_t line = kuperrlin(prefs, KUP_USER);
    size_t entries = static_cast<size_t>(kulpnitems(ctx, prefs->kupcttmp));
    for (const place &from : places)
        entries += static_cast<size_t>(kulpnitems(ctx, prefs->*from.list));
    kupclose(prefs);
    if (line != 0) {
        kuxer2push(ctx, KUQAA_FILELINE, name.c_str(), std::to_string(line).c_str());
        return app.report(failed);
    }
    console out("never");
    out.write(name + ": " + std::to_string(entries) + (entries == 1 ? " entry" : " entries")
              + ", no errors\n");
    return finish(app, out, succeeded);
}

} // namespace

const std::vector<argument> &prefs_arguments()
{
    static const std::vector<argument> table = {
        {"action", "what to do", {"list", "get", "set", "remove", "check"}, "list"},
        {"name", "the setting"},
        {"value", "its value, or (value, value ...)", {}, nullptr, KUCL_LIST},
        {"scope", "for kuq alone or for every tool", {"specific", "general"}},
        {"file", "the preference file to check"},
        {"format", "how settings are listed", {"text", "json"}, "text"},
    };
    return table;
}

exit_status run_prefs(application &app, arguments &given)
{
    const std::string action = given.given("action") ? given.value("action") : "list";
    const auto is = [&](const char *word) { return strcasecmp(action.c_str(), word) == 0; };
    if (is("list")) {
        std::string format;
        if (!given.choice("format", &format)) return app.report(wrong_usage);
        return list_settings(app, format == "json");
    }
    if (is("check")) {
        // The file may stand where the name of a setting does: prefs check FILE.
        const std::string file = given.given("file") ? given.value("file") : given.value("name");
        if (!file.empty()) {
            const std::string found = find_file(app, file);
            return found.empty() ? app.report(failed) : check_file(app, found);
        }
        kuxer1push(app.ctx(), KUQAA_MISSING, "file");
        return app.report(wrong_usage);
    }
    const std::string name = required(app, given, "name");
    if (name.empty()) return app.report(wrong_usage);
    const bool general = strcasecmp(given.value("scope").c_str(), "general") == 0;
    const uint16_t scope = general ? KUP_GENERAL : KUP_SPECIFIC;
    if (is("get")) return get_setting(app, name, given.given("scope") ? scope : 0);
    if (is("remove")) return remove_setting(app, name, scope);
    if (given.given("value")) return set_setting(app, name, given.values("value"), scope);
    kuxer1push(app.ctx(), KUQAA_MISSING, "value");
    return app.report(wrong_usage);
}

} // namespace kuq
