#include "DemoContext.h"

#include <sagely/CoachBundledManual.h>
#include <sagely/CoachLesson.h>
#include <sagely/SagelyKnowledge.h>
#include <sagely/Text.h>

#include <algorithm>
#include <array>
#include <map>

namespace tessel {
namespace {

bool mentionsAny(const std::string& text, std::initializer_list<std::string_view> words) {
    return std::any_of(words.begin(), words.end(),
                       [&](std::string_view word) { return sagely::text::contains(text, word); });
}

constexpr std::array<const char*, 6> kActivity = {
    "Ran the flow \"Weekly report\" (succeeded, 41 s).",
    "Added the tile \"Summarise inbox\" to \"Team Onboarding\".",
    "Opened the Speech view; Accessibility permission still needed.",
    "Recorded a Teach session of 7 steps.",
    "Exported the canvas \"Onboarding map\" as PDF.",
    "Connected the Calendar connection.",
};

}  // namespace

std::string DemoContext::configurationSummary() {
    return "Tessel 3.2 (demo build). Project \"Team Onboarding\" is open in the editor with 12 "
           "tiles and 3 flows. Speech: Microphone and Speech Recognition granted, "
           "Accessibility not yet granted, hotkey ⌃⌥Space enabled. "
           "Teach mode: idle. Canvas: \"Onboarding map\" open in a second window.";
}

std::string DemoContext::manualText() {
    if (auto manual = sagely::CoachBundledManual::text()) return *manual;
    return sagely::SagelyKnowledge::bundledGuideText();
}

std::optional<std::string> DemoContext::shortcutInfo(const std::string& name) {
    static const std::map<std::string, std::string> shortcuts = {
        {"listen", "⌃⌥Space starts and stops listening anywhere on the Mac."},
        {"teach", "⌘⇧T starts or stops a Teach recording."},
        {"run", "⌘R runs the selected flow."},
        {"canvas", "⌘⇧C opens the AI Canvas for the current project."},
    };
    const auto found = shortcuts.find(sagely::text::lowercased(name));
    if (found == shortcuts.end()) return std::nullopt;
    return found->second;
}

std::string DemoContext::recentActivity(int limit) {
    std::string lines;
    const int count = std::min<int>(limit, int(kActivity.size()));
    for (int i = 0; i < count; ++i) lines += std::string("- ") + kActivity[std::size_t(i)] + "\n";
    return lines;
}

bool DemoContext::asksForSpeechSetup(const std::string& question) {
    const std::string text = sagely::text::lowercased(question);
    return mentionsAny(text, {"speech", "voice", "dictation", "hold-to-talk", "hold to talk"}) &&
           mentionsAny(text, {"set up", "setup", "set-up", "enable", "configure", "turn on",
                              "get started", "start using"});
}

std::optional<sagely::CoachLocalActionResult> DemoContext::localAction(
    const std::string& question) {
    if (!asksForSpeechSetup(question)) return std::nullopt;
    return sagely::CoachLocalActionResult{
        "Here is how to set up speech in Tessel. Open the lesson on the AI Canvas to keep the "
        "checklist beside you.",
        std::nullopt, sagely::CoachLessonLibrary::speechSetup()};
}

sagely::CoachReplyEnrichment DemoContext::liveObservation() {
    sagely::CoachCard card;
    card.style = sagely::CoachCard::Style::info;
    card.title = "What Tessel sees";
    card.subtitle = "A live look at your workspace when you asked";
    card.sections = {
        {"Open project",
         {"Team Onboarding — 12 tiles, 3 flows", "Last run: \"Weekly report\" succeeded"}},
        {"Speech",
         {"Microphone and Speech Recognition granted",
          "Accessibility needed for the ⌃⌥Space hotkey"}},
    };
    card.suggestions = {"How do I grant Accessibility?", "How do I schedule a flow?"};
    return {
        "The editor shows the project \"Team Onboarding\"; the flow \"Weekly report\" ran "
        "41 seconds ago and succeeded. Accessibility permission is not granted, so the "
        "system-wide listen hotkey cannot work yet.",
        card};
}

}  // namespace tessel
