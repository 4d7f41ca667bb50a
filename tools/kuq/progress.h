// progress.h - a long run is seen and can be ended: the progress line and the interrupt
#ifndef KUQ_PROGRESS_H
#define KUQ_PROGRESS_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace kuq
{

// Whether the user wants the run to end. One who asks twice ends it at once.
bool interrupted();
int interrupt(); // the signal that said it; 0 for none

// While it lives an interrupt is noted, a closed pipe is an error like any other, and a
// terminal on standard error shows what goes on, from half a second on.
class progress
{
public:
    progress();
    ~progress();
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    // What is done with rows from now on, in the past tense.
    void begin(const char *what);
    void row() { rows_.fetch_add(1, std::memory_order_relaxed); }
    // Nothing more is shown: the terminal belongs to the output.
    void end();

    // While it stays an interrupt ends one piece of work only: not the process, however long
    // that takes or however often the user asks.
    void stay(bool stays);
    // The interrupt has been obeyed; the next one is awaited.
    void forget_interrupt();

private:
    void watch();
    void show();
    void erase();
    void give_up();

    std::atomic<uint64_t> rows_ = 0;
    const bool terminal_;
    std::atomic<bool> stays_ = false;
    const char *what_ = nullptr; // null: nothing is shown. This one and the next ones under mutex_
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    size_t shown_ = 0; // characters
    bool ending_ = false;
    std::mutex mutex_;
    std::condition_variable change_;
    std::thread watcher_; // the last: it uses the others
};

} // namespace kuq

#endif
