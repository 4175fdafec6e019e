#include <sagely/AppleFoundationModelClient.h>
#include <sagely/AppleIntelligenceInfo.h>
#include <sagely/OperatingSystem.h>

#include "support/FakeOnDeviceModel.h"

#include <gtest/gtest.h>

using sagely::AppleFoundationModelSupport;
using sagely::AppleIntelligenceInfo;
using sagely::OnDeviceAvailability;
using sagely::OperatingSystemVersion;
using sagely::ScopedOperatingSystemOverride;
using sagely::testing::FakeOnDeviceModel;
using Status = AppleIntelligenceInfo::Status;

namespace {

OperatingSystemVersion macOS(int major, int minor) {
    return {true, major, minor, 0};
}

const char* const kAvailabilityNote =
    "Requires macOS 26 (Tahoe) or later on Apple silicon. macOS 15 can run Apple Intelligence "
    "features, but apps cannot call the Foundation Model until macOS 26.";

}  // namespace

TEST(AppleIntelligenceInfo, OnMacOS15TheStatusIsUnsupportedAndTheDetailIsTheNote) {
    ScopedOperatingSystemOverride os(macOS(15, 5));
    auto model = std::make_shared<FakeOnDeviceModel>();
    EXPECT_EQ(AppleIntelligenceInfo::status(), Status::unsupportedOS);
    EXPECT_EQ(AppleIntelligenceInfo::status(*model), Status::unsupportedOS);
    EXPECT_EQ(AppleIntelligenceInfo::statusDetail(), AppleIntelligenceInfo::availabilityNote());
    EXPECT_EQ(AppleIntelligenceInfo::statusDetail(*model), kAvailabilityNote);
    EXPECT_FALSE(AppleIntelligenceInfo::isPlatformSupported());
    EXPECT_TRUE(model->selectedModels().empty());  // the model is not even asked
}

TEST(AppleIntelligenceInfo, OnASystemThatIsNotMacOSTheStatusIsUnsupported) {
    ScopedOperatingSystemOverride os(OperatingSystemVersion{});
    EXPECT_EQ(AppleIntelligenceInfo::status(), Status::unsupportedOS);
    EXPECT_EQ(AppleIntelligenceInfo::statusDetail(), kAvailabilityNote);
    EXPECT_EQ(AppleIntelligenceInfo::installedModelGeneration(),
              "No Foundation Models API (needs macOS 26+)");
}

TEST(AppleIntelligenceInfo, OnMacOS26WithAnAvailableModelTheStatusIsReady) {
    ScopedOperatingSystemOverride os(macOS(26, 0));
    auto model = std::make_shared<FakeOnDeviceModel>();
    EXPECT_EQ(AppleIntelligenceInfo::status(*model), Status::ready);
    EXPECT_EQ(AppleIntelligenceInfo::statusDetail(*model), "Apple Intelligence is ready.");
    EXPECT_TRUE(AppleIntelligenceInfo::isPlatformSupported());
}

TEST(AppleIntelligenceInfo, OnMacOS26WithoutAnAvailableModelTheStatusNeedsSetup) {
    ScopedOperatingSystemOverride os(macOS(26, 1));
    auto model = std::make_shared<FakeOnDeviceModel>();
    model->setDefaultAvailability(OnDeviceAvailability::appleIntelligenceNotEnabled);
    EXPECT_EQ(AppleIntelligenceInfo::status(*model), Status::needsSetup);
    EXPECT_EQ(AppleIntelligenceInfo::statusDetail(*model),
              "Turn on Apple Intelligence in System Settings \u2192 Apple Intelligence & Siri, "
              "then ask again.");
}

TEST(AppleIntelligenceInfo, StatusIsReadAfreshOnEveryCall) {
    ScopedOperatingSystemOverride os(macOS(26, 2));
    auto model = std::make_shared<FakeOnDeviceModel>();
    model->setDefaultAvailability(OnDeviceAvailability::modelNotReady);
    EXPECT_EQ(AppleIntelligenceInfo::status(*model), Status::needsSetup);
    model->setDefaultAvailability(OnDeviceAvailability::available);
    EXPECT_EQ(AppleIntelligenceInfo::status(*model), Status::ready);
}

TEST(AppleIntelligenceInfo, ThisSystemsOwnModelNeedsSetupWhenPosingAsMacOS26) {
    ScopedOperatingSystemOverride os(macOS(26, 0));
    EXPECT_EQ(AppleIntelligenceInfo::status(), Status::needsSetup);
    EXPECT_EQ(AppleIntelligenceInfo::statusDetail(),
              "This Mac cannot run Apple Intelligence. Use OpenAI, Anthropic, or Gemini in Coach "
              "settings.");
}

TEST(AppleIntelligenceInfo, TheFixedTextsKeepTheirExactCharacters) {
    EXPECT_EQ(AppleIntelligenceInfo::availabilityNote(), kAvailabilityNote);
    EXPECT_EQ(AppleIntelligenceInfo::setupSteps(),
              (std::vector<std::string>{
                  "Open System Settings \xE2\x86\x92 Apple Intelligence & Siri.",
                  "Turn on Apple Intelligence.",
                  "Wait for the on-device model download to finish (Wi\xE2\x80\x91"
                  "Fi recommended).",
                  "Return here \xE2\x80\x94 no API key needed.",
              }));
    EXPECT_EQ(AppleIntelligenceInfo::settingsURLString(),
              "x-apple.systempreferences:com.apple.Siri-Settings.extension");
    EXPECT_EQ(AppleIntelligenceInfo::settingsURL(),
              "x-apple.systempreferences:com.apple.Siri-Settings.extension");
    EXPECT_EQ(AppleIntelligenceInfo::estimatedDownloadSize(),
              "about 2\xE2\x80\x93"
              "4 GB (one-time, managed by macOS)");
    EXPECT_TRUE(AppleIntelligenceInfo::isFree());
}

TEST(AppleIntelligenceInfo, TheInstalledModelGenerationFollowsTheSystemVersion) {
    struct Case {
        int major;
        int minor;
        const char* generation;
    };
    for (const Case& c :
         {Case{15, 7, "No Foundation Models API (needs macOS 26+)"},
          Case{26, 0,
               "macOS 26.0\xE2\x80\x93"
               "26.3 Foundation Model"},
          Case{26, 3,
               "macOS 26.0\xE2\x80\x93"
               "26.3 Foundation Model"},
          Case{26, 4, "macOS 26.4 Foundation Model"}, Case{26, 9, "macOS 26.4 Foundation Model"},
          Case{27, 0, "macOS 27 Foundation Model (newest)"},
          Case{28, 1, "macOS 27 Foundation Model (newest)"}}) {
        ScopedOperatingSystemOverride os(macOS(c.major, c.minor));
        EXPECT_EQ(AppleIntelligenceInfo::installedModelGeneration(), c.generation)
            << c.major << "." << c.minor;
    }
}

TEST(AppleFoundationModelSupport, BelowMacOS26TheRuntimeIsUnavailableWithItsOwnReason) {
    ScopedOperatingSystemOverride os(macOS(15, 0));
    auto model = std::make_shared<FakeOnDeviceModel>();
    EXPECT_FALSE(AppleFoundationModelSupport::isRuntimeAvailable());
    EXPECT_FALSE(AppleFoundationModelSupport::isRuntimeAvailable(*model));
    EXPECT_EQ(AppleFoundationModelSupport::unavailableReason(),
              "Apple on-device models require macOS 26 and Apple Intelligence.");
    EXPECT_EQ(AppleFoundationModelSupport::unavailableReason(*model),
              "Apple on-device models require macOS 26 and Apple Intelligence.");
}

TEST(AppleFoundationModelSupport, OnMacOS26TheDefaultModelDecides) {
    ScopedOperatingSystemOverride os(macOS(26, 4));
    auto model = std::make_shared<FakeOnDeviceModel>();
    EXPECT_TRUE(AppleFoundationModelSupport::isRuntimeAvailable(*model));
    EXPECT_EQ(AppleFoundationModelSupport::unavailableReason(*model),
              "Apple Intelligence is ready.");
    model->setDefaultAvailability(OnDeviceAvailability::deviceNotEligible);
    EXPECT_FALSE(AppleFoundationModelSupport::isRuntimeAvailable(*model));
    EXPECT_EQ(AppleFoundationModelSupport::unavailableReason(*model),
              "This Mac cannot run Apple Intelligence. Use OpenAI, Anthropic, or Gemini in Coach "
              "settings.");
    EXPECT_FALSE(AppleFoundationModelSupport::isRuntimeAvailable());  // no model on this system
}
