#include <sagely/StaticCoachContextProvider.h>

namespace sagely {

StaticCoachContextProvider::StaticCoachContextProvider(std::string title, std::string summary,
                                                       std::string guideText)
    : m_title(std::move(title)), m_summary(std::move(summary)), m_guideText(std::move(guideText)) {}

std::string StaticCoachContextProvider::configurationSummary() {
    return m_summary;
}

std::string StaticCoachContextProvider::manualText() {
    return m_guideText;
}

std::optional<std::string> StaticCoachContextProvider::shortcutInfo(const std::string&) {
    return std::string(
        "Shortcut-style automations are product-specific. Ask the connected app for its current "
        "shortcuts or command surface.");
}

std::string StaticCoachContextProvider::recentActivity(int) {
    return "No live app activity is connected for " + m_title + ".";
}

}  // namespace sagely
