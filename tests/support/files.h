// files.h - temporary directories and environment variables that tests leave as they were
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ku::test
{

// A fresh temporary directory; it and all in it are removed at the end.
class directory
{
public:
    directory();
    directory(const directory &) = delete;
    directory &operator=(const directory &) = delete;
    ~directory();

    const std::string &path() const { return path_; }
    std::string path(std::string_view name) const;                          // of a file in it
    std::string write(std::string_view name, std::string_view bytes) const; // returns the path
    std::string
    read(std::string_view name) const; // all bytes; fails the test when there is no file
    bool has(std::string_view name) const;
    std::vector<std::string> names() const; // of all that is in it, sorted

private:
    std::string path_;
};

// An environment variable with another value, or (null) without any, while in scope.
class variable
{
public:
    variable(const char *name, const char *value);
    variable(const char *name, const std::string &value) : variable(name, value.c_str()) {}
    variable(const variable &) = delete;
    variable &operator=(const variable &) = delete;
    ~variable();

private:
    std::string name_;
    std::optional<std::string> before_;
};

} // namespace ku::test

#endif
