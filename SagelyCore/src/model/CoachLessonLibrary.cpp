#include <sagely/CoachLesson.h>

namespace sagely {
namespace {

using Block = CoachLesson::Block;
using Line = CoachLesson::Line;
constexpr Line::Kind kNumbered = Line::Kind::numbered;
constexpr Line::Kind kBullet = Line::Kind::bullet;

Block openTheSpeechView() {
    return Block::stepGroup(
        {"Open the Speech view",
         {Line("In the editor sidebar, click **Speech** (waveform icon).", kNumbered),
          Line("The top bar shows permission indicators — green = granted, orange = needed.",
               kNumbered)}});
}

Block grantPermissions() {
    return Block::stepGroup(
        {"Grant permissions",
         {Line("**Microphone** — Privacy & Security → Microphone", kNumbered),
          Line("**Speech Recognition** — Privacy & Security → Speech Recognition", kNumbered),
          Line("**Accessibility** — required for the system-wide hotkey", kNumbered),
          Line("Click **Allow** in the Speech view or approve each macOS prompt.", kBullet)}});
}

Block testListening() {
    return Block::stepGroup(
        {"Test listening",
         {Line("Press and hold **Hold to talk** — red while listening, transcribes on release.",
               kNumbered),
          Line("Optional: enable the hotkey (default **⌃⌥Space**) — tap once to start, tap again "
               "to stop.",
               kNumbered)}});
}

Block tuneSettings() {
    return Block::stepGroup(
        {"Tune settings (optional)",
         {Line("Open **Preferences → Speech** (menu bar ⚡ → Preferences).", kNumbered),
          Line("Choose:", kNumbered),
          Line("**STT Provider** — Apple (default) or Whisper (offline)", kBullet),
          Line("**TTS Voice** — any installed Mac voice", kBullet),
          Line("**Speech Rate** — default 180 wpm", kBullet)}});
}

Block verification() {
    return Block::callout({"Verification",
                           "Press **⌃⌥Space** (or hold **Hold to talk**) and say a short phrase — "
                           "it should appear in the conversation log.",
                           CoachLesson::Callout::Tone::verification});
}

CoachLesson::CanvasPoster speechPoster() {
    return {"Speech Setup",
            {"Open Speech in the editor sidebar",
             "Grant Microphone, Speech Recognition, and Accessibility",
             "Test hold-to-talk or the ⌃⌥Space hotkey",
             "Optional: tune voice and STT in Preferences → Speech"},
            "Say a short phrase — it should appear in the Speech conversation log."};
}

}  // namespace

CoachLesson CoachLessonLibrary::speechSetup() {
    CoachLesson lesson;
    lesson.style = CoachLesson::Style::info;
    lesson.title = "Set Up Speech";
    lesson.subtitle = "Voice input, spoken replies, and a system-wide listen hotkey";
    lesson.summary =
        "Open Speech in the sidebar, grant three permissions, then test hold-to-talk or ⌃⌥Space.";
    lesson.blocks = {openTheSpeechView(), grantPermissions(), testListening(), tuneSettings(),
                     verification()};
    lesson.suggestions = {"What permissions do I need for voice?", "How do I test speech safely?",
                          "What is Teach in Tessel?"};
    lesson.canvasPoster = speechPoster();
    return lesson;
}

}  // namespace sagely
