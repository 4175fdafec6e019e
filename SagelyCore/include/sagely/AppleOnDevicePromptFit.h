// AppleOnDevicePromptFit — cuts a prompt and the requested reply length so that both fit the
// on-device model's context window.
//
// Tokens are estimated at three characters each (user-perceived characters). A prompt that is
// too long keeps its beginning, where the system instructions stand, and gets the notice
// "\n\n[Prompt shortened to fit the on-device model.]". Pure and thread-safe.
#pragma once

#include <sagely/Export.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace sagely {

struct SAGELY_EXPORT AppleOnDevicePromptFit {
    /// The prompt to send, possibly shortened.
    std::string prompt;
    /// The maximum number of response tokens to ask for.
    std::int64_t responseTokens = 0;

    /// `requestedMaxTokens` is the configuration's maxTokens; `contextTokenLimit` the model's
    /// context size (below 512 counts as a 512-token window).
    static AppleOnDevicePromptFit fit(std::string_view prompt, std::int64_t requestedMaxTokens,
                                      std::int64_t contextTokenLimit);

    friend bool operator==(const AppleOnDevicePromptFit&, const AppleOnDevicePromptFit&) = default;
};

}  // namespace sagely
