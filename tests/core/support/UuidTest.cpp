#include <sagely/Timestamp.h>
#include <sagely/Uuid.h>

#include <gtest/gtest.h>

#include <cctype>

#include <sys/wait.h>
#include <unistd.h>

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

// A forked child must not repeat the ids its parent makes next.
TEST(Uuid, AForkedChildMakesIdsOfItsOwn) {
    (void)Uuid::random();  // the parent has made ids before it forks
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const std::string id = Uuid::random().toString();
        (void)!write(pipeEnds[1], id.data(), id.size());
        _exit(0);
    }
    close(pipeEnds[1]);
    const std::string parentId = Uuid::random().toString();
    char buffer[64] = {};
    const ssize_t got = read(pipeEnds[0], buffer, sizeof buffer);
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(got, 36);
    EXPECT_NE(std::string(buffer, 36), parentId);
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

// Every character of every position: a digit of either case where a digit goes, a dash where
// a dash goes, and nothing else.
TEST(Uuid, TakesEachCharacterOnlyWhereItBelongs) {
    const std::string good = "0123ABCD-EF45-6789-abcd-ef0123456789";
    const std::string hex = "0123456789ABCDEFabcdef";
    ASSERT_TRUE(Uuid::parse(good));
    for (std::size_t at = 0; at < good.size(); ++at) {
        const bool dash = at == 8 || at == 13 || at == 18 || at == 23;
        for (int c = 0; c < 256; ++c) {
            std::string text = good;
            text[at] = static_cast<char>(c);
            const bool valid =
                dash ? c == '-' : hex.find(static_cast<char>(c)) != std::string::npos;
            const auto parsed = Uuid::parse(text);
            ASSERT_EQ(parsed.has_value(), valid) << at << " " << c;
            if (valid) {
                std::string upper = text;
                for (char& u : upper)
                    u = static_cast<char>(std::toupper(static_cast<unsigned char>(u)));
                EXPECT_EQ(parsed->toString(), upper);
            }
        }
    }
}

TEST(Timestamp, CountsSecondsSinceTheStartOf2001) {
    EXPECT_DOUBLE_EQ(Timestamp::fromUnixSeconds(978307200.0).secondsSinceReferenceDate(), 0.0);
    Timestamp now = Timestamp::now();
    EXPECT_GT(now.secondsSinceReferenceDate(), 800000000.0);  // after 2026
    EXPECT_LE(now, Timestamp::now());
}
