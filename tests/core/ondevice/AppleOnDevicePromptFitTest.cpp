#include <sagely/AppleOnDevicePromptFit.h>
#include <sagely/Text.h>

#include "ondevice/AppleOnDeviceTranscript.h"

#include <gtest/gtest.h>

#include <string>

using sagely::AppleOnDevicePromptFit;
using sagely::LLMMessage;

namespace {

const std::string kNotice = "\n\n[Prompt shortened to fit the on-device model.]";

std::string repeated(std::string_view unit, std::size_t times) {
    std::string s;
    for (std::size_t i = 0; i < times; ++i) s += unit;
    return s;
}

}  // namespace

TEST(AppleOnDevicePromptFit, ALongPromptIsCutToItsBeginningPlusTheNotice) {
    const std::string head = "System instructions:\nBe brief.\n\n";
    std::string prompt = head + repeated("x", 20000 - head.size());
    ASSERT_EQ(sagely::text::characterCount(prompt), 20000u);

    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit(prompt, 4096, 4096);

    EXPECT_EQ(fit.prompt, prompt.substr(0, 8832) + kNotice);
    EXPECT_EQ(sagely::text::characterCount(fit.prompt), 8880u);
    // (8880 + 2) / 3 = 2960 estimated tokens; min(max(4096 - 2960 - 128, 64), 1024) = 1008.
    EXPECT_EQ(fit.responseTokens, 1008);
}

TEST(AppleOnDevicePromptFit, APromptOfExactlyMaxCharsIsNotShortened) {
    std::string prompt = repeated("y", 8832);
    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit(prompt, 4096, 4096);
    EXPECT_EQ(fit.prompt, prompt);
    // (8832 + 2) / 3 = 2944; 4096 - 2944 - 128 = 1024.
    EXPECT_EQ(fit.responseTokens, 1024);
}

TEST(AppleOnDevicePromptFit, OneCharacterOverMaxCharsIsShortened) {
    std::string prompt = repeated("y", 8833);
    EXPECT_EQ(AppleOnDevicePromptFit::fit(prompt, 4096, 4096).prompt,
              repeated("y", 8832) + kNotice);
}

TEST(AppleOnDevicePromptFit, ALimitOfZeroBehavesAsA512TokenWindow) {
    // responseCap = min(4096, 128) = 128; promptTokens = max(512 - 128, 328) - 128 = 256.
    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit(repeated("z", 5000), 4096, 0);
    EXPECT_EQ(fit.prompt, repeated("z", 768) + kNotice);
    // (816 + 2) / 3 = 272 estimated tokens; 512 - 272 - 128 = 112, below the cap of 128.
    EXPECT_EQ(fit.responseTokens, 112);
    EXPECT_LE(fit.responseTokens, 128);
}

TEST(AppleOnDevicePromptFit, ASmallWindowNeverAsksForMoreThan128Tokens) {
    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit("Hi", 4096, 100);
    EXPECT_EQ(fit.prompt, "Hi");
    EXPECT_EQ(fit.responseTokens, 128);
}

TEST(AppleOnDevicePromptFit, ARequestOfTenTokensStillAsksForAtLeast64) {
    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit("Short question", 10, 4096);
    EXPECT_EQ(fit.prompt, "Short question");
    EXPECT_EQ(fit.responseTokens, 64);
}

TEST(AppleOnDevicePromptFit, AFullWindowStillLeavesTheMinimumResponse) {
    // With a 1024-token request and 4096 limit: promptTokens 2944, maxChars 8832; the cut prompt
    // estimates 2960 tokens, leaving 1008.
    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit(repeated("w", 30000), 1024, 4096);
    EXPECT_EQ(fit.responseTokens, 1008);
    // A window that the prompt fills: 600 tokens, 150 response cap, prompt 8000 characters.
    AppleOnDevicePromptFit small = AppleOnDevicePromptFit::fit(repeated("w", 8000), 4096, 600);
    // promptTokens = max(600 - 150, 328) - 128 = 322; maxChars 966; estimate (1014 + 2) / 3 = 338;
    // 600 - 338 - 128 = 134, under the cap of 150.
    EXPECT_EQ(small.prompt, repeated("w", 966) + kNotice);
    EXPECT_EQ(small.responseTokens, 134);
}

TEST(AppleOnDevicePromptFit, AnEmptyPromptCountsAsOneToken) {
    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit("", 4096, 4096);
    EXPECT_EQ(fit.prompt, "");
    // min(max(4096 - 1 - 128, 64), 1024)
    EXPECT_EQ(fit.responseTokens, 1024);
}

TEST(AppleOnDevicePromptFit, CharactersAreUserPerceivedNotBytes) {
    // 769 thumbs-up emoji with a skin tone (8 bytes each) in a 512-token window: 768 kept.
    std::string thumbs = "\U0001F44D\U0001F3FD";
    AppleOnDevicePromptFit fit = AppleOnDevicePromptFit::fit(repeated(thumbs, 769), 4096, 0);
    EXPECT_EQ(fit.prompt, repeated(thumbs, 768) + kNotice);
    AppleOnDevicePromptFit exact = AppleOnDevicePromptFit::fit(repeated(thumbs, 768), 4096, 0);
    EXPECT_EQ(exact.prompt, repeated(thumbs, 768));
}

TEST(AppleOnDevicePromptFit, FitsCompareFieldByField) {
    EXPECT_EQ((AppleOnDevicePromptFit{"a", 64}), (AppleOnDevicePromptFit{"a", 64}));
    EXPECT_NE((AppleOnDevicePromptFit{"a", 64}), (AppleOnDevicePromptFit{"a", 65}));
    EXPECT_NE((AppleOnDevicePromptFit{"a", 64}), (AppleOnDevicePromptFit{"b", 64}));
}

TEST(OnDeviceTranscript, LabelsSystemAndAssistantBlocksAndLeavesUserTurnsBare) {
    std::vector<LLMMessage> messages = {{"system", "Be kind."},
                                        {"user", "How do I export?"},
                                        {"assistant", "Step 1: Open File."},
                                        {"user", "Then?"}};
    EXPECT_EQ(sagely::detail::flattenTranscript(messages),
              "System instructions:\nBe kind.\n\nHow do I export?\n\nAssistant:\nStep 1: Open "
              "File.\n\nThen?");
}

TEST(OnDeviceTranscript, AnEmptyChatIsTheEmptyString) {
    EXPECT_EQ(sagely::detail::flattenTranscript({}), "");
}

TEST(OnDeviceTranscript, RolesAreMatchedExactlyAndOtherRolesAreBare) {
    std::vector<LLMMessage> messages = {
        {"System", "A"}, {"tool", "B"}, {"assistant", ""}, {"system", "C"}};
    EXPECT_EQ(sagely::detail::flattenTranscript(messages),
              "A\n\nB\n\nAssistant:\n\n\nSystem instructions:\nC");
}
