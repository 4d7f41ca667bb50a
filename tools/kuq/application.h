// application.h - what every command works with: the context, its messages, the settings
#ifndef KUQ_APPLICATION_H
#define KUQ_APPLICATION_H

#include <ku.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kuq
{

enum exit_status { succeeded = 0, failed = 1, wrong_usage = 2 };

// Where a setting was found, and its values.
struct setting {
    std::vector<std::string> values;
    uint16_t where; // KUP_USER or KUP_GLOBAL, with KUP_SPECIFIC or KUP_GENERAL
};

// Owns the context; installs a message stream that shows text on standard error.
// Before that it completes the environment: KU_UPREFS becomes the user's
// configuration directory where it is unset, TMP the temporary directory.
class application
{
public:
    application();
    ~application();
    application(const application &) = delete;
    application &operator=(const application &) = delete;

    bool ready() const { return ctx_ != nullptr; }
    kux *ctx() const { return ctx_; }

    // Shows the errors on the stack, oldest first, each with what to do about it, and
    // clears them. Returns `status`, so that commands can end with it.
    exit_status report(exit_status status);

    // The preferences, opened at the first use; null when memory ran out.
    kupct *preferences();
    // Whether writing the user's file would lose nothing: it was read to its end without a
    // syntax error, or there is none. When not, the reason was pushed.
    bool user_file_is_whole();

    std::optional<setting> find_setting(const std::string &name, uint16_t scope);

    // The text of a relocatable string, copied.
    std::string text(kuxhandle handle) const;

    // A relocatable string with this text, or null.
    kuxhandle handle(std::string_view text) const;

    // Whether texts are UTF-8: it alone has characters of four bytes.
    bool utf8() const { return ctx_->kuxlangidh->maxwidth_kulang == 4; }

    std::string user_directory() const; // of the user's preference file

private:
    std::string library_messages_; // names of the message files
    std::string own_messages_;
    kuapp library_app_ = {};
    kuapp own_app_ = {}; // asked first, then the library's
    kux *ctx_ = nullptr;
    kuxst *stream_ = nullptr;
    kupct *preferences_ = nullptr;
    uint16_t opening_ = 0; // what kupopen answered
};

constexpr char product[] = "kuq";

// Why reading a file of settings finds less than it holds; "" when it finds all, or there is
// no such file. A line of settings ends at a NUL.
std::string unreadable(const std::string &file);

} // namespace kuq

#endif
