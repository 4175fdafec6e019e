#include "cli/Commands.h"

#include <algorithm>
#include <string>

namespace sagely::cli {
namespace {

const std::vector<DeclaredOption> kRunOptions = {
    {"provider", true}, {"model", true},      {"endpoint", true},      {"guide", true},
    {"summary", true},  {"namespace", true},  {"offline", false},      {"json", false},
    {"new", false},     {"no-stream", false}, {"allow-actions", false}};

const std::vector<DeclaredOption> kPromptOptions = {
    {"provider", true}, {"model", true},     {"endpoint", true}, {"guide", true},
    {"summary", true},  {"namespace", true}, {"new", false}};

constexpr std::string_view kRunOptionHelp =
    "  --provider NAME   the provider for this run: apple, openai, anthropic, gemini, local,\n"
    "                    custom, or a name such as \"Google Gemini\"\n"
    "  --model ID        the model for this run\n"
    "  --endpoint URL    the request URL for this run\n"
    "  --guide FILE      the guide the coach answers from (default: the kit's bundled guide)\n"
    "  --summary TEXT    a summary of the live configuration, placed in the prompt\n"
    "  --namespace NAME  the conversation namespace (default: cli)\n"
    "  --new             start a new conversation (default: go on with the latest one)\n";

constexpr std::string_view kRunOnlyNote =
    "Options apply to this run only; the saved settings change only with use, set and key,\n"
    "or a change the model made with your approval.\n"
    "OPENAI_API_KEY, ANTHROPIC_API_KEY and GEMINI_API_KEY supply a key for one run.\n";

std::string askDetails() {
    return "Asks the coach one question and prints its reply.\n\nOptions:\n" +
           std::string(kRunOptionHelp) +
           "  --offline         answer from the guide alone, without any model\n"
           "  --json            print the reply as the kit's JSON message (once it is complete)\n"
           "  --no-stream       wait for the whole reply instead of printing it as it arrives\n"
           "  --allow-actions   let the model switch the provider or change a setting without\n"
           "                    asking (by default such calls are declined)\n\n" +
           std::string(kRunOnlyNote) +
           "\nExit codes: 0 answered, 2 usage, 3 missing key or endpoint, or no answer offline,\n"
           "4 provider or network failure, 130 interrupted (Ctrl-C; the text so far is kept).\n";
}

std::string chatDetails() {
    return "Talks with the coach in one conversation. Type a question, or the number of a\n"
           "suggestion shown under the last reply. Commands:\n"
           "  /new        start a new conversation\n"
           "  /list       list the conversations\n"
           "  /switch N   go on with conversation N\n"
           "  /delete N   delete conversation N\n"
           "  /quit       leave (so does the end of input)\n\nOptions:\n" +
           std::string(kRunOptionHelp) +
           "  --offline         answer from the guide alone, without any model\n"
           "  --json            print each reply as the kit's JSON message (once it is complete)\n"
           "  --no-stream       wait for each whole reply instead of printing it as it "
           "arrives\n"
           "  --allow-actions   let the model switch the provider or change a setting without\n"
           "                    asking (by default chat asks y/N for each)\n\n" +
           std::string(kRunOnlyNote);
}

std::string promptDetails() {
    return "Prints what the model would be sent for the question, as JSON: \"systemPrompt\", the\n"
           "system prompt built for it, and \"messages\", the budgeted list of {role, content}\n"
           "exactly as the client sends it. Nothing is asked and nothing is saved.\n\nOptions:\n" +
           std::string(kRunOptionHelp);
}

std::vector<Command> buildCommands() {
    static const std::string ask = askDetails(), chat = chatDetails(), prompt = promptDetails();
    return {
        {"ask", "usage: sagely ask [options] QUESTION", "ask one question and print the reply", ask,
         kRunOptions, askCommand},
        {"chat", "usage: sagely chat [options]", "talk with the coach in one conversation", chat,
         kRunOptions, chatCommand},
        {"prompt", "usage: sagely prompt [options] QUESTION",
         "show what the model would be sent, as JSON", prompt, kPromptOptions, promptCommand},
        {"use",
         "usage: sagely use PROVIDER [--model ID] [--endpoint URL]",
         "choose the provider (and its model and endpoint)",
         "Saves the provider, and optionally its model and endpoint (an empty URL clears it).\n"
         "Each provider keeps its own model, endpoint and key.\n",
         {{"model", true}, {"endpoint", true}},
         useCommand},
        {"set",
         "usage: sagely set temperature|max-tokens VALUE",
         "set the temperature or the reply length",
         "temperature: 0.0 to 1.2 in steps of 0.1; max-tokens: 256 to 8192 in steps of 256.\n",
         {},
         setCommand},
        {"key",
         "usage: sagely key set|clear PROVIDER",
         "save or remove a provider's API key",
         "set reads the key from standard input (not echoed on a terminal), never from the\n"
         "command line, and keeps it in the system's secret store; clear removes it.\n",
         {},
         keyCommand},
        {"settings",
         "usage: sagely settings",
         "show the saved settings",
         "Shows the provider, model, endpoint, temperature, max tokens and which providers\n"
         "have a saved key (never the key itself).\n",
         {},
         settingsCommand},
        {"status",
         "usage: sagely status",
         "show whether the on-device model can be used",
         "Shows the on-device model's status, its detail, and the setup steps when it is not\n"
         "ready.\n",
         {},
         statusCommand},
        {"providers",
         "usage: sagely providers",
         "list the providers and their models",
         "Lists every provider with its id, whether it needs a key, and its suggested models.\n",
         {},
         providersCommand},
        {"models",
         "usage: sagely models [PROVIDER] [--model ID] [--endpoint URL]",
         "list the models a provider offers now",
         "Asks the provider (default: the saved one) for the models it offers now: an Ollama\n"
         "server's installed models, a cloud provider's current list. --endpoint is the chat\n"
         "endpoint, as for ask; the list's address is derived from it. Nothing is saved.\n",
         {{"model", true}, {"endpoint", true}},
         modelsCommand},
        {"check",
         "usage: sagely check [PROVIDER] [--model ID] [--endpoint URL]",
         "check that a provider's key, endpoint and model work",
         "Sends one tiny request (the model list, or a chat of a few tokens where there is\n"
         "none) and says whether the key, the endpoint and the model work, and how long it\n"
         "took. Nothing is saved. Exit code 0 when everything works, 4 otherwise.\n",
         {{"model", true}, {"endpoint", true}},
         checkCommand},
        {"history",
         "usage: sagely history [list|show N [--usage]|delete N] [--namespace NAME]",
         "list, show or delete saved conversations",
         "Conversations are numbered newest first, as `history list` shows them.\n\nOptions:\n"
         "  --namespace NAME  the conversation namespace (default: cli)\n"
         "  --usage           with show: the tokens each reply cost, and their total\n",
         {{"namespace", true}, {"usage", false}},
         historyCommand},
        {"format",
         "usage: sagely format [--normalize|--blocks|--steps]",
         "run the reply formatter on standard input",
         "Reads a reply from standard input. Without an option it prints it as `ask` would.\n"
         "  --normalize  the repaired text\n"
         "  --blocks     its paragraphs, as a JSON array of strings\n"
         "  --steps      its procedure as JSON {\"intro\", \"steps\": [{\"title\", "
         "\"details\"}]},\n"
         "               or null when it is not a procedure of two or more steps\n",
         {{"normalize", false}, {"blocks", false}, {"steps", false}},
         formatCommand},
    };
}

}  // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> table = buildCommands();
    return table;
}

const Command* findCommand(std::string_view name) {
    const auto& table = commands();
    auto it = std::find_if(table.begin(), table.end(),
                           [&](const Command& command) { return command.name == name; });
    return it == table.end() ? nullptr : &*it;
}

std::string overallUsage() {
    std::string text = "usage: sagely COMMAND [options]\n\nCommands:\n";
    for (const auto& command : commands()) {
        std::string name(command.name);
        name.resize(11, ' ');
        text += "  " + name + std::string(command.summary) + "\n";
    }
    return text + "\nRun `sagely COMMAND --help` for a command's options.\n";
}

}  // namespace sagely::cli
