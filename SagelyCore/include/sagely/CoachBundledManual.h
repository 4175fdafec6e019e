// CoachBundledManual — the product manual shipped with the kit or with the host.
//
// A full manual ("MANUAL.md") counts only when it is complete: it must contain the heading of
// its last chapter, so a copy cut short never replaces the shorter kit guide
// ("SagelyGuide.md"). Resources are looked up in the kit's resource directory
// ("SagelyKit_SagelyCore.bundle") first, then in the host's own resources; files are read from
// disk on every call. The first lookup locates the resource directory and stops the process
// when it is missing (a packaging error). Thread-safe.
#pragma once

#include <sagely/Export.h>

#include <optional>
#include <string>
#include <string_view>

namespace sagely {

struct SAGELY_EXPORT CoachBundledManual {
    /// The heading of the manual's last chapter.
    static constexpr std::string_view completenessMarker = "## 19. Speech & Voice Control";

    /// Whether the text contains the completeness marker.
    static bool isCompleteManual(std::string_view text);

    /// The complete manual if one is found, else the kit guide, else none.
    static std::optional<std::string> text();
};

}  // namespace sagely
