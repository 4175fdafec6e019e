#include "platform/StorageLocation.h"

#include "support/HomeDirectory.h"

#include <limits.h>
#include <sysdir.h>

#include <cstdlib>
#include <string>

namespace sagely::detail {

// sysdir names the user-domain Application Support folder as "~/Library/Application Support";
// the tilde is the user's home.
std::filesystem::path applicationDataDirectory() {
    char path[PATH_MAX] = {};
    sysdir_search_path_enumeration_state state = sysdir_start_search_path_enumeration(
        SYSDIR_DIRECTORY_APPLICATION_SUPPORT, SYSDIR_DOMAIN_MASK_USER);
    std::string found = "~/Library/Application Support";
    if (sysdir_get_next_search_path_enumeration(state, path) != 0) found = path;
    if (found.rfind("~/", 0) != 0) return found;
    std::filesystem::path home = homeDirectory();
    if (home.empty()) return {};
    return home / found.substr(2);
}

}  // namespace sagely::detail
