#include <sagely/AppleOnDeviceRouting.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

using sagely::AppleOnDeviceRoute;
using sagely::AppleOnDeviceRouting;

namespace {

// Poses as a user whose home directory is known, for the "~/" reading.
class ScopedHome {
public:
    explicit ScopedHome(const char* home) {
        if (const char* previous = std::getenv("HOME")) m_previous = previous;
        setenv("HOME", home, 1);
    }
    ~ScopedHome() {
        if (m_previous) {
            setenv("HOME", m_previous->c_str(), 1);
        } else {
            unsetenv("HOME");
        }
    }

private:
    std::optional<std::string> m_previous;
};

}  // namespace

TEST(AppleOnDeviceRouting, TheWordDefaultWithSpacesAroundItIsTheGeneralModel) {
    EXPECT_EQ(AppleOnDeviceRouting::route("  Default \n"), AppleOnDeviceRoute::general());
}

TEST(AppleOnDeviceRouting, TheEmptyStringAndBlankTextAreTheGeneralModel) {
    EXPECT_EQ(AppleOnDeviceRouting::route(""), AppleOnDeviceRoute::general());
    EXPECT_EQ(AppleOnDeviceRouting::route(" \t\n"), AppleOnDeviceRoute::general());
}

TEST(AppleOnDeviceRouting, SystemDefaultAndAppleIntelligenceInAnyCaseAreTheGeneralModel) {
    EXPECT_EQ(AppleOnDeviceRouting::route("system-default"), AppleOnDeviceRoute::general());
    EXPECT_EQ(AppleOnDeviceRouting::route("SYSTEM-DEFAULT"), AppleOnDeviceRoute::general());
    EXPECT_EQ(AppleOnDeviceRouting::route("Apple Intelligence"), AppleOnDeviceRoute::general());
    EXPECT_EQ(AppleOnDeviceRouting::route("apple intelligence"), AppleOnDeviceRoute::general());
}

TEST(AppleOnDeviceRouting, ContentTaggingInAnyCaseAndSpellingIsTheContentTaggingModel) {
    for (const char* model :
         {"Content Tagging", "content tagging", "CONTENT TAGGING", "content-tagging",
          "Content-Tagging", "contenttagging", "ContentTagging", " content tagging\n"}) {
        EXPECT_EQ(AppleOnDeviceRouting::route(model), AppleOnDeviceRoute::contentTagging())
            << model;
    }
}

TEST(AppleOnDeviceRouting, ATildePathJoinsTheHomeDirectory) {
    ScopedHome home("/Users/ada");
    EXPECT_EQ(AppleOnDeviceRouting::route("~/Adapters/coach.fmadapter"),
              AppleOnDeviceRoute::adapterFile("/Users/ada/Adapters/coach.fmadapter"));
}

TEST(AppleOnDeviceRouting, ATildePathDoesNotDoubleTheSlashAfterTheHomeDirectory) {
    ScopedHome home("/Users/ada/");
    EXPECT_EQ(AppleOnDeviceRouting::route("~/coach.fmadapter"),
              AppleOnDeviceRoute::adapterFile("/Users/ada/coach.fmadapter"));
}

TEST(AppleOnDeviceRouting, AnAbsolutePathIsAnAdapterFileUnchanged) {
    EXPECT_EQ(AppleOnDeviceRouting::route("/Library/Adapters/My Coach.fmadapter"),
              AppleOnDeviceRoute::adapterFile("/Library/Adapters/My Coach.fmadapter"));
}

TEST(AppleOnDeviceRouting, AFileURLWithAnUpperCaseSchemeIsAnAdapterFileWithTheURLsPath) {
    EXPECT_EQ(AppleOnDeviceRouting::route("File:///Users/ada/coach.fmadapter"),
              AppleOnDeviceRoute::adapterFile("/Users/ada/coach.fmadapter"));
}

TEST(AppleOnDeviceRouting, AFileURLPathIsPercentDecodedAndLosesItsTrailingSlash) {
    EXPECT_EQ(AppleOnDeviceRouting::route("file:///Users/ada/My%20Coach.fmadapter/"),
              AppleOnDeviceRoute::adapterFile("/Users/ada/My Coach.fmadapter"));
}

TEST(AppleOnDeviceRouting, AFileURLIsReadLeniently) {
    EXPECT_EQ(AppleOnDeviceRouting::route("file:///Users/ada/My Coach.fmadapter"),
              AppleOnDeviceRoute::adapterFile("/Users/ada/My Coach.fmadapter"));
    EXPECT_EQ(AppleOnDeviceRouting::route("file://localhost/tmp/a.fmadapter?x=1#top"),
              AppleOnDeviceRoute::adapterFile("/tmp/a.fmadapter"));
    EXPECT_EQ(AppleOnDeviceRouting::route("FILE:/tmp/b.fmadapter"),
              AppleOnDeviceRoute::adapterFile("/tmp/b.fmadapter"));
}

TEST(AppleOnDeviceRouting, AFileURLThatCannotBeParsedFallsBackToTheRawText) {
    EXPECT_EQ(AppleOnDeviceRouting::route(" file://[::1/adapter "),
              AppleOnDeviceRoute::adapterFile("file://[::1/adapter"));
    EXPECT_EQ(AppleOnDeviceRouting::route("file://host:port/adapter"),
              AppleOnDeviceRoute::adapterFile("file://host:port/adapter"));
}

TEST(AppleOnDeviceRouting, ABareWordIsAnAdapterNameAsTyped) {
    EXPECT_EQ(AppleOnDeviceRouting::route("MyAdapter"),
              AppleOnDeviceRoute::adapterName("MyAdapter"));
    EXPECT_EQ(AppleOnDeviceRouting::route("  MyAdapter\n"),
              AppleOnDeviceRoute::adapterName("MyAdapter"));
}

TEST(AppleOnDeviceRouting, PathTestsLookAtTheTrimmedTextAndKeepItsCase) {
    EXPECT_EQ(AppleOnDeviceRouting::route("  /Adapters/Coach.FMADAPTER  "),
              AppleOnDeviceRoute::adapterFile("/Adapters/Coach.FMADAPTER"));
    EXPECT_EQ(AppleOnDeviceRouting::route("Adapters/coach"),
              AppleOnDeviceRoute::adapterName("Adapters/coach"));
    EXPECT_EQ(AppleOnDeviceRouting::route("~coach"), AppleOnDeviceRoute::adapterName("~coach"));
}
