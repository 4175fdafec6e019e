// ConnectionCheck — the outcome of one tiny request that tells a user, before any question,
// whether a provider's key, endpoint and model work.
#pragma once

#include <chrono>
#include <string>

namespace sagely {

struct ConnectionCheck {
    /// The key, the endpoint and the model all work.
    bool works = false;
    /// One or two sentences in the kit's words, never holding the key.
    std::string summary;
    /// From the request's start to its end (zero when nothing was sent).
    std::chrono::milliseconds elapsed{0};
};

}  // namespace sagely
