#include <sagely/CoachHostAction.h>

#include "support/JsonSchema.h"

#include <nlohmann/json.hpp>

#include <stdexcept>

namespace sagely {
namespace {

bool isValidName(const std::string& name) {
    if (name.empty() || name.size() > 64) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '_' || c == '-';
        if (!ok) return false;
    }
    return true;
}

}  // namespace

struct CoachHostAction::Data {
    std::string name;
    std::string description;
    std::string title;
    nlohmann::json parameters;
    Handler handler;
    bool readOnly = false;
    bool preApproved = false;
};

CoachHostAction::CoachHostAction(std::string name, std::string description,
                                 const nlohmann::json& parameters, Handler handler) {
    if (!isValidName(name)) {
        throw std::invalid_argument("Host action name \"" + name +
                                    "\" must be 1 to 64 characters of a-z, A-Z, 0-9, _ and -.");
    }
    if (description.empty() || description.find('\n') != std::string::npos) {
        throw std::invalid_argument("Host action " + name +
                                    ": the description must be one non-empty line.");
    }
    const nlohmann::json* type =
        parameters.is_object() && parameters.contains("type") ? &parameters["type"] : nullptr;
    if (type == nullptr || *type != "object") {
        throw std::invalid_argument("Host action " + name +
                                    ": the parameters must be an object schema "
                                    "({\"type\": \"object\", …}).");
    }
    if (auto problem = detail::schemaProblem(parameters)) {
        throw std::invalid_argument("Host action " + name + ": parameters schema: " + *problem);
    }
    if (!handler) throw std::invalid_argument("Host action " + name + ": no handler.");
    std::string title = name;
    m_data = std::make_shared<Data>(Data{std::move(name), std::move(description), std::move(title),
                                         parameters, std::move(handler)});
}

// Setters copy the shared data first: copies made before keep what they had.
CoachHostAction& CoachHostAction::setReadOnly(bool readOnly) {
    m_data = std::make_shared<Data>(*m_data);
    m_data->readOnly = readOnly;
    return *this;
}

CoachHostAction& CoachHostAction::setPreApproved(bool preApproved) {
    m_data = std::make_shared<Data>(*m_data);
    m_data->preApproved = preApproved;
    return *this;
}

CoachHostAction& CoachHostAction::setTitle(std::string title) {
    m_data = std::make_shared<Data>(*m_data);
    m_data->title = title.empty() ? m_data->name : std::move(title);
    return *this;
}

const std::string& CoachHostAction::name() const {
    return m_data->name;
}
const std::string& CoachHostAction::description() const {
    return m_data->description;
}
const std::string& CoachHostAction::title() const {
    return m_data->title;
}
const nlohmann::json& CoachHostAction::parameters() const {
    return m_data->parameters;
}
bool CoachHostAction::readOnly() const {
    return m_data->readOnly;
}
bool CoachHostAction::preApproved() const {
    return m_data->preApproved;
}

std::optional<std::string> CoachHostAction::argumentProblem(const nlohmann::json& arguments) const {
    return detail::validationProblem(m_data->parameters, arguments);
}

CoachHostActionResult CoachHostAction::run(const nlohmann::json& arguments) const {
    try {
        CoachHostActionResult result = m_data->handler(arguments);
        if (result.text.empty()) result.text = result.failed ? "The action failed." : "Done.";
        return result;
    } catch (const std::exception& failure) {
        return {std::string("The action failed: ") + failure.what(), std::nullopt, true};
    } catch (...) {
        return {"The action failed.", std::nullopt, true};
    }
}

}  // namespace sagely
