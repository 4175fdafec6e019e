#include <sagely/AppleOnDevicePromptFit.h>

#include <sagely/Text.h>

#include <algorithm>

namespace sagely {
namespace {

constexpr std::int64_t kSafetyMarginTokens = 128;
constexpr std::int64_t kMinimumResponseTokens = 64;
constexpr std::int64_t kCharactersPerToken = 3;
constexpr std::string_view kShortenedNotice = "\n\n[Prompt shortened to fit the on-device model.]";

struct Window {
    std::int64_t tokens;
    std::int64_t responseCap;
};

// Small or unknown context sizes are treated as a 512-token window with short replies.
Window windowFor(std::int64_t requestedMaxTokens, std::int64_t contextTokenLimit) {
    const std::int64_t requested = std::max(requestedMaxTokens, kMinimumResponseTokens);
    if (contextTokenLimit < 512) return {512, std::min<std::int64_t>(requested, 128)};
    return {contextTokenLimit, std::min({requested, contextTokenLimit / 4, std::int64_t{1024}})};
}

std::int64_t estimatedTokens(std::string_view prompt) {
    if (prompt.empty()) return 1;
    return (static_cast<std::int64_t>(text::characterCount(prompt)) + 2) / kCharactersPerToken;
}

}  // namespace

AppleOnDevicePromptFit AppleOnDevicePromptFit::fit(std::string_view prompt,
                                                   std::int64_t requestedMaxTokens,
                                                   std::int64_t contextTokenLimit) {
    const Window window = windowFor(requestedMaxTokens, contextTokenLimit);
    // The floor of 328 keeps at least 200 prompt tokens after the safety margin.
    const std::int64_t promptTokens =
        std::max<std::int64_t>(window.tokens - window.responseCap, 328) - kSafetyMarginTokens;
    const auto maxChars = static_cast<std::size_t>(promptTokens * kCharactersPerToken);

    AppleOnDevicePromptFit result;
    if (text::hasMoreCharactersThan(prompt, maxChars)) {
        result.prompt = text::prefixCharacters(prompt, maxChars).append(kShortenedNotice);
    } else {
        result.prompt = std::string(prompt);
    }
    const std::int64_t roomLeft =
        window.tokens - estimatedTokens(result.prompt) - kSafetyMarginTokens;
    result.responseTokens =
        std::min(std::max(roomLeft, kMinimumResponseTokens), window.responseCap);
    return result;
}

}  // namespace sagely
