// The settings decoder on any bytes: a kit error, or settings that survive a round trip.
#include "FuzzInput.h"

#include <sagely/CoachSettingsStore.h>
#include <sagely/Error.h>

#include <cmath>

using namespace sagely;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CoachSettingsStore::PersistedSettings settings;
    try {
        settings = decodePersistedSettings(fuzz::textOf(data, size));
    } catch (const Error&) {
        return 0;
    }
    std::string encoded;
    try {
        encoded = encodeJson(settings);
    } catch (const Error&) {
        // Only a value JSON cannot hold may refuse to encode.
        fuzz::require(!std::isfinite(settings.temperature), "finite settings encode");
        return 0;
    }
    fuzz::require(decodePersistedSettings(encoded) == settings, "settings round trip");
    return 0;
}
