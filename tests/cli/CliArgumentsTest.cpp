// The command line of one command: options, values, positional words, and what is refused.
#include "cli/Arguments.h"
#include "cli/ConversationList.h"
#include "cli/ProviderNames.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sagely::cli {
namespace {

const std::vector<DeclaredOption> kDeclared = {{"model", true}, {"json", false}};

ParsedArguments parse(const std::vector<std::string>& words) {
    return parseArguments(words, kDeclared);
}

std::string refusal(const std::vector<std::string>& words) {
    try {
        parse(words);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "accepted";
}

TEST(CliArguments, ValuesComeAfterTheOptionOrAfterAnEqualsSign) {
    EXPECT_EQ(parse({"--model", "gpt-4o"}).value("model"), "gpt-4o");
    EXPECT_EQ(parse({"--model=gpt-4o"}).value("model"), "gpt-4o");
    EXPECT_EQ(parse({"--model="}).value("model"), "");
}

TEST(CliArguments, TheLastValueOfARepeatedOptionWins) {
    EXPECT_EQ(parse({"--model", "a", "--model", "b"}).value("model"), "b");
}

TEST(CliArguments, PositionalWordsMayStandAroundOptionsAndJoinIntoAQuestion) {
    const auto parsed = parse({"How", "do", "--json", "I", "start?"});
    EXPECT_TRUE(parsed.has("json"));
    EXPECT_EQ(parsed.positionals(), (std::vector<std::string>{"How", "do", "I", "start?"}));
    EXPECT_EQ(parsed.joinedPositionals(), "How do I start?");
}

TEST(CliArguments, DoubleDashEndsTheOptions) {
    const auto parsed = parse({"--json", "--", "--model", "-x"});
    EXPECT_FALSE(parsed.has("model"));
    EXPECT_EQ(parsed.joinedPositionals(), "--model -x");
}

TEST(CliArguments, ALoneDashIsAWord) {
    EXPECT_EQ(parse({"-"}).joinedPositionals(), "-");
}

TEST(CliArguments, NegativeNumbersAreWords) {
    EXPECT_EQ(parse({"-0.1", "-256", "-.5"}).joinedPositionals(), "-0.1 -256 -.5");
}

TEST(CliArguments, HelpIsKnownToEveryCommand) {
    EXPECT_TRUE(parseArguments(std::vector<std::string>{"--help"}, {}).has("help"));
}

TEST(CliArguments, MistakesAreRefusedWithAOneLineReason) {
    EXPECT_EQ(refusal({"--bogus"}), "unknown option '--bogus'");
    EXPECT_EQ(refusal({"--bogus=1"}), "unknown option '--bogus'");
    EXPECT_EQ(refusal({"-m"}), "unknown option '-m'");
    EXPECT_EQ(refusal({"--model"}), "option '--model' needs a value");
    EXPECT_EQ(refusal({"--json=yes"}), "option '--json' takes no value");
}

TEST(CliProviderNames, StorageIdsAndRawValuesNameProviders) {
    EXPECT_EQ(parseProvider("openai"), Provider::openai);
    EXPECT_EQ(parseProvider("OpenAI"), Provider::openai);
    EXPECT_EQ(parseProvider("Google Gemini"), Provider::gemini);
    EXPECT_EQ(parseProvider("Apple (On-Device)"), Provider::apple);
    EXPECT_EQ(parseProvider("Local (Ollama)"), Provider::local);
    EXPECT_EQ(parseProvider("Custom API"), Provider::custom);
}

TEST(CliProviderNames, CaseIsForgivenAndShortNamesWork) {
    EXPECT_EQ(parseProvider("ANTHROPIC"), Provider::anthropic);
    EXPECT_EQ(parseProvider("gemini"), Provider::gemini);
    EXPECT_EQ(parseProvider("Gemini"), Provider::gemini);
    EXPECT_EQ(parseProvider("google gemini"), Provider::gemini);
}

TEST(CliProviderNames, UnknownNamesAreNone) {
    EXPECT_EQ(parseProvider("mistral"), std::nullopt);
    EXPECT_EQ(parseProvider(""), std::nullopt);
    EXPECT_EQ(parseProvider("openai "), std::nullopt);
    EXPECT_EQ(providerChoices(), "apple, openai, anthropic, gemini, local, custom");
}

TEST(CliProviderNames, ThreeProvidersTakeAKeyFromTheEnvironment) {
    EXPECT_EQ(apiKeyVariable(Provider::openai), "OPENAI_API_KEY");
    EXPECT_EQ(apiKeyVariable(Provider::anthropic), "ANTHROPIC_API_KEY");
    EXPECT_EQ(apiKeyVariable(Provider::gemini), "GEMINI_API_KEY");
    EXPECT_EQ(apiKeyVariable(Provider::custom), std::nullopt);
    EXPECT_EQ(apiKeyVariable(Provider::local), std::nullopt);
    EXPECT_EQ(apiKeyVariable(Provider::apple), std::nullopt);
}

TEST(CliConversationList, ListNumbersAreWholeNumbersFromOne) {
    EXPECT_EQ(parseListNumber("1"), 1u);
    EXPECT_EQ(parseListNumber("12"), 12u);
    EXPECT_EQ(parseListNumber("0"), std::nullopt);
    EXPECT_EQ(parseListNumber("-1"), std::nullopt);
    EXPECT_EQ(parseListNumber("2x"), std::nullopt);
    EXPECT_EQ(parseListNumber(" 2"), std::nullopt);
    EXPECT_EQ(parseListNumber(""), std::nullopt);
}

}  // namespace
}  // namespace sagely::cli
