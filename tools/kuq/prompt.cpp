// prompt.cpp - line editing in pieces: between characters it is our own signals that count
//
// The editor is fed a character at a time. While it waits for one the signals of the
// session are let in; they only leave a note, so that nothing is torn out of the editor.

#include "prompt.h"

#include <fcntl.h>
#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "codes.h"
#include "progress.h"

#if KUQ_READLINE
#include <readline/history.h>
#include <readline/readline.h>
#endif

namespace kuq
{
namespace
{

constexpr const char *shown_prompt = "kuq> ";

#if KUQ_READLINE

constexpr int most_remembered = 1000; // lines

volatile sig_atomic_t resized = 0;
volatile sig_atomic_t continued = 0;

// The editor has one line at a time and calls functions without data.
prompt::completer complete_word;
std::vector<std::string> candidates;
bool taken = false;
bool ended = false;
std::string taken_line;

void take(char *line)
{
    rl_callback_handler_remove();
    taken = true;
    ended = line == nullptr;
    taken_line = ended ? "" : line;
    std::free(line);
}

char *candidate(const char *, int state)
{
    static size_t next;
    if (state == 0) next = 0;
    return next < candidates.size() ? strdup(candidates[next++].c_str()) : nullptr;
}

char **complete(const char *text, int start, int)
{
    const auto all = complete_word(std::string(rl_line_buffer, static_cast<size_t>(start)));
    if (!all) return nullptr; // a file's name
    rl_attempted_completion_over = 1;
    candidates.clear();
    for (const std::string &each : *all)
        if (strncasecmp(each.c_str(), text, std::strlen(text)) == 0) candidates.push_back(each);
    return rl_completion_matches(text, candidate);
}

void set_up_editor()
{
    static char breaks[] = " \t";
    rl_readline_name = product;
    rl_catch_signals = 0;
    rl_catch_sigwinch = 0;
    rl_change_environment = 0; // LINES and COLUMNS stay what the user set
    rl_attempted_completion_function = complete;
    rl_completer_word_break_characters = breaks;
    rl_completer_quote_characters = "\"'";
    rl_variable_bind("enable-bracketed-paste", "off");
    rl_variable_bind("completion-ignore-case", "on");
    struct sigaction action = {};
    action.sa_handler = [](int number) { (number == SIGCONT ? continued : resized) = 1; };
    sigaction(SIGWINCH, &action, nullptr);
    sigaction(SIGCONT, &action, nullptr);
}

// Another process had the terminal.
void take_terminal_back()
{
    rl_deprep_terminal();
    rl_prep_terminal(1);
    rl_forced_update_display();
}

// Keeps the signals out but while it waits.
class held_signals
{
public:
    held_signals()
    {
        sigset_t ours;
        sigemptyset(&ours);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGCONT})
            sigaddset(&ours, number);
        pthread_sigmask(SIG_BLOCK, &ours, &before_);
    }
    ~held_signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    held_signals(const held_signals &) = delete;
    held_signals &operator=(const held_signals &) = delete;

    bool wait_for_input() const
    {
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        return ppoll(&input, 1, nullptr, &before_) > 0;
    }

private:
    sigset_t before_;
};

std::string data_directory()
{
    const char *named = std::getenv("XDG_DATA_HOME");
    if (named != nullptr && *named != '\0') return std::string(named) + "/kuq";
    const char *home = std::getenv("HOME");
    return home == nullptr || *home == '\0' ? "" : std::string(home) + "/.local/share/kuq";
}

#endif

} // namespace

prompt::prompt(application &app, completer completes)
    : app_(app), interactive_(isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1)
{
#if KUQ_READLINE
    complete_word = std::move(completes);
    if (!interactive_) return;
    set_up_editor();
    load_history();
#else
    (void)completes;
#endif
}

prompt::~prompt()
{
    std::free(buffer_);
#if KUQ_READLINE
    if (interactive_) save_history();
#endif
}

prompt::answer prompt::next(std::string *line)
{
    std::fflush(stdout);
#if KUQ_READLINE
    if (interactive_) return edit(line);
#endif
    if (interactive_) {
        std::fputs(shown_prompt, stdout);
        std::fflush(stdout);
    }
    return read(line);
}

prompt::answer prompt::read(std::string *line)
{
    const ssize_t got = getline(&buffer_, &size_, stdin);
    if (got < 0 && interrupted()) {
        std::clearerr(stdin);
        if (interactive_) std::putchar('\n');
        return answer::cleared;
    }
    if (got < 0 && interactive_) std::putchar('\n');
    if (got < 0) return answer::end;
    line->assign(buffer_, static_cast<size_t>(got));
    if (!line->empty() && line->back() == '\n') line->pop_back();
    return answer::line;
}

#if KUQ_READLINE

prompt::answer prompt::edit(std::string *line)
{
    const held_signals held;
    taken = false;
    rl_callback_handler_install(shown_prompt, take);
    while (!taken) {
        if (resized != 0) rl_resize_terminal();
        if (continued != 0) take_terminal_back();
        resized = 0;
        continued = 0;
        if (interrupted()) {
            rl_callback_sigcleanup();
            rl_callback_handler_remove();
            std::putchar('\n');
            return answer::cleared;
        }
        if (held.wait_for_input()) rl_callback_read_char();
    }
    if (ended) std::putchar('\n');
    if (ended) return answer::end;
    *line = taken_line;
    HIST_ENTRY *last =
        history_length > 0 ? history_get(history_base + history_length - 1) : nullptr;
    const bool again = last != nullptr && *line == last->line;
    if (line->find_first_not_of(" \t") != std::string::npos && !again) {
        add_history(line->c_str());
        added_++;
    }
    return answer::line;
}

void prompt::load_history()
{
    const std::string directory = data_directory();
    if (directory.empty()) return;
    history_ = directory + "/history";
    using_history();
    stifle_history(most_remembered);
    read_history(history_.c_str()); // there is none the first time
}

// The lines of this session go behind those of others that ended meanwhile.
void prompt::save_history()
{
    if (history_.empty() || added_ == 0) return;
    std::error_code ignored; // opening tells
    std::filesystem::create_directories(std::filesystem::path(history_).parent_path(), ignored);
    const int file = ::open(history_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    int error = file < 0 ? errno : 0;
    if (file >= 0) {
        close(file);
        error = append_history(std::min(added_, most_remembered), history_.c_str());
        if (error == 0) history_truncate_file(history_.c_str(), most_remembered);
    }
    if (error == 0) return;
    kuxer2push(app_.ctx(), KUQAA_HISTORY, history_.c_str(), std::strerror(error));
    app_.report(failed);
}

#endif

} // namespace kuq
