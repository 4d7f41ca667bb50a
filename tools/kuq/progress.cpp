// progress.cpp - a thread that looks on every tenth of a second
//
// A driver may be deep in a call, waiting for its server, when the user interrupts.
// The run ends itself at the next row; where that takes too long the thread
// removes the scratch files and ends the process, which every driver understands.

#include "progress.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "application.h"
#include "rows.h"

namespace kuq
{
namespace
{

using namespace std::chrono_literals;

constexpr auto tick = 100ms;
constexpr auto quiet = 500ms; // shorter runs show nothing
constexpr auto patience = 2s; // from the interrupt on
constexpr int signals[] = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t signalled = 0;

void note(int number) { signalled = number; }

// flags: SA_RESETHAND, and the next one ends the process.
void await_signals(int flags)
{
    struct sigaction action = {};
    action.sa_handler = note;
    action.sa_flags = flags;
    for (const int number : signals) sigaction(number, &action, nullptr);
}

} // namespace

bool interrupted() { return signalled != 0; }
int interrupt() { return signalled; }

progress::progress() : terminal_(isatty(STDERR_FILENO) == 1)
{
    await_signals(SA_RESETHAND);
    std::signal(SIGPIPE, SIG_IGN);
    watcher_ = std::thread([this] { watch(); });
}

progress::~progress()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ending_ = true;
    }
    change_.notify_one();
    watcher_.join();
    erase();
    for (const int number : signals) std::signal(number, SIG_DFL);
}

void progress::begin(const char *what)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    what_ = what;
    rows_ = 0;
    start_ = std::chrono::steady_clock::now();
}

void progress::stay(bool stays)
{
    stays_ = stays;
    await_signals(stays ? 0 : SA_RESETHAND);
}

void progress::forget_interrupt()
{
    signalled = 0;
    await_signals(stays_ ? 0 : SA_RESETHAND);
}

void progress::end()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    what_ = nullptr;
    erase();
}

void progress::watch()
{
    sigset_t all; // they go to the thread that works
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    auto patient_until = std::chrono::steady_clock::time_point::max();
    std::unique_lock<std::mutex> lock(mutex_);
    while (!change_.wait_for(lock, tick, [this] { return ending_; })) {
        const auto now = std::chrono::steady_clock::now();
        if (!interrupted() || stays_)
            patient_until = std::chrono::steady_clock::time_point::max();
        else if (patient_until == std::chrono::steady_clock::time_point::max())
            patient_until = now + patience;
        if (now >= patient_until) give_up();
        if (terminal_ && what_ != nullptr && now - start_ >= quiet) show();
    }
}

void progress::show()
{
    const uint64_t rows = rows_;
    char line[80];
    if (rows == 0)
        std::snprintf(line, sizeof line, "%s: waiting for the database ...", product);
    else
        std::snprintf(line, sizeof line, "%s: %llu rows %s ...", product,
                      static_cast<unsigned long long>(rows), what_);
    erase();
    std::fputs(line, stderr);
    shown_ = std::strlen(line);
}

// By blanks: not every terminal knows more.
void progress::erase()
{
    if (shown_ > 0) std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown_), "");
    shown_ = 0;
}

void progress::give_up()
{
    erase();
    std::fprintf(stderr, "%s: Ended by the user.\n", product);
    rows::remove_own();
    _exit(failed);
}

} // namespace kuq
