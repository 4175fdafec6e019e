// Host actions end to end, for each wire format, with the real model client against an HTTP
// server on the loopback interface: the calls the model makes, what the host's handlers see,
// the approval, what goes back on the wire, the round limit, and what the conversation keeps.
#include "support/CoachHarness.h"
#include "support/LoopbackHttpServer.h"
#include "support/SampleHostActions.h"

#include <sagely/AICoach.h>
#include <sagely/CoachHostAction.h>
#include <sagely/LLMClient.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace sagely {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::CoachHarness;
using testing::LoopbackHttpServer;
using testing::ScriptedResponse;
using Provider = CoachConfig::Provider;
using Status = CoachActionCall::Status;

struct Call {
    std::string id;
    std::string name;
    json arguments;
};

// --- Each format's replies and requests ---

std::string callsReply(Provider provider, const std::vector<Call>& calls) {
    json out = json::array();
    switch (provider) {
        case Provider::anthropic:
            out.push_back({{"type", "text"}, {"text", "Let me check."}});
            for (const Call& c : calls)
                out.push_back(
                    {{"type", "tool_use"}, {"id", c.id}, {"name", c.name}, {"input", c.arguments}});
            return json{{"content", out}, {"stop_reason", "tool_use"}}.dump();
        case Provider::gemini: {
            bool first = true;
            for (const Call& c : calls) {
                json part = {
                    {"functionCall", {{"id", c.id}, {"name", c.name}, {"args", c.arguments}}}};
                if (first) part["thoughtSignature"] = "SIG-" + c.id;
                first = false;
                out.push_back(part);
            }
            return json{
                {"candidates",
                 {{{"content", {{"role", "model"}, {"parts", out}}}, {"finishReason", "STOP"}}}}}
                .dump();
        }
        case Provider::local:
            for (const Call& c : calls)
                out.push_back(
                    {{"id", c.id}, {"function", {{"name", c.name}, {"arguments", c.arguments}}}});
            return json{{"message", {{"role", "assistant"}, {"content", ""}, {"tool_calls", out}}},
                        {"done", true}}
                .dump();
        default:
            for (const Call& c : calls)
                out.push_back(
                    {{"id", c.id},
                     {"type", "function"},
                     {"function", {{"name", c.name}, {"arguments", c.arguments.dump()}}}});
            return json{
                {"choices",
                 {{{"message", {{"role", "assistant"}, {"content", nullptr}, {"tool_calls", out}}},
                   {"finish_reason", "tool_calls"}}}}}
                .dump();
    }
}

std::string textReply(Provider provider, const std::string& text) {
    switch (provider) {
        case Provider::anthropic:
            return json{{"content", {{{"type", "text"}, {"text", text}}}}}.dump();
        case Provider::gemini:
            return json{{"candidates", {{{"content", {{"parts", {{{"text", text}}}}}}}}}}.dump();
        case Provider::local:
            return json{{"message", {{"role", "assistant"}, {"content", text}}}}.dump();
        default:
            return json{{"choices", {{{"message", {{"role", "assistant"}, {"content", text}}}}}}}
                .dump();
    }
}

// One call streamed as each format streams it: OpenAI and Anthropic in argument pieces, Gemini
// and Ollama whole (their only way).
ScriptedResponse streamedCall(Provider provider, const Call& call) {
    const std::string arguments = call.arguments.dump();
    const std::string head = arguments.substr(0, arguments.size() / 2);
    const std::string tail = arguments.substr(arguments.size() / 2);
    std::vector<std::string> chunks;
    std::string type = "text/event-stream";
    auto sse = [&](const json& data) { chunks.push_back("data: " + data.dump() + "\n\n"); };
    switch (provider) {
        case Provider::anthropic: {
            auto event = [&](const std::string& name, json data) {
                data["type"] = name;
                chunks.push_back("event: " + name + "\ndata: " + data.dump() + "\n\n");
            };
            event("message_start", {{"message", {{"role", "assistant"}}}});
            event("content_block_start", {{"index", 0},
                                          {"content_block",
                                           {{"type", "tool_use"},
                                            {"id", call.id},
                                            {"name", call.name},
                                            {"input", json::object()}}}});
            for (const auto& piece : {head, tail})
                event("content_block_delta",
                      {{"index", 0},
                       {"delta", {{"type", "input_json_delta"}, {"partial_json", piece}}}});
            event("content_block_stop", {{"index", 0}});
            event("message_stop", json::object());
            break;
        }
        case Provider::gemini:
            sse({{"candidates",
                  {{{"content",
                     {{"role", "model"},
                      {"parts",
                       {{{"functionCall", {{"name", call.name}, {"args", call.arguments}}},
                         {"thoughtSignature", "SIG"}}}}}},
                    {"finishReason", "STOP"}}}}});
            break;
        case Provider::local:
            type = "application/x-ndjson";
            chunks.push_back(
                json{{"message",
                      {{"role", "assistant"},
                       {"content", ""},
                       {"tool_calls",
                        {{{"function", {{"name", call.name}, {"arguments", call.arguments}}}}}}}},
                     {"done", false}}
                    .dump() +
                "\n");
            chunks.push_back(
                "{\"message\":{\"role\":\"assistant\",\"content\":\"\"},\"done\":true}\n");
            break;
        default:
            for (std::size_t i = 0; i < 2; ++i) {
                json fragment = {{"index", 0}, {"function", {{"arguments", i == 0 ? head : tail}}}};
                if (i == 0) {
                    fragment["id"] = call.id;
                    fragment["type"] = "function";
                    fragment["function"]["name"] = call.name;
                }
                sse({{"choices", {{{"index", 0}, {"delta", {{"tool_calls", {fragment}}}}}}}});
            }
            sse({{"choices",
                  {{{"index", 0}, {"delta", json::object()}, {"finish_reason", "tool_calls"}}}}});
            chunks.push_back("data: [DONE]\n\n");
            break;
    }
    ScriptedResponse response;
    response.headers = {{"Content-Type", type}};
    response.bodyChunks = chunks;
    return response;
}

// The names of the tools a request offers.
std::vector<std::string> offeredTools(Provider provider, const json& body) {
    std::vector<std::string> names;
    if (!body.contains("tools")) return names;
    if (provider == Provider::gemini) {
        for (const auto& declaration : body["tools"][0]["functionDeclarations"])
            names.push_back(declaration["name"]);
    } else if (provider == Provider::anthropic) {
        for (const auto& tool : body["tools"]) names.push_back(tool["name"]);
    } else {
        for (const auto& tool : body["tools"]) names.push_back(tool["function"]["name"]);
    }
    return names;
}

struct SentResult {
    std::string callId;
    std::string content;
    bool isError = false;
};

// The results a request sends back, in the format's shape.
std::vector<SentResult> sentResults(Provider provider, const json& body) {
    std::vector<SentResult> results;
    if (provider == Provider::gemini) {
        for (const auto& content : body["contents"])
            for (const auto& part : content["parts"])
                if (part.contains("functionResponse")) {
                    const json& response = part["functionResponse"];
                    const bool error = response["response"].contains("error");
                    results.push_back({response.value("id", ""),
                                       response["response"][error ? "error" : "output"], error});
                }
    } else if (provider == Provider::anthropic) {
        for (const auto& message : body["messages"])
            if (message["content"].is_array())
                for (const auto& block : message["content"])
                    if (block["type"] == "tool_result")
                        results.push_back({block["tool_use_id"], block["content"],
                                           block.value("is_error", false)});
    } else {
        for (const auto& message : body["messages"])
            if (message["role"] == "tool")
                results.push_back({message["tool_call_id"], message["content"], false});
    }
    return results;
}

std::string endpointPath(Provider provider) {
    switch (provider) {
        case Provider::anthropic:
            return "/v1/messages";
        case Provider::gemini:
            return "/v1beta/models/test-model:generateContent";
        case Provider::local:
            return "/api/chat";
        default:
            return "/v1/chat/completions";
    }
}

class AICoachHostActionsTest : public ::testing::TestWithParam<Provider> {
protected:
    void SetUp() override {
        harness.useProvider(provider(), provider() == Provider::local ? "" : "sk-test",
                            server.url(endpointPath(provider())));
        harness.settings->model.set("test-model");
        coach =
            harness.makeCoach({.contextProvider = context, .llm = std::make_shared<LLMClient>()});
    }

    Provider provider() const { return GetParam(); }

    std::shared_ptr<testing::ReplyRecorder> ask(const std::string& question) {
        return harness.ask(*coach, question);
    }

    json requestBody(std::size_t index) {
        const auto requests = server.requests();
        if (index >= requests.size()) return json();
        return json::parse(requests[index].body);
    }

    const CoachMessage& message(std::size_t index) {
        return coach->currentConversation().get()->messages().at(index);
    }

    LoopbackHttpServer server;
    CoachHarness harness;
    std::shared_ptr<testing::SampleActionsProvider> context =
        std::make_shared<testing::SampleActionsProvider>();
    std::vector<std::string>& seen = context->seen;
    std::unique_ptr<AICoach> coach;
};

TEST_P(AICoachHostActionsTest, AReadOnlyCallRunsAndItsResultGoesBack) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "read_settings", json::object()}})));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "The palette is light.")));
    auto recorder = ask("Which palette?");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), "The palette is light.");
    EXPECT_EQ(seen, std::vector<std::string>{"read_settings {}"});
    EXPECT_EQ(offeredTools(provider(), requestBody(0)),
              (std::vector<std::string>{"read_settings", "create_canvas"}));
    const auto results = sentResults(provider(), requestBody(1));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].content, "palette=light");
    EXPECT_FALSE(results[0].isError);
    EXPECT_EQ(results[0].callId, "c1");
    ASSERT_EQ(coach->currentConversation().get()->messages().size(), 3u);
    const auto& calls = message(1).actionCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].status, Status::done);
    EXPECT_EQ(calls[0].summaryLine(), "Done: read_settings");
    EXPECT_FALSE(coach->pendingAction().get());
    EXPECT_TRUE(coach->actionsInProgress().get().empty());
}

TEST_P(AICoachHostActionsTest, TwoParallelCallsBothRunAndBothResultsGoBack) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "read_settings", json::object()},
                                     {"c2", "read_settings", json::object()}})));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Done twice.")));
    auto recorder = ask("Read it twice.");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(seen.size(), 2u);
    const auto results = sentResults(provider(), requestBody(1));
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].callId, "c1");
    EXPECT_EQ(results[1].callId, "c2");
    const json second = requestBody(1);
    if (provider() == Provider::gemini) {
        // The model's content goes back verbatim, thought signature included.
        const json& model = second["contents"][1];
        EXPECT_EQ(model["role"], "model");
        EXPECT_EQ(model["parts"][0]["thoughtSignature"], "SIG-c1");
    }
    if (provider() == Provider::anthropic) {
        const json& assistant = second["messages"][1];
        EXPECT_EQ(assistant["content"][0]["text"], "Let me check.");
        EXPECT_EQ(assistant["content"][2]["id"], "c2");
    }
}

TEST_P(AICoachHostActionsTest, InvalidArgumentsGoBackAsAnErrorAndNeverReachTheHandler) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "create_canvas", {{"name", 42}}}})));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Sorry.")));
    auto recorder = ask("Make a canvas.");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_TRUE(seen.empty());
    EXPECT_FALSE(coach->pendingAction().get());
    const auto results = sentResults(provider(), requestBody(1));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_NE(results[0].content.find("name: expected a string"), std::string::npos)
        << results[0].content;
    if (provider() == Provider::anthropic || provider() == Provider::gemini) {
        EXPECT_TRUE(results[0].isError);
    }
    EXPECT_EQ(message(1).actionCalls()[0].status, Status::invalid);
}

TEST_P(AICoachHostActionsTest, ACallNeedingApprovalWaitsAndADenialGoesBack) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "create_canvas", {{"name", "Launch"}}}})));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Okay, not created.")));
    auto recorder = ask("Create a canvas called Launch.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    const auto pending = *coach->pendingAction().get();
    EXPECT_EQ(pending.title, "Create canvas");
    EXPECT_EQ(pending.argumentSummary, "name = Launch");
    EXPECT_EQ(pending.callId, "c1");
    EXPECT_FALSE(coach->isThinking().get());
    ASSERT_EQ(coach->actionsInProgress().get().size(), 1u);
    EXPECT_EQ(server.requestCount(), 1u);
    coach->denyPendingAction();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_TRUE(seen.empty());
    const auto results = sentResults(provider(), requestBody(1));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_NE(results[0].content.find("declined"), std::string::npos);
    EXPECT_EQ(message(1).actionCalls()[0].summaryLine(), "Declined: Create canvas");
    EXPECT_EQ(recorder->reply->content(), "Okay, not created.");
}

TEST_P(AICoachHostActionsTest, AnApprovalAlwaysForThisConversationRunsLaterCallsWithoutAsking) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "create_canvas", {{"name", "A"}}}})));
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c2", "create_canvas", {{"name", "B"}}}})));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Both made.")));
    auto recorder = ask("Create A and B.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    coach->approvePendingAction(true);
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(seen, (std::vector<std::string>{"create_canvas {\"name\":\"A\"}",
                                              "create_canvas {\"name\":\"B\"}"}));
    ASSERT_TRUE(message(1).actionCalls()[0].card);
    EXPECT_EQ(message(1).actionCalls()[0].card->title, "Canvas A");
}

TEST_P(AICoachHostActionsTest, TheCoachStopsAfterSixRounds) {
    server.setFallbackResponse(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "read_settings", json::object()}})));
    auto recorder = ask("Loop forever.");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 60s));
    EXPECT_EQ(seen.size(), 6u);
    EXPECT_EQ(server.requestCount(), 7u);
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), AICoach::kActionRoundLimitMessage);
}

TEST_P(AICoachHostActionsTest, ACallStreamedInPiecesIsPutTogether) {
    harness.settings->streamsReplies.set(true);
    server.enqueue(streamedCall(provider(), {"c1", "create_canvas", {{"name", "Launch plan"}}}));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Created.")));
    auto recorder = ask("Create a canvas called Launch plan.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    EXPECT_EQ(coach->pendingAction().get()->arguments, "{\"name\":\"Launch plan\"}");
    coach->approvePendingAction();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(seen, std::vector<std::string>{"create_canvas {\"name\":\"Launch plan\"}"});
    EXPECT_EQ(sentResults(provider(), requestBody(1)).size(), 1u);
    EXPECT_EQ(recorder->reply->content(), "Created.");
    if (provider() == Provider::gemini) {
        EXPECT_EQ(requestBody(1)["contents"][1]["parts"][0]["thoughtSignature"], "SIG");
    }
}

TEST_P(AICoachHostActionsTest, StopWhileWaitingEndsTheLoopAndKeepsTheCallAsCancelled) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "create_canvas", {{"name", "Launch"}}}})));
    auto recorder = ask("Create a canvas called Launch.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    coach->stop();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_FALSE(recorder->reply);
    EXPECT_FALSE(coach->pendingAction().get());
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(message(1).actionCalls()[0].status, Status::cancelled);
}

TEST_P(AICoachHostActionsTest, TheCallsAreSavedAndAFollowUpSendsThemAgain) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "read_settings", json::object()}})));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Light.")));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Still light.")));
    auto first = ask("Which palette?");
    ASSERT_TRUE(harness.runUntilAnswered(*first, 30s));
    coach->waitForPendingSaves();
    const auto saved = harness.savedConversations();
    ASSERT_EQ(saved.size(), 1u);
    ASSERT_EQ(saved[0].messages().size(), 3u);
    const auto& calls = saved[0].messages()[1].actionCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].id, "c1");
    EXPECT_EQ(calls[0].result, "palette=light");
    EXPECT_EQ(calls[0].status, Status::done);
    // A new coach reads the file and sends the round again with the next question.
    coach.reset();
    coach = harness.makeCoach({.contextProvider = context, .llm = std::make_shared<LLMClient>()});
    coach->selectConversation(coach->conversations().get().front());
    auto second = ask("And now?");
    ASSERT_TRUE(harness.runUntilAnswered(*second, 30s));
    const auto results = sentResults(provider(), requestBody(2));
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].content, "palette=light");
}

TEST_P(AICoachHostActionsTest, WithoutActionsTheRoundsGoAsPlainTextAndNoToolsAreSent) {
    server.enqueue(ScriptedResponse::json(
        200, callsReply(provider(), {{"c1", "read_settings", json::object()}})));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Light.")));
    server.enqueue(ScriptedResponse::json(200, textReply(provider(), "Bye.")));
    auto first = ask("Which palette?");
    ASSERT_TRUE(harness.runUntilAnswered(*first, 30s));
    context->actions.clear();
    auto second = ask("Thanks.");
    ASSERT_TRUE(harness.runUntilAnswered(*second, 30s));
    const json body = requestBody(2);
    EXPECT_FALSE(body.contains("tools"));
    EXPECT_TRUE(sentResults(provider(), body).empty());
    EXPECT_NE(body.dump().find("Done: read_settings"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Formats, AICoachHostActionsTest,
                         ::testing::Values(Provider::openai, Provider::anthropic, Provider::gemini,
                                           Provider::local),
                         [](const auto& info) -> std::string {
                             switch (info.param) {
                                 case Provider::anthropic:
                                     return "anthropic";
                                 case Provider::gemini:
                                     return "gemini";
                                 case Provider::local:
                                     return "ollama";
                                 default:
                                     return "openai";
                             }
                         });

}  // namespace
}  // namespace sagely
