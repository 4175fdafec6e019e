// The action calls a message keeps: their JSON form (optional keys only, so files without them
// load as before), a round trip with every field, and the lines a view shows.
#include <sagely/CoachActionCall.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachMessage.h>
#include <sagely/Error.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace sagely {
namespace {

using nlohmann::json;
using Status = CoachActionCall::Status;

CoachMessage round() {
    CoachActionCall done{"call_1",     "create_canvas", "Create canvas", "{\"name\":\"Launch\"}",
                         Status::done, "created",       std::nullopt};
    CoachCard card;
    card.title = "Canvas Launch";
    done.card = card;
    CoachActionCall declined{"call_2",         "switch_palette",     "",          "{}",
                             Status::declined, "The user declined.", std::nullopt};
    return CoachMessage::actionRound(
        "On it.", {done, declined},
        R"({"format":"gemini","content":{"role":"model","parts":[{"thoughtSignature":"S"}]}})");
}

TEST(CoachActionCallTest, ARoundIsWrittenWithOptionalKeysAndReadBack) {
    const CoachMessage message = round();
    const json written = json::parse(encodeJson(message));
    ASSERT_TRUE(written.contains("actionCalls"));
    EXPECT_EQ(written["actionCalls"][0]["status"], "done");
    EXPECT_EQ(written["actionCalls"][0]["card"]["title"], "Canvas Launch");
    EXPECT_FALSE(written["actionCalls"][1].contains("title"));  // left out when empty
    EXPECT_EQ(written["providerTurn"]["content"]["parts"][0]["thoughtSignature"], "S");

    const CoachMessage read = decodeMessage(encodeJson(message));
    EXPECT_EQ(read.id(), message.id());
    ASSERT_EQ(read.actionCalls().size(), 2u);
    EXPECT_EQ(read.actionCalls()[0].arguments, "{\"name\":\"Launch\"}");
    EXPECT_EQ(read.actionCalls()[0].card->title, "Canvas Launch");
    EXPECT_EQ(read.actionCalls()[1].status, Status::declined);
    EXPECT_EQ(json::parse(read.providerTurn()), json::parse(message.providerTurn()));
    EXPECT_EQ(encodeJson(read), encodeJson(message));
}

// The model names the arguments, so a turn's keys may hold anything a string may.
TEST(CoachActionCallTest, ATurnsKeysAreEscapedAsStringsAre) {
    const std::string turn = R"({"args":{"say \"hi\"\n":1,"back\\slash":2,"caf\u00e9":3}})";
    const CoachMessage message = CoachMessage::actionRound("", {}, turn);
    const std::string written = encodeJson(message);
    EXPECT_NE(written.find(R"({"say \"hi\"\n":1,"back\\slash":2,"café":3})"), std::string::npos)
        << written;
    const CoachMessage read = decodeMessage(written);
    EXPECT_EQ(json::parse(read.providerTurn()), json::parse(turn));
    EXPECT_EQ(encodeJson(read), written);
}

TEST(CoachActionCallTest, AnIdTheKitMadeUpIsMarkedOnlyThen) {
    CoachActionCall madeUp{"call_1", "read_settings", "",  "{}", Status::done,
                           "ok",     std::nullopt,    true};
    CoachActionCall own{"call_9", "read_settings", "", "{}", Status::done, "ok"};
    const CoachMessage message = CoachMessage::actionRound("", {madeUp, own}, "");
    const json written = json::parse(encodeJson(message));
    EXPECT_EQ(written["actionCalls"][0]["idMadeUp"], true);
    EXPECT_FALSE(written["actionCalls"][1].contains("idMadeUp"));
    const CoachMessage read = decodeMessage(written.dump());
    EXPECT_TRUE(read.actionCalls()[0].idMadeUp);
    EXPECT_FALSE(read.actionCalls()[1].idMadeUp);
}

TEST(CoachActionCallTest, AMessageWithoutCallsKeepsItsFourKeys) {
    const json written = json::parse(encodeJson(CoachMessage(CoachMessage::Role::assistant, "Hi")));
    EXPECT_EQ(written.size(), 4u);
    EXPECT_TRUE(CoachMessage(CoachMessage::Role::user, "Q").actionCalls().empty());
}

TEST(CoachActionCallTest, AnUnknownStatusFailsTheDecodeNamingItsPath) {
    json written = json::parse(encodeJson(round()));
    written["actionCalls"][1]["status"] = "maybe";
    try {
        decodeMessage(written.dump());
        FAIL() << "decoded";
    } catch (const DecodingError& error) {
        EXPECT_NE(std::string(error.what()).find("actionCalls[1].status"), std::string::npos)
            << error.what();
    }
}

TEST(CoachActionCallTest, EachOutcomeHasItsLine) {
    CoachActionCall call{"c", "create_canvas", "Create canvas", "{}", Status::done, "", {}};
    EXPECT_EQ(call.summaryLine(), "Done: Create canvas");
    call.status = Status::declined;
    EXPECT_EQ(call.summaryLine(), "Declined: Create canvas");
    call.title.clear();
    call.status = Status::failed;
    EXPECT_EQ(call.summaryLine(), "Failed: create_canvas");
    EXPECT_EQ(rawValue(Status::cancelled), "cancelled");
    EXPECT_EQ(actionStatusFromRawValue("invalid"), Status::invalid);
    EXPECT_FALSE(actionStatusFromRawValue("Done"));
}

}  // namespace
}  // namespace sagely
