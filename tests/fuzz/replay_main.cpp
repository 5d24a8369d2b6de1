// The main() that stands in for libFuzzer in ordinary builds: it gives every file of the folders named on the command
// line to the fuzz target once, in the order of their names, so that a corpus is a regression test under any compiler.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesBelow(const std::filesystem::path &place) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_regular_file(place)) {
        files.push_back(place);
    } else if (std::filesystem::is_directory(place)) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(place))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool replay(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return false;
    }
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    // Named before it runs: when the target crashes, the last line tells the culprit.
    std::printf("%s (%zu bytes)\n", file.c_str(), bytes.size());
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
    return true;
}

} // namespace

int main(int argc, char **argv) {
    std::size_t count = 0;
    bool good = true;
    for (int i = 1; i < argc; ++i) {
        for (const auto &file : filesBelow(argv[i])) {
            good = replay(file) && good;
            ++count;
        }
    }
    std::printf("%zu inputs replayed\n", count);
    // An empty corpus would pass without having tested anything.
    return good && count > 0 ? 0 : 1;
}
