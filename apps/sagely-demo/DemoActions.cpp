#include "DemoActions.h"

#include "DemoWindows.h"

#include <nlohmann/json.hpp>

namespace tessel {

using nlohmann::json;
using sagely::CoachHostAction;
using sagely::CoachHostActionResult;

namespace {

json objectSchema(const char* property, json schema) {
    return {{"type", "object"},
            {"properties", {{property, std::move(schema)}}},
            {"required", {property}},
            {"additionalProperties", false}};
}

CoachHostAction openGuideChapter(DemoMainWindow& window) {
    json chapter = {{"type", "string"}, {"description", "The chapter's title."}};
    json titles = json::array();
    for (const QString& title : GuideWindow::chapterTitles(window.manual()))
        titles.push_back(title.toStdString());
    if (!titles.empty()) chapter["enum"] = titles;
    CoachHostAction action(
        "open_guide_chapter", "Opens the Tessel guide at a chapter, for the user to read.",
        objectSchema("chapter", std::move(chapter)), [&window](const json& arguments) {
            const auto chapter = arguments.at("chapter").get<std::string>();
            if (!window.openGuideChapter(QString::fromStdString(chapter)))
                return CoachHostActionResult{"The guide has no chapter \"" + chapter + "\".",
                                             std::nullopt, true};
            return CoachHostActionResult{"The guide is open at \"" + chapter + "\"."};
        });
    action.setReadOnly().setTitle("Open guide chapter");
    return action;
}

CoachHostAction switchAppearance(DemoMainWindow& window) {
    CoachHostAction action(
        "switch_appearance", "Switches Tessel between its light and dark appearance.",
        objectSchema("appearance", {{"type", "string"}, {"enum", {"light", "dark"}}}),
        [&window](const json& arguments) {
            const auto appearance = arguments.at("appearance").get<std::string>();
            window.useDarkAppearance(appearance == "dark");
            return CoachHostActionResult{"Tessel now uses the " + appearance + " appearance."};
        });
    action.setTitle("Switch appearance");
    return action;
}

CoachHostAction createCanvas(DemoMainWindow& window) {
    CoachHostAction action(
        "create_canvas", "Creates a new, empty AI Canvas with a name and opens it.",
        objectSchema("name", {{"type", "string"}, {"description", "The canvas's name."}}),
        [&window](const json& arguments) {
            const QString name =
                QString::fromStdString(arguments.at("name").get<std::string>()).simplified();
            if (name.isEmpty())
                return CoachHostActionResult{"A canvas needs a name.", std::nullopt, true};
            window.createCanvas(name);
            sagely::CoachCard card;
            card.style = sagely::CoachCard::Style::success;
            card.title = "Canvas created";
            card.subtitle = name.toStdString();
            card.suggestions = {"How do I share a canvas?"};
            return CoachHostActionResult{
                "Created the canvas \"" + name.toStdString() + "\"; it is open in its own window.",
                card};
        });
    action.setTitle("Create canvas");
    return action;
}

}  // namespace

std::vector<CoachHostAction> demoActions(DemoMainWindow& window) {
    return {openGuideChapter(window), switchAppearance(window), createCanvas(window)};
}

}  // namespace tessel
