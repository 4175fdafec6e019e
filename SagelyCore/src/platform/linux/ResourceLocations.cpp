#include "support/ResourceBundle.h"

#include <dlfcn.h>

#include <system_error>

namespace sagely::detail {

namespace {

// Any address inside the kit's code tells dladdr which file the kit was loaded from.
void resourceBundleMarker() {}

std::filesystem::path executablePath() {
    std::error_code error;
    std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : path;
}

std::filesystem::path libraryDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&resourceBundleMarker), &info) == 0 ||
        info.dli_fname == nullptr)
        return {};
    std::error_code error;
    std::filesystem::path library = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::filesystem::path() : library.parent_path();
}

}  // namespace

ProcessPaths platformProcessPaths() {
    ProcessPaths paths;
    std::filesystem::path executable = executablePath();
    if (!executable.empty()) {
        std::filesystem::path folder = executable.parent_path();
        paths.hostResourceDirectories = {folder, folder / ".." / "share" / executable.filename()};
        paths.executableDirectory = folder;
    }
    paths.libraryDirectory = libraryDirectory();
    return paths;
}

}  // namespace sagely::detail
