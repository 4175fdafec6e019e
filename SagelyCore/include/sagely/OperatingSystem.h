// OperatingSystem — which system the kit runs on, as far as its features care.
//
// On macOS the version is read from kern.osproductversion; every other system counts as
// "not macOS", so features that need macOS 26 (the on-device model) are off there. Tests and
// tools may pose as another system with ScopedOperatingSystemOverride.
#pragma once

#include <sagely/Export.h>

#include <optional>

namespace sagely {

struct OperatingSystemVersion {
    bool isMacOS = false;
    int major = 0;
    int minor = 0;
    int patch = 0;

    friend bool operator==(const OperatingSystemVersion&, const OperatingSystemVersion&) = default;
};

/// The running system (or the override in force).
SAGELY_EXPORT OperatingSystemVersion currentOperatingSystem();

/// Whether the running system is macOS `major`.`minor` or later.
SAGELY_EXPORT bool isMacOSAtLeast(int major, int minor = 0);

/// Poses as another system for the lifetime of the object (process-wide; for tests and tools).
class SAGELY_EXPORT ScopedOperatingSystemOverride {
public:
    explicit ScopedOperatingSystemOverride(OperatingSystemVersion version);
    ~ScopedOperatingSystemOverride();
    ScopedOperatingSystemOverride(const ScopedOperatingSystemOverride&) = delete;
    ScopedOperatingSystemOverride& operator=(const ScopedOperatingSystemOverride&) = delete;

private:
    std::optional<OperatingSystemVersion> m_previous;
};

}  // namespace sagely
