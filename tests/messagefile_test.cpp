// messagefile_test.cpp - the library's own message file: every error of every header is in it

#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "kuxer.h"
#include "kuxid.h"
#include "support/context.h"

namespace
{

namespace fs = std::filesystem;

std::string contents(const fs::path &path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The codes that the headers of a folder name. Tags are made the same way and are no errors.
std::set<uint32_t> named_codes(const std::string &folder)
{
    static const std::set<std::string> tags = {"kuxio", "kuvzz", "kueld", "kuelc"};
    static const std::regex definition("#define +[A-Z0-9_]+[ \\\\\n]+KU_CODE\\('(.)', *'(.)', "
                                       "*'(.)', *'(.)', *'(.)', *([0-9]+)\\)");
    std::set<uint32_t> codes;
    for (const auto &entry : fs::directory_iterator(fs::path(KU_SOURCE_DIR) / folder)) {
        if (entry.path().extension() != ".h") continue;
        const std::string text = contents(entry.path());
        for (std::sregex_iterator at(text.begin(), text.end(), definition), end; at != end; ++at) {
            std::string letters;
            for (size_t group = 1; group <= 5; group++) letters += (*at)[group].str();
            const auto number = static_cast<uint8_t>(std::stoi((*at)[6].str()));
            if (tags.count(letters) == 0) codes.insert(kuxidencode(letters.c_str(), number));
        }
    }
    return codes;
}

} // namespace

TEST(MessageFile, EveryNamedErrorHasTextCauseAndAction)
{
    ku::test::context ctx;
    const std::string path = KU_SOURCE_DIR "/msg/ku.msg";
    kuapp application = {path.c_str(), nullptr};
    kuxa attrs = {};
    attrs.kuxamask = KUXA_UIAPP;
    attrs.kuxauiapp = &application;
    kuxset(ctx, &attrs);

    std::set<uint32_t> codes = named_codes("src");
    codes.merge(named_codes("sosd"));
    EXPECT_GE(codes.size(), 40u); // the headers are found and understood
    for (const uint32_t code : codes)
        for (const char *type : {"text", "cause", "action"}) {
            char buffer[KUXER_TEXTMAX + 1];
            uint32_t length = KUXER_TEXTMAX;
            int32_t truncated = 0;
            kuxergmsg(ctx, code, type, buffer, &length, &truncated);
            EXPECT_GE(length, 10u) << ku::test::spelled(code) << " " << type;
            EXPECT_EQ(truncated, 0) << ku::test::spelled(code) << " " << type;
            for (const char *at = std::strchr(buffer, '%'); at; at = std::strchr(at + 1, '%'))
                EXPECT_EQ(at[1], 's') << ku::test::spelled(code) << " " << type;
        }
}
