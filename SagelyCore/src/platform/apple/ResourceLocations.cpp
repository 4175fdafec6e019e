#include "support/ResourceBundle.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dlfcn.h>
#include <limits.h>

#include <system_error>

namespace sagely::detail {
namespace {

// Any address inside the kit's code tells dladdr which file the kit was loaded from.
void resourceBundleMarker() {}

// Takes ownership of a URL from a CF "Copy" call and returns its absolute file-system path.
std::filesystem::path pathOfCopiedUrl(CFURLRef url) {
    if (url == nullptr) return {};
    UInt8 buffer[PATH_MAX] = {};
    Boolean ok = CFURLGetFileSystemRepresentation(url, true, buffer, PATH_MAX);
    CFRelease(url);
    return ok ? std::filesystem::path(reinterpret_cast<const char*>(buffer))
              : std::filesystem::path();
}

std::filesystem::path libraryDirectory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&resourceBundleMarker), &info) == 0 ||
        info.dli_fname == nullptr)
        return {};
    std::error_code error;
    std::filesystem::path library = std::filesystem::canonical(info.dli_fname, error);
    return error ? std::filesystem::path() : library.parent_path();
}

}  // namespace

ProcessPaths platformProcessPaths() {
    ProcessPaths paths;
    CFBundleRef mainBundle = CFBundleGetMainBundle();  // not owned
    std::filesystem::path resources, executable;
    if (mainBundle != nullptr) {
        resources = pathOfCopiedUrl(CFBundleCopyResourcesDirectoryURL(mainBundle));
        executable = pathOfCopiedUrl(CFBundleCopyExecutableURL(mainBundle));
    }
    if (!resources.empty()) paths.hostResourceDirectories.push_back(resources);
    paths.libraryDirectory = libraryDirectory();
    if (!executable.empty()) paths.executableDirectory = executable.parent_path();
    return paths;
}

}  // namespace sagely::detail
