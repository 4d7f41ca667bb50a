// tree_test.cpp - what holds for the tree as a whole: who includes whom, what is exported
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

const fs::path root = KU_SOURCE_DIR;

std::string read(const fs::path &file)
{
    std::ifstream stream(file);
    EXPECT_TRUE(stream) << file;
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

bool is_source(const fs::path &file)
{
    static const std::set<std::string> kinds = {".c", ".cpp", ".h", ".inc"};
    return kinds.count(file.extension()) != 0;
}

std::vector<fs::path> sources()
{
    std::vector<fs::path> all;
    for (const char *folder : {"src", "sosd", "port", "tools"})
        for (const auto &entry : fs::recursive_directory_iterator(root / folder))
            if (is_source(entry.path())) all.push_back(entry.path().lexically_relative(root));
    return all;
}

// What is installed: families' headers and the plain records of lower layers.
bool is_public(const fs::path &file)
{
    const std::string name = file.filename();
    static const std::set<std::string> records = {"port/locale/kulang.h", "port/msgfile/kuapp.h",
                                                  "port/longval/kulong.h"};
    if (records.count(file) != 0) return true;
    return (file.parent_path() == "src" || file.parent_path() == "sosd") && file.extension() == ".h"
           && name != "kuguard.h" && name.find("_internal") == std::string::npos;
}

fs::path resolved(const fs::path &includer, const std::string &name)
{
    for (const fs::path &folder :
         {includer.parent_path(), fs::path("src"), fs::path("sosd"), fs::path("port/locale"),
          fs::path("port/msgfile"), fs::path("port/longval"), fs::path()})
        if (fs::exists(root / folder / name)) return (folder / name).lexically_normal();
    return {};
}

std::vector<std::string> matches(const std::string &text, const char *pattern)
{
    const std::regex expression(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator each(text.begin(), text.end(), expression), end; each != end; ++each)
        found.push_back((*each)[1]);
    return found;
}

// Calls go down only; and what is installed stands on what is installed.
bool may_include(const fs::path &includer, const fs::path &included)
{
    const std::string from = *includer.begin();
    const std::string to = *included.begin();
    if (is_public(includer) && !is_public(included)) return false;
    if (from == "tools") return to == "tools" || is_public(included);
    if (from == "port") return to == "port";
    if (from == "src") return to != "tools";
    // Context, lists, text; and the row cache's records, which have no operations.
    static const std::regex low("(kux|kul|kuuq|liz|kudef|kuguard).*|kudcdef\\.h");
    return to == "sosd" || to == "port"
           || (to == "src" && std::regex_match(included.filename().string(), low));
}

TEST(Tree, NoIncludePointsUpwards)
{
    size_t seen = 0;
    for (const fs::path &file : sources()) {
        for (const std::string &name :
             matches(read(root / file), "(?:^|\n)[ \t]*#[ \t]*include[ \t]+\"([^\"]+)\"")) {
            const fs::path included = resolved(file, name);
            EXPECT_FALSE(included.empty()) << file << " includes " << name << ": not found";
            if (included.empty()) continue;
            EXPECT_TRUE(may_include(file, included)) << file << " includes " << included;
            seen++;
        }
    }
    EXPECT_GT(seen, 100u);
}

TEST(Tree, OnlyThePortLayerKnowsTheOperatingSystem)
{
    for (const fs::path &file : sources()) {
        if (*file.begin() == "port" || *file.begin() == "tools") continue;
        const std::string text = read(root / file);
        EXPECT_EQ(matches(text, "#[ \t]*include[ \t]+<(sys/[^>]+|(?:unistd|fcntl|dlfcn|dirent|"
                                "langinfo|iconv|windows|pthread|termios)[.]h)>"),
                  std::vector<std::string>())
            << file;
        if (file.extension() != ".cpp") continue;
        EXPECT_EQ(matches(text, "\n[ \t]*#[ \t]*(if[a-z]*)"), std::vector<std::string>()) << file;
    }
}

std::string output(const std::string &command)
{
    std::string text;
    FILE *running = popen(command.c_str(), "r");
    for (int byte; running != nullptr && (byte = std::getc(running)) != EOF;)
        text += static_cast<char>(byte);
    EXPECT_TRUE(running != nullptr && pclose(running) == 0) << command;
    return text;
}

std::set<std::string> set_of(const std::vector<std::string> &names)
{
    return {names.begin(), names.end()};
}

TEST(Tree, TheLibraryExportsWhatItsHeadersDeclareAndNothingElse)
{
    std::string command = KU_C_COMPILER " -E -P";
    for (const char *folder : {"src", "sosd", "port/msgfile", "port/longval"})
        command += " -I '" + (root / folder).string() + "'";
    command += " -iquote '" + (root / "port/locale").string() + "' '";
    const std::set<std::string> declared =
        set_of(matches(output(command + (root / "src/ku.h").string() + "'"),
                       "visibility[(]\"default\"[)][)][)][^;(\\[]*?(\\w+)\\s*[;(\\[]"));
    const std::set<std::string> exported =
        set_of(matches(output("nm -D --defined-only '" KU_BINARY_DIR "/libku.so.2'"), " (\\S+)\n"));
    EXPECT_GT(declared.size(), 100u);
    for (const std::string &name : declared)
        EXPECT_EQ(exported.count(name), 1u) << name << " is declared and not exported";
    for (const std::string &name : exported)
        EXPECT_EQ(declared.count(name), 1u) << name << " is exported and not declared";
}

TEST(Tree, TheUmbrellaHeaderIncludesEveryPublicHeader)
{
    const auto included = set_of(matches(read(root / "src/ku.h"), "#include \"([^\"]+)\""));
    for (const fs::path &file : sources())
        EXPECT_TRUE(!is_public(file) || file == "src/ku.h" || included.count(file.filename()) != 0)
            << file;
}

} // namespace
