// The progress line: a thread that wakes five times a second, since the work itself has no good places to tell from.
#include "driver/progress.h"

#include "driver/console.h"

#include <unistd.h>

#include <csignal>

namespace orvo::driver {

namespace {

constexpr auto kPeriod = std::chrono::milliseconds(200);
constexpr auto kPatience = std::chrono::seconds(1);

} // namespace

Progress::Progress(Console &console) : mConsole(console), mStart(std::chrono::steady_clock::now()) {
    if (console.json() || ::isatty(STDERR_FILENO) != 1) {
        return;
    }
    // Signals are for the thread that works.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &before);
    mThread = std::thread([this] { run(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    mConsole.setBeforeMessage([this] { hide(); });
}

Progress::~Progress() { finish(); }

void Progress::finish() {
    if (!mThread.joinable()) {
        return;
    }
    mConsole.setBeforeMessage(nullptr);
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mDone = true;
    }
    mWake.notify_one();
    mThread.join();
    clear();
}

void Progress::phase(const std::string &text) {
    std::lock_guard<std::mutex> lock(mMutex);
    mPhase = text;
}

void Progress::hide() {
    std::lock_guard<std::mutex> lock(mMutex);
    clear();
}

void Progress::run() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mWake.wait_for(lock, kPeriod, [this] { return mDone; })) {
        const auto elapsed = std::chrono::steady_clock::now() - mStart;
        if (elapsed < kPatience) {
            continue;
        }
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
        writeAll(STDERR_FILENO, "\r\033[K" + mPhase + " (" + std::to_string(seconds) + " s)");
        mShown = true;
    }
}

void Progress::clear() {
    if (mShown) {
        writeAll(STDERR_FILENO, "\r\033[K");
        mShown = false;
    }
}

} // namespace orvo::driver
