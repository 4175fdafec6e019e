// CoachHostAction — something the host lets the model do ("switch the palette", "create a
// canvas"): a name the model calls it by, a one-line description for the model, a JSON Schema of
// its parameters, whether it changes anything, and the handler that does it.
//
// A context provider offers its actions through CoachContextProvider::hostActions(), asked once
// per question. The coach validates the model's arguments against the schema before the handler
// sees them; arguments that do not fit go back to the model as an error and never reach the
// handler. Actions that are not read-only ask the user first, unless the host marks them
// pre-approved.
//
// Parameters schema: a JSON object schema in this subset — "type" (one of "object", "string",
// "integer", "number", "boolean", "array"), "properties", "required", "enum", "items",
// "additionalProperties" (a boolean), and the annotations "description", "title", "default",
// "examples". Any other keyword is refused when the action is made, so a schema never promises a
// check that does not happen.
//
// Thread rules: make it anywhere; the coach calls the handler on the main thread only. Copies
// share the handler.
#pragma once

#include <sagely/CoachCard.h>
#include <sagely/Export.h>

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace sagely {

/// What an action's handler hands back.
struct CoachHostActionResult {
    /// What the model is told (a sentence or JSON text; "Done." when empty).
    std::string text;
    /// A card shown to the user with the "Done" line.
    std::optional<CoachCard> card;
    /// The action could not do it; `text` says why (sent to the model as an error).
    bool failed = false;
};

class SAGELY_EXPORT CoachHostAction {
public:
    /// Runs on the main thread with arguments that fit the schema. A thrown exception counts as
    /// a failure whose text is its what().
    using Handler = std::function<CoachHostActionResult(const nlohmann::json& arguments)>;

    /// Throws std::invalid_argument naming the problem when the name is not
    /// [a-zA-Z0-9_-]{1,64}, the description is empty or longer than one line, the schema is not
    /// an object schema of the subset above, or the handler is empty.
    CoachHostAction(std::string name, std::string description, const nlohmann::json& parameters,
                    Handler handler);

    /// Runs without asking the user: it only reads. Default false.
    CoachHostAction& setReadOnly(bool readOnly = true);
    /// Changes something but runs without asking the user. Default false.
    CoachHostAction& setPreApproved(bool preApproved = true);
    /// What the user reads in the approval card and the "Done" line; default: the name.
    CoachHostAction& setTitle(std::string title);

    const std::string& name() const;
    const std::string& description() const;
    const std::string& title() const;
    const nlohmann::json& parameters() const;
    bool readOnly() const;
    bool preApproved() const;
    /// Whether the user is asked before it runs.
    bool needsApproval() const { return !readOnly() && !preApproved(); }

    /// Why the arguments do not fit the schema ("name: expected a string"), or none when they do.
    std::optional<std::string> argumentProblem(const nlohmann::json& arguments) const;
    /// Calls the handler (no validation here); an exception becomes a failed result.
    CoachHostActionResult run(const nlohmann::json& arguments) const;

private:
    struct Data;
    std::shared_ptr<Data> m_data;
};

}  // namespace sagely
