#include <sagely/CoachCard.h>
#include <sagely/Error.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "support/DecodingErrorText.h"

#include <string>

using sagely::CoachCard;
using sagely::decodeCard;
using sagely::encodeJson;

namespace {

using sagely::testing::decodingError;

CoachCard diskCard() {
    return CoachCard{CoachCard::Style::warning,
                     "Low disk space",
                     "Startup volume",
                     {{"Volumes", {"Macintosh HD — 4 GB free", "Backup"}}, {"Next", {}}},
                     {"Free up space", "Show large files"}};
}

CoachCard roundTripThroughNlohmann(const CoachCard& card) {
    nlohmann::json json = card;
    return json.get<CoachCard>();
}

}  // namespace

TEST(CoachCard, StyleRawValuesAreExactAndCaseSensitive) {
    EXPECT_EQ(rawValue(CoachCard::Style::info), "info");
    EXPECT_EQ(rawValue(CoachCard::Style::success), "success");
    EXPECT_EQ(rawValue(CoachCard::Style::warning), "warning");
    EXPECT_EQ(sagely::cardStyleFromRawValue("info"), CoachCard::Style::info);
    EXPECT_EQ(sagely::cardStyleFromRawValue("success"), CoachCard::Style::success);
    EXPECT_EQ(sagely::cardStyleFromRawValue("warning"), CoachCard::Style::warning);
    for (const char* other : {"Info", "WARNING", " info", "info ", "", "error"})
        EXPECT_FALSE(sagely::cardStyleFromRawValue(other)) << other;
}

TEST(CoachCard, EncodesEveryFieldInOrderAsCompactJson) {
    EXPECT_EQ(
        encodeJson(diskCard()),
        R"({"style":"warning","title":"Low disk space","subtitle":"Startup volume",)"
        R"("sections":[{"title":"Volumes","items":["Macintosh HD — 4 GB free","Backup"]},)"
        R"({"title":"Next","items":[]}],"suggestions":["Free up space","Show large files"]})");
}

TEST(CoachCard, CardWithoutSubtitleLeavesTheKeyOutAndDecodesBackEqual) {
    CoachCard card = diskCard();
    card.subtitle.reset();
    std::string text = encodeJson(card);
    EXPECT_EQ(text.find("subtitle"), std::string::npos) << text;
    EXPECT_EQ(decodeCard(text), card);

    nlohmann::json json = card;
    EXPECT_FALSE(json.contains("subtitle"));
    EXPECT_EQ(roundTripThroughNlohmann(card), card);
}

TEST(CoachCard, CardWithNoSectionsAndNoSuggestionsWritesEmptyArrays) {
    CoachCard card{CoachCard::Style::info, "Ready", std::nullopt, {}, {}};
    EXPECT_EQ(encodeJson(card),
              R"({"style":"info","title":"Ready","sections":[],"suggestions":[]})");
    nlohmann::json json = card;
    EXPECT_EQ(json["sections"], nlohmann::json::array());
    EXPECT_EQ(json["suggestions"], nlohmann::json::array());
}

TEST(CoachCard, CardsThatDifferOnlyInTheOrderOfSuggestionsAreNotEqual) {
    CoachCard first = diskCard();
    CoachCard second = diskCard();
    std::swap(second.suggestions[0], second.suggestions[1]);
    EXPECT_NE(first, second);
    second.suggestions = first.suggestions;
    EXPECT_EQ(first, second);
}

TEST(CoachCard, EqualityComparesSectionsElementByElement) {
    CoachCard first = diskCard();
    CoachCard second = diskCard();
    second.sections[0].items[1] = "Backup ";
    EXPECT_NE(first, second);
    second = diskCard();
    std::swap(second.sections[0], second.sections[1]);
    EXPECT_NE(first, second);
    EXPECT_EQ((CoachCard::Section{"A", {"x"}}), (CoachCard::Section{"A", {"x"}}));
    EXPECT_NE((CoachCard::Section{"A", {"x"}}), (CoachCard::Section{"B", {"x"}}));
}

TEST(CoachCard, RoundTripsThroughBothEntryPoints) {
    for (CoachCard::Style style :
         {CoachCard::Style::info, CoachCard::Style::success, CoachCard::Style::warning}) {
        CoachCard card = diskCard();
        card.style = style;
        EXPECT_EQ(decodeCard(encodeJson(card)), card);
        EXPECT_EQ(roundTripThroughNlohmann(card), card);
    }
}

TEST(CoachCard, NlohmannFormUsesTheSameKeysAndValues) {
    nlohmann::json json = diskCard();
    EXPECT_EQ(json, nlohmann::json::parse(encodeJson(diskCard())));
    EXPECT_EQ(json["style"], "warning");
    EXPECT_EQ(json["sections"][0]["items"][0], "Macintosh HD — 4 GB free");
}

TEST(CoachCard, SubtitleMayBeNullOrMissingAndUnknownKeysAreIgnored) {
    const char* withNull =
        R"({"style":"success","title":"Done","subtitle":null,"sections":[],"suggestions":[],)"
        R"("accent":{"r":1,"g":[true,false,null]}})";
    CoachCard card = decodeCard(withNull);
    EXPECT_EQ(card, (CoachCard{CoachCard::Style::success, "Done", std::nullopt, {}, {}}));
    EXPECT_EQ(nlohmann::json::parse(withNull).get<CoachCard>(), card);

    CoachCard missing =
        decodeCard(R"({"suggestions":[],"sections":[],"title":"Done","style":"success"})");
    EXPECT_EQ(missing, card);
}

TEST(CoachCard, MissingRequiredKeysFailNamingTheKey) {
    EXPECT_EQ(decodingError([] { decodeCard(R"({"style":"info","title":"T","suggestions":[]})"); }),
              "sections: missing key");
    EXPECT_EQ(decodingError([] { decodeCard(R"({"style":"info","title":"T","sections":[]})"); }),
              "suggestions: missing key");
    EXPECT_EQ(decodingError([] { decodeCard(R"({"title":"T","sections":[],"suggestions":[]})"); }),
              "style: missing key");
    EXPECT_EQ(
        decodingError([] { decodeCard(R"({"style":"info","sections":[],"suggestions":[]})"); }),
        "title: missing key");
    EXPECT_EQ(
        decodingError([] {
            nlohmann::json::parse(R"({"style":"info","title":"T","sections":[]})").get<CoachCard>();
        }),
        "suggestions: missing key");
}

TEST(CoachCard, SectionKeysAreRequired) {
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"info","title":"T","sections":[{"items":[]}],)"
                             R"("suggestions":[]})");
              }),
              "sections[0].title: missing key");
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"info","title":"T","sections":[{"title":"A","items":[]},)"
                             R"({"title":"B"}],"suggestions":[]})");
              }),
              "sections[1].items: missing key");
}

TEST(CoachCard, UnknownStyleAndWrongTypesFailNamingTheKeyPath) {
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"loud","title":"T","sections":[],"suggestions":[]})");
              }),
              "style: unknown style \"loud\"");
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"Info","title":"T","sections":[],"suggestions":[]})");
              }),
              "style: unknown style \"Info\"");
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"info","title":7,"sections":[],"suggestions":[]})");
              }),
              "title: expected a string");
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"info","title":"T","sections":[],"suggestions":"x"})");
              }),
              "suggestions: expected an array");
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"info","title":"T","sections":[{"title":"A",)"
                             R"("items":["a",2]}],"suggestions":[]})");
              }),
              "sections[0].items[1]: expected a string");
    EXPECT_EQ(decodingError([] {
                  decodeCard(R"({"style":"info","title":"T","sections":null,"suggestions":[]})");
              }),
              "sections: expected an array");
    EXPECT_EQ(decodingError([] { decodeCard(R"(["info"])"); }), "expected an object");
    EXPECT_EQ(decodingError([] {
                  nlohmann::json::parse(R"({"style":"loud","title":"T","sections":[],)"
                                        R"("suggestions":[]})")
                      .get<CoachCard>();
              }),
              "style: unknown style \"loud\"");
}
