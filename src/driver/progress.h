// A line on standard error that tells what long work is at. It is shown only on a terminal, only after a second, and
// makes way for messages.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace orvo::driver {

class Console;

class Progress {
  public:
    /// Shows nothing if standard error is no terminal or messages are JSON.
    explicit Progress(Console &console);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    /// What is being done from now on.
    void phase(const std::string &text);
    /// Takes the line away; nothing is shown from then on.
    void finish();
    /// Takes the line away; it comes back by itself.
    void hide();

  private:
    void run();
    void clear();

    Console &mConsole;
    std::chrono::steady_clock::time_point mStart;
    std::mutex mMutex;
    std::condition_variable mWake;
    std::string mPhase;
    bool mShown = false;
    bool mDone = false;
    std::thread mThread;
};

} // namespace orvo::driver
