// AppleIntelligenceInfo — whether the on-device model can be used on this system, and the fixed
// texts that explain how to set it up.
//
// Status and the texts derived from it are computed afresh on every call, so a view that asks
// again after the user finishes setup sees the change. Every member may be called from any
// thread. The overloads taking an OnDeviceModel ask that model framework instead of the system's.
#pragma once

#include <sagely/Export.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

class OnDeviceModel;

struct SAGELY_EXPORT AppleIntelligenceInfo {
    enum class Status { unsupportedOS, needsSetup, ready };

    /// unsupportedOS below macOS 26; else ready when the default system model is available,
    /// otherwise needsSetup.
    static Status status();
    static Status status(OnDeviceModel& model);

    /// Below macOS 26 the availability note; else the default model's availability message.
    static std::string statusDetail();
    static std::string statusDetail(OnDeviceModel& model);

    /// "Requires macOS 26 (Tahoe) or later on Apple silicon. …"
    static std::string_view availabilityNote();
    /// The four setup steps, in order.
    static const std::vector<std::string>& setupSteps();
    /// "x-apple.systempreferences:com.apple.Siri-Settings.extension"
    static std::string_view settingsURLString();
    static std::optional<std::string> settingsURL();
    /// "about 2–4 GB (one-time, managed by macOS)"
    static std::string_view estimatedDownloadSize();
    /// Which model generation the running system ships, by its version.
    static std::string installedModelGeneration();
    static bool isFree() { return true; }
    /// macOS 26.0 or later.
    static bool isPlatformSupported();
};

}  // namespace sagely
