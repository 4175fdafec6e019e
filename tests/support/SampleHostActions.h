// SampleActionsProvider — a context provider that offers the two host actions the engine's
// action tests share: `read_settings` (read-only, answers "palette=light") and `create_canvas`
// (asks first, titled "Create canvas", takes a required string `name`, answers "created" with
// a card "Canvas <name>"). Every handler call is logged in `seen` as "<action> <arguments>".
#pragma once

#include <sagely/CoachContextProvider.h>
#include <sagely/CoachHostAction.h>

#include <optional>
#include <string>
#include <vector>

namespace sagely::testing {

class SampleActionsProvider : public CoachContextProvider {
public:
    SampleActionsProvider();

    std::string configurationSummary() override { return "Palette: light."; }
    std::string manualText() override { return "## Palette\nSwitch it in Settings."; }
    std::optional<std::string> shortcutInfo(const std::string&) override { return std::nullopt; }
    std::string recentActivity(int) override { return {}; }
    std::vector<CoachHostAction> hostActions() override { return actions; }

    std::vector<CoachHostAction> actions;
    std::vector<std::string> seen;
};

}  // namespace sagely::testing
