// A conversation file in the writer's form is taken in without decoding its conversations, and
// written back from their text. Against the full decoder: the same conversations, the same
// bytes written, the same errors, on the writer's own output and on thousands of altered copies.
#include <sagely/CoachActionCall.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachLesson.h>

#include "model/json/ConversationsInPlace.h"
#include "model/json/DataModelAccess.h"
#include "model/json/StoredConversations.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace sagely {
namespace {

using detail::DataModelAccess;
using Role = CoachMessage::Role;

CoachMessage message(int n, std::string content, double seconds,
                     std::optional<TokenUsage> usage = std::nullopt,
                     std::optional<CoachCard> card = std::nullopt,
                     std::optional<CoachLesson> lesson = std::nullopt) {
    return DataModelAccess::message(Uuid::random(),
                                    n % 3 == 2 ? Role::system
                                    : n % 2    ? Role::assistant
                                               : Role::user,
                                    std::move(content), std::move(card), std::move(lesson), usage,
                                    Timestamp(seconds));
}

TokenUsage namedUsage(std::int64_t input, std::int64_t output, std::string provider,
                      std::string model) {
    TokenUsage usage(input, output);
    usage.provider = std::move(provider);
    usage.model = std::move(model);
    return usage;
}

CoachActionCall call(std::string id, std::string name, std::string title, std::string arguments,
                     CoachActionCall::Status status, std::string result, bool idMadeUp = false,
                     std::optional<CoachCard> card = std::nullopt) {
    CoachActionCall call{std::move(id),        std::move(name), std::move(title),
                         std::move(arguments), status,          std::move(result)};
    call.idMadeUp = idMadeUp;
    call.card = std::move(card);
    return call;
}

CoachMessage actionRound(std::vector<CoachActionCall> calls, std::string providerTurn,
                         double seconds, std::optional<TokenUsage> usage = std::nullopt,
                         std::string content = "") {
    return DataModelAccess::message(Uuid::random(), Role::assistant, std::move(content),
                                    std::nullopt, std::nullopt, usage, Timestamp(seconds),
                                    std::move(calls), std::move(providerTurn));
}

// A provider's turn with every kind of value and number the writer spells in a way of its own:
// whole numbers at the ends of 64 bits and past them, doubles in plain and exponent notation,
// -0, 12.0, escaped strings and keys, non-ASCII, empty containers, nesting, a repeated key.
const std::string kEveryKindOfTurn =
    R"({"role":"model","parts":[{"functionCall":{"name":"open","args":{"n":12.0,)"
    R"("big":18446744073709551615,"past":18446744073709551616,"low":-9223372036854775808,)"
    R"("lower":-9223372036854775809,"half":0.5,"tiny":1e-7,"huge":1.5e300,"zero":0,)"
    R"("minusZero":-0,"neg":-3.25,"t":true,"f":false,"none":null,)"
    R"("s":"a\"b\\c\n\u0001 caf\u00e9 \ud83d\ude00","e":{},"a":[],"deep":[[[{"x":[1,[2]]}]]]}},)"
    R"("thoughtSignature":"c2ln"}],"key \"quoted\"\n":1,"cl\u00e9":2,"dup":1,"dup":2})";

// Everything the writer escapes or spells in a way of its own: quotes, backslashes, every
// control character, a slash, DEL, non-ASCII text, ill-formed UTF-8 (written as U+FFFD), times
// in plain and exponent notation, -0, token counts at both ends.
std::vector<CoachConversation> sampleList() {
    std::string controls;
    for (char c = 1; c < 0x20; ++c) controls += c;
    std::vector<CoachMessage> plain = {
        message(0, "plain words", 700000000),
        message(1, "\"quoted\" back\\slash a/b \x7f" + controls, 785086251.75),
        message(2, std::string("nul \0 inside", 12), -0.0),
        message(3, "caf\xC3\xA9 \xF0\x9F\x98\x80 \xE2\x80\x94", 1e-7,
                TokenUsage{0, std::numeric_limits<std::int64_t>::max()}),
        message(4, "bad \xC3\x28 \xED\xA0\x80 \xFF", 1e22, TokenUsage{-5, 12}),
        message(5, "", 0.1),
        message(7, "named model", 700000000.5, namedUsage(12, 3, "openai", "gpt-4o-mini")),
        message(9, "escaped model", 700000000.75, namedUsage(1, 2, "local", "my \"model\"\n")),
    };
    std::vector<CoachMessage> withAttachments = {
        message(0, "a card", 700000001.5, std::nullopt,
                CoachCard{CoachCard::Style::info, "Card", "sub", {{"S", {"a", "b"}}}, {"More?"}}),
        message(1, "a lesson", 700000002.25, std::nullopt, std::nullopt,
                CoachLessonLibrary::speechSetup()),
    };
    const CoachCard card{CoachCard::Style::success, "Canvas", std::nullopt, {}, {"Open it"}};
    const std::vector<CoachActionCall> calls = {
        call("call_1", "create_canvas", "Create canvas", R"({"name":"Launch \"1\""})",
             CoachActionCall::Status::done, "Created.\n", false, card),
        call("", "set_palette", "", "not json {", CoachActionCall::Status::invalid, "", true),
        call("c\x01\xFF", "x", "x", "{}", CoachActionCall::Status::pending, "\xC3\xA9"),
        call("4", "y", "", "{}", CoachActionCall::Status::failed, "boom"),
        call("5", "y", "", "{}", CoachActionCall::Status::declined, "The user declined."),
        call("6", "y", "", "{}", CoachActionCall::Status::cancelled, "Stopped."),
    };
    const TokenUsage usage = namedUsage(1200, 85, "gemini", "gemini-2.5-flash");
    std::vector<CoachMessage> withActions = {
        actionRound({calls[0]}, "", 700000004.5),                           // calls alone
        actionRound({}, kEveryKindOfTurn, 700000005),                       // a turn alone
        actionRound({}, "{}", 700000005.5),                                 // an empty turn
        actionRound(calls, kEveryKindOfTurn, 700000006, usage, "Let me."),  // all together
        actionRound({calls[1], calls[3]}, R"({"content":[{"type":"tool_use"}]})", 700000007,
                    TokenUsage{3, 4}),
        DataModelAccess::message(Uuid::random(), Role::assistant, "a card with them",
                                 CoachCard{CoachCard::Style::warning, "C", "s", {}, {}},
                                 std::nullopt, usage, Timestamp(700000008), {calls[2]},
                                 R"({"a":[1.25,"x"]})"),
        message(1, "after", 700000009),
    };
    return {
        DataModelAccess::conversation(Uuid::random(), "T\u00EDtulo \"1\"\n\t", plain, Timestamp(1),
                                      Timestamp(2.5)),
        DataModelAccess::conversation(Uuid::random(), "actions", withActions, Timestamp(700000004),
                                      Timestamp(700000009)),
        DataModelAccess::conversation(Uuid::random(), "", {}, Timestamp(-0.0), Timestamp(3e-9)),
        DataModelAccess::conversation(Uuid::random(), "attachments", withAttachments,
                                      Timestamp(700000000), Timestamp(700000003)),
        DataModelAccess::conversation(Uuid::random(), "last", {plain[0], plain[3]}, Timestamp(4),
                                      Timestamp(1e21)),
    };
}

// The file code's path: the text stays alive with the conversations that keep parts of it.
std::vector<CoachConversation> decodeInPlace(std::string text) {
    auto buffer = std::make_shared<const std::string>(std::move(text));
    return detail::decodeConversationsInPlace(*buffer, buffer);
}

// What the full decoder makes of `text`: the list written back, or the error.
std::string fullOutcome(const std::string& text) {
    try {
        return "ok " + encodeConversations(decodeConversations(text));
    } catch (const std::exception& error) {
        return std::string("error ") + error.what();
    }
}

// The same through the file reader's path; the written list is checked conversation by
// conversation with its messages decoded, so stored texts are compared with their values too.
std::string inPlaceOutcome(const std::string& text) {
    std::vector<CoachConversation> list;
    try {
        list = decodeInPlace(text);
    } catch (const std::exception& error) {
        return std::string("error ") + error.what();
    }
    const std::string written = encodeConversations(list);
    std::vector<CoachConversation> decoded;
    for (const auto& conversation : list) {
        CoachConversation copy = conversation;
        if (const auto* stored = DataModelAccess::stored(copy)) {
            std::vector<Uuid> ids;
            for (const auto& m : copy.messages()) ids.push_back(m.id());
            if (ids != stored->messageIds) return "stored ids differ from the messages";
        }
        copy.setTitle(copy.title());  // no longer stored: written from its values
        EXPECT_EQ(DataModelAccess::stored(copy), nullptr);
        decoded.push_back(std::move(copy));
    }
    if (encodeConversations(decoded) != written) return "stored text differs from its values";
    return "ok " + written;
}

TEST(StoredConversations, TheWritersOwnTextIsKeptAndWrittenBackAsItIs) {
    const std::string text = encodeConversations(sampleList());
    const auto list = decodeInPlace(text);
    ASSERT_EQ(list.size(), 5u);
    for (const auto& conversation : list)
        EXPECT_NE(DataModelAccess::stored(conversation), nullptr) << conversation.title();
    EXPECT_EQ(encodeConversations(list), text);
    EXPECT_EQ(inPlaceOutcome(text), fullOutcome(text));
    EXPECT_EQ(list[0].title(), "T\u00EDtulo \"1\"\n\t");
    EXPECT_EQ(list[0].messages()[2].content(), std::string("nul \0 inside", 12));
    EXPECT_EQ(list[0].messages()[4].content(),
              "bad \xEF\xBF\xBD( \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD");
}

TEST(StoredConversations, AChangeWritesTheConversationFromItsValues) {
    const std::string text = encodeConversations(sampleList());
    auto list = decodeInPlace(text);
    auto expected = decodeConversations(text);
    list[0].append(CoachMessage(Role::user, "one more"));
    expected[0].messages() = list[0].messages();
    expected[0].setUpdatedAt(list[0].updatedAt());
    list[4].setTitle("renamed");
    expected[4].setTitle("renamed");
    EXPECT_EQ(DataModelAccess::stored(list[0]), nullptr);
    EXPECT_EQ(DataModelAccess::stored(list[4]), nullptr);
    EXPECT_NE(DataModelAccess::stored(list[1]), nullptr);
    EXPECT_EQ(encodeConversations(list), encodeConversations(expected));
}

TEST(StoredConversations, TextNotInTheWritersFormIsDecodedAsBefore) {
    const std::string text = encodeConversations(sampleList());
    const std::string variants[] = {
        " " + text,
        text + "\n",
        "[]",
        "[ ]",
        "",
        "{}",
        text.substr(0, text.size() / 2),
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[],"createdAt":1.50,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t\u0041\/","messages":[],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-55555555555a","title":"t","messages":[],"createdAt":1,"updatedAt":2}])",
        R"([{"title":"t","id":"11111111-2222-4333-8444-555555555555","messages":[],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[],"createdAt":1,"updatedAt":2,"x":[1,{"y":"]"}]}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"robot","content":"","timestamp":1}],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"user","content":"","usage":{"inputTokens":-0,"outputTokens":1},"timestamp":1}],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"user","content":"","card":null,"timestamp":1}],"createdAt":1,"updatedAt":2}])",
        R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555555","role":"user","content":"","card":{"title":"c","style":"info","sections":[],"suggestions":[]},"timestamp":1}],"createdAt":1,"updatedAt":2}])",
    };
    for (const auto& variant : variants)
        EXPECT_EQ(inPlaceOutcome(variant), fullOutcome(variant)) << variant;
}

// What the writer makes of each new field of a message, alone and together, as it is read back.
TEST(StoredConversations, ActionCallsUsageAndProviderTurnsAreKeptAsText) {
    const auto list = decodeInPlace(encodeConversations(sampleList()));
    const CoachConversation& actions = list[1];
    ASSERT_NE(DataModelAccess::stored(actions), nullptr);
    const std::string text(DataModelAccess::stored(actions)->text);
    for (const char* written :
         {R"("actionCalls":[)", R"("idMadeUp":true)", R"("providerTurn":{)", R"("usage":{)",
          R"("card":{)", "1e-07", "18446744073709551615", "18446744073709551616,", R"("n":12,)",
          R"("minusZero":0,)", R"("key \"quoted\"\n":1)", R"("dup":2})"})
        EXPECT_NE(text.find(written), std::string::npos) << written;
    CoachConversation copy = actions;
    const auto& messages = copy.messages();
    ASSERT_EQ(messages.size(), 7u);
    ASSERT_EQ(messages[3].actionCalls().size(), 6u);
    EXPECT_TRUE(messages[3].actionCalls()[1].idMadeUp);
    EXPECT_EQ(messages[3].actionCalls()[0].card->title, "Canvas");
    EXPECT_EQ(messages[3].usage()->model, "gemini-2.5-flash");
    EXPECT_EQ(messages[2].providerTurn(), "{}");
    EXPECT_EQ(messages[5].providerTurn(), R"({"a":[1.25,"x"]})");
}

// Texts one step from the writer's form read as the full decoder reads them, not as text.
TEST(StoredConversations, NearMissesOfTheNewFieldsFallBackToTheFullDecoder) {
    auto file = [](const std::string& fields) {
        return R"([{"id":"11111111-2222-4333-8444-555555555555","title":"t","messages":[{"id":"11111111-2222-4333-8444-555555555556","role":"assistant","content":"")" +
               fields + R"(,"timestamp":1}],"createdAt":1,"updatedAt":2}])";
    };
    const std::string call =
        R"({"id":"c","name":"n","arguments":"{}","status":"done","result":"r"})";
    const std::string writersForm[] = {
        R"(,"actionCalls":[)" + call + "]",
        R"(,"actionCalls":[{"id":"c","idMadeUp":true,"name":"n","title":"T","arguments":"{}","status":"declined","result":"r","card":{"style":"info","title":"c","sections":[],"suggestions":[]}}])",
        R"(,"providerTurn":{"a":[1,-2,0.5,1e-07,true,null,"s",{}]})",
        R"(,"usage":{"inputTokens":1,"outputTokens":2},"actionCalls":[)" + call +
            R"(],"providerTurn":{"b":{}})",
    };
    for (const auto& fields : writersForm) {
        const std::string text = file(fields);
        EXPECT_EQ(inPlaceOutcome(text), fullOutcome(text)) << text;
        const auto list = decodeInPlace(text);
        ASSERT_EQ(list.size(), 1u);
        EXPECT_NE(DataModelAccess::stored(list[0]), nullptr) << text;
    }
    const std::string nearMisses[] = {
        // keys out of order
        R"(,"actionCalls":[{"name":"n","id":"c","arguments":"{}","status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":"c","name":"n","arguments":"{}","result":"r","status":"done"}])",
        R"(,"actionCalls":[{"id":"c","name":"n","idMadeUp":true,"arguments":"{}","status":"done","result":"r"}])",
        R"(,"providerTurn":{},"actionCalls":[)" + call + "]",
        R"(,"actionCalls":[)" + call + R"(],"usage":{"inputTokens":1,"outputTokens":2})",
        R"(,"actionCalls":[{"id":"c","name":"n","arguments":"{}","status":"done","result":"r","card":{"title":"c","style":"info","sections":[],"suggestions":[]}}])",
        // values the writer leaves out
        R"(,"actionCalls":[])",
        R"(,"actionCalls":null)",
        R"(,"providerTurn":null)",
        R"(,"actionCalls":[{"id":"c","idMadeUp":false,"name":"n","arguments":"{}","status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":"c","idMadeUp":null,"name":"n","arguments":"{}","status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":"c","name":"n","title":"","arguments":"{}","status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":"c","name":"n","title":null,"arguments":"{}","status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":"c","name":"n","arguments":"{}","status":"done","result":"r","card":null}])",
        // wrong types
        R"(,"actionCalls":[{"id":"c","name":"n","arguments":{},"status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":1,"name":"n","arguments":"{}","status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":"c","idMadeUp":1,"name":"n","arguments":"{}","status":"done","result":"r"}])",
        R"(,"actionCalls":[{"id":"c","name":"n","arguments":"{}","status":"finished","result":"r"}])",
        R"(,"actionCalls":{"id":"c"})",
        R"(,"providerTurn":[1])",
        R"(,"providerTurn":"{}")",
        R"(,"providerTurn":1)",
        // extra spaces
        R"(,"actionCalls":[ )" + call + "]",
        R"(,"actionCalls":[{"id": "c","name":"n","arguments":"{}","status":"done","result":"r"}])",
        R"(,"providerTurn":{"a": 1})",
        R"(,"providerTurn":{ })",
        R"(,"providerTurn":{"a":[1, 2]})",
        // an unknown key
        R"(,"actionCalls":[{"id":"c","name":"n","arguments":"{}","status":"done","result":"r","x":1}])",
        // turns the writer writes otherwise
        R"(,"providerTurn":{"a":1,"a":2})",
        R"(,"providerTurn":{"a":{"b":1,"c":2,"b":3}})",
        R"(,"providerTurn":{"a":1.0})",
        R"(,"providerTurn":{"a":1.50})",
        R"(,"providerTurn":{"a":1E5})",
        R"(,"providerTurn":{"a":1e5})",
        R"(,"providerTurn":{"a":0.0000001})",
        R"(,"providerTurn":{"a":-0.0})",
        R"(,"providerTurn":{"a":01})",
        R"(,"providerTurn":{"a":1e400})",
        R"(,"providerTurn":{"a":"\u0041"})",
        R"(,"providerTurn":{"a":"\/"})",
        R"(,"providerTurn":{"\u0061":1})",
        R"(,"providerTurn":{"a":"\u00E9"})",
        R"(,"providerTurn":{"a":tru})",
        R"(,"providerTurn":{"a":[1,]})",
    };
    for (const auto& fields : nearMisses) {
        const std::string text = file(fields);
        EXPECT_EQ(inPlaceOutcome(text), fullOutcome(text)) << text;
        std::vector<CoachConversation> list;
        try {
            list = decodeInPlace(text);
        } catch (const std::exception&) {
            continue;  // unreadable either way; the errors are compared above
        }
        ASSERT_EQ(list.size(), 1u);
        EXPECT_EQ(DataModelAccess::stored(list[0]), nullptr) << text;
    }
}

// A turn nested deeper than any provider sends is left to the full decoder, and reads the same.
TEST(StoredConversations, AVeryDeepTurnIsLeftToTheFullDecoder) {
    const std::string turn = R"({"a":)" + std::string(100, '[') + std::string(100, ']') + "}";
    const std::vector<CoachConversation> list = {DataModelAccess::conversation(
        Uuid::random(), "deep", {actionRound({}, turn, 1)}, Timestamp(1), Timestamp(2))};
    const std::string text = encodeConversations(list);
    EXPECT_EQ(DataModelAccess::stored(decodeInPlace(text)[0]), nullptr);
    EXPECT_EQ(inPlaceOutcome(text), fullOutcome(text));
}

// Strings are read eight bytes at a time: every byte the writer escapes or checks, at every
// place in and around a block, in the text and in the title, reads as the full decoder reads it.
TEST(StoredConversations, EveryByteAtEveryPlaceOfALongStringReadsAsTheFullDecoderReadsIt) {
    const CoachConversation conversation = DataModelAccess::conversation(
        Uuid::random(), "title", {message(0, "x", 700000000)}, Timestamp(1), Timestamp(2));
    const std::string original = encodeConversations({conversation});
    const std::string marker = R"("content":"x")";
    const std::size_t content = original.find(marker) + marker.size() - 2;
    const std::size_t title = original.find(R"("title")") + 9;
    const std::string probes[] = {"\"",           "\\",      "\\\"",     "\x01",
                                  "\x1f",         " ",       "\x7f",     "\xC3\xA9",
                                  "\xC3",         "\xFF",    "\xE2\x80", "\\u0041",
                                  "\\n",          "\\u001f", "\x80",     "\xF0\x9F\x98\x80",
                                  "\xED\xA0\x80", "/",       "!#"};
    int kept = 0;
    for (std::size_t at : {content, title}) {
        for (std::size_t length = 0; length <= 24; ++length) {
            for (std::size_t place = 0; place <= length; ++place) {
                for (const auto& probe : probes) {
                    std::string value(length, 'a');
                    value.insert(place, probe);
                    std::string text = original;
                    text.replace(at, 1, value);
                    const std::string expected = fullOutcome(text);
                    ASSERT_EQ(inPlaceOutcome(text), expected) << text;
                    if (expected.starts_with("ok "))
                        kept += DataModelAccess::stored(decodeInPlace(text)[0]) != nullptr;
                }
            }
        }
    }
    EXPECT_GT(kept, 1000);  // the well-formed ones are still kept as text
}

// An id is the writer's only when it is its 36 upper-case characters between quotes.
TEST(StoredConversations, OnlyTheWritersSpellingOfAnIdIsKeptAsText) {
    const std::string id = "0123ABCD-EF45-4789-8BCD-EF0123456789";
    const auto text = [](const std::string& written) {
        return R"([{"id":)" + written +
               R"(,"title":"t","messages":[],"createdAt":1,"updatedAt":2}])";
    };
    ASSERT_NE(DataModelAccess::stored(decodeInPlace(text("\"" + id + "\""))[0]), nullptr);
    std::string lower = id;
    lower[30] = 'a';
    const std::string spellings[] = {"\"" + lower + "\"",
                                     "\"" + id.substr(0, 35) + "\"",
                                     "\"" + id + "0\"",
                                     "\"\\u0030" + id.substr(1) + "\"",
                                     "\"" + id.substr(0, 35) + "\\\"",
                                     "\"" + id,
                                     "\"" + id + "\"" + "\"",
                                     "\"{" + id.substr(1) + "\""};
    for (const auto& spelling : spellings) {
        const std::string variant = text(spelling);
        EXPECT_EQ(inPlaceOutcome(variant), fullOutcome(variant)) << variant;
        if (fullOutcome(variant).starts_with("ok ")) {
            EXPECT_EQ(DataModelAccess::stored(decodeInPlace(variant)[0]), nullptr) << variant;
        }
    }
}

// Random edits of the writer's text, biased towards the bytes its form is made of.
TEST(StoredConversations, AlteredTextsGiveWhatTheFullDecoderGives) {
    const std::string original = encodeConversations(sampleList());
    const std::string alphabet = "\"\\/{}[],:0123456789-+.eEuUabfnrtAF \x01\x1f\x7f\xC3\xA9\xFF";
    std::mt19937 random(20261123);
    int decoded = 0;
    for (int round = 0; round < 2000; ++round) {
        std::string text = original;
        const int edits = 1 + static_cast<int>(random() % 3);
        for (int e = 0; e < edits && !text.empty(); ++e) {
            const std::size_t at = random() % text.size();
            const char c = alphabet[random() % alphabet.size()];
            switch (random() % 4) {
                case 0:
                    text[at] = c;
                    break;
                case 1:
                    text.insert(text.begin() + static_cast<std::ptrdiff_t>(at), c);
                    break;
                case 2:
                    text.erase(at, 1 + random() % 3);
                    break;
                default:
                    text.insert(at, text.substr(random() % text.size(), 1 + random() % 40));
            }
        }
        const std::string expected = fullOutcome(text);
        ASSERT_EQ(inPlaceOutcome(text), expected) << text;
        decoded += expected.starts_with("ok ");
    }
    EXPECT_GT(decoded, 100);  // the edits also leave many readable texts
}

}  // namespace
}  // namespace sagely
