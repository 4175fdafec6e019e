// SagelyKnowledge — the product knowledge a host can hand to the coach when it has no guide of
// its own: the complete manual, else the kit's guide, else one fixed sentence.
//
// Reads from disk on every call (see CoachBundledManual for where it looks). Thread-safe.
#pragma once

#include <sagely/Export.h>

#include <string>
#include <string_view>

namespace sagely {

struct SAGELY_EXPORT SagelyKnowledge {
    /// What bundledGuideText() answers when no guide is found anywhere.
    static constexpr std::string_view fallbackGuideText =
        "Sagely helps users understand apps, settings, workflows, and troubleshooting.";

    /// The guide text; never empty.
    static std::string bundledGuideText();
};

}  // namespace sagely
