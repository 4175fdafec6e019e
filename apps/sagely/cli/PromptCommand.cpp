// sagely prompt QUESTION — what the model would be sent for the question, as JSON, built the way
// the coach builds a request: the system prompt for the run's provider, the conversation the
// question would join (the latest one, or none with --new), the question, then the provider's
// budget. Nothing is asked and nothing is saved.
#include "cli/Commands.h"
#include "cli/RunSettings.h"

#include <sagely/CoachPromptBudget.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/ConversationFile.h>
#include <sagely/Text.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <ostream>

namespace sagely::cli {
namespace {

std::vector<CoachMessage> conversationSoFar(const CoachSettingsStore& saved,
                                            const RunOptions& options) {
    if (options.startNew) return {};
    const auto list = ConversationFile::load(saved.conversationURL(options.conversationNamespace));
    auto latest = std::max_element(list.begin(), list.end(), [](const auto& a, const auto& b) {
        return a.updatedAt() < b.updatedAt();
    });
    return latest == list.end() ? std::vector<CoachMessage>{} : latest->messages();
}

std::vector<LLMMessage> modelMessages(const std::string& systemPrompt,
                                      const std::vector<CoachMessage>& history,
                                      const std::string& question) {
    std::vector<LLMMessage> messages{{"system", systemPrompt}};
    for (const auto& message : history) {
        if (message.role() == CoachMessage::Role::system) continue;
        messages.push_back({std::string(rawValue(message.role())), message.content()});
    }
    messages.push_back({"user", question});
    return messages;
}

nlohmann::ordered_json toJson(const std::string& systemPrompt,
                              const std::vector<LLMMessage>& messages) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& message : messages)
        list.push_back({{"role", message.role}, {"content", message.content}});
    return {{"systemPrompt", systemPrompt}, {"messages", std::move(list)}};
}

}  // namespace

int promptCommand(const ParsedArguments& arguments, Host& host) {
    const std::string question = text::trimmed(arguments.joinedPositionals());
    if (question.empty()) throw UsageError("a question is needed");
    const RunOptions options = RunOptions::fromArguments(arguments);
    const auto saved = openSavedSettings(host);
    const CoachConfig config = RunSettings(*saved, options, host).config();
    const auto context = makeContextProvider(options);
    const std::string systemPrompt =
        buildCoachSystemPrompt(config.provider, question, std::nullopt, context.get());
    const auto messages = CoachPromptBudget::budgetMessages(
        modelMessages(systemPrompt, conversationSoFar(*saved, options), question), config.provider);
    host.out << toJson(systemPrompt, messages)
                    .dump(2, ' ', false, nlohmann::json::error_handler_t::replace)
             << "\n";
    return exitOk;
}

}  // namespace sagely::cli
