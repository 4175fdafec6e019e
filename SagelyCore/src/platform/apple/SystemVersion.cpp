#include "platform/SystemVersionSeam.h"

#include <sys/sysctl.h>

#include <cstdio>

namespace sagely::detail {

// kern.osproductversion holds the marketing version ("26.3.1"), which is what features key on.
OperatingSystemVersion platformOperatingSystem() {
    char buffer[64] = {};
    size_t size = sizeof(buffer);
    OperatingSystemVersion version;
    version.isMacOS = true;
    if (sysctlbyname("kern.osproductversion", buffer, &size, nullptr, 0) == 0) {
        std::sscanf(buffer, "%d.%d.%d", &version.major, &version.minor, &version.patch);
    }
    return version;
}

}  // namespace sagely::detail
