#include <sagely/AppleIntelligenceInfo.h>

#include <sagely/AppleFoundationModelClient.h>
#include <sagely/OnDeviceModel.h>
#include <sagely/OperatingSystem.h>

namespace sagely {

AppleIntelligenceInfo::Status AppleIntelligenceInfo::status() {
    if (!isPlatformSupported()) return Status::unsupportedOS;
    return status(*OnDeviceModel::system());
}

AppleIntelligenceInfo::Status AppleIntelligenceInfo::status(OnDeviceModel& model) {
    if (!isPlatformSupported()) return Status::unsupportedOS;
    const bool ready = model.defaultModel()->availability() == OnDeviceAvailability::available;
    return ready ? Status::ready : Status::needsSetup;
}

std::string AppleIntelligenceInfo::statusDetail() {
    if (!isPlatformSupported()) return std::string(availabilityNote());
    return statusDetail(*OnDeviceModel::system());
}

std::string AppleIntelligenceInfo::statusDetail(OnDeviceModel& model) {
    if (!isPlatformSupported()) return std::string(availabilityNote());
    return AppleFoundationModelClient::availabilityMessage(*model.defaultModel());
}

std::string_view AppleIntelligenceInfo::availabilityNote() {
    return "Requires macOS 26 (Tahoe) or later on Apple silicon. macOS 15 can run Apple "
           "Intelligence features, but apps cannot call the Foundation Model until macOS 26.";
}

const std::vector<std::string>& AppleIntelligenceInfo::setupSteps() {
    static const std::vector<std::string> steps = {
        "Open System Settings \u2192 Apple Intelligence & Siri.",
        "Turn on Apple Intelligence.",
        "Wait for the on-device model download to finish (Wi\u2011Fi recommended).",
        "Return here \u2014 no API key needed.",
    };
    return steps;
}

std::string_view AppleIntelligenceInfo::settingsURLString() {
    return "x-apple.systempreferences:com.apple.Siri-Settings.extension";
}

std::optional<std::string> AppleIntelligenceInfo::settingsURL() {
    return std::string(settingsURLString());
}

std::string_view AppleIntelligenceInfo::estimatedDownloadSize() {
    return "about 2\u20134 GB (one-time, managed by macOS)";
}

std::string AppleIntelligenceInfo::installedModelGeneration() {
    if (isMacOSAtLeast(27)) return "macOS 27 Foundation Model (newest)";
    if (isMacOSAtLeast(26, 4)) return "macOS 26.4 Foundation Model";
    if (isMacOSAtLeast(26)) return "macOS 26.0\u201326.3 Foundation Model";
    return "No Foundation Models API (needs macOS 26+)";
}

bool AppleIntelligenceInfo::isPlatformSupported() {
    return isMacOSAtLeast(26);
}

}  // namespace sagely
