// arguments.h - a command's arguments: declared as a table, parsed by the library
#ifndef KUQ_ARGUMENTS_H
#define KUQ_ARGUMENTS_H

#include <string>
#include <vector>

#include "application.h"

namespace kuq
{

// One argument of a command.
struct argument {
    const char *keyword;
    const char *help;
    std::vector<const char *> allowed = {}; // the values it can have; empty: any
    const char *default_value = nullptr;
    uint16_t flags = 0;    // KUCL_LIST and the like, besides those that `allowed` implies
    bool verbatim = false; // parentheses and quotes in its value are no list and no quotes
};

// The values given on a command line. They live as long as this object.
class arguments
{
public:
    arguments(application &app, const std::vector<argument> &table);
    ~arguments();
    arguments(const arguments &) = delete;
    arguments &operator=(const arguments &) = delete;

    enum class outcome { parsed, help, wrong };

    // Parses the words after the command. When they are wrong, what is wrong has been
    // pushed: the argument, the bad value, what is allowed, the nearest keyword.
    outcome parse(int count, char **words);

    bool given(const char *keyword) const;
    std::string value(const char *keyword) const; // the first value; "" when there is none
    std::vector<std::string> values(const char *keyword) const;

    // The value; where it was not given the setting of that name, where that is not set
    // the default. False, with the reason pushed, when the setting's value is not allowed.
    bool choice(const char *keyword, std::string *result) const;

private:
    const argument *find(const std::string &keyword) const;
    void explain(const kucle &error);
    std::string shielded(const std::string &word, size_t position);
    std::string unshielded(const char *value) const;
    void release(kucla &definition);

    application &app_;
    kux *ctx_;
    const std::vector<argument> &table_;
    std::vector<kucla> definitions_;
    std::vector<std::string> shielded_; // values that the parser did not see
    void *list_ = nullptr;
};

// The whole text as a number; false when it is none, or one below `least`.
bool whole_number(const std::string &text, uint64_t least, uint64_t *result);

// "a, b or c"
std::string alternatives(const std::vector<const char *> &words);

// The word of the list that is the fewest edits away.
std::string nearest(const std::string &word, const std::vector<const char *> &words);

} // namespace kuq

#endif
