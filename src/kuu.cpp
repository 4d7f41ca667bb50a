// kuu.cpp - text fields: one length rule, two ways to reach the bytes
//
// A plain field is written through its pointer, a relocatable one through an
// address that is held only while its bytes are read or written; every resize
// happens between two accesses. How long a field's memory is, only its text
// tells: a block holds at least the text and its NUL, so a field is resized when
// its text is shorter than the new one. A value inside the field itself is
// therefore never moved by its own copy, and copies allow overlap.
#include "kuu.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kuguard.h"
#include "kuxrm.h"

namespace
{

// A handle's address while in scope, as ku::access, but a failure is pushed.
class kuuaccess : ku::unique
{
public:
    kuuaccess(kux *ctx, kuxhandle handle)
        : ctx_(ctx), handle_(handle), deref_((kuxrmgetstate(ctx, handle) & KUXRM_DEREF) != 0),
          text_(static_cast<char *>(deref_ ? kuxrmbeginderef(ctx, handle) : kuxrmlock(ctx, handle)))
    {
    }
    ~kuuaccess()
    {
        if (text_ == nullptr) return;
        if (deref_)
            kuxrmendderef(ctx_, handle_);
        else
            kuxrmunlock(ctx_, handle_);
    }
    char *text() const { return text_; }

private:
    kux *ctx_;
    kuxhandle handle_;
    bool deref_;
    char *text_;
};

// The length rule. Nothing behind a supplied length is looked at.
std::size_t kuulength(const char *text, const std::uint32_t *length, std::int32_t supplied)
{
    return supplied != 0 && length != nullptr ? strnlen(text, *length) : std::strlen(text);
}

void kuuput(char *target, const char *text, std::size_t length)
{
    std::memmove(target, text, length);
    target[length] = 0;
}

void kuureport(std::uint32_t *lengthp, std::size_t length)
{
    if (lengthp != nullptr) *lengthp = static_cast<std::uint32_t>(length);
}

char *kuuallocate(kux *ctx, std::size_t length)
{
    return static_cast<char *>(ku::allocate(ctx, std::uint64_t{length} + 1, 1));
}

// Bytes of a handle for a text of that length; 0 when 32 bits cannot say it.
std::uint32_t kuusize(std::size_t length)
{
    return length < UINT32_MAX ? static_cast<std::uint32_t>(length) + 1 : 0;
}

// Gives a relocatable field room for `length` bytes and a NUL, resized or new. False: no
// memory or no access.
bool kuuroom(kux *ctx, kuxhandle *field, std::size_t length)
{
    if (*field != nullptr) {
        const kuuaccess old(ctx, *field);
        if (old.text() == nullptr) return false;
        if (std::strlen(old.text()) >= length) return true;
    }
    const std::uint32_t size = kuusize(length);
    if (size == 0) return false;
    kuxhandle room =
        *field != nullptr ? ctx->kuxrmrealloc(ctx, *field, size) : ctx->kuxrmalloc(ctx, size);
    if (room != nullptr) *field = room;
    return room != nullptr;
}

// The getters' work on a text that is at hand.
std::uint32_t kuuget(kux *ctx, char **dest, std::uint32_t *lenp, std::int32_t supplied,
                     const char *text)
{
    const std::size_t length = kuulength(text, lenp, supplied);
    const bool given = supplied != 0 && *dest != nullptr;
    char *target = given ? *dest : kuuallocate(ctx, length);
    if (target == nullptr) return ku::failure(ctx);
    kuuput(target, text, length);
    kuureport(lenp, length);
    *dest = target;
    return 0;
}

std::uint32_t kuugetnull(char **dest, std::uint32_t *lenp, std::int32_t supplied)
{
    if (supplied != 0 && *dest != nullptr)
        **dest = 0;
    else
        *dest = nullptr;
    kuureport(lenp, 0);
    return 0;
}

} // namespace

std::uint32_t kuu_copytext(kux *ctx, char **bufaddr, std::uint32_t *buflenaddr,
                           std::int32_t bufsupplied, const char *srctext)
{
    if (bufsupplied != 0) {
        const std::uint32_t size = *buflenaddr;
        const std::size_t length = srctext != nullptr ? strnlen(srctext, size) : 0;
        if (length > 0) std::memmove(*bufaddr, srctext, length);
        if (length < size) (*bufaddr)[length] = 0;
        kuureport(buflenaddr, length);
        return 0;
    }
    char *copy = nullptr;
    const std::size_t length = srctext != nullptr ? std::strlen(srctext) : 0;
    if (srctext != nullptr) {
        copy = kuuallocate(ctx, length);
        if (copy == nullptr) return ku::failure(ctx);
        kuuput(copy, srctext, length);
    }
    *bufaddr = copy;
    kuureport(buflenaddr, length);
    return 0;
}

kuxhandle kuu_rmcopytext(kux *ctx, const char *srctext, std::int32_t len)
{
    if (srctext == nullptr) return nullptr;
    const std::size_t size = len < 0 ? std::strlen(srctext) : static_cast<std::size_t>(len);
    kuxhandle made = kuusize(size) != 0 ? ctx->kuxrmalloc(ctx, kuusize(size)) : nullptr;
    if (made == nullptr) return nullptr;
    auto *target = static_cast<char *>(kuxrmlock(ctx, made));
    if (target == nullptr) {
        ctx->kuxrmfree(ctx, made);
        return nullptr;
    }
    const std::size_t length = strnlen(srctext, size);
    std::memcpy(target, srctext, length);
    std::memset(target + length, 0, size + 1 - length);
    kuxrmunlock(ctx, made);
    return made;
}

std::uint32_t kuu_ntset(kux *ctx, const char *newvalue, std::uint32_t *newlenp,
                        std::int32_t lensupplied, char **dest)
{
    if (newvalue == nullptr) {
        *dest = nullptr;
        kuureport(newlenp, 0);
        return 0;
    }
    const std::size_t length = kuulength(newvalue, newlenp, lensupplied);
    if (*dest == nullptr || std::strlen(*dest) < length) {
        const std::uint32_t size = kuusize(length);
        void *room = nullptr;
        if (size != 0)
            room =
                *dest == nullptr ? ctx->kuxnmalloc(ctx, size) : ctx->kuxnmrealloc(ctx, *dest, size);
        if (room == nullptr) return ku::failure(ctx);
        *dest = static_cast<char *>(room);
    }
    kuuput(*dest, newvalue, length);
    kuureport(newlenp, length);
    return 0;
}

std::uint32_t kuu_rtset(kux *ctx, const char *newvalue, std::uint32_t *newlenp,
                        std::int32_t lensupplied, kuxhandle *dest)
{
    if (newvalue == nullptr) {
        *dest = nullptr;
        kuureport(newlenp, 0);
        return 0;
    }
    const std::size_t length = kuulength(newvalue, newlenp, lensupplied);
    const bool fresh = *dest == nullptr;
    if (!kuuroom(ctx, dest, length)) return ku::failure(ctx);
    {
        const kuuaccess field(ctx, *dest); // asked anew: a resized handle may be another one
        if (field.text() != nullptr) {
            kuuput(field.text(), newvalue, length);
            kuureport(newlenp, length);
            return 0;
        }
    }
    if (fresh) {
        ctx->kuxrmfree(ctx, *dest);
        *dest = nullptr;
    }
    return ku::failure(ctx);
}

std::uint32_t kuu_ntget(kux *ctx, char **dest, std::uint32_t *lenp, std::int32_t lensupplied,
                        const char *value)
{
    return value != nullptr ? kuuget(ctx, dest, lenp, lensupplied, value)
                            : kuugetnull(dest, lenp, lensupplied);
}

std::uint32_t kuu_rtget(kux *ctx, char **dest, std::uint32_t *lenp, std::int32_t lensupplied,
                        kuxhandle value)
{
    if (value == nullptr) return kuugetnull(dest, lenp, lensupplied);
    const kuuaccess field(ctx, value);
    return field.text() != nullptr ? kuuget(ctx, dest, lenp, lensupplied, field.text())
                                   : ku::failure(ctx);
}
