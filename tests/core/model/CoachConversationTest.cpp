#include <sagely/CoachConversation.h>
#include <sagely/Error.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "support/DecodingErrorText.h"

#include <cmath>
#include <concepts>
#include <limits>
#include <string>
#include <thread>
#include <vector>

using sagely::CoachCard;
using sagely::CoachConversation;
using sagely::CoachLesson;
using sagely::CoachLessonLibrary;
using sagely::CoachMessage;
using sagely::decodeConversation;
using sagely::decodeConversations;
using sagely::encodeConversations;
using sagely::encodeJson;
using sagely::Timestamp;
using Role = CoachMessage::Role;

namespace {

using sagely::testing::decodingError;

std::string messageJson(int n, const std::string& role = "user") {
    return R"({"id":"00000000-0000-4000-8000-)" + std::string(10, '0') + (n < 10 ? "0" : "") +
           std::to_string(n) + R"(","role":")" + role + R"(","content":"m)" + std::to_string(n) +
           R"(","timestamp":)" + std::to_string(700000000 + n) + "}";
}

// A conversation object whose messages are `count` plain user messages, with the message at
// `odd` (if any) given `oddRole`.
std::string conversationJson(int n, int count, int odd = -1, const std::string& oddRole = "") {
    std::string messages;
    for (int i = 0; i < count; ++i) {
        if (i) messages += ',';
        messages += messageJson(i, i == odd ? oddRole : "user");
    }
    return R"({"id":"11111111-2222-4333-8444-5555555555)" + std::to_string(10 + n) +
           R"(","title":"Conversation )" + std::to_string(n + 1) + R"(","messages":[)" + messages +
           R"(],"createdAt":700000000.5,"updatedAt":700000100.125})";
}

CoachConversation richConversation(int index) {
    CoachConversation conversation("Conversation " + std::to_string(index));
    for (int i = 0; i < 50; ++i) {
        std::optional<CoachCard> card;
        std::optional<CoachLesson> lesson;
        if (i % 7 == 3)
            card = CoachCard{CoachCard::Style::info,
                             "Card " + std::to_string(i),
                             "sub",
                             {{"S", {"a", "b \"quoted\""}}},
                             {"More?"}};
        if (i % 11 == 5) lesson = CoachLessonLibrary::speechSetup();
        conversation.append(CoachMessage(i % 2 ? Role::assistant : Role::user,
                                         "Message " + std::to_string(i) + " — **bold**\n`code`",
                                         card, lesson));
    }
    return conversation;
}

void expectSameConversation(const CoachConversation& actual, const CoachConversation& expected) {
    EXPECT_EQ(actual.id(), expected.id());
    EXPECT_EQ(actual.title(), expected.title());
    EXPECT_EQ(actual.createdAt(), expected.createdAt());
    EXPECT_EQ(actual.updatedAt(), expected.updatedAt());
    ASSERT_EQ(actual.messages().size(), expected.messages().size());
    for (std::size_t i = 0; i < actual.messages().size(); ++i) {
        const CoachMessage& a = actual.messages()[i];
        const CoachMessage& e = expected.messages()[i];
        EXPECT_EQ(a.id(), e.id()) << i;
        EXPECT_EQ(a.role(), e.role()) << i;
        EXPECT_EQ(a.content(), e.content()) << i;
        EXPECT_EQ(a.card(), e.card()) << i;
        EXPECT_EQ(a.lesson(), e.lesson()) << i;
        EXPECT_EQ(a.timestamp(), e.timestamp()) << i;
    }
}

}  // namespace

TEST(CoachConversation, IsMadeWithATitleNoMessagesAndTwoClockReadings) {
    Timestamp before = Timestamp::now();
    CoachConversation conversation("Conversation 1");
    Timestamp after = Timestamp::now();
    EXPECT_EQ(conversation.title(), "Conversation 1");
    EXPECT_TRUE(conversation.messages().empty());
    EXPECT_LE(before, conversation.createdAt());
    EXPECT_LE(conversation.createdAt(), conversation.updatedAt());
    EXPECT_LE(conversation.updatedAt(), after);
    EXPECT_NE(CoachConversation("Conversation 1").id(), conversation.id());
    static_assert(!std::equality_comparable<CoachConversation>);
}

TEST(CoachConversation, AppendKeepsEarlierMessagesInOrderAndMovesOnlyUpdatedAt) {
    CoachConversation conversation("Conversation 3");
    std::vector<sagely::Uuid> ids;
    for (int i = 0; i < 200; ++i) {
        CoachMessage message(i % 2 ? Role::assistant : Role::user, "m" + std::to_string(i));
        ids.push_back(message.id());
        conversation.append(message);
    }
    Timestamp createdAt = conversation.createdAt();
    Timestamp updatedBefore = conversation.updatedAt();
    conversation.append(CoachMessage(Role::user, "last"));
    EXPECT_EQ(conversation.title(), "Conversation 3");
    EXPECT_EQ(conversation.createdAt(), createdAt);
    EXPECT_LE(updatedBefore, conversation.updatedAt());
    EXPECT_GE(conversation.updatedAt(), conversation.messages().back().timestamp());
    ASSERT_EQ(conversation.messages().size(), 201u);
    for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(conversation.messages()[i].id(), ids[i]) << i;
        EXPECT_EQ(conversation.messages()[i].content(), "m" + std::to_string(i));
    }
    EXPECT_EQ(conversation.messages().back().content(), "last");
}

TEST(CoachConversation, TitleAndUpdatedAtCanBeSetAndMessagesTrimmed) {
    CoachConversation conversation("Old");
    conversation.append(CoachMessage(Role::user, "a"));
    conversation.append(CoachMessage(Role::user, "b"));
    conversation.setTitle("New");
    conversation.setUpdatedAt(Timestamp(5.0));
    conversation.messages().erase(conversation.messages().begin());
    EXPECT_EQ(conversation.title(), "New");
    EXPECT_EQ(conversation.updatedAt(), Timestamp(5.0));
    ASSERT_EQ(conversation.messages().size(), 1u);
    EXPECT_EQ(conversation.messages()[0].content(), "b");
}

TEST(CoachConversation, ChangingACopyNeverChangesTheOriginal) {
    CoachConversation original("Original");
    for (int i = 0; i < 3; ++i) original.append(CoachMessage(Role::user, "m" + std::to_string(i)));
    const auto ids = [](const CoachConversation& c) {
        std::vector<sagely::Uuid> all;
        for (const auto& message : c.messages()) all.push_back(message.id());
        return all;
    };
    const auto before = ids(original);

    CoachConversation copy = original;
    copy.append(CoachMessage(Role::assistant, "only in the copy"));
    copy.messages()[0] = CoachMessage(Role::system, "replaced");
    copy.messages().erase(copy.messages().begin() + 1);
    copy.setTitle("Copy");

    EXPECT_EQ(original.title(), "Original");
    EXPECT_EQ(ids(original), before);
    ASSERT_EQ(original.messages().size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(original.messages()[i].content(), "m" + std::to_string(i));
        EXPECT_EQ(original.messages()[i].role(), Role::user);
    }
    ASSERT_EQ(copy.messages().size(), 3u);
    EXPECT_EQ(copy.messages()[0].content(), "replaced");
    EXPECT_EQ(copy.messages()[1].content(), "m2");
    EXPECT_EQ(copy.messages()[2].content(), "only in the copy");
}

// Copies cross to the writer's thread while the coach goes on changing its own.
TEST(CoachConversation, CopiesReadOnOtherThreadsWhileTheOriginalChanges) {
    CoachConversation conversation("Shared");
    for (int i = 0; i < 200; ++i)
        conversation.append(
            CoachMessage(Role::user, std::string(100, static_cast<char>('a' + i % 26))));
    std::vector<std::thread> readers;
    std::vector<std::size_t> characters(4, 0);
    for (std::size_t t = 0; t < characters.size(); ++t) {
        readers.emplace_back([copy = conversation, &counted = characters[t]]() mutable {
            for (int round = 0; round < 50; ++round) {
                CoachConversation again = copy;
                for (const auto& message : again.messages()) counted += message.content().size();
                copy = std::move(again);
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        conversation.messages().erase(conversation.messages().begin());
        conversation.append(CoachMessage(Role::assistant, "new " + std::to_string(i)));
    }
    for (auto& reader : readers) reader.join();
    for (std::size_t counted : characters) EXPECT_EQ(counted, 50u * 200u * 100u);
    ASSERT_EQ(conversation.messages().size(), 200u);
    EXPECT_EQ(conversation.messages().front().content(), "new 0");
}

TEST(CoachConversation, EncodesCompactlyWithKeysInFieldOrder) {
    const std::string text =
        R"({"id":"11111111-2222-4333-8444-555555555510","title":"Conversation 1","messages":[)"
        R"({"id":"00000000-0000-4000-8000-000000000000","role":"user","content":"m0",)"
        R"("timestamp":700000000},{"id":"00000000-0000-4000-8000-000000000001",)"
        R"("role":"assistant","content":"m1","timestamp":700000001.75}],)"
        R"("createdAt":700000000.5,"updatedAt":700000100.125})";
    CoachConversation conversation = decodeConversation(text);
    EXPECT_EQ(encodeJson(conversation), text);
    EXPECT_EQ(encodeConversations({conversation}), "[" + text + "]");
    EXPECT_EQ(conversation.id().toString(), "11111111-2222-4333-8444-555555555510");
    EXPECT_EQ(conversation.title(), "Conversation 1");
    EXPECT_EQ(conversation.createdAt(), Timestamp(700000000.5));
    EXPECT_EQ(conversation.updatedAt(), Timestamp(700000100.125));
    ASSERT_EQ(conversation.messages().size(), 2u);
    EXPECT_EQ(conversation.messages()[1].role(), Role::assistant);
    EXPECT_EQ(conversation.messages()[1].timestamp(), Timestamp(700000001.75));
}

TEST(CoachConversation, EmptyMessagesArrayIsValid) {
    const std::string text =
        R"({"id":"11111111-2222-4333-8444-555555555555","title":"Empty","messages":[],)"
        R"("createdAt":1,"updatedAt":2})";
    CoachConversation conversation = decodeConversation(text);
    EXPECT_TRUE(conversation.messages().empty());
    EXPECT_EQ(conversation.title(), "Empty");
    EXPECT_TRUE(nlohmann::json::parse(text).get<CoachConversation>().messages().empty());
    EXPECT_EQ(encodeJson(conversation), text);
}

TEST(CoachConversation, ListsRoundTripThroughBothEntryPoints) {
    std::vector<CoachConversation> list;
    for (int i = 0; i < 6; ++i) list.push_back(richConversation(i));
    list.push_back(CoachConversation("Nothing yet"));

    std::string text = encodeConversations(list);
    std::vector<CoachConversation> back = decodeConversations(text);
    ASSERT_EQ(back.size(), list.size());
    for (std::size_t i = 0; i < list.size(); ++i) expectSameConversation(back[i], list[i]);
    EXPECT_EQ(encodeConversations(back), text);

    nlohmann::json json = list;
    EXPECT_EQ(json, nlohmann::json::parse(text));
    std::vector<CoachConversation> adapted = json.get<std::vector<CoachConversation>>();
    ASSERT_EQ(adapted.size(), list.size());
    for (std::size_t i = 0; i < list.size(); ++i) expectSameConversation(adapted[i], list[i]);
}

TEST(CoachConversation, EmptyListIsTheTwoCharacterArray) {
    EXPECT_EQ(encodeConversations({}), "[]");
    EXPECT_TRUE(decodeConversations("[]").empty());
    EXPECT_TRUE(decodeConversations(" \n[ ]\n").empty());
}

TEST(CoachConversation, ErrorsNameTheFullKeyPath) {
    std::string text = "[" + conversationJson(0, 3) + "," + conversationJson(1, 1) + "," +
                       conversationJson(2, 9, 7, "bot") + "]";
    EXPECT_EQ(decodingError([&] { decodeConversations(text); }),
              "[2].messages[7].role: unknown role \"bot\"");
    EXPECT_EQ(
        decodingError([&] { nlohmann::json::parse(text).get<std::vector<CoachConversation>>(); }),
        "messages[7].role: unknown role \"bot\"");
    EXPECT_EQ(decodingError([] { decodeConversation(conversationJson(0, 2, 1, "")); }),
              "messages[1].role: unknown role \"\"");
}

TEST(CoachConversation, EveryRequiredKeyIsChecked) {
    const std::string full = conversationJson(0, 1);
    for (const std::string key : {"id", "title", "messages", "createdAt", "updatedAt"}) {
        nlohmann::json json = nlohmann::json::parse(full);
        json.erase(key);
        EXPECT_EQ(decodingError([&] { decodeConversations("[" + json.dump() + "]"); }),
                  "[0]." + key + ": missing key");
        EXPECT_EQ(decodingError([&] { json.get<CoachConversation>(); }), key + ": missing key");
    }
}

TEST(CoachConversation, WrongTypesDeepInsideNameTheirPath) {
    nlohmann::json json = nlohmann::json::parse(conversationJson(0, 2));
    json["messages"][1]["card"] = {{"style", "info"},
                                   {"title", "T"},
                                   {"sections", {{{"title", "S"}, {"items", {"a", 5}}}}},
                                   {"suggestions", nlohmann::json::array()}};
    EXPECT_EQ(decodingError([&] { decodeConversations("[[],[]]"); }), "[0]: expected an object");
    EXPECT_EQ(decodingError([&] { decodeConversations("[" + json.dump() + "]"); }),
              "[0].messages[1].card.sections[0].items[1]: expected a string");

    json = nlohmann::json::parse(conversationJson(0, 1));
    json["messages"][0]["lesson"] =
        nlohmann::json::parse(R"({"style":"info","title":"L","blocks":[{"type":"text","text":"a"},)"
                              R"({"type":"video"}],"suggestions":[]})");
    EXPECT_EQ(decodingError([&] { decodeConversations("[" + json.dump() + "]"); }),
              "[0].messages[0].lesson.blocks[1].type: unknown block type \"video\"");

    json = nlohmann::json::parse(conversationJson(0, 1));
    json["createdAt"] = "yesterday";
    EXPECT_EQ(decodingError([&] { decodeConversations("[" + json.dump() + "]"); }),
              "[0].createdAt: expected a number");
    json["createdAt"] = 1;
    json["messages"] = nlohmann::json::object();
    EXPECT_EQ(decodingError([&] { decodeConversations("[" + json.dump() + "]"); }),
              "[0].messages: expected an array");
    EXPECT_EQ(decodingError([] { decodeConversations("{}"); }), "expected an array");
    EXPECT_EQ(decodingError([] { decodeConversations("null"); }), "expected an array");
}

TEST(CoachConversation, OneMalformedConversationFailsTheWholeList) {
    std::string text =
        "[" + conversationJson(0, 2) + "," + conversationJson(1, 2) + "," +
        R"({"id":"not-a-uuid","title":"x","messages":[],"createdAt":1,"updatedAt":1})" + "]";
    std::vector<CoachConversation> decoded;
    EXPECT_EQ(decodingError([&] { decoded = decodeConversations(text); }),
              "[2].id: malformed UUID \"not-a-uuid\"");
    EXPECT_TRUE(decoded.empty());
}

TEST(CoachConversation, UnknownKeysAreIgnoredAtEveryLevel) {
    nlohmann::json json = nlohmann::json::parse(conversationJson(0, 1));
    json["pinned"] = true;
    json["tags"] = {"a", {{"deep", {1, 2.5, nullptr, "\u00e9"}}}};
    json["messages"][0]["reactions"] = nlohmann::json::object();
    CoachConversation conversation = decodeConversation(json.dump());
    EXPECT_EQ(encodeJson(conversation), conversationJson(0, 1));
    EXPECT_EQ(encodeJson(json.get<CoachConversation>()), conversationJson(0, 1));
}

TEST(CoachConversation, InvalidJsonAndTrailingTextFail) {
    const std::string list = "[" + conversationJson(0, 1) + "]";
    for (const std::string& text :
         {std::string(""), std::string("["), std::string("[]x"), std::string("[] []"),
          std::string("[]]"), list.substr(0, list.size() - 1) + ",]", std::string("[{}"),
          list + ",", list.substr(0, list.size() - 2) + "]", list + std::string(1, '\0')}) {
        std::string message = decodingError([&] { decodeConversations(text); });
        EXPECT_NE(message.find("invalid JSON"), std::string::npos) << text << " => " << message;
    }
}

TEST(CoachConversation, DeeplyNestedUnknownValuesFailCleanly) {
    std::string nested = std::string(100, '[') + std::string(100, ']');
    nlohmann::json json = nlohmann::json::parse(conversationJson(0, 0));
    std::string base = json.dump();
    std::string fine = base.substr(0, base.size() - 1) + R"(,"x":)" + nested + "}";
    EXPECT_EQ(decodeConversation(fine).title(), "Conversation 1");

    std::string deep = std::string(5000, '[') + std::string(5000, ']');
    std::string tooDeep = base.substr(0, base.size() - 1) + R"(,"x":)" + deep + "}";
    std::string message = decodingError([&] { decodeConversation(tooDeep); });
    EXPECT_EQ(message.rfind("x", 0), 0u) << message;
    EXPECT_NE(message.find("invalid JSON"), std::string::npos) << message;
}

TEST(CoachConversation, TimesThatAreNotFiniteCannotBeEncoded) {
    CoachConversation conversation("Broken clock");
    conversation.setUpdatedAt(Timestamp(std::numeric_limits<double>::quiet_NaN()));
    try {
        encodeJson(conversation);
        ADD_FAILURE() << "no error";
    } catch (const sagely::Error& error) {
        EXPECT_STREQ(error.what(), "updatedAt: cannot encode a number that is not finite");
    }
    conversation.setUpdatedAt(Timestamp(std::numeric_limits<double>::infinity()));
    EXPECT_THROW(encodeConversations({conversation}), sagely::Error);
    EXPECT_THROW({ nlohmann::json json = conversation; }, sagely::Error);
}
