// Writes the fuzzers' seed corpora: conversations and settings encoded by the kit itself,
// replies of each wire format as the tests' servers send them, and replies for the formatter
// taken from the tests and from the bundled guide. Usage: fuzz-seeds OUTPUT_FOLDER GUIDE_FILE
#include <sagely/CoachConversation.h>
#include <sagely/CoachSettingsStore.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

using namespace sagely;
namespace fs = std::filesystem;

namespace {

void write(const fs::path& folder, const std::string& name, const std::string& bytes) {
    fs::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << bytes;
}

const std::vector<std::string> kReplies = {
    "Step 1: Open Settings\nStep 2: Choose **Models**\nStep 3: Save",
    "Intro text.\n\nStep 1:Open the panel. Step 2: Press `Save`.",
    "# Heading\n\n- one\n- two\n\n**Bold** and *italic* with `code`.",
    "Plain answer without structure.",
    "1. First\n2. Second\n\n```\ncode block\n```",
    "Emoji \U0001F600 and accents caf\u00e9 \u2014 done.",
};

std::vector<CoachConversation> sampleConversations() {
    CoachCard card;
    card.style = CoachCard::Style::warning;
    card.title = "Check the key";
    card.subtitle = "Settings";
    card.sections = {{"Where", {"Open Settings", "Choose Models"}}};
    card.suggestions = {"How do I clear a key?"};
    CoachConversation first("Keys");
    first.append(CoachMessage(CoachMessage::Role::user, "How are API keys stored?"));
    first.append(CoachMessage(CoachMessage::Role::assistant, kReplies[0], card));
    CoachConversation second("Empty");
    CoachConversation third("Unicode \u2014 \U0001F600");
    third.append(CoachMessage(CoachMessage::Role::system, "System note"));
    return {first, second, third};
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: fuzz-seeds OUTPUT_FOLDER GUIDE_FILE\n";
        return 2;
    }
    const fs::path out = argv[1];

    const auto conversations = sampleConversations();
    write(out / "fuzz-conversations", "all.json", encodeConversations(conversations));
    write(out / "fuzz-conversations", "none.json", encodeConversations({}));
    write(out / "fuzz-conversations", "one.json", encodeConversations({conversations[0]}));

    CoachSettingsStore::PersistedSettings settings;
    write(out / "fuzz-settings", "default.json", encodeJson(settings));
    settings.provider = CoachConfig::Provider::local;
    settings.model = "llama3.2";
    settings.customEndpoint = "http://127.0.0.1:11434/api/chat";
    settings.temperature = 0.7;
    settings.maxTokens = 2048;
    settings.profiles = std::map<std::string, CoachSettingsStore::ProviderProfile>{
        {"local", {"llama3.2", "", true}}, {"openai", {"gpt-4o-mini", "", false}}};
    settings.userChoseProvider = true;
    write(out / "fuzz-settings", "profiles.json", encodeJson(settings));

    for (std::size_t i = 0; i < kReplies.size(); ++i) {
        write(out / "fuzz-formatter", "reply-" + std::to_string(i) + ".md", kReplies[i]);
    }
    std::ifstream guideFile(argv[2], std::ios::binary);
    std::stringstream guide;
    guide << guideFile.rdbuf();
    // The guide in sections, each a plausible reply of its own.
    std::string section;
    int sections = 0;
    for (std::string line; std::getline(guide, line);) {
        if (line.starts_with("## ") && !section.empty() && sections < 40) {
            write(out / "fuzz-formatter", "guide-" + std::to_string(sections++) + ".md", section);
            section.clear();
        }
        section += line + "\n";
    }

    using nlohmann::json;
    const std::string text = kReplies[0];
    // A stream of each framing; the first byte picks the read sizes.
    write(out / "fuzz-stream-framing", "openai.sse",
          "\x05: keep-alive\r\ndata: " +
              json{{"choices", {{{"delta", {{"content", text}}}}}}}.dump() +
              "\r\n\r\nevent: ping\ndata: {}\n\ndata: [DONE]\n\n");
    // A schema and arguments of equal length: the fuzzer cuts its input in the middle.
    {
        const std::string schema = json{
            {"type", "object"},
            {"properties",
             {{"name", {{"type", "string"}}},
              {"tags", {{"type", "array"}, {"items", {{"enum", {"a", "b"}}}}}}}},
            {"required", {"name"}}}.dump();
        std::string arguments = json{{"name", "Launch"}, {"tags", {"a"}}}.dump();
        arguments.resize(schema.size(), ' ');
        write(out / "fuzz-json-schema", "canvas.json", schema + arguments);
    }
    write(out / "fuzz-stream-framing", "ollama.ndjson",
          "\x0b" + json{{"message", {{"content", text}}}, {"done", false}}.dump() +
              "\n{\"done\":true}\n");
    write(out / "fuzz-reply-openai", "reply.json",
          json{{"choices", {{{"message", {{"role", "assistant"}, {"content", text}}}}}}}.dump());
    write(out / "fuzz-reply-openai", "refusal.json",
          json{{"choices", {{{"message", {{"content", nullptr}, {"refusal", "No."}}}}}}}.dump());
    write(out / "fuzz-reply-anthropic", "reply.json",
          json{{"content",
                {{{"type", "thinking"}, {"thinking", "hm"}}, {{"type", "text"}, {"text", text}}}}}
              .dump());
    write(out / "fuzz-reply-gemini", "reply.json",
          json{{"candidates",
                {{{"content",
                   {{"parts", {{{"text", "plan"}, {"thought", true}}, {{"text", text}}}}}}}}}}
              .dump());
    write(out / "fuzz-reply-ollama", "reply.json",
          json{{"message", {{"role", "assistant"}, {"content", text}}}, {"done", true}}.dump());
    for (const char* dialect : {"openai", "anthropic", "gemini", "ollama"})
        write(out / (std::string("fuzz-reply-") + dialect), "empty.json", "{}");
    return 0;
}
