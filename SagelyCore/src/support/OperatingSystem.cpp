#include <sagely/OperatingSystem.h>

#include "platform/SystemVersionSeam.h"

#include <mutex>

namespace sagely {
namespace {

std::mutex& overrideMutex() {
    static std::mutex m;
    return m;
}

std::optional<OperatingSystemVersion>& overrideSlot() {
    static std::optional<OperatingSystemVersion> slot;
    return slot;
}

}  // namespace

OperatingSystemVersion currentOperatingSystem() {
    {
        std::lock_guard lock(overrideMutex());
        if (overrideSlot()) return *overrideSlot();
    }
    static const OperatingSystemVersion running = detail::platformOperatingSystem();
    return running;
}

bool isMacOSAtLeast(int major, int minor) {
    OperatingSystemVersion v = currentOperatingSystem();
    if (!v.isMacOS) return false;
    if (v.major != major) return v.major > major;
    return v.minor >= minor;
}

ScopedOperatingSystemOverride::ScopedOperatingSystemOverride(OperatingSystemVersion version) {
    std::lock_guard lock(overrideMutex());
    m_previous = overrideSlot();
    overrideSlot() = version;
}

ScopedOperatingSystemOverride::~ScopedOperatingSystemOverride() {
    std::lock_guard lock(overrideMutex());
    overrideSlot() = m_previous;
}

}  // namespace sagely
