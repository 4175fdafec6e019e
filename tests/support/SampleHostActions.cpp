#include "support/SampleHostActions.h"

#include <nlohmann/json.hpp>

namespace sagely::testing {

using nlohmann::json;

SampleActionsProvider::SampleActionsProvider() {
    actions.push_back(
        CoachHostAction("read_settings", "The app's current settings.",
                        json{{"type", "object"}, {"properties", json::object()}},
                        [this](const json& arguments) {
                            seen.push_back("read_settings " + arguments.dump());
                            return CoachHostActionResult{"palette=light", std::nullopt, false};
                        })
            .setReadOnly());
    actions.push_back(CoachHostAction("create_canvas", "Creates a canvas with the given name.",
                                      json{{"type", "object"},
                                           {"properties", {{"name", {{"type", "string"}}}}},
                                           {"required", {"name"}}},
                                      [this](const json& arguments) {
                                          seen.push_back("create_canvas " + arguments.dump());
                                          CoachCard card;
                                          card.title =
                                              "Canvas " + arguments["name"].get<std::string>();
                                          return CoachHostActionResult{"created", card, false};
                                      })
                          .setTitle("Create canvas"));
}

}  // namespace sagely::testing
