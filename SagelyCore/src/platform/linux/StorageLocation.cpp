#include "platform/StorageLocation.h"

#include "support/HomeDirectory.h"

#include <cstdlib>
#include <string>

namespace sagely::detail {

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
