// The default configuration is built once per process, on first use. This executable poses
// as macOS 26 before that first use.
#include <sagely/CoachConfig.h>
#include <sagely/OperatingSystem.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

using sagely::CoachConfig;
using sagely::OperatingSystemVersion;
using sagely::ScopedOperatingSystemOverride;

TEST(CoachConfigDefault, OnMacOS26TheDefaultIsTheOnDeviceModelAndStaysSo) {
    {
        ScopedOperatingSystemOverride system(OperatingSystemVersion{true, 26, 0, 0});
        const CoachConfig& config = CoachConfig::defaultConfig();
        EXPECT_EQ(config.provider, CoachConfig::Provider::apple);
        EXPECT_EQ(config.model, "system-default");
        nlohmann::json json = config;
        EXPECT_EQ(
            json.dump(),
            R"js({"apiKey":"","customEndpoint":"","maxTokens":4096,"model":"system-default",)js"
            R"js("provider":"Apple (On-Device)","temperature":0.3})js");
    }
    ScopedOperatingSystemOverride older(OperatingSystemVersion{true, 15, 0, 0});
    EXPECT_EQ(CoachConfig::preferredDefaultProvider(), CoachConfig::Provider::openai);
    EXPECT_EQ(CoachConfig::defaultConfig().provider, CoachConfig::Provider::apple);
    EXPECT_EQ(CoachConfig::defaultConfig().model, "system-default");
}
