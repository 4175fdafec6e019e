// CoachContextProvider — how a host tells the coach what it is and what it is doing.
//
// The coach calls these on the main thread while it builds the system prompt of a model request:
// manualText(), configurationSummary() and, for every provider but the on-device one,
// recentActivity(10). An empty string means "none". A host may also implement
// CoachLocalActionHandler on the same object to answer questions without a model, and offer
// actions the model may call through hostActions().
#pragma once

#include <sagely/CoachHostAction.h>
#include <sagely/Export.h>

#include <optional>
#include <string>
#include <vector>

namespace sagely {

class SAGELY_EXPORT CoachContextProvider {
public:
    virtual ~CoachContextProvider() = default;

    /// A summary of the host's live configuration (the LIVE APP CONTEXT section).
    virtual std::string configurationSummary() = 0;
    /// The product guide (Markdown), excerpted by relevance into the APP GUIDE section.
    virtual std::string manualText() = 0;
    /// A description of a named shortcut or command of the host, for the host's own use.
    virtual std::optional<std::string> shortcutInfo(const std::string& name) = 0;
    /// The host's recent activity (the RECENT ACTIVITY section); the coach asks for 10 entries.
    virtual std::string recentActivity(int limit) = 0;
    /// The actions the model may call while it answers the next question (default: none). Asked
    /// on the main thread once per question, so the list may change between questions; with
    /// none, requests are exactly those of a host without actions.
    virtual std::vector<CoachHostAction> hostActions() { return {}; }
};

}  // namespace sagely
