#include <sagely/CoachSystemPrompt.h>

#include <sagely/Text.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using sagely::buildCoachSystemPrompt;
using Provider = sagely::CoachConfig::Provider;

namespace {

// The base prompt, line by line, as the coach's persona and answer format define it.
std::string expectedBasePrompt() {
    const std::vector<std::string> lines = {
        "You are Sagely \xE2\x80\x94 a helpful, knowledgeable assistant embedded inside a macOS "
        "app.",
        "",
        "Your role:",
        "- Help users understand what the app does",
        "- Explain features clearly, with step-by-step instructions",
        "- Troubleshoot likely problems",
        "- Suggest workflows the user might not have thought of",
        "- Stay practical and concise",
        "- Format answers with Markdown (**bold**, numbered lists, `code`) \xE2\x80\x94 the UI "
        "renders "
        "inline emphasis",
        "- For multi-step instructions, use this exact pattern so the UI can structure them:",
        "  Step 1: Short title",
        "  Detail line one",
        "  Detail line two",
        "  Step 2: Next title",
        "  ...",
        "- Do not emit standalone # or ## lines \xE2\x80\x94 use Step N: titles instead",
        "- Put each action (Click, Select, Open) on its own line",
        "",
        "Important guidelines:",
        "- Prefer specific, actionable instructions over abstract advice",
        "- Reference the connected app's real configuration when possible",
        "- If the app context is incomplete, say what you know and what is missing",
        "- Do not invent product behavior that is not in the provided knowledge",
        "- When the APP GUIDE includes a \"Setup Guides\" section, use it as the primary source "
        "for how-to and getting-started answers",
        "- When the APP GUIDE or live context mentions Tessel Pro, treat these as authoritative "
        "facts:",
        "  \xE2\x80\xA2 Tessel Pro HAS a built-in Speech view (speech-to-text, text-to-speech, "
        "push-to-talk, system-wide hotkey). Never claim Speech is missing or must come from "
        "third-party apps.",
        "  \xE2\x80\xA2 Tessel Pro HAS Teach by Demonstration, AI Coach, shortcuts, menus, and "
        "palettes.",
        "  \xE2\x80\xA2 If the guide includes \"Speech & Voice Control\", use it for speech setup "
        "questions.",
    };
    EXPECT_EQ(lines.size(), 28u);
    std::string joined;
    for (std::size_t i = 0; i < lines.size(); ++i) joined += (i ? "\n" : "") + lines[i];
    return joined;
}

const std::string kGuideOpen = "\n\n--- APP GUIDE ---\n\n";
const std::string kGuideClose = "\n\n--- END APP GUIDE ---\n";
const std::string kContextOpen = "\n\n--- LIVE APP CONTEXT ---\n\n";
const std::string kContextClose = "\n\n--- END LIVE APP CONTEXT ---\n";
const std::string kActivityOpen = "\n\n--- RECENT ACTIVITY ---\n\n";
const std::string kActivityClose = "\n\n--- END RECENT ACTIVITY ---\n";
const std::string kObservationOpen = "\n\n--- LIVE MAC OBSERVATION (read-only) ---\n\n";
const std::string kObservationClose =
    "\n\nUse this observation to ground your answer. Do not claim you clicked or typed "
    "anything.\n\n--- END LIVE MAC OBSERVATION ---\n";

// A host whose answers are set by the test and whose calls are recorded.
class RecordingContext : public sagely::CoachContextProvider {
public:
    std::string manual, summary, activity;
    std::vector<std::string> calls;
    std::vector<int> activityLimits;

    std::string configurationSummary() override {
        calls.push_back("configurationSummary");
        return summary;
    }
    std::string manualText() override {
        calls.push_back("manualText");
        return manual;
    }
    std::optional<std::string> shortcutInfo(const std::string&) override {
        calls.push_back("shortcutInfo");
        return std::nullopt;
    }
    std::string recentActivity(int limit) override {
        calls.push_back("recentActivity");
        activityLimits.push_back(limit);
        return activity;
    }
};

}  // namespace

TEST(CoachSystemPrompt, BeginsWithTheTwentyEightLineBasePrompt) {
    std::string base = expectedBasePrompt();
    EXPECT_EQ(std::string(sagely::coachBasePrompt()), base);
    EXPECT_FALSE(base.ends_with("\n"));
}

TEST(CoachSystemPrompt, IsTheBasePromptAloneWithoutContextOrObservation) {
    EXPECT_EQ(buildCoachSystemPrompt(Provider::openai, "How?", std::nullopt, nullptr),
              expectedBasePrompt());
    EXPECT_EQ(buildCoachSystemPrompt(Provider::apple, "", std::string(), nullptr),
              expectedBasePrompt());
}

TEST(CoachSystemPrompt, PutsEverySectionInItsFixedOrder) {
    RecordingContext context;
    context.manual = "## Export\nChoose File > Export.";
    context.summary = "Theme: dark";
    context.activity = "Opened a project";
    std::string prompt = buildCoachSystemPrompt(Provider::openai, "export",
                                                std::string("Finder is frontmost"), &context);
    EXPECT_EQ(prompt, expectedBasePrompt() + kGuideOpen + "## Export\nChoose File > Export." +
                          kGuideClose + kContextOpen + "Theme: dark" + kContextClose +
                          kActivityOpen + "Opened a project" + kActivityClose + kObservationOpen +
                          "Finder is frontmost" + kObservationClose);
    EXPECT_EQ(context.calls,
              (std::vector<std::string>{"manualText", "configurationSummary", "recentActivity"}));
    EXPECT_EQ(context.activityLimits, (std::vector<int>{10}));
}

TEST(CoachSystemPrompt, LeavesOutTheGuideWhenTheManualIsEmpty) {
    RecordingContext context;
    context.summary = "Theme: dark";
    EXPECT_EQ(buildCoachSystemPrompt(Provider::anthropic, "q", std::nullopt, &context),
              expectedBasePrompt() + kContextOpen + "Theme: dark" + kContextClose);
}

TEST(CoachSystemPrompt, KeepsTheGuideSectionWhenOnlyTheExcerptIsEmpty) {
    RecordingContext context;
    context.manual = " \n ";
    EXPECT_EQ(buildCoachSystemPrompt(Provider::openai, "q", std::nullopt, &context),
              expectedBasePrompt() + kGuideOpen + kGuideClose);
}

TEST(CoachSystemPrompt, NeverAsksForRecentActivityForTheOnDeviceModel) {
    RecordingContext context;
    context.summary = "Theme: dark";
    context.activity = "Opened a project";
    std::string prompt = buildCoachSystemPrompt(Provider::apple, "q", std::nullopt, &context);
    EXPECT_EQ(prompt, expectedBasePrompt() + kContextOpen + "Theme: dark" + kContextClose);
    EXPECT_EQ(context.calls, (std::vector<std::string>{"manualText", "configurationSummary"}));
}

TEST(CoachSystemPrompt, AsksForRecentActivityForEveryOtherProvider) {
    for (Provider provider : {Provider::openai, Provider::anthropic, Provider::gemini,
                              Provider::local, Provider::custom}) {
        RecordingContext context;
        context.activity = "Saved";
        EXPECT_EQ(buildCoachSystemPrompt(provider, "q", std::nullopt, &context),
                  expectedBasePrompt() + kActivityOpen + "Saved" + kActivityClose);
    }
}

TEST(CoachSystemPrompt, AddsAnObservationOnlyWhenItHasText) {
    EXPECT_EQ(buildCoachSystemPrompt(Provider::openai, "q", std::string(), nullptr),
              expectedBasePrompt());
    std::string prompt =
        buildCoachSystemPrompt(Provider::apple, "q", std::string("Safari"), nullptr);
    EXPECT_EQ(prompt, expectedBasePrompt() + kObservationOpen + "Safari" + kObservationClose);
    EXPECT_TRUE(prompt.ends_with("\n--- END LIVE MAC OBSERVATION ---\n"));
}

TEST(CoachSystemPrompt, ExcerptsTheGuideToTheProvidersLimit) {
    RecordingContext context;
    context.manual = std::string(2000, 'm');
    EXPECT_EQ(buildCoachSystemPrompt(Provider::apple, "q", std::nullopt, &context),
              expectedBasePrompt() + kGuideOpen + std::string(1499, 'm') + "\u2026" + kGuideClose);
    EXPECT_EQ(buildCoachSystemPrompt(Provider::openai, "q", std::nullopt, &context),
              expectedBasePrompt() + kGuideOpen + std::string(2000, 'm') + kGuideClose);
}

TEST(CoachSystemPrompt, ChoosesTheGuideSectionsForTheQuery) {
    RecordingContext context;
    context.manual = "## Alpha\n" + std::string(1000, 'a') + "\n## Beta\nbeta " +
                     std::string(995, 'b') + "\n## Gamma\n" + std::string(1000, 'c');
    EXPECT_EQ(buildCoachSystemPrompt(Provider::apple, "Tell me about beta", std::nullopt, &context),
              expectedBasePrompt() + kGuideOpen + "### Beta\n\nbeta " + std::string(995, 'b') +
                  kGuideClose);
}
