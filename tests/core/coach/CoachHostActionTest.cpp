// The host action: the names, descriptions and schemas it accepts, the checks of the model's
// arguments against the schema subset, and a handler's failure.
#include <sagely/CoachHostAction.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>
#include <vector>

namespace sagely {
namespace {

using nlohmann::json;

CoachHostActionResult done(const json&) {
    return {"ok", std::nullopt, false};
}

CoachHostAction make(const std::string& name, const json& schema) {
    return CoachHostAction(name, "Does a thing.", schema, done);
}

const json kCanvas = {{"type", "object"},
                      {"properties",
                       {{"name", {{"type", "string"}, {"description", "The canvas name."}}},
                        {"size", {{"type", "integer"}}},
                        {"scale", {{"type", "number"}}},
                        {"shared", {{"type", "boolean"}}},
                        {"palette", {{"type", "string"}, {"enum", {"light", "dark"}}}},
                        {"tags", {{"type", "array"}, {"items", {{"type", "string"}}}}},
                        {"origin",
                         {{"type", "object"},
                          {"properties", {{"x", {{"type", "number"}}}}},
                          {"required", {"x"}},
                          {"additionalProperties", false}}}}},
                      {"required", {"name"}}};

TEST(CoachHostActionTest, NamesOutsideTheAllowedSetAreRefusedWithAClearError) {
    EXPECT_NO_THROW(make("create_canvas-2", kCanvas));
    EXPECT_NO_THROW(make(std::string(64, 'a'), kCanvas));
    for (const std::string& bad :
         std::vector<std::string>{"", "has space", "dot.name", "é", std::string(65, 'a')}) {
        try {
            make(bad, kCanvas);
            ADD_FAILURE() << "accepted " << bad;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find("a-z, A-Z, 0-9, _ and -"), std::string::npos);
        }
    }
}

TEST(CoachHostActionTest, SchemasOutsideTheSubsetAreRefusedWhenTheActionIsMade) {
    EXPECT_THROW(make("a", json{{"type", "string"}}), std::invalid_argument);
    EXPECT_THROW(make("a", json::array()), std::invalid_argument);
    EXPECT_THROW(make("a", json{{"type", 5}}), std::invalid_argument);
    try {
        make("a", json{{"type", "object"},
                       {"properties", {{"size", {{"type", "integer"}, {"minimum", 1}}}}}});
        ADD_FAILURE() << "accepted minimum";
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what()).find("size: unsupported keyword \"minimum\""),
                  std::string::npos)
            << error.what();
    }
    EXPECT_THROW(make("a", json{{"type", "object"}, {"properties", {{"x", {{"type", "null"}}}}}}),
                 std::invalid_argument);
    EXPECT_THROW(make("a", json{{"type", "object"}, {"required", {1}}}), std::invalid_argument);
    EXPECT_THROW(
        make("a", json{{"type", "object"}, {"properties", {{"e", {{"enum", json::array()}}}}}}),
        std::invalid_argument);
    EXPECT_THROW(CoachHostAction("a", "two\nlines", kCanvas, done), std::invalid_argument);
    EXPECT_THROW(CoachHostAction("a", "x", kCanvas, nullptr), std::invalid_argument);
}

TEST(CoachHostActionTest, ArgumentsAreCheckedAgainstTheSubset) {
    const CoachHostAction action = make("create_canvas", kCanvas);
    EXPECT_FALSE(action.argumentProblem(json{{"name", "Launch"}}));
    EXPECT_FALSE(action.argumentProblem(json{{"name", "L"},
                                             {"size", 3.0},
                                             {"scale", 1.5},
                                             {"shared", true},
                                             {"palette", "dark"},
                                             {"tags", {"a", "b"}},
                                             {"origin", {{"x", 2}}},
                                             {"extra", 1}}));
    const std::pair<json, std::string> misfits[] = {
        {json::object(), "missing \"name\""},
        {json{{"name", 42}}, "name: expected a string"},
        {json{{"name", "L"}, {"size", 2.5}}, "size: expected an integer"},
        {json{{"name", "L"}, {"scale", "big"}}, "scale: expected a number"},
        {json{{"name", "L"}, {"shared", 1}}, "shared: expected a boolean"},
        {json{{"name", "L"}, {"palette", "blue"}}, "palette: must be one of [\"light\",\"dark\"]"},
        {json{{"name", "L"}, {"tags", {"a", 2}}}, "tags[1]: expected a string"},
        {json{{"name", "L"}, {"tags", "a"}}, "tags: expected an array"},
        {json{{"name", "L"}, {"origin", json::object()}}, "origin: missing \"x\""},
        {json{{"name", "L"}, {"origin", {{"x", 1}, {"y", 2}}}}, "origin: unexpected \"y\""},
        {json::array(), "expected an object"},
    };
    for (const auto& [arguments, problem] : misfits) {
        EXPECT_EQ(action.argumentProblem(arguments).value_or("(fits)"), problem) << arguments;
    }
}

TEST(CoachHostActionTest, AThrowingHandlerGivesAFailedResultAndFlagsAreKept) {
    CoachHostAction action(
        "boom", "Fails.", json{{"type", "object"}},
        [](const json&) -> CoachHostActionResult { throw std::runtime_error("disk full"); });
    action.setPreApproved().setTitle("Boom");
    const auto result = action.run(json::object());
    EXPECT_TRUE(result.failed);
    EXPECT_EQ(result.text, "The action failed: disk full");
    EXPECT_TRUE(action.preApproved());
    EXPECT_FALSE(action.readOnly());
    EXPECT_FALSE(action.needsApproval());
    EXPECT_EQ(action.title(), "Boom");
    const CoachHostAction copy = action;
    action.setReadOnly();
    EXPECT_FALSE(copy.readOnly());  // copies made before keep what they had
    EXPECT_EQ(make("ok", kCanvas).run(json::object()).text, "ok");
}

}  // namespace
}  // namespace sagely
