#include <sagely/Timestamp.h>
#include <sagely/Uuid.h>

#include <gtest/gtest.h>

#include <regex>
#include <set>

using sagely::Timestamp;
using sagely::Uuid;

TEST(Uuid, RandomIdentifiersAreVersion4InUpperCaseCanonicalForm) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        std::string text = Uuid::random().toString();
        EXPECT_TRUE(std::regex_match(
            text,
            std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}")))
            << text;
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(Uuid, ParsesCaseInsensitivelyAndWritesUpperCase) {
    auto parsed = Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->toString(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(Uuid::parse(parsed->toString()), parsed);
}

TEST(Uuid, RejectsMalformedText) {
    for (const char* bad :
         {"", "E621E1F8C36C495A93FC0C247A3E6E5F", "{E621E1F8-C36C-495A-93FC-0C247A3E6E5F}",
          "E621E1F8-C36C-495A-93FC-0C247A3E6E5G", "E621E1F8-C36C-495A-93FC0-C247A3E6E5F",
          "E621E1F8-C36C-495A-93FC-0C247A3E6E5F ", "E621E1F8-C36C-495A-93FC-0C247A3E6E"}) {
        EXPECT_FALSE(Uuid::parse(bad)) << bad;
    }
}

TEST(Timestamp, CountsSecondsSinceTheStartOf2001) {
    EXPECT_DOUBLE_EQ(Timestamp::fromUnixSeconds(978307200.0).secondsSinceReferenceDate(), 0.0);
    Timestamp now = Timestamp::now();
    EXPECT_GT(now.secondsSinceReferenceDate(), 800000000.0);  // after 2026
    EXPECT_LE(now, Timestamp::now());
}
