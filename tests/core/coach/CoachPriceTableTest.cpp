#include <sagely/CoachPriceTable.h>
#include <sagely/Error.h>

#include <gtest/gtest.h>

#include <string>

namespace sagely {
namespace {

using Provider = CoachConfig::Provider;
using Price = CoachPriceTable::Price;

constexpr const char* kTable = R"({
  "checked": "2025-06-01",
  "prices": {
    "openai": {
      "gpt-4o": {"input": 2.5, "output": 10},
      "gpt-4o-2024-05-13": {"input": 5, "output": 15},
      "gpt-4o-mini": {"input": 0.15, "output": 0.6}
    },
    "anthropic": {"claude-sonnet-4-20250514": {"input": 3, "output": 15}},
    "local": {"llama3.2:latest": {"input": 0, "output": 0}}
  }
})";

TokenUsage usage(std::int64_t input, std::int64_t output, std::string provider, std::string model) {
    TokenUsage usage(input, output);
    usage.provider = std::move(provider);
    usage.model = std::move(model);
    return usage;
}

std::string decodingFailure(const std::string& text) {
    try {
        CoachPriceTable::fromJson(text);
    } catch (const DecodingError& error) {
        return error.what();
    }
    return "no error";
}

TEST(CoachPriceTable, ReadsTheCheckedDateAndThePricesPerProviderAndModel) {
    const auto table = CoachPriceTable::fromJson(kTable);
    EXPECT_EQ(table.checked(), "2025-06-01");
    EXPECT_EQ(table.size(), 5u);
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o"), (Price{2.5, 10}));
    EXPECT_EQ(table.price(Provider::anthropic, "claude-sonnet-4-20250514"), (Price{3, 15}));
    EXPECT_EQ(table.price(Provider::local, "llama3.2:latest"), (Price{0, 0}));
}

TEST(CoachPriceTable, AModelIsPricedOnlyUnderItsOwnProvider) {
    const auto table = CoachPriceTable::fromJson(kTable);
    EXPECT_EQ(table.price(Provider::custom, "gpt-4o"), std::nullopt);
    EXPECT_EQ(table.price(Provider::openai, "gpt-5"), std::nullopt);
    EXPECT_EQ(table.price(Provider::openai, "GPT-4o"), std::nullopt);
}

TEST(CoachPriceTable, ADatedReleaseTakesThePriceOfItsFamilyUnlessItHasItsOwn) {
    const auto table = CoachPriceTable::fromJson(kTable);
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-2024-08-06"), (Price{2.5, 10}));
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-mini-2024-07-18"), (Price{0.15, 0.6}));
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-20240806"), (Price{2.5, 10}));
    // An entry of its own wins over the family.
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-2024-05-13"), (Price{5, 15}));
    // Only a whole date is cut off, and only once.
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-2024-13-06"), std::nullopt);
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-2024"), std::nullopt);
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-preview"), std::nullopt);
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-2024-08-06-2024-08-06"), std::nullopt);
    // A dated entry is not a family: another date of it is unknown.
    EXPECT_EQ(table.price(Provider::anthropic, "claude-sonnet-4-20250601"), std::nullopt);
}

TEST(CoachPriceTable, MalformedTablesAreRefusedNamingWhatIsWrong) {
    EXPECT_EQ(decodingFailure("{"), "invalid JSON");
    EXPECT_EQ(decodingFailure("[]"), "expected an object with \"checked\" and \"prices\"");
    EXPECT_EQ(decodingFailure(R"({"prices": {}})"), "checked: missing");
    EXPECT_EQ(decodingFailure(R"({"checked": "2025-06-01"})"), "prices: missing");
    EXPECT_EQ(decodingFailure(R"({"checked": "June 2025", "prices": {}})"),
              "checked: expected a date written YYYY-MM-DD");
    EXPECT_EQ(decodingFailure(R"({"checked": "2025-06-01", "prices": {}, "currency": "EUR"})"),
              "currency: unknown key (a price table has \"checked\" and \"prices\")");
    EXPECT_EQ(decodingFailure(R"({"checked": "2025-06-01", "prices": {"acme": {}}})"),
              "prices.acme: unknown provider (apple, openai, anthropic, gemini, local, custom)");
    EXPECT_EQ(decodingFailure(R"({"checked": "2025-06-01", "prices": {"openai": []}})"),
              "prices.openai: expected an object of models");
    EXPECT_EQ(decodingFailure(
                  R"({"checked": "2025-06-01", "prices": {"openai": {"gpt-4o": {"input": 2.5}}}})"),
              "prices.openai.gpt-4o.output: missing");
    EXPECT_EQ(
        decodingFailure(
            R"({"checked": "2025-06-01", "prices": {"openai": {"gpt-4o": {"input": -1, "output": 1}}}})"),
        "prices.openai.gpt-4o.input: expected a number, zero or more");
    EXPECT_EQ(
        decodingFailure(
            R"({"checked": "2025-06-01", "prices": {"openai": {"gpt-4o": {"input": "2.5", "output": 1}}}})"),
        "prices.openai.gpt-4o.input: expected a number, zero or more");
    EXPECT_EQ(
        decodingFailure(
            R"({"checked": "2025-06-01", "prices": {"openai": {"gpt-4o": {"inptu": 2.5, "output": 1}}}})"),
        "prices.openai.gpt-4o.inptu: unknown key (a price has \"input\" and \"output\")");
}

TEST(CoachPriceTable, AHostReplacesAndAddsEntriesAndItsDateWins) {
    auto table = CoachPriceTable::fromJson(kTable);
    table.merge(CoachPriceTable::fromJson(R"({"checked": "2026-11-01", "prices": {
        "openai": {"gpt-4o": {"input": 2, "output": 8}},
        "custom": {"house-model": {"input": 1, "output": 2}}}})"));
    EXPECT_EQ(table.checked(), "2026-11-01");
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o"), (Price{2, 8}));
    EXPECT_EQ(table.price(Provider::custom, "house-model"), (Price{1, 2}));
    EXPECT_EQ(table.price(Provider::openai, "gpt-4o-mini"), (Price{0.15, 0.6}));

    table.setPrice(Provider::gemini, "gemini-x", {0.5, 1.5});
    EXPECT_EQ(table.price(Provider::gemini, "gemini-x"), (Price{0.5, 1.5}));
    table.merge(CoachPriceTable());  // no date: the table's own stays
    EXPECT_EQ(table.checked(), "2026-11-01");
}

TEST(CoachPriceTable, TheProcessTableIsTheShippedOneUntilTheHostSetsItsOwn) {
    const auto shipped = CoachPriceTable::current();
    EXPECT_FALSE(shipped.checked().empty());
    EXPECT_GT(shipped.size(), 0u);
    // The catalogue's cheap default is priced; a local model is not.
    EXPECT_TRUE(shipped.price(Provider::openai, "gpt-4o-mini"));
    EXPECT_FALSE(shipped.price(Provider::local, "llama3.2:latest"));
    EXPECT_EQ(CoachPriceTable::bundled().size(), shipped.size());

    CoachPriceTable own;
    own.setPrice(Provider::local, "llama3.2:latest", {0, 0});
    CoachPriceTable::setCurrent(own);
    EXPECT_EQ(CoachPriceTable::current().size(), 1u);
    EXPECT_TRUE(CoachPriceTable::current().price(Provider::local, "llama3.2:latest"));
    CoachPriceTable::setCurrent(shipped);
}

TEST(CoachPriceTable, CostIsTokensTimesThePricePerMillion) {
    const auto table = CoachPriceTable::fromJson(kTable);
    // 1,210 × $0.15 + 342 × $0.60 per million.
    EXPECT_DOUBLE_EQ(*table.cost(usage(1210, 342, "openai", "gpt-4o-mini")), 0.0003867);
    EXPECT_DOUBLE_EQ(*table.cost(usage(1'000'000, 1'000'000, "openai", "gpt-4o-2024-08-06")), 12.5);
    EXPECT_DOUBLE_EQ(*table.cost(usage(500, 20, "local", "llama3.2:latest")), 0.0);
}

TEST(CoachPriceTable, UsageWithoutAKnownModelHasNoCost) {
    const auto table = CoachPriceTable::fromJson(kTable);
    EXPECT_EQ(table.cost(TokenUsage(1210, 342)), std::nullopt);
    EXPECT_EQ(table.cost(usage(1210, 342, "openai", "gpt-9")), std::nullopt);
    EXPECT_EQ(table.cost(usage(1210, 342, "custom", "gpt-4o")), std::nullopt);
    EXPECT_EQ(table.cost(usage(-5, 12, "openai", "gpt-4o")), std::nullopt);
}

TEST(CoachPriceTable, CostTextRoundsToAHundredthOfACentUnderADollarAndToCentsAbove) {
    EXPECT_EQ(CoachPriceTable::costText(0.0123), "\u2248 $0.0123");
    EXPECT_EQ(CoachPriceTable::costText(0.0003867), "\u2248 $0.0004");
    EXPECT_EQ(CoachPriceTable::costText(0.00012499), "\u2248 $0.0001");
    // Exactly half a step, which a double holds a hair below, rounds up.
    EXPECT_EQ(CoachPriceTable::costText(0.00015), "\u2248 $0.0002");
    EXPECT_EQ(CoachPriceTable::costText(1000 * 0.15 / 1e6), "\u2248 $0.0002");
    EXPECT_EQ(CoachPriceTable::costText(0.00004), "< $0.0001");
    EXPECT_EQ(CoachPriceTable::costText(0.0), "$0.00");
    EXPECT_EQ(CoachPriceTable::costText(0.99996), "\u2248 $1.00");
    EXPECT_EQ(CoachPriceTable::costText(12.345), "\u2248 $12.35");
    EXPECT_EQ(CoachPriceTable::costText(1234.5), "\u2248 $1234.50");
}

TEST(CoachPriceTable, AConversationTotalHasACostOnlyWhenEveryReplyIsPriced) {
    const auto table = CoachPriceTable::fromJson(kTable);
    using Role = CoachMessage::Role;
    auto reply = [](TokenUsage tokens) {
        return CoachMessage(Role::assistant, "Hi.", std::nullopt, std::nullopt, tokens);
    };
    std::vector<CoachMessage> messages{CoachMessage(Role::user, "Hello?"),
                                       reply(usage(1000, 100, "openai", "gpt-4o")),
                                       reply(usage(2000, 200, "openai", "gpt-4o-mini")),
                                       CoachMessage(Role::assistant, "No usage.")};
    auto total = table.total(messages);
    EXPECT_EQ(total.replies, 2u);
    EXPECT_EQ(total.tokens, TokenUsage(3000, 300));
    ASSERT_TRUE(total.cost);
    EXPECT_DOUBLE_EQ(*total.cost, (1000 * 2.5 + 100 * 10 + 2000 * 0.15 + 200 * 0.6) / 1e6);

    messages.push_back(reply(usage(10, 1, "openai", "gpt-9")));
    total = table.total(messages);
    EXPECT_EQ(total.replies, 3u);
    EXPECT_EQ(total.tokens, TokenUsage(3010, 301));
    EXPECT_EQ(total.cost, std::nullopt);

    EXPECT_EQ(table.total({CoachMessage(Role::user, "Hello?")}).replies, 0u);
    EXPECT_EQ(table.total({CoachMessage(Role::user, "Hello?")}).cost, std::nullopt);
}

}  // namespace
}  // namespace sagely
