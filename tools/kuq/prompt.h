// prompt.h - the lines of a session: edited on a terminal, else as they come
#ifndef KUQ_PROMPT_H
#define KUQ_PROMPT_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "application.h"

namespace kuq
{

class prompt
{
public:
    // What can stand at a word's place; `line` is what is in front of it. Nothing: a file's name.
    using completer =
        std::function<std::optional<std::vector<std::string>>(const std::string &line)>;

    // On a terminal lines are edited and remembered, where the build has the means.
    explicit prompt(application &app, completer completes);
    ~prompt();
    prompt(const prompt &) = delete;
    prompt &operator=(const prompt &) = delete;

    bool interactive() const { return interactive_; }

    enum class answer { line, cleared, end }; // cleared: by an interrupt
    answer next(std::string *line);

private:
    answer edit(std::string *line);
    answer read(std::string *line);
    void load_history();
    void save_history();

    application &app_;
    bool interactive_;
    std::string history_;    // file; "" for none
    int added_ = 0;          // lines of this session
    char *buffer_ = nullptr; // getline's
    size_t size_ = 0;
};

} // namespace kuq

#endif
