#include <sagely/CoachPromptBudget.h>

#include <sagely/Text.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using sagely::CoachPromptBudget;
using sagely::LLMMessage;
using Provider = sagely::CoachConfig::Provider;

namespace {

const std::string kMarker = "\n\n[Manual excerpt truncated for on-device model context.]";

std::string repeated(std::string_view piece, std::size_t times) {
    std::string out;
    for (std::size_t i = 0; i < times; ++i) out += piece;
    return out;
}

LLMMessage systemMsg(std::string content) {
    return {"system", std::move(content)};
}
LLMMessage userMsg(std::string content) {
    return {"user", std::move(content)};
}
LLMMessage assistantMsg(std::string content) {
    return {"assistant", std::move(content)};
}

std::vector<LLMMessage> budgetForApple(std::vector<LLMMessage> messages) {
    return CoachPromptBudget::budgetMessages(std::move(messages), Provider::apple);
}

}  // namespace

TEST(PromptBudget, HasTheCharacterBudgetsOfTheOnDeviceModel) {
    EXPECT_EQ(CoachPromptBudget::appleSystemCharLimit, 3000u);
    EXPECT_EQ(CoachPromptBudget::appleTotalCharLimit, 4500u);
    EXPECT_EQ(CoachPromptBudget::appleHistoryMessageLimit, 4u);
    EXPECT_EQ(CoachPromptBudget::cloudManualExcerptCharLimit, 24000u);
    EXPECT_EQ(sagely::text::characterCount(kMarker), 57u);
}

TEST(PromptBudget, GivesTheOnDeviceModelASmallerGuideExcerpt) {
    EXPECT_EQ(CoachPromptBudget::manualExcerptLimit(Provider::apple), 1500u);
    for (Provider provider : {Provider::openai, Provider::anthropic, Provider::gemini,
                              Provider::local, Provider::custom})
        EXPECT_EQ(CoachPromptBudget::manualExcerptLimit(provider), 24000u);
}

TEST(PromptBudget, LeavesASystemMessageOfExactlyTheLimitAsItIs) {
    std::string content(3000, 's');
    auto result = budgetForApple({systemMsg(content), userMsg("Hi")});
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0].content, content);
}

TEST(PromptBudget, CutsALongerSystemMessageToExactlyTheLimitWithTheMarker) {
    auto result = budgetForApple({systemMsg(std::string(3001, 's')), userMsg("Hi")});
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0].content, std::string(2943, 's') + kMarker);
    EXPECT_EQ(sagely::text::characterCount(result[0].content), 3000u);
    EXPECT_EQ(result[1], userMsg("Hi"));
}

TEST(PromptBudget, CutsTheSystemMessageBetweenCharactersNeverInsideOne) {
    std::string thumbs = "\U0001F44D\U0001F3FD";  // one character, eight bytes
    std::string content = std::string(2942, 'a') + thumbs + std::string(100, 'b');
    auto result = budgetForApple({systemMsg(content)});
    EXPECT_EQ(result[0].content, std::string(2942, 'a') + thumbs + kMarker);

    std::string accented = repeated("e\u0301", 3001);
    result = budgetForApple({systemMsg(accented)});
    EXPECT_EQ(result[0].content, repeated("e\u0301", 2943) + kMarker);
}

TEST(PromptBudget, CutsOnlyTheFirstSystemMessage) {
    std::string longText(3500, 'x');
    auto result = budgetForApple({systemMsg(longText), systemMsg(longText)});
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0].content, std::string(2943, 'x') + kMarker);
    EXPECT_EQ(result[1].content, longText);
}

TEST(PromptBudget, KeepsTheLastFourOfSixHistoryMessages) {
    auto result = budgetForApple({systemMsg("S"), userMsg("u1"), assistantMsg("a1"), userMsg("u2"),
                                  assistantMsg("a2"), userMsg("u3"), assistantMsg("a3")});
    EXPECT_EQ(result, (std::vector<LLMMessage>{systemMsg("S"), userMsg("u2"), assistantMsg("a2"),
                                               userMsg("u3"), assistantMsg("a3")}));
}

TEST(PromptBudget, PutsSystemMessagesBeforeTheHistory) {
    auto result =
        budgetForApple({userMsg("u1"), systemMsg("S1"), assistantMsg("a1"), systemMsg("S2")});
    EXPECT_EQ(result, (std::vector<LLMMessage>{systemMsg("S1"), systemMsg("S2"), userMsg("u1"),
                                               assistantMsg("a1")}));
}

TEST(PromptBudget, LeavesEveryOtherProvidersListUnchangedHoweverLong) {
    std::vector<LLMMessage> messages{systemMsg(std::string(10000, 's'))};
    for (int i = 0; i < 10; ++i) {
        messages.push_back(userMsg(std::string(3000, 'u')));
        messages.push_back(assistantMsg(std::string(3000, 'a')));
    }
    for (Provider provider : {Provider::openai, Provider::anthropic, Provider::gemini,
                              Provider::local, Provider::custom})
        EXPECT_EQ(CoachPromptBudget::budgetMessages(messages, provider), messages);
}

TEST(PromptBudget, DropsTheOldestQuestionWithItsAnswerUntilTheTotalFits) {
    auto result =
        budgetForApple({systemMsg(std::string(1000, 's')), userMsg(std::string(1500, 'u')),
                        assistantMsg(std::string(1500, 'a')), userMsg(std::string(600, 'q'))});
    EXPECT_EQ(result, (std::vector<LLMMessage>{systemMsg(std::string(1000, 's')),
                                               userMsg(std::string(600, 'q'))}));
}

TEST(PromptBudget, RemovesAnAnswerOnlyWhenItFollowsTheRemovedQuestion) {
    auto result =
        budgetForApple({systemMsg(std::string(100, 's')), assistantMsg(std::string(2000, 'g')),
                        userMsg(std::string(2000, 'u')), assistantMsg(std::string(1000, 'a'))});
    EXPECT_EQ(result, (std::vector<LLMMessage>{systemMsg(std::string(100, 's')),
                                               assistantMsg(std::string(2000, 'g'))}));
}

TEST(PromptBudget, NeverRemovesTheSystemMessageEvenWhenItAloneIsLarge) {
    auto result =
        budgetForApple({systemMsg(std::string(5000, 's')), userMsg(std::string(1000, 'u')),
                        assistantMsg(std::string(1000, 'a'))});
    EXPECT_EQ(result, (std::vector<LLMMessage>{systemMsg(std::string(2943, 's') + kMarker)}));

    auto pair =
        budgetForApple({systemMsg(std::string(2900, 's')), userMsg(std::string(2000, 'u'))});
    EXPECT_EQ(pair, (std::vector<LLMMessage>{systemMsg(std::string(2900, 's')),
                                             userMsg(std::string(2000, 'u'))}));
}

TEST(PromptBudget, StopsWhenNoQuestionIsLeftToRemove) {
    std::vector<LLMMessage> messages{systemMsg(std::string(3000, 's')),
                                     assistantMsg(std::string(1000, 'a')),
                                     assistantMsg(std::string(1000, 'b'))};
    EXPECT_EQ(budgetForApple(messages), messages);
}

TEST(PromptBudget, CountsCharactersNotBytesInTheTotal) {
    // 4,100 characters in 12,100 bytes: within the budget.
    std::vector<LLMMessage> messages{systemMsg(std::string(100, 's')),
                                     userMsg(repeated("e\u0301", 2000)),
                                     assistantMsg(repeated("\U0001F600", 2000))};
    EXPECT_EQ(budgetForApple(messages), messages);
}

TEST(PromptBudget, KeepsAListThatFitsAsItIs) {
    std::vector<LLMMessage> messages{systemMsg("You are Sagely."), userMsg("How do I export?")};
    EXPECT_EQ(budgetForApple(messages), messages);
    EXPECT_TRUE(budgetForApple({}).empty());
}
