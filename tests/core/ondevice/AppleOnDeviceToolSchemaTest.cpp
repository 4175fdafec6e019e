// A host action's JSON Schema as the description the on-device bridge builds its run-time
// schema from: each keyword of the subset, and what has no on-device form.
#include "ondevice/AppleOnDeviceToolSchema.h"

#include <sagely/CoachHostAction.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace sagely {
namespace {

using detail::onDeviceSchemaDescription;
using nlohmann::json;

TEST(AppleOnDeviceToolSchemaTest, AnObjectListsItsPropertiesInOrderWithWhichAreOptional) {
    const json schema = {{"type", "object"},
                         {"description", "Where the canvas goes."},
                         {"properties",
                          {{"name", {{"type", "string"}, {"description", "Its title."}}},
                           {"size", {{"type", "integer"}}}}},
                         {"required", {"name"}}};
    const json expected = {
        {"kind", "object"},
        {"name", "create_canvas"},
        {"description", "Where the canvas goes."},
        {"properties",
         {{{"name", "name"},
           {"description", "Its title."},
           {"optional", false},
           {"schema", {{"kind", "string"}}}},
          {{"name", "size"}, {"optional", true}, {"schema", {{"kind", "integer"}}}}}}};
    EXPECT_EQ(onDeviceSchemaDescription("create_canvas", schema), expected);
}

TEST(AppleOnDeviceToolSchemaTest, EachPrimitiveTypeKeepsItsKind) {
    for (const std::string type : {"string", "integer", "number", "boolean"}) {
        const json schema = {{"type", "object"}, {"properties", {{"value", {{"type", type}}}}}};
        const json described = onDeviceSchemaDescription("set", schema);
        EXPECT_EQ(described["properties"][0]["schema"], (json{{"kind", type}})) << type;
    }
}

TEST(AppleOnDeviceToolSchemaTest, AnEnumOfStringsBecomesNamedChoices) {
    const json schema = {
        {"type", "object"},
        {"properties",
         {{"palette",
           {{"type", "string"}, {"enum", {"light", "dark"}}, {"description", "The palette."}}}}}};
    EXPECT_EQ(onDeviceSchemaDescription("switch_palette", schema)["properties"][0]["schema"],
              (json{{"kind", "choices"},
                    {"name", "switch_palette.palette"},
                    {"description", "The palette."},
                    {"choices", {"light", "dark"}}}));
    // Without a type, an enum of strings is still choices.
    const json untyped = {{"type", "object"},
                          {"properties", {{"palette", {{"enum", {"light", "dark"}}}}}}};
    EXPECT_EQ(onDeviceSchemaDescription("p", untyped)["properties"][0]["schema"]["kind"],
              "choices");
}

TEST(AppleOnDeviceToolSchemaTest, ArraysAndNestedObjectsGetNamesAlongTheirPath) {
    const json schema = {{"type", "object"},
                         {"properties",
                          {{"layers",
                            {{"type", "array"},
                             {"items",
                              {{"type", "object"},
                               {"properties", {{"title", {{"type", "string"}}}}},
                               {"required", {"title"}},
                               {"additionalProperties", false}}}}}}}};
    const json layers = onDeviceSchemaDescription("plan", schema)["properties"][0]["schema"];
    EXPECT_EQ(layers["kind"], "array");
    EXPECT_EQ(layers["items"]["kind"], "object");
    EXPECT_EQ(layers["items"]["name"], "plan.layers[]");
    EXPECT_EQ(layers["items"]["properties"][0]["optional"], false);
}

TEST(AppleOnDeviceToolSchemaTest, AnnotationsAndAdditionalPropertiesAreLeftOut) {
    const json schema = {{"type", "object"},
                         {"title", "Arguments"},
                         {"additionalProperties", false},
                         {"properties",
                          {{"name",
                            {{"type", "string"},
                             {"title", "Name"},
                             {"default", "Untitled"},
                             {"examples", {"Launch"}}}}}}};
    const json described = onDeviceSchemaDescription("a", schema);
    EXPECT_EQ(described,
              (json{{"kind", "object"},
                    {"name", "a"},
                    {"properties",
                     {{{"name", "name"}, {"optional", true}, {"schema", {{"kind", "string"}}}}}}}));
}

TEST(AppleOnDeviceToolSchemaTest, AnObjectWithoutPropertiesHasNone) {
    EXPECT_EQ(onDeviceSchemaDescription("read", json{{"type", "object"}}),
              (json{{"kind", "object"}, {"name", "read"}, {"properties", json::array()}}));
}

TEST(AppleOnDeviceToolSchemaTest, WhatHasNoOnDeviceFormIsRefusedWithItsPath) {
    const auto problem = [](const json& schema) -> std::string {
        try {
            onDeviceSchemaDescription("act", schema);
        } catch (const std::invalid_argument& refused) {
            return refused.what();
        }
        return "accepted";
    };
    const auto with = [](const json& property) {
        return json{{"type", "object"}, {"properties", {{"x", property}}}};
    };
    EXPECT_EQ(problem(with({{"type", "integer"}, {"enum", {1, 2}}})),
              "act.x: an enum has an on-device form only as strings");
    EXPECT_EQ(problem(with({{"enum", {"a", 2}}})),
              "act.x: an enum has an on-device form only as strings");
    EXPECT_EQ(problem(with({{"type", "array"}})), "act.x: an array needs \"items\"");
    EXPECT_EQ(problem(with({{"description", "anything"}})), "act.x: no type");
    EXPECT_EQ(problem(with({{"type", "null"}})), "act.x: the type \"null\" has no on-device form");
    EXPECT_EQ(problem(json{{"type", "string"}}), "act: the parameters must be an object schema");
}

TEST(AppleOnDeviceToolSchemaTest, EverySchemaAHostActionAcceptsWithTypesIsDescribed) {
    // The kit's own action schemas pass CoachHostAction's check and have an on-device form.
    const json schema = {{"type", "object"},
                         {"properties",
                          {{"provider", {{"type", "string"}, {"enum", {"apple", "openai"}}}},
                           {"value", {{"type", "number"}}},
                           {"tags", {{"type", "array"}, {"items", {{"type", "string"}}}}}}},
                         {"required", {"provider"}}};
    CoachHostAction action("use", "Uses a provider.", schema,
                           [](const json&) { return CoachHostActionResult{}; });
    EXPECT_NO_THROW(onDeviceSchemaDescription(action.name(), action.parameters()));
}

}  // namespace
}  // namespace sagely
