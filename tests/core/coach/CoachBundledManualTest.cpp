#include <sagely/CoachBundledManual.h>
#include <sagely/SagelyKnowledge.h>

#include "coach/KnowledgeSources.h"
#include "support/ResourceBundle.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace fs = std::filesystem;
using sagely::CoachBundledManual;
using sagely::SagelyKnowledge;
using sagely::detail::ResourceLocations;
using sagely::testing::TemporaryDirectory;
using sagely::testing::writeFile;

namespace {

const std::string kCompleteManual =
    "# Manual\n## 1. Getting Started\nHello.\n## 19. Speech & Voice Control\nTalk to it.\n";
const std::string kTruncatedManual = "# Manual\n## 1. Getting Started\nHello.\n## 18. Sharing\n";
const std::string kKitGuide = "## Kit Guide\nAsk good questions.\n";
const std::string kFallback =
    "Sagely helps users understand apps, settings, workflows, and troubleshooting.";

// A kit resource directory and a host resource directory in a temporary folder.
class KnowledgeFixture : public ::testing::Test {
protected:
    KnowledgeFixture() {
        fs::create_directories(kitBundle());
        fs::create_directories(hostDirectory());
    }
    fs::path kitBundle() const { return m_root.path() / "lib" / "SagelyKit_SagelyCore.bundle"; }
    fs::path hostDirectory() const { return m_root.path() / "host"; }
    ResourceLocations locations() const { return {kitBundle(), {hostDirectory()}}; }
    std::optional<std::string> manualText() const {
        return sagely::detail::bundledManualText(locations());
    }
    std::string guideText() const { return sagely::detail::bundledGuideText(locations()); }

    TemporaryDirectory m_root;
};

using BundledManual = KnowledgeFixture;
using BundledGuideText = KnowledgeFixture;

}  // namespace

TEST(CompleteManual, IsRecognisedByItsLastChapterHeading) {
    EXPECT_EQ(CoachBundledManual::completenessMarker, "## 19. Speech & Voice Control");
    EXPECT_TRUE(CoachBundledManual::isCompleteManual(kCompleteManual));
    EXPECT_FALSE(CoachBundledManual::isCompleteManual(kTruncatedManual));
    EXPECT_FALSE(CoachBundledManual::isCompleteManual("## 19. Speech"));
    EXPECT_FALSE(CoachBundledManual::isCompleteManual(""));
}

TEST_F(BundledManual, PrefersTheHostsCompleteManualWhenTheKitHasNone) {
    writeFile(kitBundle() / "SagelyGuide.md", kKitGuide);
    writeFile(hostDirectory() / "MANUAL.md", kCompleteManual);
    EXPECT_EQ(manualText(), kCompleteManual);
    EXPECT_EQ(guideText(), kCompleteManual);
}

TEST_F(BundledManual, IgnoresATruncatedManualAndReturnsTheKitGuide) {
    writeFile(kitBundle() / "SagelyGuide.md", kKitGuide);
    writeFile(kitBundle() / "MANUAL.md", kTruncatedManual);
    writeFile(hostDirectory() / "MANUAL.md", kTruncatedManual);
    EXPECT_EQ(manualText(), kKitGuide);
    EXPECT_EQ(guideText(), kKitGuide);
}

TEST_F(BundledManual, TakesTheKitsCompleteManualBeforeTheHosts) {
    writeFile(kitBundle() / "MANUAL.md", kCompleteManual + "kit\n");
    writeFile(hostDirectory() / "MANUAL.md", kCompleteManual + "host\n");
    EXPECT_EQ(manualText(), kCompleteManual + "kit\n");
}

TEST_F(BundledManual, FindsAGuideInTheHostsResourcesToo) {
    writeFile(hostDirectory() / "SagelyGuide.md", "## Host Guide\n");
    EXPECT_EQ(manualText(), "## Host Guide\n");
}

TEST_F(BundledManual, SkipsEmptyAndUnreadableFiles) {
    writeFile(kitBundle() / "SagelyGuide.md", "");
    writeFile(hostDirectory() / "SagelyGuide.md", kKitGuide);
    EXPECT_EQ(manualText(), kKitGuide);

    writeFile(hostDirectory() / "SagelyGuide.md", std::string("\xC3\x28 not UTF-8"));
    EXPECT_EQ(manualText(), std::nullopt);
    fs::create_directories(hostDirectory() / "MANUAL.md");  // a folder, not a file
    EXPECT_EQ(manualText(), std::nullopt);
}

TEST_F(BundledManual, IsNoneWhenNoGuideExistsAnywhere) {
    EXPECT_EQ(manualText(), std::nullopt);
}

TEST_F(BundledGuideText, FallsBackToOneSentenceWhenNoGuideExistsAnywhere) {
    EXPECT_EQ(guideText(), kFallback);
    EXPECT_EQ(SagelyKnowledge::fallbackGuideText, kFallback);
}

TEST_F(BundledGuideText, ReturnsTheKitGuideWithoutACompleteManual) {
    writeFile(kitBundle() / "SagelyGuide.md", kKitGuide);
    EXPECT_EQ(guideText(), kKitGuide);
}

TEST_F(BundledGuideText, ReadsTheKitGuideEvenWhenTheHostListsNoDirectories) {
    writeFile(kitBundle() / "SagelyGuide.md", kKitGuide);
    EXPECT_EQ(sagely::detail::bundledGuideText({kitBundle(), {}}), kKitGuide);
}

// --- Locating the resource directory ---------------------------------------------------------

TEST(ResourceBundleLookup, TakesTheFirstCandidateThatHoldsTheDirectory) {
    TemporaryDirectory root;
    fs::create_directories(root.path() / "empty");
    fs::create_directories(root.path() / "second" / "SagelyKit_SagelyCore.bundle");
    fs::create_directories(root.path() / "third" / "SagelyKit_SagelyCore.bundle");
    writeFile(root.path() / "file" / "SagelyKit_SagelyCore.bundle", "not a directory");
    auto found = sagely::detail::findResourceBundle({root.path() / "missing", root.path() / "empty",
                                                     root.path() / "file", root.path() / "second",
                                                     root.path() / "third"});
    EXPECT_EQ(found, root.path() / "second" / "SagelyKit_SagelyCore.bundle");
    EXPECT_EQ(sagely::detail::findResourceBundle({root.path() / "empty"}), std::nullopt);
    EXPECT_EQ(sagely::detail::findResourceBundle({}), std::nullopt);
}

TEST(ResourceBundleLookupDeathTest, StopsTheProcessWhenTheDirectoryIsMissing) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TemporaryDirectory root;
    EXPECT_DEATH(sagely::detail::resourceBundleOrAbort({root.path()}),
                 "unable to find bundle named SagelyKit_SagelyCore");
}

TEST(ResourceBundleLookup, SearchesTheHostTheLibraryTheExecutableThenTheInstalledPrefix) {
    sagely::detail::ProcessPaths process{
        {"/opt/host/Resources", "/opt/host/share/host"}, "/opt/kit/lib64", "/opt/host/bin"};
    sagely::detail::InstallLayout layout{"../share/SagelyKit", "../share/SagelyKit",
                                         "/srv/linked/share/SagelyKit", "/usr/share/SagelyKit"};
    EXPECT_EQ(sagely::detail::bundleCandidates(process, layout),
              (std::vector<fs::path>{"/opt/host/Resources", "/opt/host/share/host",
                                     "/opt/kit/lib64", "/opt/kit/share/SagelyKit", "/opt/host/bin",
                                     "/opt/host/share/SagelyKit", "/srv/linked/share/SagelyKit",
                                     "/usr/share/SagelyKit"}));
}

TEST(ResourceBundleLookup, LeavesOutFoldersItDoesNotKnow) {
    sagely::detail::InstallLayout layout{"../../share/SagelyKit", "../share/SagelyKit", {}, {}};
    EXPECT_EQ(sagely::detail::bundleCandidates({{}, "/usr/lib/x86_64-linux-gnu", {}}, layout),
              (std::vector<fs::path>{"/usr/lib/x86_64-linux-gnu", "/usr/share/SagelyKit"}));
    EXPECT_TRUE(sagely::detail::bundleCandidates({}, {}).empty());
}

TEST(ResourceBundleLookup, KnowsWhereThisProgramAndTheKitAre) {
    auto process = sagely::detail::platformProcessPaths();
    EXPECT_TRUE(fs::is_regular_file(process.executableDirectory / "CoachBundledManualTest"))
        << process.executableDirectory;
    EXPECT_TRUE(fs::is_directory(process.libraryDirectory)) << process.libraryDirectory;
}

TEST(ResourceBundleLookup, TheBuildIsLaidOutAsAnInstalledKit) {
    auto layout = sagely::detail::builtInstallLayout();
    EXPECT_EQ(layout.dataFromExecutable, fs::path("../share/SagelyKit"));
    EXPECT_FALSE(layout.installedData.empty());
    EXPECT_TRUE(layout.linkedData.empty());  // no installed package is linked into the tests
}

TEST(ResourceBundleLookup, FindsTheShippedGuideInTheDataFolderBesideThePrograms) {
    fs::path programs = sagely::detail::platformProcessPaths().executableDirectory;
    fs::path bundle = programs / ".." / "share" / "SagelyKit" / "SagelyKit_SagelyCore.bundle";
    EXPECT_TRUE(fs::equivalent(sagely::detail::resourceBundleDirectory(), bundle));
    std::optional<std::string> text = CoachBundledManual::text();
    ASSERT_TRUE(text.has_value());
    EXPECT_EQ(*text, sagely::testing::readFile(bundle / "SagelyGuide.md"));
    EXPECT_EQ(SagelyKnowledge::bundledGuideText(), *text);
}

TEST(ShippedGuide, IsAUsefulGuideWithOneLevelTwoSectionPerTask) {
    std::string guide =
        sagely::testing::readFile(sagely::detail::resourceBundleDirectory() / "SagelyGuide.md");
    EXPECT_GE(guide.size(), 6u * 1024);
    EXPECT_LE(guide.size(), 12u * 1024);
    for (const char* heading :
         {"\n## Ask a Question\n", "\n## Choose a Provider\n",
          "\n## Set Up OpenAI, Anthropic or Gemini\n", "\n## Set Up Local (Ollama)\n",
          "\n## Set Up a Custom Endpoint (OpenAI-Compatible)\n", "\n## API Keys\n",
          "\n## Privacy: What Data Is Shared with a Provider\n", "\n## Local Answers\n",
          "\n## Conversations\n", "\n## Troubleshooting: Missing API Key\n",
          "\n## Troubleshooting: Rate Limits\n", "\n## Troubleshooting: Ollama Is Not Running\n",
          "\n## Troubleshooting: Custom Endpoints\n"})
        EXPECT_NE(guide.find(heading), std::string::npos) << heading;
    // No teaser section that every set-up question would land on.
    EXPECT_EQ(guide.find("Setup Guide"), std::string::npos);
    // Every task is worded for the terminal host too.
    EXPECT_NE(guide.find("`sagely key set"), std::string::npos);
    EXPECT_NE(guide.find("`sagely ask --offline"), std::string::npos);
}
