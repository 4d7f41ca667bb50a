// application.cpp - the context's life, error messages, settings

#include "application.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "codes.h"

namespace fs = std::filesystem;

namespace kuq
{
namespace
{

constexpr uint32_t message_max = 2000; // bytes of a message with its parameters

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value == nullptr ? "" : value;
}

void complete_environment(const char *name, const std::string &value)
{
    if (environment(name).empty() && !value.empty()) setenv(name, value.c_str(), 1);
}

// The user's configuration directory, as other tools find it.
std::string configuration_directory()
{
    const std::string named = environment("XDG_CONFIG_HOME");
    if (!named.empty()) return named + "/kuq";
    const std::string home = environment("HOME");
    return home.empty() ? "" : home + "/.config/kuq";
}

std::string temporary_directory()
{
    const std::string named = environment("TMPDIR");
    return named.empty() ? "/tmp" : named;
}

// The message files lie where the installation puts them, seen from the program:
// bin/kuq and share/ku.
std::string message_file(const char *name)
{
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    return program.parent_path().parent_path() / "share" / "ku" / name;
}

uint32_t show_message(kux *, kuxst *, const char *text)
{
    std::fputs(text, stderr);
    return 0;
}

int32_t ask(kux *, kuxst *, const char *text)
{
    std::fprintf(stderr, "%s [y/n]: ", text);
    char answer[20] = {};
    return std::fgets(answer, sizeof answer, stdin) != nullptr
           && (answer[0] == 'y' || answer[0] == 'Y');
}

// Cuts what the user gave, so that a message has room for what it says about it.
void shorten(char *parameter)
{
    constexpr size_t most = 300; // bytes
    if (std::strlen(parameter) <= most) return;
    size_t end = most - 3;
    while (end > 0 && (parameter[end] & 0xC0) == 0x80) end--; // not inside a character
    std::strcpy(parameter + end, "...");
}

std::string message(kux *ctx, kuxer *record)
{
    for (int32_t i = 0; i < record->kuxernparams; i++) shorten(record->kuxerparams[i]);
    char text[message_max + 1];
    uint32_t length = message_max;
    kuxerfmtmsg(ctx, record, "text", text, &length, nullptr);
    return text;
}

std::string advice(kux *ctx, const kuxer *record)
{
    char text[message_max + 1] = {};
    uint32_t length = message_max;
    kuxergmsg(ctx, record->kuxercode, "action", text, &length, nullptr);
    return std::string(text, length);
}

} // namespace

application::application()
    : library_messages_(message_file("ku.msg")), own_messages_(message_file("kuq.msg"))
{
    complete_environment("KU_UPREFS", configuration_directory());
    complete_environment("TMP", temporary_directory());

    library_app_.messages_kuapp = library_messages_.c_str();
    own_app_.messages_kuapp = own_messages_.c_str();
    own_app_.next_kuapp = &library_app_;
    kuxa attrs = {};
    attrs.kuxamask = KUXA_UIAPP;
    attrs.kuxauiapp = &own_app_;
    ctx_ = kuxcreate(&attrs);
    if (ctx_ == nullptr) return;

    kuxsta functions = {};
    functions.mask_kuxsta = KUXSTA_MESSAGE | KUXSTA_CONFIRM;
    functions.message_kuxsta = show_message;
    functions.confirm_kuxsta = ask;
    stream_ = kuxstcreate(ctx_, &functions);
    const kuxioa console = {KUXIOA_STDIO, stream_};
    kuxioset(ctx_, &console);
}

application::~application()
{
    if (ctx_ == nullptr) return;
    if (preferences_ != nullptr) kupclose(preferences_);
    const kuxioa none = {KUXIOA_STDIO, nullptr};
    kuxioset(ctx_, &none);
    kuxstdestroy(ctx_, stream_);
    kuxdestroy(ctx_);
}

exit_status application::report(exit_status status)
{
    for (int32_t index = 0; index < kuxernerrors(ctx_); index++) {
        kuxer *record = kuxerget(ctx_, index);
        std::string shown = "kuq: " + message(ctx_, record) + "\n";
        const std::string action = advice(ctx_, record);
        if (!action.empty()) shown += "     " + action + "\n";
        kuxiomessage(ctx_, shown.c_str());
    }
    kuxerclear(ctx_);
    return status;
}

kupct *application::preferences()
{
    if (preferences_ == nullptr) {
        opening_ = kupopen(ctx_, product, &preferences_);
        kuxerclear(ctx_); // the answer says what there is to say
    }
    if (preferences_ == nullptr) kuxer0push(ctx_, KUQAA_MEMORY);
    return preferences_;
}

std::string unreadable(const std::string &file)
{
    std::error_code error;
    const fs::file_type type = fs::status(file, error).type();
    if (type == fs::file_type::not_found) return "";
    if (error) return error.message();
    if (type == fs::file_type::directory) return "it is a directory";
    if (type != fs::file_type::regular) return "it is no regular file";
    std::FILE *stream = std::fopen(file.c_str(), "rb");
    if (stream == nullptr) return std::strerror(errno);
    std::string why;
    char part[4096];
    while (const size_t bytes = std::fread(part, 1, sizeof part, stream))
        if (std::memchr(part, 0, bytes) != nullptr) why = "it holds a NUL character";
    if (std::ferror(stream) != 0) why = std::strerror(errno);
    std::fclose(stream);
    return why;
}

bool application::user_file_is_whole()
{
    const std::string file = user_directory() + "/kuuprefs.xdb";
    if ((opening_ & KUP_USERERR) != 0) {
        const std::string line = std::to_string(kuperrlin(preferences_, KUP_USER));
        kuxer2push(ctx_, KUQAA_FILELINE, file.c_str(), line.c_str());
        return false;
    }
    const std::string why = unreadable(file);
    if (why.empty()) return true;
    kuxer2push(ctx_, KUQAA_READ, file.c_str(), why.c_str());
    return false;
}

std::optional<setting> application::find_setting(const std::string &name, uint16_t scope)
{
    kupct *prefs = preferences();
    if (prefs == nullptr) return std::nullopt;
    void *list = nullptr;
    const uint16_t where = kupget(prefs, name.c_str(), scope | KUP_NOSORT, nullptr, &list);
    if (list == nullptr) return std::nullopt;

    setting found = {{}, where};
    for (int32_t index = 0; index < kulpnitems(ctx_, list); index++)
        found.values.push_back(text(static_cast<kuxhandle>(kulpitem(ctx_, list, index))));
    kulpdestroy(ctx_, list);
    return found;
}

std::string application::text(kuxhandle handle) const
{
    if (handle == nullptr) return "";
    const auto *bytes = static_cast<const char *>(kuxrmlock(ctx_, handle));
    std::string copy = bytes == nullptr ? "" : bytes;
    kuxrmunlock(ctx_, handle);
    return copy;
}

kuxhandle application::handle(std::string_view text) const
{
    kuxa callbacks = {};
    callbacks.kuxamask = KUXA_RMALL;
    kuxget(ctx_, &callbacks);
    kuxhandle made = callbacks.kuxarmalloc(ctx_, static_cast<uint32_t>(text.size() + 1));
    if (made == nullptr) return nullptr;
    auto *bytes = static_cast<char *>(kuxrmlock(ctx_, made));
    std::memcpy(bytes, text.data(), text.size());
    bytes[text.size()] = '\0';
    kuxrmunlock(ctx_, made);
    return made;
}

std::string application::user_directory() const { return environment("KU_UPREFS"); }

} // namespace kuq
