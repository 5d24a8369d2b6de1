// Running tools from elsewhere beside what is measured here.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace orvo::bench {

/// Whether a shell finds the tool.
bool isInstalled(const std::string &tool);

/// Runs a command and gives its processor time in seconds; none if it fails.
std::optional<double> timed(const std::string &command);

/// A folder that goes with its object.
class Scratch {
  public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    const std::filesystem::path &path() const { return mPath; }

  private:
    std::filesystem::path mPath;
};

} // namespace orvo::bench
