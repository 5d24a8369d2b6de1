// Finds the library's data from where the library was loaded.
#include <util/root.h>

#include <util/features.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdlib>

namespace {

constexpr const char *kCatalogue = "/include/orvo/orvo_static_strings.csv";
/// lib/<architecture>/ in an installed tree, build/<preset>/lib/ in a source tree.
constexpr int kLevelsUp = 4;

bool holdsCatalogue(const std::string &directory) {
    struct stat info {};
    return ::stat((directory + kCatalogue).c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

} // namespace

std::string GetLumoBackendRootDir() {
    std::string named = util::GetFeatureStringWithDefault("rootDirectory", "");
    if (!named.empty()) {
        return named;
    }
    Dl_info library{};
    if (::dladdr(reinterpret_cast<void *>(&GetLumoBackendRootDir), &library) == 0 || library.dli_fname == nullptr) {
        return ".";
    }
    char *resolved = ::realpath(library.dli_fname, nullptr);
    std::string path = resolved == nullptr ? library.dli_fname : resolved;
    std::free(resolved);
    for (int level = 0; level < kLevelsUp; ++level) {
        std::size_t slash = path.rfind('/');
        if (slash == std::string::npos) {
            break;
        }
        path.resize(slash);
        if (holdsCatalogue(path)) {
            return path;
        }
        if (holdsCatalogue(path + "/share/orvo")) {
            return path + "/share/orvo";
        }
    }
    return ".";
}
