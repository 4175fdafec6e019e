#include <sagely/CoachLesson.h>
#include <sagely/Error.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "support/DecodingErrorText.h"

#include <set>
#include <string>

using sagely::CoachLesson;
using sagely::CoachLessonLibrary;
using sagely::decodeLesson;
using sagely::encodeJson;
using Block = CoachLesson::Block;
using BlockType = CoachLesson::Block::BlockType;
using Callout = CoachLesson::Callout;
using Kind = CoachLesson::Line::Kind;
using Line = CoachLesson::Line;

namespace {

using sagely::testing::decodingError;

CoachLesson lessonWithBlocks(std::vector<Block> blocks) {
    CoachLesson lesson;
    lesson.style = CoachLesson::Style::success;
    lesson.title = "Backups";
    lesson.blocks = std::move(blocks);
    lesson.suggestions = {"How often?"};
    return lesson;
}

// A lesson with one block, as JSON text, for decoding tests.
std::string lessonJsonWithBlock(const std::string& block) {
    return R"({"style":"info","title":"T","blocks":[)" + block + R"(],"suggestions":[]})";
}

CoachLesson roundTripThroughNlohmann(const CoachLesson& lesson) {
    nlohmann::json json = lesson;
    return json.get<CoachLesson>();
}

const Callout kCheckCallout{"Check", "It **works**.", Callout::Tone::tip};

}  // namespace

TEST(CoachLesson, RawValuesAreExactAndCaseSensitive) {
    EXPECT_EQ(rawValue(CoachLesson::Style::info), "info");
    EXPECT_EQ(rawValue(CoachLesson::Style::success), "success");
    EXPECT_EQ(rawValue(CoachLesson::Style::warning), "warning");
    EXPECT_EQ(rawValue(BlockType::stepGroup), "stepGroup");
    EXPECT_EQ(rawValue(BlockType::callout), "callout");
    EXPECT_EQ(rawValue(BlockType::text), "text");
    EXPECT_EQ(rawValue(Kind::numbered), "numbered");
    EXPECT_EQ(rawValue(Kind::bullet), "bullet");
    EXPECT_EQ(rawValue(Callout::Tone::tip), "tip");
    EXPECT_EQ(rawValue(Callout::Tone::warning), "warning");
    EXPECT_EQ(rawValue(Callout::Tone::verification), "verification");

    EXPECT_EQ(sagely::lessonStyleFromRawValue("warning"), CoachLesson::Style::warning);
    EXPECT_EQ(sagely::blockTypeFromRawValue("stepGroup"), BlockType::stepGroup);
    EXPECT_EQ(sagely::lineKindFromRawValue("bullet"), Kind::bullet);
    EXPECT_EQ(sagely::calloutToneFromRawValue("verification"), Callout::Tone::verification);
    EXPECT_FALSE(sagely::lessonStyleFromRawValue("Info"));
    EXPECT_FALSE(sagely::blockTypeFromRawValue("stepgroup"));
    EXPECT_FALSE(sagely::blockTypeFromRawValue("step_group"));
    EXPECT_FALSE(sagely::lineKindFromRawValue("numbered "));
    EXPECT_FALSE(sagely::calloutToneFromRawValue(""));
}

TEST(CoachLesson, BlocksKnowTheirTypeAndPayload) {
    Block text = Block::text("Plain **words**.");
    EXPECT_EQ(text.type(), BlockType::text);
    ASSERT_NE(text.asText(), nullptr);
    EXPECT_EQ(*text.asText(), "Plain **words**.");
    EXPECT_EQ(text.asStepGroup(), nullptr);
    EXPECT_EQ(text.asCallout(), nullptr);

    Block callout = Block::callout(kCheckCallout);
    EXPECT_EQ(callout.type(), BlockType::callout);
    ASSERT_NE(callout.asCallout(), nullptr);
    EXPECT_EQ(*callout.asCallout(), kCheckCallout);

    Block group = Block::stepGroup({"Steps", {Line("One", Kind::numbered)}});
    EXPECT_EQ(group.type(), BlockType::stepGroup);
    ASSERT_NE(group.asStepGroup(), nullptr);
    EXPECT_EQ(group.asStepGroup()->lines.at(0), Line("One", Kind::numbered));
    EXPECT_NE(group, text);
}

TEST(CoachLesson, TextBlockEncodesAsExactlyTypeAndText) {
    CoachLesson lesson = lessonWithBlocks({Block::text("Keep two copies.")});
    EXPECT_EQ(encodeJson(lesson),
              R"({"style":"success","title":"Backups","blocks":[{"type":"text",)"
              R"("text":"Keep two copies."}],"suggestions":["How often?"]})");

    nlohmann::json json = lesson;
    const nlohmann::json& block = json["blocks"][0];
    std::set<std::string> keys;
    for (auto it = block.begin(); it != block.end(); ++it) keys.insert(it.key());
    EXPECT_EQ(keys, (std::set<std::string>{"type", "text"}));
    EXPECT_EQ(block["type"], "text");
    EXPECT_EQ(block["text"], "Keep two copies.");
}

TEST(CoachLesson, StepGroupAndCalloutBlocksCarryTheirPayloadUnderTheirTypeName) {
    CoachLesson lesson = lessonWithBlocks(
        {Block::stepGroup({"Do it", {Line("First", Kind::numbered), Line("Note", Kind::bullet)}}),
         Block::callout(kCheckCallout)});
    EXPECT_EQ(encodeJson(lesson),
              R"({"style":"success","title":"Backups","blocks":[{"type":"stepGroup",)"
              R"("stepGroup":{"title":"Do it","lines":[{"text":"First","kind":"numbered"},)"
              R"({"text":"Note","kind":"bullet"}]}},{"type":"callout","callout":{"title":"Check",)"
              R"("body":"It **works**.","tone":"tip"}}],"suggestions":["How often?"]})");
}

TEST(CoachLesson, CalloutBlockThatAlsoCarriesTextDecodesAsTheCallout) {
    const std::string callout = R"({"title":"Check","body":"It **works**.","tone":"tip"})";
    for (const std::string& block :
         {R"({"type":"callout","text":"ignored","callout":)" + callout + "}",
          R"({"text":"ignored","callout":)" + callout + R"(,"type":"callout"})",
          R"({"callout":)" + callout + R"(,"text":42,"stepGroup":{},"type":"callout"})"}) {
        std::string text = lessonJsonWithBlock(block);
        CoachLesson lesson = decodeLesson(text);
        ASSERT_EQ(lesson.blocks.size(), 1u) << block;
        EXPECT_EQ(lesson.blocks[0], Block::callout(kCheckCallout)) << block;
        EXPECT_EQ(nlohmann::json::parse(text).get<CoachLesson>(), lesson) << block;
    }
}

TEST(CoachLesson, LessonWithoutSubtitleSummaryOrPosterLeavesThoseKeysOut) {
    CoachLesson lesson = lessonWithBlocks({Block::text("Hi")});
    std::string text = encodeJson(lesson);
    for (const char* key : {"subtitle", "summary", "canvasPoster"})
        EXPECT_EQ(text.find(key), std::string::npos) << key;
    EXPECT_EQ(decodeLesson(text), lesson);
    nlohmann::json json = lesson;
    EXPECT_EQ(json.size(), 4u);
    EXPECT_EQ(roundTripThroughNlohmann(lesson), lesson);
}

TEST(CoachLesson, OptionalFieldsMayBeNullOrMissing) {
    CoachLesson lesson =
        decodeLesson(R"({"style":"warning","title":"T","subtitle":null,"summary":null,"blocks":[],)"
                     R"("suggestions":[],"canvasPoster":null})");
    EXPECT_FALSE(lesson.subtitle);
    EXPECT_FALSE(lesson.summary);
    EXPECT_FALSE(lesson.canvasPoster);

    CoachLesson poster =
        decodeLesson(R"({"style":"info","title":"T","blocks":[],"suggestions":[],)"
                     R"("canvasPoster":{"title":"P","steps":["a"],"verification":null}})");
    ASSERT_TRUE(poster.canvasPoster);
    EXPECT_EQ(*poster.canvasPoster, (CoachLesson::CanvasPoster{"P", {"a"}, std::nullopt}));
}

TEST(CoachLesson, FullLessonEncodesEveryFieldInOrder) {
    CoachLesson lesson = lessonWithBlocks({Block::text("Hi")});
    lesson.subtitle = "Sub";
    lesson.summary = "Sum";
    lesson.canvasPoster = CoachLesson::CanvasPoster{"Poster", {"One", "Two"}, "Seen it"};
    EXPECT_EQ(
        encodeJson(lesson),
        R"({"style":"success","title":"Backups","subtitle":"Sub","summary":"Sum",)"
        R"("blocks":[{"type":"text","text":"Hi"}],"suggestions":["How often?"],)"
        R"("canvasPoster":{"title":"Poster","steps":["One","Two"],"verification":"Seen it"}})");
    EXPECT_EQ(decodeLesson(encodeJson(lesson)), lesson);
    EXPECT_EQ(roundTripThroughNlohmann(lesson), lesson);
}

TEST(CoachLesson, SpeechSetupHasEveryTextExactly) {
    EXPECT_EQ(
        encodeJson(CoachLessonLibrary::speechSetup()),
        R"js({"style":"info","title":"Set Up Speech",)js"
        R"js("subtitle":"Voice input, spoken replies, and a system-wide listen hotkey",)js"
        R"js("summary":"Open Speech in the sidebar, grant three permissions, then test hold-to-talk or ⌃⌥Space.",)js"
        R"js("blocks":[{"type":"stepGroup","stepGroup":{"title":"Open the Speech view",)js"
        R"js("lines":[{"text":"In the editor sidebar, click **Speech** (waveform icon).",)js"
        R"js("kind":"numbered"},)js"
        R"js({"text":"The top bar shows permission indicators — green = granted, orange = needed.",)js"
        R"js("kind":"numbered"}]}},{"type":"stepGroup","stepGroup":{"title":"Grant permissions",)js"
        R"js("lines":[{"text":"**Microphone** — Privacy & Security → Microphone",)js"
        R"js("kind":"numbered"},)js"
        R"js({"text":"**Speech Recognition** — Privacy & Security → Speech Recognition",)js"
        R"js("kind":"numbered"},)js"
        R"js({"text":"**Accessibility** — required for the system-wide hotkey",)js"
        R"js("kind":"numbered"},)js"
        R"js({"text":"Click **Allow** in the Speech view or approve each macOS prompt.",)js"
        R"js("kind":"bullet"}]}},{"type":"stepGroup","stepGroup":{"title":"Test listening",)js"
        R"js("lines":[{"text":"Press and hold **Hold to talk** — red while listening, transcribes on release.",)js"
        R"js("kind":"numbered"},)js"
        R"js({"text":"Optional: enable the hotkey (default **⌃⌥Space**) — tap once to start, tap again to stop.",)js"
        R"js("kind":"numbered"}]}},{"type":"stepGroup",)js"
        R"js("stepGroup":{"title":"Tune settings (optional)",)js"
        R"js("lines":[{"text":"Open **Preferences → Speech** (menu bar ⚡ → Preferences).",)js"
        R"js("kind":"numbered"},{"text":"Choose:","kind":"numbered"},)js"
        R"js({"text":"**STT Provider** — Apple (default) or Whisper (offline)","kind":"bullet"},)js"
        R"js({"text":"**TTS Voice** — any installed Mac voice","kind":"bullet"},)js"
        R"js({"text":"**Speech Rate** — default 180 wpm","kind":"bullet"}]}},{"type":"callout",)js"
        R"js("callout":{"title":"Verification",)js"
        R"js("body":"Press **⌃⌥Space** (or hold **Hold to talk**) and say a short phrase — it should appear in the conversation log.",)js"
        R"js("tone":"verification"}}],"suggestions":["What permissions do I need for voice?",)js"
        R"js("How do I test speech safely?","What is Teach in Tessel?"],)js"
        R"js("canvasPoster":{"title":"Speech Setup","steps":["Open Speech in the editor sidebar",)js"
        R"js("Grant Microphone, Speech Recognition, and Accessibility",)js"
        R"js("Test hold-to-talk or the ⌃⌥Space hotkey",)js"
        R"js("Optional: tune voice and STT in Preferences → Speech"],)js"
        R"js("verification":"Say a short phrase — it should appear in the Speech conversation log."}})js");
}

TEST(CoachLesson, SpeechSetupRoundTripsEqualToItself) {
    CoachLesson lesson = CoachLessonLibrary::speechSetup();
    EXPECT_EQ(decodeLesson(encodeJson(lesson)), lesson);
    EXPECT_EQ(roundTripThroughNlohmann(lesson), lesson);
    EXPECT_EQ(CoachLessonLibrary::speechSetup(), lesson);
}

TEST(CoachLesson, SpeechSetupMixesNumberedAndBulletLinesInItsSecondAndFourthGroups) {
    CoachLesson lesson = CoachLessonLibrary::speechSetup();
    ASSERT_EQ(lesson.blocks.size(), 5u);
    auto kinds = [&](std::size_t index) {
        std::vector<Kind> out;
        for (const Line& line : lesson.blocks[index].asStepGroup()->lines) out.push_back(line.kind);
        return out;
    };
    for (std::size_t i = 0; i < 4; ++i)
        ASSERT_EQ(lesson.blocks[i].type(), BlockType::stepGroup) << i;
    EXPECT_EQ(kinds(0), (std::vector<Kind>{Kind::numbered, Kind::numbered}));
    EXPECT_EQ(kinds(1),
              (std::vector<Kind>{Kind::numbered, Kind::numbered, Kind::numbered, Kind::bullet}));
    EXPECT_EQ(kinds(2), (std::vector<Kind>{Kind::numbered, Kind::numbered}));
    EXPECT_EQ(kinds(3), (std::vector<Kind>{Kind::numbered, Kind::numbered, Kind::bullet,
                                           Kind::bullet, Kind::bullet}));
    ASSERT_EQ(lesson.blocks[4].type(), BlockType::callout);
    EXPECT_EQ(lesson.blocks[4].asCallout()->tone, Callout::Tone::verification);
    EXPECT_EQ(lesson.style, CoachLesson::Style::info);
}

TEST(CoachLesson, BlockWithoutTypeOrWithAnUnknownTypeFails) {
    EXPECT_EQ(decodingError([] { decodeLesson(lessonJsonWithBlock(R"({"text":"Hi"})")); }),
              "blocks[0].type: missing key");
    EXPECT_EQ(decodingError([] { decodeLesson(lessonJsonWithBlock("{}")); }),
              "blocks[0].type: missing key");
    EXPECT_EQ(
        decodingError([] { decodeLesson(lessonJsonWithBlock(R"({"type":"video","video":"x"})")); }),
        "blocks[0].type: unknown block type \"video\"");
    EXPECT_EQ(decodingError([] { decodeLesson(lessonJsonWithBlock(R"({"type":3})")); }),
              "blocks[0].type: expected a string");
    EXPECT_EQ(decodingError([] {
                  nlohmann::json::parse(lessonJsonWithBlock(R"({"text":"Hi"})")).get<CoachLesson>();
              }),
              "blocks[0].type: missing key");
}

TEST(CoachLesson, BlockWithoutItsPayloadKeyFails) {
    EXPECT_EQ(decodingError(
                  [] { decodeLesson(lessonJsonWithBlock(R"({"type":"callout","text":"Hi"})")); }),
              "blocks[0].callout: missing key");
    EXPECT_EQ(decodingError([] {
                  decodeLesson(R"({"style":"info","title":"T","blocks":[{"type":"text",)"
                               R"("text":"a"},{"type":"stepGroup"}],"suggestions":[]})");
              }),
              "blocks[1].stepGroup: missing key");
    EXPECT_EQ(
        decodingError([] {
            nlohmann::json::parse(lessonJsonWithBlock(R"({"type":"text"})")).get<CoachLesson>();
        }),
        "blocks[0].text: missing key");
}

TEST(CoachLesson, UnknownKindsAndTonesFailNamingTheKeyPath) {
    EXPECT_EQ(decodingError([] {
                  decodeLesson(lessonJsonWithBlock(
                      R"({"type":"stepGroup","stepGroup":{"title":"G","lines":[)"
                      R"({"text":"a","kind":"numbered"},{"text":"b","kind":"dashed"}]}})"));
              }),
              "blocks[0].stepGroup.lines[1].kind: unknown kind \"dashed\"");
    EXPECT_EQ(decodingError([] {
                  decodeLesson(lessonJsonWithBlock(
                      R"({"type":"callout","callout":{"title":"C","body":"B","tone":"loud"}})"));
              }),
              "blocks[0].callout.tone: unknown tone \"loud\"");
    EXPECT_EQ(decodingError([] {
                  decodeLesson(R"({"style":"bright","title":"T","blocks":[],"suggestions":[]})");
              }),
              "style: unknown style \"bright\"");
}

TEST(CoachLesson, RequiredKeysOfEveryPartAreChecked) {
    EXPECT_EQ(decodingError([] { decodeLesson(R"({"style":"info","title":"T","blocks":[]})"); }),
              "suggestions: missing key");
    EXPECT_EQ(
        decodingError([] { decodeLesson(R"({"style":"info","title":"T","suggestions":[]})"); }),
        "blocks: missing key");
    EXPECT_EQ(decodingError([] {
                  decodeLesson(lessonJsonWithBlock(
                      R"({"type":"callout","callout":{"title":"C","tone":"tip"}})"));
              }),
              "blocks[0].callout.body: missing key");
    EXPECT_EQ(decodingError([] {
                  decodeLesson(lessonJsonWithBlock(
                      R"({"type":"stepGroup","stepGroup":{"title":"G","lines":[{"text":"a"}]}})"));
              }),
              "blocks[0].stepGroup.lines[0].kind: missing key");
    EXPECT_EQ(decodingError([] {
                  decodeLesson(R"({"style":"info","title":"T","blocks":[],"suggestions":[],)"
                               R"("canvasPoster":{"title":"P"}})");
              }),
              "canvasPoster.steps: missing key");
    EXPECT_EQ(
        decodingError([] { decodeLesson(lessonJsonWithBlock(R"({"type":"text","text":null})")); }),
        "blocks[0].text: expected a string");
}

TEST(CoachLesson, LineKeepsItsTextUnlabelledFirst) {
    Line line("**Bold** step", Kind::bullet);
    EXPECT_EQ(line.text, "**Bold** step");
    EXPECT_EQ(line.kind, Kind::bullet);
    EXPECT_EQ(Line().kind, Kind::numbered);
    EXPECT_NE(line, Line("**Bold** step", Kind::numbered));
}
