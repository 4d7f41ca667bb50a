// context.h - a context for tests: its memory counts, moves, poisons and fails on demand
//
// Plain blocks are of exact size, move on every resize (the new tail is not
// zero) and are overwritten when they are released. Relocatable blocks are
// reached through real handles: a handle's own word is no address, a block moves
// whenever its last lock or dereference ends, and every second handle must be
// locked because its state does not allow dereferences. Misuse (releasing a
// stranger, unlocking what is not locked ...) fails the test on the spot.
#ifndef TESTS_SUPPORT_CONTEXT_H
#define TESTS_SUPPORT_CONTEXT_H

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kux.h"
#include "kuxer.h"

namespace ku::test
{

class memory;

class context
{
public:
    // By language name: "ascii", "iso-8859-1", "utf8", "sjis", "euc-jp", "iso-2022-kr". A
    // level of the error stack holds `errors` records.
    explicit context(const char *language = "ascii", int errors = 20);
    context(const context &) = delete;
    context &operator=(const context &) = delete;
    // Expects as many live blocks as after creation, no lock held, and no error left that
    // nobody asked for; then none live at all.
    ~context();

    operator kux *() const { return ctx_; } // NOLINT(google-explicit-constructor)
    kux *operator->() const { return ctx_; }

    int live() const; // blocks alive, plain and relocatable

    // The n-th allocation or resize from now fails (1: the next), plain and relocatable
    // counted together; 0: none. Afterwards all succeed again.
    void fail_from_now(int n);
    bool failed() const; // that failure has happened
    // The same for locks and begun dereferences.
    void fail_access_from_now(int n);
    // Every allocation or resize fails with a chance of one in n, by the run's seed; 0: none.
    void fail_one_in(unsigned n);

    // The current level of the error stack, oldest first: "kulaa 3", "kuxaa 2(text, text)".
    std::vector<std::string> errors() const;
    void clear();

private:
    friend class spared;
    std::unique_ptr<memory> memory_;
    kux *ctx_;
    int created_; // blocks alive after creation
    mutable bool asked_ = false;
};

// While it is in scope no failure that was asked of the context happens or is counted.
class spared
{
public:
    explicit spared(const context &ctx);
    spared(const spared &) = delete;
    spared &operator=(const spared &) = delete;
    ~spared();

private:
    memory &memory_;
};

// A relocatable copy of a text (NUL-terminated), and the text that a handle holds. Never
// made to fail.
kuxhandle relocatable(const context &ctx, std::string_view text);
std::string text(const context &ctx, kuxhandle handle);

// One record as errors() spells it; a code alone.
std::string spelled(const kuxer &record);
std::string spelled(uint32_t code);

void expect_errors(const char *file, int line, kux *ctx, const std::vector<std::string> &expected);

// The current level holds exactly these errors, oldest first; clears it.
#define EXPECT_ERRORS(ctx, ...) ::ku::test::expect_errors(__FILE__, __LINE__, ctx, __VA_ARGS__)

} // namespace ku::test

#endif
