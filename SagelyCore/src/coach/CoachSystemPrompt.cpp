#include <sagely/CoachSystemPrompt.h>

#include <sagely/CoachPromptBudget.h>

namespace sagely {
namespace {

// The persona and the answer format the reply parser and the step view rely on.
constexpr std::string_view kBasePrompt =
    "You are Sagely \u2014 a helpful, knowledgeable assistant embedded inside a macOS app.\n"
    "\n"
    "Your role:\n"
    "- Help users understand what the app does\n"
    "- Explain features clearly, with step-by-step instructions\n"
    "- Troubleshoot likely problems\n"
    "- Suggest workflows the user might not have thought of\n"
    "- Stay practical and concise\n"
    "- Format answers with Markdown (**bold**, numbered lists, `code`) \u2014 the UI renders "
    "inline emphasis\n"
    "- For multi-step instructions, use this exact pattern so the UI can structure them:\n"
    "  Step 1: Short title\n"
    "  Detail line one\n"
    "  Detail line two\n"
    "  Step 2: Next title\n"
    "  ...\n"
    "- Do not emit standalone # or ## lines \u2014 use Step N: titles instead\n"
    "- Put each action (Click, Select, Open) on its own line\n"
    "\n"
    "Important guidelines:\n"
    "- Prefer specific, actionable instructions over abstract advice\n"
    "- Reference the connected app's real configuration when possible\n"
    "- If the app context is incomplete, say what you know and what is missing\n"
    "- Do not invent product behavior that is not in the provided knowledge\n"
    "- When the APP GUIDE includes a \"Setup Guides\" section, use it as the primary source for "
    "how-to and getting-started answers\n"
    "- When the APP GUIDE or live context mentions Tessel Pro, treat these as authoritative "
    "facts:\n"
    "  \u2022 Tessel Pro HAS a built-in Speech view (speech-to-text, text-to-speech, push-to-talk, "
    "system-wide hotkey). Never claim Speech is missing or must come from third-party apps.\n"
    "  \u2022 Tessel Pro HAS Teach by Demonstration, AI Coach, shortcuts, menus, and palettes.\n"
    "  \u2022 If the guide includes \"Speech & Voice Control\", use it for speech setup "
    "questions.";

constexpr int kRecentActivityLimit = 10;

void appendSection(std::string& prompt, std::string_view name, std::string_view body) {
    prompt.append("\n\n--- ").append(name).append(" ---\n\n");
    prompt.append(body);
    prompt.append("\n\n--- END ").append(name).append(" ---\n");
}

void appendObservation(std::string& prompt, std::string_view observation) {
    prompt.append("\n\n--- LIVE MAC OBSERVATION (read-only) ---\n\n");
    prompt.append(observation);
    prompt.append(
        "\n\nUse this observation to ground your answer. Do not claim you clicked or typed "
        "anything.\n");
    prompt.append("\n--- END LIVE MAC OBSERVATION ---\n");
}

// The whole manual decides whether the section appears, so a guide whose excerpt comes out
// empty still leaves its (empty) section in place.
void appendGuide(std::string& prompt, CoachConfig::Provider provider, std::string_view query,
                 CoachContextProvider& context) {
    std::string manual = context.manualText();
    if (manual.empty()) return;
    std::size_t limit = CoachPromptBudget::manualExcerptLimit(provider);
    appendSection(prompt, "APP GUIDE",
                  CoachPromptBudget::relevantManualExcerpt(manual, query, limit));
}

}  // namespace

std::string_view coachBasePrompt() {
    return kBasePrompt;
}

std::string buildCoachSystemPrompt(CoachConfig::Provider provider, std::string_view query,
                                   const std::optional<std::string>& observation,
                                   CoachContextProvider* contextProvider) {
    std::string prompt(kBasePrompt);
    if (contextProvider) {
        appendGuide(prompt, provider, query, *contextProvider);
        std::string summary = contextProvider->configurationSummary();
        if (!summary.empty()) appendSection(prompt, "LIVE APP CONTEXT", summary);
    }
    if (contextProvider && provider != CoachConfig::Provider::apple) {
        // The on-device model never gets recent activity: its context is too small.
        std::string activity = contextProvider->recentActivity(kRecentActivityLimit);
        if (!activity.empty()) appendSection(prompt, "RECENT ACTIVITY", activity);
    }
    if (observation && !observation->empty()) appendObservation(prompt, *observation);
    return prompt;
}

}  // namespace sagely
