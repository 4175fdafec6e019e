#include <sagely/SagelyKnowledge.h>

#include <sagely/CoachBundledManual.h>

#include "coach/KnowledgeSources.h"

namespace sagely {

namespace detail {

std::string bundledGuideText(const ResourceLocations& locations) {
    if (auto manual =
            findTextResource(locations, "MANUAL", "md", CoachBundledManual::completenessMarker))
        return *manual;
    if (auto guide = findTextResource(locations, "SagelyGuide", "md", {})) return *guide;
    // Last resort: the kit's own copy, read directly.
    if (auto guide = readTextFile(locations.kitBundle / "SagelyGuide.md")) return *guide;
    return std::string(SagelyKnowledge::fallbackGuideText);
}

}  // namespace detail

std::string SagelyKnowledge::bundledGuideText() {
    return detail::bundledGuideText(detail::processResourceLocations());
}

}  // namespace sagely
