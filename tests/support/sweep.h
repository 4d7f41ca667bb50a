// sweep.h - runs a scenario again and again with one more failure at another place
//
// Each sweep lets the 1st, 2nd, 3rd ... request fail, one a run, until a run
// meets no failure any more; that run must succeed. Every run has a context of
// its own, whose end checks for leaks; the scenario releases what it made,
// failed or not, and returns whether all of it succeeded. What a failed run
// must leave behind is the scenario's to expect. Errors are cleared after
// each run.
#ifndef TESTS_SUPPORT_SWEEP_H
#define TESTS_SUPPORT_SWEEP_H

#include <cerrno>
#include <cstddef>
#include <functional>
#include <vector>

#include "support/context.h"

namespace ku::test
{

using scenario = std::function<bool(context &)>;

// Over the context's allocations and resizes.
void sweep_allocations(const scenario &run, const char *language = "ascii");

// Over the basic allocator: malloc, calloc and realloc as called by this program on this thread.
void sweep_basic_allocations(const scenario &run, const char *language = "ascii");

// Over every call of the system-call table, with each errno.
void sweep_system_calls(const scenario &run, const std::vector<int> &errnos = {EIO},
                        const char *language = "ascii");

// What the basic sweep stands on: the n-th call from now on this thread fails (0: none).
void fail_basic_from_now(int n);
bool basic_failed(); // that failure has happened

// The system calls, with a failure among them while in scope, on this thread.
class system_faults
{
public:
    system_faults();
    system_faults(const system_faults &) = delete;
    system_faults &operator=(const system_faults &) = delete;
    ~system_faults();

    static const std::vector<const char *> &names(); // of the calls: "open", "read" ...

    // The n-th call of that name from now fails with `error`; 0: none. A failing close has
    // closed all the same.
    void fail_from_now(const char *name, int n, int error);
    // All calls of that name fail from now on.
    void fail_all(const char *name, int error);
    bool failed() const;
    // Reads and writes move at most so many bytes.
    void shorten(std::size_t bytes);
    int made(const char *name) const; // calls of that name since the beginning
};

} // namespace ku::test

#endif
