// The processes of other tools, and the folder in which they meet.
#include "peers.h"

#include <sys/resource.h>

#include <cstdlib>

namespace orvo::bench {

namespace fs = std::filesystem;

namespace {

double childSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

} // namespace

bool isInstalled(const std::string &tool) {
    return std::system(("command -v '" + tool + "' >/dev/null 2>&1").c_str()) == 0;
}

std::optional<double> timed(const std::string &command) {
    const double began = childSeconds();
    if (std::system(command.c_str()) != 0) {
        return std::nullopt;
    }
    return childSeconds() - began;
}

Scratch::Scratch() {
    std::string name = (fs::temp_directory_path() / "orvo_benchXXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        std::abort();
    }
    mPath = name;
}

Scratch::~Scratch() {
    std::error_code ignored;
    fs::remove_all(mPath, ignored);
}

} // namespace orvo::bench
