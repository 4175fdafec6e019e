// When a failed request is tried again and after how long: the schedule, what the providers ask
// for, the cap, and the quotas that no wait repairs. Jitter and the wall clock are injected.
#include "llm/RetryPolicy.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using sagely::detail::HeaderList;
using sagely::detail::RetryPolicy;

namespace {

// 2015-10-21 07:28:00 UTC, the clock of the HTTP-date cases.
constexpr std::time_t kNow = 1445412480;

RetryPolicy policy(double jitter = 0.0) {
    return RetryPolicy([jitter] { return jitter; }, [] { return kNow; });
}

TEST(RetryPolicy, RetriesRateLimitsUnavailableAndOverloadedOnly) {
    for (long status : {429L, 503L, 529L}) EXPECT_TRUE(policy().waitAfterStatus(1, status, {}, ""));
    for (long status : {400L, 401L, 403L, 404L, 500L, 502L, 504L})
        EXPECT_FALSE(policy().waitAfterStatus(1, status, {}, "")) << status;
}

TEST(RetryPolicy, WaitsOneTwoFourSecondsThenGivesUp) {
    EXPECT_EQ(policy().waitAfterStatus(1, 503, {}, ""), 1000ms);
    EXPECT_EQ(policy().waitAfterStatus(2, 503, {}, ""), 2000ms);
    EXPECT_EQ(policy().waitAfterStatus(3, 503, {}, ""), 4000ms);
    EXPECT_EQ(policy().waitAfterStatus(4, 503, {}, ""), std::nullopt);
    EXPECT_EQ(policy().waitAfterBrokenConnection(3), 4000ms);
    EXPECT_EQ(policy().waitAfterBrokenConnection(4), std::nullopt);
}

TEST(RetryPolicy, JitterShortensAWaitByUpToAQuarter) {
    EXPECT_EQ(policy(0.5).waitAfterStatus(1, 529, {}, ""), 875ms);
    EXPECT_EQ(policy(1.0).waitAfterStatus(3, 529, {}, ""), 3000ms);
}

TEST(RetryPolicy, HonoursRetryAfterInSecondsAndAsAnHttpDate) {
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {{"Retry-After", "7"}}, ""), 7000ms);
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {{"retry-after", "1.5"}}, ""), 1500ms);
    EXPECT_EQ(
        policy().waitAfterStatus(1, 503, {{"Retry-After", "Wed, 21 Oct 2015 07:28:12 GMT"}}, ""),
        12000ms);
    // A date in the past asks for nothing: the usual schedule applies.
    EXPECT_EQ(
        policy().waitAfterStatus(2, 503, {{"Retry-After", "Wed, 21 Oct 2015 07:00:00 GMT"}}, ""),
        2000ms);
}

TEST(RetryPolicy, RetryAfterMillisecondsComesFirst) {
    EXPECT_EQ(
        policy().waitAfterStatus(1, 429, {{"retry-after", "9"}, {"retry-after-ms", "250.5"}}, ""),
        251ms);
}

TEST(RetryPolicy, NoWaitIsLongerThanThirtySeconds) {
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {{"Retry-After", "3600"}}, ""), 30000ms);
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {{"Retry-After", "1e300"}}, ""), 30000ms);
}

TEST(RetryPolicy, UnreadableRetryAfterFallsBackToTheSchedule) {
    for (const char* value : {"", "soon", "-5", "0", "nan", "inf"})
        EXPECT_EQ(policy().waitAfterStatus(1, 429, {{"Retry-After", value}}, ""), 1000ms) << value;
}

TEST(RetryPolicy, TheProviderMaySayNotToRetry) {
    EXPECT_EQ(policy().waitAfterStatus(1, 529, {{"x-should-retry", "false"}}, ""), std::nullopt);
    EXPECT_EQ(policy().waitAfterStatus(1, 529, {{"x-should-retry", "true"}}, ""), 1000ms);
}

TEST(RetryPolicy, AnOpenAIQuotaThatIsUsedUpIsNotRetried) {
    const std::string body =
        R"({"error":{"message":"You exceeded your current quota, please check your plan and billing details.","type":"insufficient_quota","param":null,"code":"insufficient_quota"}})";
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {{"retry-after", "1"}}, body), std::nullopt);
    const std::string billing =
        R"({"error":{"message":"Spend limit reached.","type":"requests","code":"project_spend_limit_exceeded"}})";
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {}, billing), std::nullopt);
    const std::string rateLimit =
        R"({"error":{"message":"Rate limit reached for gpt-4o","type":"requests","code":"rate_limit_exceeded"}})";
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {}, rateLimit), 1000ms);
}

TEST(RetryPolicy, AGeminiPerMinuteQuotaWaitsForItsRetryDelay) {
    const std::string body = R"({"error":{"code":429,"status":"RESOURCE_EXHAUSTED",
        "message":"You exceeded your current quota. Please retry in 20.04s.",
        "details":[{"@type":"type.googleapis.com/google.rpc.QuotaFailure","violations":[
            {"quotaMetric":"generativelanguage.googleapis.com/generate_content_free_tier_requests",
             "quotaId":"GenerateRequestsPerMinutePerProjectPerModel-FreeTier"}]},
          {"@type":"type.googleapis.com/google.rpc.RetryInfo","retryDelay":"20.04s"}]}})";
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {}, body), 20040ms);
}

TEST(RetryPolicy, AGeminiDailyOrZeroQuotaIsNotRetried) {
    const std::string daily = R"({"error":{"code":429,"status":"RESOURCE_EXHAUSTED",
        "message":"You exceeded your current quota.",
        "details":[{"@type":"type.googleapis.com/google.rpc.QuotaFailure","violations":[
            {"quotaId":"GenerateRequestsPerDayPerProjectPerModel-FreeTier"}]},
          {"@type":"type.googleapis.com/google.rpc.RetryInfo","retryDelay":"20s"}]}})";
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {}, daily), std::nullopt);
    const std::string zero = R"({"error":{"code":429,"status":"RESOURCE_EXHAUSTED",
        "message":"Quota exceeded for metric: x, limit: 0, model: gemini-x",
        "details":[{"@type":"type.googleapis.com/google.rpc.RetryInfo","retryDelay":"5s"}]}})";
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {}, zero), std::nullopt);
    const std::string noDelay = R"({"error":{"code":429,"status":"RESOURCE_EXHAUSTED",
        "details":[{"@type":"type.googleapis.com/google.rpc.QuotaFailure","violations":[]}]}})";
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {}, noDelay), std::nullopt);
}

TEST(RetryPolicy, ABodyThatIsNotJsonChangesNothing) {
    EXPECT_EQ(policy().waitAfterStatus(1, 503, {}, "<html>busy</html>"), 1000ms);
    EXPECT_EQ(policy().waitAfterStatus(1, 429, {}, R"({"error":"overloaded"})"), 1000ms);
}

}  // namespace
