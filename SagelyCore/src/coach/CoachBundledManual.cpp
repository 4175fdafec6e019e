#include <sagely/CoachBundledManual.h>

#include "coach/KnowledgeSources.h"

namespace sagely {

namespace detail {

std::optional<std::string> bundledManualText(const ResourceLocations& locations) {
    if (auto manual =
            findTextResource(locations, "MANUAL", "md", CoachBundledManual::completenessMarker))
        return manual;
    return findTextResource(locations, "SagelyGuide", "md", {});
}

}  // namespace detail

bool CoachBundledManual::isCompleteManual(std::string_view text) {
    return text.find(completenessMarker) != std::string_view::npos;
}

std::optional<std::string> CoachBundledManual::text() {
    return detail::bundledManualText(detail::processResourceLocations());
}

}  // namespace sagely
