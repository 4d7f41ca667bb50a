// sweep.cpp - the seams under the sweeps: the basic allocator and the system calls
#include "support/sweep.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

#include "port/crt/crt.h"

// malloc, calloc and realloc of everything that is linked statically come here.
extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void *__wrap_malloc(std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size);
void *__wrap_realloc(void *block, std::size_t size);
}

namespace ku::test
{

namespace
{

constexpr int longest_sweep = 100000; // runs; a scenario with more never ends

thread_local int basic_countdown = 0;
thread_local bool basic_failure = false;

bool basic_due()
{
    if (basic_countdown == 0 || --basic_countdown > 0) return false;
    basic_failure = true;
    return true;
}

// One run after the other, until one has met no failure.
void sweep(const std::string &what, const char *language, const scenario &run,
           const std::function<void(context &, int)> &arm,
           const std::function<bool(context &)> &disarm)
{
    for (int n = 1; n <= longest_sweep; n++) {
        SCOPED_TRACE(what + " " + std::to_string(n) + " fails");
        context ctx(language);
        arm(ctx, n);
        const bool succeeded = run(ctx);
        const bool failed = disarm(ctx);
        ctx.clear();
        if (testing::Test::HasFatalFailure()) return;
        if (failed) continue;
        EXPECT_TRUE(succeeded) << "without any failure";
        return;
    }
    ADD_FAILURE() << what << ": no end of failures";
}

} // namespace

void fail_basic_from_now(int n)
{
    basic_countdown = n;
    basic_failure = basic_failure && n == 0;
}

bool basic_failed() { return basic_failure; }

void sweep_allocations(const scenario &run, const char *language)
{
    sweep(
        "allocation", language, run, [](context &ctx, int n) { ctx.fail_from_now(n); },
        [](context &ctx) {
            ctx.fail_from_now(0);
            return ctx.failed();
        });
}

void sweep_basic_allocations(const scenario &run, const char *language)
{
    sweep(
        "basic allocation", language, run, [](context &, int n) { fail_basic_from_now(n); },
        [](context &) {
            fail_basic_from_now(0);
            return basic_failed();
        });
}

// ---- system calls ----

namespace
{

// clang-format off
#define KU_SYSTEM_CALLS(_) \
    _(open) _(close) _(read) _(write) _(pread) _(pwrite) _(lseek) _(fstat) _(stat) _(lstat) _(access) _(chmod) \
    _(fchmod) _(fchown) _(fgetxattr) _(fsetxattr) _(fremovexattr) _(unlink) _(rename) _(flock) \
    _(ftruncate) _(fsync) _(resolve) _(random) _(duplicate) _(filesystem) _(reserve) _(map) \
    _(unmap) _(forget) _(list)
// clang-format on

enum call {
#define KU_ENUM(name) call_##name,
    KU_SYSTEM_CALLS(KU_ENUM)
#undef KU_ENUM
        ncalls
};

using crt::system_calls;
static_assert(sizeof(system_calls) == ncalls * sizeof(void (*)()), "a call has come or gone");

struct fault {
    int countdown = 0;     // calls until the one that fails; 0: none
    bool for_ever = false; // all after it fail too
    int error = 0;
    int made = 0;
};
struct faults {
    const system_calls *real = nullptr;
    std::array<fault, ncalls> calls;
    std::size_t most = SIZE_MAX; // bytes that one read or write moves
    bool failed = false;
};
thread_local faults now;

bool call_fails(call which)
{
    fault &mine = now.calls[which];
    mine.made++;
    if (mine.countdown == 0 || (mine.countdown > 1 && mine.countdown-- > 1)) return false;
    if (!mine.for_ever) mine.countdown = 0;
    now.failed = true;
    errno = mine.error;
    return true;
}

template <call which, auto member> struct faulty;
template <call which, typename result, typename... arguments,
          result (*system_calls::*member)(arguments...)>
struct faulty<which, member> {
    static result make(arguments... given)
    {
        if (call_fails(which)) return -1;
        return (now.real->*member)(given...);
    }
};

int faulty_close(int descriptor)
{
    const int result = now.real->close(descriptor);
    return call_fails(call_close) ? -1 : result;
}

ssize_t faulty_read(int descriptor, void *bytes, std::size_t count)
{
    if (call_fails(call_read)) return -1;
    return now.real->read(descriptor, bytes, std::min(count, now.most));
}

ssize_t faulty_write(int descriptor, const void *bytes, std::size_t count)
{
    if (call_fails(call_write)) return -1;
    return now.real->write(descriptor, bytes, std::min(count, now.most));
}

ssize_t faulty_pread(int descriptor, void *bytes, std::size_t count, off_t offset)
{
    if (call_fails(call_pread)) return -1;
    return now.real->pread(descriptor, bytes, std::min(count, now.most), offset);
}

ssize_t faulty_pwrite(int descriptor, const void *bytes, std::size_t count, off_t offset)
{
    if (call_fails(call_pwrite)) return -1;
    return now.real->pwrite(descriptor, bytes, std::min(count, now.most), offset);
}

system_calls faulty_calls()
{
    system_calls table;
#define KU_FAULTY(name) table.name = faulty<call_##name, &system_calls::name>::make;
    KU_SYSTEM_CALLS(KU_FAULTY)
#undef KU_FAULTY
    table.close = faulty_close;
    table.read = faulty_read;
    table.write = faulty_write;
    table.pread = faulty_pread;
    table.pwrite = faulty_pwrite;
    return table;
}

fault &fault_of(const char *name)
{
    const auto &names = system_faults::names();
    const auto found = std::find(names.begin(), names.end(), std::string(name));
    if (found == names.end()) {
        ADD_FAILURE() << "no system call " << name;
        std::abort();
    }
    return now.calls[static_cast<std::size_t>(found - names.begin())];
}

} // namespace

system_faults::system_faults()
{
    static const system_calls table = faulty_calls();
    now = faults();
    now.real = crt::replace_calls(&table);
}

system_faults::~system_faults() { crt::replace_calls(now.real); }

const std::vector<const char *> &system_faults::names()
{
#define KU_NAME(name) #name,
    static const std::vector<const char *> all = {KU_SYSTEM_CALLS(KU_NAME)};
#undef KU_NAME
    return all;
}

void system_faults::fail_from_now(const char *name, int n, int error)
{
    fault &mine = fault_of(name);
    mine.countdown = n;
    mine.for_ever = false;
    mine.error = error;
    now.failed = now.failed && n == 0;
}

void system_faults::fail_all(const char *name, int error)
{
    fail_from_now(name, 1, error);
    fault_of(name).for_ever = true;
}

bool system_faults::failed() const { return now.failed; }

void system_faults::shorten(std::size_t bytes) { now.most = bytes; }

int system_faults::made(const char *name) const { return fault_of(name).made; }

void sweep_system_calls(const scenario &run, const std::vector<int> &errnos, const char *language)
{
    for (const char *name : system_faults::names()) {
        for (const int error : errnos) {
            system_faults faults;
            sweep(
                std::string(name) + " (errno " + std::to_string(error) + ")", language, run,
                [&](context &, int n) { faults.fail_from_now(name, n, error); },
                [&](context &) {
                    faults.fail_from_now(name, 0, error);
                    return faults.failed();
                });
        }
    }
}

} // namespace ku::test

void *__wrap_malloc(std::size_t size)
{
    return ku::test::basic_due() ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return ku::test::basic_due() ? nullptr : __real_calloc(count, size);
}

void *__wrap_realloc(void *block, std::size_t size)
{
    return ku::test::basic_due() ? nullptr : __real_realloc(block, size);
}
