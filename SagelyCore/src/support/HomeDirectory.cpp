#include "support/HomeDirectory.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace sagely::detail {

std::filesystem::path homeDirectory() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    // The re-entrant lookup: the kit may be asked from several threads.
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_dir != nullptr)
        return found->pw_dir;
    return {};
}

}  // namespace sagely::detail
