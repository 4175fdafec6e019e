// The lookups behind CoachBundledManual and SagelyKnowledge, on explicit resource locations so
// that tests can arrange the kit's and the host's resources in temporary folders.
#pragma once

#include "support/ResourceBundle.h"

#include <optional>
#include <string>

namespace sagely::detail {

/// The complete "MANUAL.md", else "SagelyGuide.md", else none.
std::optional<std::string> bundledManualText(const ResourceLocations& locations);

/// The complete manual, else the kit guide, else the fallback sentence.
std::string bundledGuideText(const ResourceLocations& locations);

}  // namespace sagely::detail
