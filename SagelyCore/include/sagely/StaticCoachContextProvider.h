// StaticCoachContextProvider — a context provider of fixed values, for hosts that only have a
// static guide. It answers no local actions.
#pragma once

#include <sagely/CoachContextProvider.h>
#include <sagely/Export.h>

#include <string>

namespace sagely {

class SAGELY_EXPORT StaticCoachContextProvider : public CoachContextProvider {
public:
    StaticCoachContextProvider(std::string title, std::string summary, std::string guideText);

    const std::string& title() const { return m_title; }
    const std::string& summary() const { return m_summary; }
    const std::string& guideText() const { return m_guideText; }

    /// The summary.
    std::string configurationSummary() override;
    /// The guide text.
    std::string manualText() override;
    /// A fixed sentence, whatever the name.
    std::optional<std::string> shortcutInfo(const std::string& name) override;
    /// "No live app activity is connected for " + title + "."; the limit is ignored.
    std::string recentActivity(int limit) override;

private:
    std::string m_title;
    std::string m_summary;
    std::string m_guideText;
};

}  // namespace sagely
