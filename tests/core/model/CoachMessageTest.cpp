#include <sagely/CoachConversation.h>
#include <sagely/CoachMessage.h>
#include <sagely/Error.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "support/DecodingErrorText.h"

#include <cmath>
#include <concepts>
#include <cstdio>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

using sagely::CoachCard;
using sagely::CoachLesson;
using sagely::CoachMessage;
using sagely::decodeMessage;
using sagely::encodeJson;
using Role = CoachMessage::Role;

namespace {

using sagely::testing::decodingError;

constexpr const char* kId = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

// A message object with the given content (JSON text, quotes included) and extra members.
std::string messageJson(const std::string& content, const std::string& extra = "") {
    return std::string(R"({"id":")") + kId + R"(","role":"assistant","content":)" + content +
           extra + R"(,"timestamp":760000000.25})";
}

// The content of a message decoded from text whose content is the given JSON string token.
std::string decodedContent(const std::string& contentToken) {
    return decodeMessage(messageJson(contentToken)).content();
}

// The encoded form of a message whose content is `content`, cut down to the content token.
std::string encodedContent(const std::string& content) {
    CoachMessage message(Role::user, content);
    std::string text = encodeJson(message);
    std::size_t start = text.find(R"("content":)") + 10;
    std::size_t end = text.rfind(R"(,"timestamp")");
    return text.substr(start, end - start);
}

std::set<std::string> keysOf(const nlohmann::json& object) {
    std::set<std::string> keys;
    for (auto it = object.begin(); it != object.end(); ++it) keys.insert(it.key());
    return keys;
}

CoachCard sampleCard() {
    return CoachCard{
        CoachCard::Style::success, "Saved", std::nullopt, {{"Where", {"Desktop"}}}, {"Open it"}};
}

}  // namespace

TEST(CoachMessage, RoleRawValuesAreExactAndCaseSensitive) {
    EXPECT_EQ(rawValue(Role::user), "user");
    EXPECT_EQ(rawValue(Role::assistant), "assistant");
    EXPECT_EQ(rawValue(Role::system), "system");
    EXPECT_EQ(sagely::roleFromRawValue("user"), Role::user);
    EXPECT_EQ(sagely::roleFromRawValue("assistant"), Role::assistant);
    EXPECT_EQ(sagely::roleFromRawValue("system"), Role::system);
    for (const char* other : {"User", "ASSISTANT", "bot", "", " user"})
        EXPECT_FALSE(sagely::roleFromRawValue(other)) << other;
}

TEST(CoachMessage, IsMadeWithAFreshIdAndTheCurrentTime) {
    sagely::Timestamp before = sagely::Timestamp::now();
    CoachMessage message(Role::assistant, "Hello", sampleCard());
    sagely::Timestamp after = sagely::Timestamp::now();
    EXPECT_EQ(message.role(), Role::assistant);
    EXPECT_EQ(message.content(), "Hello");
    EXPECT_EQ(message.card(), sampleCard());
    EXPECT_FALSE(message.lesson());
    EXPECT_LE(before, message.timestamp());
    EXPECT_LE(message.timestamp(), after);
}

TEST(CoachMessage, TwoMessagesWithTheSameRoleAndContentHaveDifferentIds) {
    CoachMessage first(Role::user, "Same");
    CoachMessage second(Role::user, "Same");
    EXPECT_NE(first.id(), second.id());
    CoachMessage copy = first;
    EXPECT_EQ(copy.id(), first.id());
    // Messages are told apart by id alone: there is no equality to call them the same.
    static_assert(!std::equality_comparable<CoachMessage>);
}

TEST(CoachMessage, WithoutCardOrLessonEncodesExactlyFourKeys) {
    CoachMessage message(Role::user, "How do I export?");
    nlohmann::json parsed = nlohmann::json::parse(encodeJson(message));
    EXPECT_EQ(keysOf(parsed), (std::set<std::string>{"id", "role", "content", "timestamp"}));
    nlohmann::json adapted = message;
    EXPECT_EQ(keysOf(adapted), (std::set<std::string>{"id", "role", "content", "timestamp"}));
    EXPECT_EQ(adapted, parsed);
}

TEST(CoachMessage, EncodesCompactlyWithKeysInFieldOrder) {
    const std::string plain =
        std::string(R"({"id":")") + kId +
        R"(","role":"system","content":"Be brief.","timestamp":760000000.25})";
    EXPECT_EQ(encodeJson(decodeMessage(plain)), plain);

    const std::string withBoth =
        std::string(R"({"id":")") + kId + R"(","role":"assistant","content":"Done.",)" +
        R"("card":{"style":"success","title":"Saved","sections":[{"title":"Where",)" +
        R"("items":["Desktop"]}],"suggestions":["Open it"]},)" +
        R"("lesson":{"style":"info","title":"L","blocks":[{"type":"text","text":"T"}],)" +
        R"("suggestions":[]},"timestamp":-12.5})";
    CoachMessage message = decodeMessage(withBoth);
    EXPECT_EQ(message.card(), sampleCard());
    ASSERT_TRUE(message.lesson());
    EXPECT_EQ(message.lesson()->title, "L");
    EXPECT_EQ(encodeJson(message), withBoth);
}

TEST(CoachMessage, CardOrLessonNullOrMissingReadsAsNone) {
    CoachMessage message = decodeMessage(messageJson(R"("Hi")", R"(,"card":null,"lesson":null)"));
    EXPECT_FALSE(message.card());
    EXPECT_FALSE(message.lesson());
    CoachMessage adapted =
        nlohmann::json::parse(messageJson(R"("Hi")", R"(,"card":null)")).get<CoachMessage>();
    EXPECT_FALSE(adapted.card());
    EXPECT_FALSE(decodeMessage(messageJson(R"("Hi")")).card());
}

TEST(CoachMessage, RoundTripKeepsIdAndTimestampToTheFullDouble) {
    CoachMessage message(Role::assistant, "Reply", sampleCard(),
                         sagely::CoachLessonLibrary::speechSetup());
    for (const CoachMessage& back :
         {decodeMessage(encodeJson(message)), nlohmann::json(message).get<CoachMessage>()}) {
        EXPECT_EQ(back.id(), message.id());
        EXPECT_EQ(back.timestamp().secondsSinceReferenceDate(),
                  message.timestamp().secondsSinceReferenceDate());
        EXPECT_EQ(back.role(), message.role());
        EXPECT_EQ(back.content(), message.content());
        EXPECT_EQ(back.card(), message.card());
        EXPECT_EQ(back.lesson(), message.lesson());
    }
}

TEST(CoachMessage, AwkwardTimestampsSurviveTheRoundTripBitForBit) {
    const double values[] = {0.0,
                             -0.0,
                             0.1,
                             1.0 / 3.0,
                             816934257.7505972,
                             -978307200.0,
                             1e21,
                             1e-7,
                             std::numeric_limits<double>::max(),
                             std::numeric_limits<double>::denorm_min(),
                             std::nextafter(760000000.0, 1e300)};
    for (double value : values) {
        char number[64];
        std::snprintf(number, sizeof number, "%.17g", value);
        CoachMessage message =
            decodeMessage(std::string(R"({"id":")") + kId +
                          R"(","role":"user","content":"","timestamp":)" + number + "}");
        CoachMessage back = decodeMessage(encodeJson(message));
        double read = back.timestamp().secondsSinceReferenceDate();
        EXPECT_EQ(std::memcmp(&read, &value, sizeof value), 0) << number;
        nlohmann::json json = back;
        EXPECT_EQ(json["timestamp"].get<double>(), value) << number;
    }
}

TEST(CoachMessage, TimestampsAreWrittenAsShortPlainNumbers) {
    auto written = [](const std::string& number) {
        std::string text = encodeJson(decodeMessage(std::string(R"({"id":")") + kId +
                                                    R"(","role":"user","content":"",)" +
                                                    R"("timestamp":)" + number + "}"));
        std::size_t start = text.find(R"("timestamp":)") + 12;
        return text.substr(start, text.size() - start - 1);
    };
    EXPECT_EQ(written("700000000"), "700000000");
    EXPECT_EQ(written("7e8"), "700000000");
    EXPECT_EQ(written("816934257.750597238"), "816934257.7505972");
    EXPECT_EQ(written("0.1"), "0.1");
    EXPECT_EQ(written("-12.5"), "-12.5");
    EXPECT_EQ(written("0"), "0");
    EXPECT_EQ(written("-0.0"), "-0");
    EXPECT_EQ(written("0.000001"), "0.000001");
    EXPECT_EQ(written("1e-7"), "1e-07");
    EXPECT_EQ(written("1e21"), "1e+21");
    EXPECT_EQ(written("123456789012345678901"), "123456789012345683968");
}

TEST(CoachMessage, IntegerTimestampsAndLowerCaseIdsAreAccepted) {
    CoachMessage message = decodeMessage(
        R"({"id":"e621e1f8-c36c-495a-93fc-0c247a3e6e5f","role":"user","content":"x","timestamp":0})");
    EXPECT_EQ(message.timestamp().secondsSinceReferenceDate(), 0.0);
    EXPECT_EQ(message.id().toString(), kId);
    EXPECT_NE(encodeJson(message).find(std::string(R"("id":")") + kId + "\""), std::string::npos);
}

TEST(CoachMessage, StringsAreEscapedAsJsonRequires) {
    EXPECT_EQ(encodedContent("say \"hi\" \\ now"), R"("say \"hi\" \\ now")");
    EXPECT_EQ(encodedContent("\b\f\n\r\t"), R"("\b\f\n\r\t")");
    EXPECT_EQ(encodedContent(std::string("a\x01z\x1f\x7f", 5) + std::string(1, '\0')),
              "\"a\\u0001z\\u001f\x7f\\u0000\"");
    EXPECT_EQ(encodedContent("path/to — ⌃⌥Space é 😀"), "\"path/to — ⌃⌥Space é 😀\"");
    EXPECT_EQ(encodedContent("a long line without any character that needs care at all"),
              "\"a long line without any character that needs care at all\"");
}

TEST(CoachMessage, EscapingIsExactWhereverTheCharacterFalls) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"\"", "\\\""},      {"\\", "\\\\"}, {"\n", "\\n"},           {"\x01", "\\u0001"},
        {"\x1f", "\\u001f"}, {"é", "é"},     {"\xFF", "\xEF\xBF\xBD"}};
    for (std::size_t offset = 0; offset < 40; ++offset) {
        for (const auto& [special, escaped] : cases) {
            std::string before(offset, 'a'), after(offset % 9, 'b');
            std::string text = before + special + after;
            EXPECT_EQ(encodedContent(text), "\"" + before + escaped + after + "\"") << offset;
            if (special == "\xFF") continue;
            CoachMessage message(Role::user, text);
            EXPECT_EQ(decodeMessage(encodeJson(message)).content(), text) << offset;
        }
    }
}

TEST(CoachMessage, EscapedStringsReadBackExactly) {
    std::string awkward =
        std::string("q\"b\\s/\b\f\n\r\t\x01\x1f\x7f", 14) + std::string(1, '\0') + "é ⌃ 😀 end";
    CoachMessage message(Role::user, awkward);
    EXPECT_EQ(decodeMessage(encodeJson(message)).content(), awkward);
    EXPECT_EQ(nlohmann::json(message).get<CoachMessage>().content(), awkward);
}

TEST(CoachMessage, IllFormedUtf8IsWrittenWithReplacementCharacters) {
    EXPECT_EQ(encodedContent("a\xFF"
                             "b"),
              "\"a\xEF\xBF\xBD"
              "b\"");
    EXPECT_EQ(encodedContent("cut \xE2\x8C"), "\"cut \xEF\xBF\xBD\"");
    EXPECT_EQ(encodedContent("\xC0\xAF"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\"");
    EXPECT_EQ(encodedContent("\xED\xA0\x80!"), "\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD!\"");
    CoachMessage message(Role::user, "ok \xF4\x90\x80\x80 \"q\"");
    EXPECT_EQ(decodeMessage(encodeJson(message)).content(),
              "ok \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \"q\"");
    nlohmann::json json = message;
    EXPECT_EQ(json["content"], "ok \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \"q\"");
}

TEST(CoachMessage, UnicodeEscapesAreDecodedIncludingSurrogatePairs) {
    EXPECT_EQ(decodedContent(R"("caf\u00e9 \u2303\u2325 \ud83d\ude00 \u00E9")"), "café ⌃⌥ 😀 é");
    EXPECT_EQ(decodedContent(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(decodedContent(R"("a\u0000b")"), std::string("a\0b", 3));
    EXPECT_EQ(decodedContent(R"("")"), "");
}

TEST(CoachMessage, MalformedEscapesFailNamingTheKey) {
    EXPECT_EQ(decodingError([] { decodedContent(R"("\q")"); }),
              "content: invalid JSON: invalid escape sequence in a string");
    EXPECT_EQ(decodingError([] { decodedContent(R"("\u12G4")"); }),
              "content: invalid JSON: malformed \\u escape in a string");
    EXPECT_EQ(decodingError([] { decodedContent(R"("\ud83d")"); }),
              "content: invalid JSON: unpaired surrogate in a string");
    EXPECT_EQ(decodingError([] { decodedContent(R"("\ud83d\u0041")"); }),
              "content: invalid JSON: unpaired surrogate in a string");
    EXPECT_EQ(decodingError([] { decodedContent(R"("\ude00x")"); }),
              "content: invalid JSON: unpaired surrogate in a string");
}

TEST(CoachMessage, KeysWithEscapesMatchTheirText) {
    CoachMessage message = decodeMessage(std::string(R"({"\u0069d":")") + kId +
                                         R"(","r\u006fle":"user","content":"x","timestamp":1})");
    EXPECT_EQ(message.id().toString(), kId);
    EXPECT_EQ(message.role(), Role::user);
}

TEST(CoachMessage, EveryRequiredKeyIsChecked) {
    EXPECT_EQ(
        decodingError([] { decodeMessage(R"({"role":"user","content":"x","timestamp":1})"); }),
        "id: missing key");
    EXPECT_EQ(
        decodingError([] {
            decodeMessage(std::string(R"({"id":")") + kId + R"(","content":"x","timestamp":1})");
        }),
        "role: missing key");
    EXPECT_EQ(
        decodingError([] {
            decodeMessage(std::string(R"({"id":")") + kId + R"(","role":"user","timestamp":1})");
        }),
        "content: missing key");
    EXPECT_EQ(
        decodingError([] {
            decodeMessage(std::string(R"({"id":")") + kId + R"(","role":"user","content":"x"})");
        }),
        "timestamp: missing key");
    EXPECT_EQ(decodingError([] {
                  nlohmann::json::parse(R"({"role":"user","content":"x","timestamp":1})")
                      .get<CoachMessage>();
              }),
              "id: missing key");
}

TEST(CoachMessage, WrongValuesFailNamingTheKey) {
    auto withRole = [](const std::string& role) {
        return std::string(R"({"id":")") + kId + R"(","role":)" + role +
               R"(,"content":"x","timestamp":1})";
    };
    EXPECT_EQ(decodingError([&] { decodeMessage(withRole(R"("bot")")); }),
              "role: unknown role \"bot\"");
    EXPECT_EQ(decodingError([&] { decodeMessage(withRole(R"("User")")); }),
              "role: unknown role \"User\"");
    EXPECT_EQ(decodingError([&] { decodeMessage(withRole("1")); }), "role: expected a string");
    EXPECT_EQ(decodingError([] {
                  decodeMessage(R"({"id":"123","role":"user","content":"x","timestamp":1})");
              }),
              "id: malformed UUID \"123\"");
    EXPECT_EQ(decodingError([] {
                  decodeMessage(std::string(R"({"id":")") + kId +
                                R"(","role":"user","content":null,"timestamp":1})");
              }),
              "content: expected a string");
    EXPECT_EQ(decodingError([] {
                  decodeMessage(std::string(R"({"id":")") + kId +
                                R"(","role":"user","content":"x","timestamp":"1"})");
              }),
              "timestamp: expected a number");
    EXPECT_EQ(decodingError([] { decodeMessage(messageJson(R"("x")", R"(,"card":[])")); }),
              "card: expected an object");
    EXPECT_EQ(
        decodingError([&] { nlohmann::json::parse(withRole(R"("bot")")).get<CoachMessage>(); }),
        "role: unknown role \"bot\"");
}

TEST(CoachMessage, UnknownKeysAreIgnoredWhateverTheyHold) {
    CoachMessage message = decodeMessage(messageJson(
        R"("x")", R"(,"extra":{"a":[1,-2.5e3,true,false,null,"s\n\u00e9",{"b":[]}]},"n":null)"));
    EXPECT_EQ(message.content(), "x");
}

TEST(CoachMessage, TextThatIsNotJsonFailsEvenUnderAnUnknownKey) {
    for (const char* extra : {R"(,"extra":[1 2])", R"(,"extra":tru)", R"(,"extra":{"a" 1})",
                              R"(,"extra":"\x")", R"(,"extra":01)", R"(,"extra":nul)"}) {
        std::string message = decodingError([&] { decodeMessage(messageJson(R"("x")", extra)); });
        EXPECT_EQ(message.rfind("extra", 0), 0u) << extra << " => " << message;
        EXPECT_NE(message.find("invalid JSON"), std::string::npos) << extra << " => " << message;
    }
}

TEST(CoachMessage, InvalidJsonAndTrailingTextFail) {
    const std::string valid = messageJson(R"("x")");
    EXPECT_EQ(decodeMessage(" \n\t" + valid + " \r\n").content(), "x");
    for (const std::string& text :
         {std::string(), std::string("{"), valid + "}", valid + " x", valid + valid,
          valid.substr(0, valid.size() - 1), std::string("{\"id\":}"), std::string("\"a\nb\""),
          std::string("{\"content\":\"a\x01\"}"), std::string("{\"content\":\"\xFF\"}")}) {
        std::string message = decodingError([&] { decodeMessage(text); });
        EXPECT_NE(message.find("invalid JSON"), std::string::npos) << text << " => " << message;
    }
}

TEST(CoachMessage, OtherKindsOfRootFail) {
    EXPECT_EQ(decodingError([] { decodeMessage("[]"); }), "expected an object");
    EXPECT_EQ(decodingError([] { decodeMessage("\"text\""); }), "expected an object");
    EXPECT_EQ(decodingError([] { nlohmann::json(42).get<CoachMessage>(); }), "expected an object");
}

TEST(CoachMessage, CopiesKeepTheirCardAndLesson) {
    CoachMessage original(Role::assistant, "With both", sampleCard(),
                          sagely::CoachLessonLibrary::speechSetup());
    CoachMessage copy = original;
    CoachMessage moved = std::move(original);
    EXPECT_EQ(copy.card(), sampleCard());
    EXPECT_EQ(copy.lesson(), sagely::CoachLessonLibrary::speechSetup());
    EXPECT_EQ(moved.card(), copy.card());
    EXPECT_EQ(moved.lesson(), copy.lesson());
    CoachMessage lessonOnly(Role::assistant, "Lesson", std::nullopt,
                            sagely::CoachLessonLibrary::speechSetup());
    EXPECT_FALSE(lessonOnly.card());
    EXPECT_TRUE(lessonOnly.lesson());
}

TEST(CoachMessage, AMessageMovedFromStaysReadable) {
    CoachMessage original(Role::user, "Still here", sampleCard());
    const auto id = original.id();
    CoachMessage moved = std::move(original);
    EXPECT_EQ(moved.id(), id);
    // A message never has an empty state: what it was moved from still reads as before.
    EXPECT_EQ(original.id(), id);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(original.content(), "Still here");
    EXPECT_EQ(original.card(), sampleCard());
}

TEST(CoachMessage, AssigningToACopyLeavesTheOriginalAsItWas) {
    const CoachMessage original(Role::user, "Original", sampleCard(), std::nullopt,
                                sagely::TokenUsage{1, 2});
    CoachMessage copy = original;
    copy = CoachMessage(Role::assistant, "Replacement");
    EXPECT_EQ(copy.content(), "Replacement");
    EXPECT_EQ(copy.role(), Role::assistant);
    EXPECT_FALSE(copy.card());
    EXPECT_EQ(original.content(), "Original");
    EXPECT_EQ(original.role(), Role::user);
    EXPECT_EQ(original.card(), sampleCard());
    EXPECT_EQ(original.usage()->totalTokens(), 3);
    EXPECT_NE(copy.id(), original.id());
}

TEST(CoachMessage, RepeatedKeysAreEachReadInTurn) {
    auto withRoles = [](const std::string& first, const std::string& second) {
        return std::string(R"({"id":")") + kId + R"(","role":")" + first + R"(","role":")" +
               second + R"(","content":"x","timestamp":1})";
    };
    EXPECT_EQ(decodeMessage(withRoles("user", "assistant")).role(), Role::assistant);
    EXPECT_EQ(decodingError([&] { decodeMessage(withRoles("bot", "user")); }),
              "role: unknown role \"bot\"");
}

TEST(CoachMessage, ATimeWrittenAsMinusZeroKeepsItsSign) {
    const std::string text =
        std::string(R"({"id":")") + kId + R"(","role":"user","content":"x","timestamp":-0})";
    CoachMessage message = decodeMessage(text);
    EXPECT_TRUE(std::signbit(message.timestamp().secondsSinceReferenceDate()));
    EXPECT_EQ(encodeJson(message), text);
}

TEST(CoachMessage, MalformedTextUnderAnUnknownKeyIsNamedByThatKey) {
    EXPECT_EQ(decodingError([] { decodeMessage(messageJson(R"("x")", R"(,"extra":01)")); }),
              "extra: invalid JSON: Problem while parsing a number");
    EXPECT_EQ(decodingError([] { decodeMessage(messageJson(R"("x")", R"(,"extra":[1,tru])")); }),
              "extra[1]: invalid JSON: The JSON element does not have the requested type.");
}

namespace {

using sagely::TokenUsage;

TEST(CoachMessageUsage, AReplysUsageIsWrittenBeforeTheTimeAndReadBack) {
    const CoachMessage message(Role::assistant, "Hi", std::nullopt, std::nullopt,
                               TokenUsage{1234, 56});
    const std::string json = encodeJson(message);
    EXPECT_NE(json.find(R"("content":"Hi","usage":{"inputTokens":1234,"outputTokens":56},)"
                        R"("timestamp":)"),
              std::string::npos)
        << json;
    const CoachMessage back = decodeMessage(json);
    EXPECT_EQ(back.usage(), (TokenUsage{1234, 56}));
    EXPECT_EQ(nlohmann::json(message).get<CoachMessage>().usage(), (TokenUsage{1234, 56}));
}

TEST(CoachMessageUsage, TheProviderAndModelOfAReplyAreWrittenAfterTheCountsAndReadBack) {
    TokenUsage usage{1234, 56};
    usage.provider = "openai";
    usage.model = "gpt-4o-mini";
    const CoachMessage message(Role::assistant, "Hi", std::nullopt, std::nullopt, usage);
    const std::string json = encodeJson(message);
    EXPECT_NE(json.find(R"("usage":{"inputTokens":1234,"outputTokens":56,"provider":"openai",)"
                        R"("model":"gpt-4o-mini"},)"),
              std::string::npos)
        << json;
    EXPECT_EQ(decodeMessage(json).usage(), usage);
    EXPECT_EQ(nlohmann::json(message).get<CoachMessage>().usage(), usage);
}

TEST(CoachMessageUsage, UsageSavedWithoutAModelStillLoadsAndNamesNone) {
    const auto usage =
        decodeMessage(messageJson(R"("Hi")", R"(,"usage":{"inputTokens":1,"outputTokens":2})"))
            .usage();
    ASSERT_TRUE(usage);
    EXPECT_EQ(usage->model, "");
    EXPECT_EQ(usage->provider, "");
    EXPECT_EQ(decodeMessage(messageJson(R"("Hi")", R"(,"usage":{"inputTokens":1,"outputTokens":2,)"
                                                   R"("provider":null,"model":null})"))
                  .usage(),
              (TokenUsage{1, 2}));
    EXPECT_EQ(decodingError([] {
                  decodeMessage(messageJson(
                      R"("Hi")", R"(,"usage":{"inputTokens":1,"outputTokens":2,"model":7})"));
              }),
              "usage.model: expected a string");
}

TEST(CoachMessageUsage, AMessageWithoutUsageHasNoUsageKey) {
    const CoachMessage message(Role::assistant, "Hi");
    EXPECT_EQ(message.usage(), std::nullopt);
    EXPECT_EQ(encodeJson(message).find("usage"), std::string::npos);
    EXPECT_EQ(decodeMessage(messageJson(R"("Hi")", R"(,"usage":null)")).usage(), std::nullopt);
}

TEST(CoachMessageUsage, AMalformedUsageFailsNamingItsKey) {
    EXPECT_EQ(decodingError(
                  [] { decodeMessage(messageJson(R"("Hi")", R"(,"usage":{"inputTokens":1})")); }),
              "usage.outputTokens: missing key");
    EXPECT_EQ(decodingError([] {
                  decodeMessage(
                      messageJson(R"("Hi")", R"(,"usage":{"inputTokens":1.5,"outputTokens":2})"));
              }),
              "usage.inputTokens: expected a whole number");
    EXPECT_EQ(
        decodingError([] {
            decodeMessage(messageJson(
                R"("Hi")", R"(,"usage":{"inputTokens":1,"outputTokens":18446744073709551615})"));
        }),
        "usage.outputTokens: expected a whole number");
}

TEST(CoachMessageUsage, CopiesShareTheUsage) {
    const CoachMessage message(Role::assistant, "Hi", std::nullopt, std::nullopt, TokenUsage{3, 4});
    const CoachMessage copy = message;
    EXPECT_EQ(copy.usage()->totalTokens(), 7);
}

TEST(CoachMessageJson, ARootStringQuotingAParserMessageIsJustInvalid) {
    // Found by fuzzing: the parser's message quotes the token, which held these words.
    EXPECT_THROW(sagely::decodeConversations("\"parsing object separator("), sagely::DecodingError);
}

}  // namespace
