// The --guide file: an empty one means no guide, one over 64 MB (or a device that never ends)
// is refused with a clear message instead of being read until memory runs out.
#include "support/CliHarness.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>

namespace sagely::testing {
namespace {

TEST(CliGuideFile, AnEmptyGuideMeansNoGuide) {
    CliHarness cli;
    const auto guide = cli.folder.path() / "empty.md";
    writeFile(guide, "");
    const CliResult prompt = cli.run({"prompt", "--guide", guide.string(), "Where are widgets?"});
    ASSERT_EQ(prompt.exitCode, 0) << prompt.err;
    EXPECT_TRUE(nlohmann::json::parse(prompt.out).is_object());
    const CliResult ask =
        cli.run({"ask", "--offline", "--guide", guide.string(), "Where are widgets?"});
    EXPECT_EQ(ask.err.find("cannot read the guide file"), std::string::npos) << ask.err;
    EXPECT_NE(ask.err.find("The guide has no section that answers this question."),
              std::string::npos)
        << ask.err;
}

TEST(CliGuideFile, AGuideOver64MBIsRefused) {
    CliHarness cli;
    const auto guide = cli.folder.path() / "huge.md";
    writeFile(guide, "# Guide\n");
    std::filesystem::resize_file(guide, (std::uintmax_t{64} << 20) + 1);  // sparse
    const CliResult result = cli.run({"prompt", "--guide", guide.string(), "Q"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("is larger than 64 MB"), std::string::npos) << result.err;
}

TEST(CliGuideFile, AGuideOfExactly64MBIsRead) {
    CliHarness cli;
    const auto guide = cli.folder.path() / "large.md";
    writeFile(guide, "# Guide\n");
    std::filesystem::resize_file(guide, std::uintmax_t{64} << 20);
    const CliResult result = cli.run({"ask", "--offline", "--guide", guide.string(), "Q"});
    EXPECT_EQ(result.err.find("larger than"), std::string::npos) << result.err;
}

TEST(CliGuideFile, ADeviceThatNeverEndsIsRefusedPromptly) {
    CliHarness cli;
    const auto started = std::chrono::steady_clock::now();
    const CliResult result = cli.run({"prompt", "--guide", "/dev/zero", "Q"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("is larger than 64 MB"), std::string::npos) << result.err;
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));
}

TEST(CliGuideFile, AFolderIsNotAGuide) {
    CliHarness cli;
    const CliResult result = cli.run({"prompt", "--guide", cli.folder.path().string(), "Q"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("cannot read the guide file"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace sagely::testing
