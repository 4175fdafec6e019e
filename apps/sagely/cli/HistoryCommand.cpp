// sagely history [list|show N|delete N] — the saved conversations of a namespace, read and
// changed through a coach on the real settings store, as any host of the kit would.
#include "cli/Commands.h"
#include "cli/ConversationList.h"
#include "cli/InlineMarkdown.h"
#include "cli/Rendering.h"
#include "cli/RunSettings.h"

#include <sagely/AICoach.h>
#include <sagely/CoachPriceTable.h>
#include <sagely/MainExecutor.h>

#include <ostream>

namespace sagely::cli {
namespace {

const CoachConversation& pick(const AICoach& coach, const std::vector<std::string>& words) {
    if (words.size() != 2) throw UsageError(words[0] + " needs one conversation number");
    const auto& list = coach.conversations().get();
    const auto number = parseListNumber(words[1]);
    if (!number || *number > list.size())
        throw UsageError("no conversation number " + words[1] + " (there are " +
                         std::to_string(list.size()) + ")");
    return list[*number - 1];
}

std::string tokenText(const TokenUsage& usage) {
    return std::to_string(usage.inputTokens) + " in, " + std::to_string(usage.outputTokens) +
           " out";
}

// "1210 in, 30 out", then the model and its estimate when the reply names its model.
std::string replyUsageText(const TokenUsage& usage, const CoachPriceTable& prices) {
    std::string text = tokenText(usage);
    if (usage.model.empty()) return text;
    const auto cost = prices.cost(usage);
    return text + " (" + usage.model + ", " +
           (cost ? CoachPriceTable::costText(*cost) : "no price known") + ")";
}

// With `usage`, each reply that says what it cost is followed by its tokens (and its estimated
// cost when its model has a price), and the conversation by their total.
void show(const CoachConversation& conversation, bool usage, Host& host) {
    const Renderer renderer(host.usesColor());
    host.out << renderer.styled(Renderer::plain(conversation.title()), ansi::bold) << "\n";
    const CoachPriceTable prices = usage ? CoachPriceTable::current() : CoachPriceTable();
    for (const auto& message : conversation.messages()) {
        host.out << "\n" << renderer.historyMessage(message);
        if (!usage || !message.usage()) continue;
        host.out << renderer.styled(
                        "Tokens: " + Renderer::plain(replyUsageText(*message.usage(), prices)),
                        ansi::dim)
                 << "\n";
    }
    if (!usage) return;
    const auto total = prices.total(conversation.messages());
    if (total.replies == 0) {
        host.out << "\nNo reply in this conversation says what it cost.\n";
        return;
    }
    host.out << "\nTokens in all: " << tokenText(total.tokens) << " (" << total.replies
             << (total.replies == 1 ? " reply" : " replies") << ")\n";
    if (!total.cost) return;
    host.out << "Estimated cost: " << CoachPriceTable::costText(*total.cost);
    if (!prices.checked().empty()) host.out << " (prices checked " << prices.checked() << ")";
    host.out << "\n";
}

}  // namespace

int historyCommand(const ParsedArguments& arguments, Host& host) {
    std::vector<std::string> words = arguments.positionals();
    if (words.empty()) words.push_back("list");
    const std::string& action = words[0];
    if (action != "list" && action != "show" && action != "delete")
        throw UsageError("unknown history action '" + action + "' (list, show or delete)");
    if (action == "list" && words.size() > 1)
        throw UsageError("unexpected argument '" + words[1] + "'");
    if (arguments.has("usage") && action != "show") throw UsageError("--usage goes with show");
    auto store = openSavedSettings(host);
    AICoach coach(std::make_shared<ManualExecutor>(), nullptr, store.get(),
                  namespaceArgument(arguments));
    if (action == "list") {
        host.out << listConversations(coach.conversations().get(), std::nullopt);
    } else if (action == "show") {
        show(pick(coach, words), arguments.has("usage"), host);
    } else {
        const CoachConversation chosen = pick(coach, words);
        coach.deleteConversation(chosen);
        coach.waitForPendingSaves();
        if (auto failure = coach.lastSaveFailure().get()) {
            host.err << "The conversation was not deleted from the file: " << *failure << "\n";
            return exitNotSaved;
        }
        host.out << "Deleted " << quotedTitle(chosen) << ".\n";
    }
    return exitOk;
}

}  // namespace sagely::cli
