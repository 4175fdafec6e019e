// What the demo host, Tessel, tells its coach: its manual, a summary of its live state, its
// recent activity, a local answer for speech set-up questions, a live observation that comes
// with every model reply, and the actions the model may call.
#pragma once

#include <sagely/CoachContextProvider.h>
#include <sagely/CoachLocalAction.h>
#include <sagely/CoachReplyEnrichment.h>

#include <optional>
#include <string>
#include <vector>

namespace tessel {

class DemoContext final : public sagely::CoachContextProvider,
                          public sagely::CoachLocalActionHandler {
public:
    std::string configurationSummary() override;
    /// The complete Tessel manual shipped with the demo (the kit's guide if it is missing).
    std::string manualText() override;
    std::optional<std::string> shortcutInfo(const std::string& name) override;
    std::string recentActivity(int limit) override;
    /// Speech set-up questions get the built-in speech lesson; everything else goes to the model.
    std::optional<sagely::CoachLocalActionResult> localAction(const std::string& question) override;
    std::vector<sagely::CoachHostAction> hostActions() override { return actions; }

    /// The actions offered to the model (made by demoActions() once the window exists).
    std::vector<sagely::CoachHostAction> actions;

    /// Whether a question asks how to set up speech.
    static bool asksForSpeechSetup(const std::string& question);
    /// The observation Tessel adds to a model request: a prompt section and a card.
    static sagely::CoachReplyEnrichment liveObservation();
};

}  // namespace tessel
