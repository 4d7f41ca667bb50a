// places.cpp - element lists from the environment and the settings, resolved by the library
//
// The library's services for names know the backslash as the only separator, and turn it into
// a slash where they open a file. So they get names with backslashes, and kuq, which opens
// files by itself, turns those of the result around.

#include "places.h"

#include <cstdlib>
#include <filesystem>

#include "characters.h"
#include "codes.h"

namespace fs = std::filesystem;

namespace kuq
{
namespace
{

constexpr uint32_t longest_name = 4096; // bytes

std::vector<std::string> setting_values(application &app, const char *name)
{
    const std::optional<setting> found = app.find_setting(name, 0);
    return found ? found->values : std::vector<std::string>();
}

// "~/x" is x in the home directory.
std::string expanded(const std::string &directory)
{
    const char *home = std::getenv("HOME");
    const bool in_home = directory == "~" || directory.compare(0, 2, "~/") == 0;
    return in_home && home != nullptr ? home + directory.substr(1) : directory;
}

std::vector<std::string> directories(application &app)
{
    std::vector<std::string> all;
    const char *named = std::getenv("KU_PATH");
    std::string rest = named == nullptr ? "" : named;
    while (!rest.empty()) {
        const size_t colon = rest.find(':');
        if (colon != 0) all.push_back(expanded(rest.substr(0, colon)));
        rest.erase(0, colon == std::string::npos ? colon : colon + 1);
    }
    for (const std::string &each : setting_values(app, "path")) all.push_back(expanded(each));
    return all;
}

std::vector<std::string> file_types(application &app)
{
    std::vector<std::string> all = setting_values(app, "types");
    if (all.empty()) all = {"sql"};
    for (std::string &type : all)
        if (type.find('.') == 0) type.erase(0, 1);
    return all;
}

// What the library asks for: elements of a list, each a directory, and a list of texts.
class places
{
public:
    places(kux *ctx, const std::vector<std::string> &paths, std::vector<std::string> *types)
        : ctx_(ctx), paths_(kulpcreate(ctx, 0, nullptr)), types_(kulpcreate(ctx, 0, nullptr))
    {
        for (const std::string &path : paths) {
            kuela place = {};
            place.mask_kuela = KUELA_DOMAIN | KUELA_NAME;
            place.domain_kuela = KUELD_DIRECTORY;
            place.name_kuela = const_cast<char *>(path.c_str()); // it is copied
            kuel *element = kuelcreate(ctx, &place);
            if (element != nullptr) kulpinsert(ctx, paths_, KUL_APPEND, element);
        }
        for (std::string &type : *types) kulpinsert(ctx, types_, KUL_APPEND, type.data());
    }
    ~places()
    {
        kuelldestroy(ctx_, paths_);
        kulpdestroy(ctx_, types_);
    }
    places(const places &) = delete;
    places &operator=(const places &) = delete;

    // False with the reason pushed.
    bool resolve(const std::string &name, std::string *result) const
    {
        result->resize(longest_name);
        uint32_t length = longest_name;
        const bool well =
            kuepnresolve(ctx_, paths_, name.c_str(), result->data(), &length, types_) == 0;
        result->resize(well ? length : 0);
        return well;
    }

private:
    kux *ctx_;
    void *paths_;
    void *types_;
};

// A name with one separator in place of the other.
std::string separated(application &app, const std::string &name, char from, char to)
{
    std::string result = name;
    characters place(app, name);
    size_t start = 0;
    for (uint32_t value = 0; place.next(&value); start = place.at())
        if (value == static_cast<unsigned char>(from)) result[start] = to;
    return result;
}

std::string listed(const std::vector<std::string> &words)
{
    std::string text;
    for (const std::string &word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

} // namespace

std::string find_file(application &app, const std::string &name)
{
    std::error_code error;
    const auto exists = [&](const std::string &path) {
        return fs::symlink_status(path, error).type() != fs::file_type::not_found;
    };
    const bool directory = fs::is_directory(name, error);
    if (name == "-" || (exists(name) && !directory)) return name;
    const bool everywhere = name.find('/') == std::string::npos;
    std::vector<std::string> paths = everywhere ? directories(app) : std::vector<std::string>();
    std::vector<std::string> types = file_types(app);
    std::string found;
    const bool well =
        places(app.ctx(), paths, &types).resolve(separated(app, name, '/', '\\'), &found);
    if (well) found = separated(app, found, '\\', '/');
    if (well && exists(found)) return found;
    if (directory || !everywhere) return name; // opening it will tell
    paths.insert(paths.begin(), ".");
    kuxer3push(app.ctx(), KUQAA_NOWHERE, name.c_str(), listed(paths).c_str(),
               listed(types).c_str());
    return "";
}

} // namespace kuq
