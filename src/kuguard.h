// kuguard.h - small guards over the C interface: what is not kept is given back
//
// Each undoes one thing when it leaves its scope, and cannot be copied. Leaving
// never fails; opening a frame or an error level may, the frame pushes its code
// then, and the guard says so. None stands on the stack across a callback that may jump
// away, which among the library's callbacks only kuxdaterr does.
#ifndef KUGUARD_H
#define KUGUARD_H

#include <cstdint>

#include "kux.h"
#include "kuxdn.h"
#include "kuxer.h"
#include "kuxml.h"

namespace ku
{

class unique
{
protected:
    unique() = default;
    ~unique() = default;

public:
    unique(const unique &) = delete;
    unique &operator=(const unique &) = delete;
};

// An allocation frame: rolled back unless it was committed. Blocks made in it
// come from the logged layer. A client may have switched logging off, and then
// nothing is rolled back: what must not leak gets an `owned` besides.
class frame : unique
{
public:
    explicit frame(kux *ctx) : ctx_(ctx), open_(kuxmlbegin(ctx) == 0) {}
    ~frame()
    {
        if (open_) kuxmlrollback(ctx_);
    }
    bool open() const { return open_; }
    void commit()
    {
        if (open_) kuxmlend(ctx_);
        open_ = false;
    }

private:
    kux *ctx_;
    bool open_;
};

// A block of the context's plain memory: released unless it was kept.
template <typename T> class owned : unique
{
public:
    explicit owned(kux *ctx, T *block = nullptr) : ctx_(ctx), block_(block) {}
    ~owned() { reset(nullptr); }
    T *get() const { return block_; }
    T *operator->() const { return block_; }
    explicit operator bool() const { return block_ != nullptr; }
    void reset(T *block)
    {
        if (block_ != nullptr) ctx_->kuxnmfree(ctx_, block_);
        block_ = block;
    }
    [[nodiscard]] T *keep()
    {
        T *block = block_;
        block_ = nullptr;
        return block;
    }

private:
    kux *ctx_;
    T *block_;
};

// Bytes of plain memory for `count` things of `size` bytes; null, with nothing
// asked of the client, when that is more than 32 bits can say.
inline void *allocate(kux *ctx, std::uint64_t count, std::uint64_t size)
{
    if (size != 0 && count > UINT32_MAX / size) return nullptr;
    return ctx->kuxnmalloc(ctx, static_cast<std::uint32_t>(count * size));
}

template <typename T> T *allocate(kux *ctx)
{
    return static_cast<T *>(allocate(ctx, 1, sizeof(T)));
}

// Address of a relocatable handle while it is in scope: a short dereference
// where the handle's state allows it, else a lock. Null when access failed.
class access : unique
{
public:
    access(kux *ctx, kuxhandle handle)
        : ctx_(ctx), handle_(handle),
          deref_(handle != nullptr && (ctx->kuxrmgetstate(ctx, handle) & KUXRM_DEREF) != 0)
    {
        if (handle == nullptr) return;
        address_ = deref_ ? ctx->kuxrmbeginderef(ctx, handle) : ctx->kuxrmlock(ctx, handle);
    }
    ~access()
    {
        if (address_ == nullptr) return;
        if (deref_)
            ctx_->kuxrmendderef(ctx_, handle_);
        else
            ctx_->kuxrmunlock(ctx_, handle_);
    }
    void *address() const { return address_; }
    const char *text() const { return static_cast<const char *>(address_); }

private:
    kux *ctx_;
    kuxhandle handle_;
    bool deref_;
    void *address_ = nullptr;
};

// Status of an operation that failed below: the newest code. A client's memory callback may
// have failed without one: then it is pushed here, so that a failure is never 0.
inline std::uint32_t failure(kux *ctx)
{
    if (kuxercode(ctx) == 0) kuxer0push(ctx, KUXNM_NOMEM);
    return kuxercode(ctx);
}

// kuxersavestack, but false without memory, with nothing pushed: on a full level that
// would drop the oldest record.
bool save_level(kux *ctx);

// Errors pushed in scope go to a level of their own and are dropped at its end.
class aside : unique
{
public:
    explicit aside(kux *ctx) : ctx_(ctx), saved_(save_level(ctx)) {}
    ~aside()
    {
        if (saved_) kuxerrestorestack(ctx_);
    }
    bool saved() const { return saved_; }

private:
    kux *ctx_;
    bool saved_;
};

} // namespace ku

#endif
