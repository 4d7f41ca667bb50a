// console.cpp - output with colours, through a pager on a terminal

#include "console.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kuq
{
namespace
{

// Bytes of the well-formed UTF-8 character at the start of a text; 0 for none.
size_t utf8_length(std::string_view text)
{
    const auto byte = [text](size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0u;
    };
    const unsigned lead = byte(0);
    const size_t length = lead < 0x80   ? 1
                          : lead < 0xC2 ? 0
                          : lead < 0xE0 ? 2
                          : lead < 0xF0 ? 3
                          : lead < 0xF5 ? 4
                                        : 0;
    for (size_t at = 1; at < length; at++)
        if ((byte(at) & 0xC0) != 0x80) return 0;
    const unsigned second = byte(1);
    if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F)) return 0;
    if ((lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) return 0;
    return length;
}

std::string escape(const char *format, unsigned char byte)
{
    char text[8];
    std::snprintf(text, sizeof text, format, byte);
    return text;
}

} // namespace

console::console(const std::string &colour)
{
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    const char *no_color = std::getenv("NO_COLOR");
    const bool wanted = no_color == nullptr || *no_color == '\0';
    colours_ = colour == "always" || (colour == "auto" && terminal && wanted);
    if (terminal) start_pager();
}

console::console(std::FILE *to) : to_(to) {}

console::~console()
{
    std::string why;
    finish(&why);
}

void console::start_pager()
{
    const char *named = std::getenv("PAGER");
    const char *pager = named != nullptr && *named != '\0' ? named : "less";
    int ends[2];
    if (std::strcmp(pager, "cat") == 0 || pipe(ends) != 0) return;
    std::fflush(stdout);
    pager_ = fork();
    if (pager_ == 0) {
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        close(ends[1]);
        setenv("LESS", "FRX", 0);
        execlp("sh", "sh", "-c", pager, static_cast<char *>(nullptr));
        _exit(127);
    }
    if (pager_ > 0) {
        std::signal(SIGPIPE, SIG_IGN); // a pager that is left early is no failure
        dup2(ends[1], STDOUT_FILENO);
    }
    close(ends[0]);
    close(ends[1]);
}

void console::write(std::string_view text)
{
    if (failed_ || std::fwrite(text.data(), 1, text.size(), to_) == text.size()) return;
    failed_ = true;
    error_ = errno;
}

void console::write_in(const char *colour, std::string_view text)
{
    if (!colours_ || *colour == '\0' || text.empty()) return write(text);
    write("\033[");
    write(colour);
    write("m");
    write(text);
    write("\033[0m");
}

bool console::finish(std::string *why)
{
    if (std::fflush(to_) != 0 && !failed_) {
        failed_ = true;
        error_ = errno;
    }
    if (pager_ > 0) {
        close(STDOUT_FILENO);
        waitpid(pager_, nullptr, 0);
        pager_ = 0;
        if (error_ == EPIPE) failed_ = false;
    }
    if (failed_) *why = std::strerror(error_);
    return !failed_;
}

std::string json(std::string_view text, bool utf8)
{
    std::string quoted = "\"";
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text.front());
        const size_t whole = byte < 0x80 ? 1 : utf8 ? utf8_length(text) : 0;
        if (byte == '"' || byte == '\\')
            quoted += {'\\', text.front()};
        else if (byte == '\n')
            quoted += "\\n";
        else if (byte < 0x20 || byte == 0x7F || whole == 0)
            quoted += escape("\\u%04x", byte);
        else
            quoted += text.substr(0, whole);
        text.remove_prefix(whole == 0 ? 1 : whole);
    }
    return quoted + "\"";
}

std::string one_line(std::string_view text)
{
    std::string line;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n')
            line += "\\n";
        else if (character == '\t')
            line += "\\t";
        else if (byte < 0x20 || byte == 0x7F)
            line += escape("\\x%02x", byte);
        else
            line += character;
    }
    return line;
}

} // namespace kuq
