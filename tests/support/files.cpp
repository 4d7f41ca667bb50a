// files.cpp - temporary directories and environment variables of tests
#include "support/files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace ku::test
{

namespace fs = std::filesystem;

directory::directory()
{
    const char *base = std::getenv("TMPDIR");
    path_ = (base != nullptr ? fs::path(base) : fs::path("/tmp")) / "ku-test-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) ADD_FAILURE() << "no directory " << path_;
}

directory::~directory()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string directory::path(std::string_view name) const { return path_ + "/" + std::string(name); }

std::string directory::write(std::string_view name, std::string_view bytes) const
{
    std::ofstream file(path(name), std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    EXPECT_TRUE(file.flush()) << path(name);
    return path(name);
}

std::string directory::read(std::string_view name) const
{
    std::ifstream file(path(name), std::ios::binary);
    EXPECT_TRUE(file) << path(name);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool directory::has(std::string_view name) const { return fs::exists(path(name)); }

std::vector<std::string> directory::names() const
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(path_))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

variable::variable(const char *name, const char *value) : name_(name)
{
    if (const char *now = std::getenv(name)) before_ = now;
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

variable::~variable()
{
    before_ ? setenv(name_.c_str(), before_->c_str(), 1) : unsetenv(name_.c_str());
}

} // namespace ku::test
