#include "platform/StorageLocation.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace sagely::detail {
namespace {

std::filesystem::path homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && *home) return home;
    // Services started without a login environment still have a password-database entry.
    if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir) return entry->pw_dir;
    return {};
}

}  // namespace

// The XDG base-directory rules: $XDG_DATA_HOME when it is an absolute path (a relative one is
// invalid and ignored), else ~/.local/share.
std::filesystem::path applicationDataDirectory() {
    if (const char* dataHome = std::getenv("XDG_DATA_HOME"); dataHome && *dataHome == '/')
        return dataHome;
    std::filesystem::path home = homeDirectory();
    if (home.empty()) return {};
    return home / ".local" / "share";
}

}  // namespace sagely::detail
