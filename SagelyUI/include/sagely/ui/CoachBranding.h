// CoachBranding — the words a host puts on the coach's workspace: the headline and subtitle of
// the empty state and suggestion panel, the suggestion chips, the input placeholder and the line
// that explains a missing API key.
//
// A plain value; every field is required (there are no defaults: the host supplies all texts).
#pragma once

#include <sagely/ui/Export.h>

#include <string>
#include <utility>
#include <vector>

namespace sagely::ui {

struct SAGELY_UI_EXPORT CoachBranding {
    CoachBranding(std::string appName, std::string title, std::string subtitle,
                  std::vector<std::string> suggestions, std::string inputPlaceholder,
                  std::string noAPIKeyMessage)
        : appName(std::move(appName)),
          title(std::move(title)),
          subtitle(std::move(subtitle)),
          suggestions(std::move(suggestions)),
          inputPlaceholder(std::move(inputPlaceholder)),
          noAPIKeyMessage(std::move(noAPIKeyMessage)) {}

    /// Carried for the host; the workspace does not draw it.
    std::string appName;
    /// Headline of the empty state and of the suggestion panel.
    std::string title;
    /// The line under the title.
    std::string subtitle;
    /// The suggestion chips, in order.
    std::vector<std::string> suggestions;
    /// Placeholder of the message field.
    std::string inputPlaceholder;
    /// The explanation in the missing-key banner.
    std::string noAPIKeyMessage;
};

}  // namespace sagely::ui
