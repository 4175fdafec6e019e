// The host actions' schema checks on any bytes: the input's first half is read as a schema, the
// second as arguments. A schema is accepted or refused with a reason, never a crash; arguments
// are checked only against accepted schemas, a misfit says why, and an empty object fits an
// object schema that requires nothing.
#include "FuzzInput.h"

#include "support/JsonSchema.h"

#include <nlohmann/json.hpp>

#include <string>

using namespace sagely;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(fuzz::textOf(data, size));
    const std::size_t half = text.size() / 2;
    const nlohmann::json schema = nlohmann::json::parse(text.substr(0, half), nullptr, false);
    const nlohmann::json value = nlohmann::json::parse(text.substr(half), nullptr, false);
    if (schema.is_discarded()) return 0;
    if (auto problem = detail::schemaProblem(schema)) {
        fuzz::require(!problem->empty(), "a refusal says why");
        return 0;
    }
    if (!value.is_discarded()) {
        auto problem = detail::validationProblem(schema, value);
        fuzz::require(!problem || !problem->empty(), "a misfit says why");
    }
    if (schema.value("type", std::string()) == "object" && !schema.contains("required") &&
        !schema.contains("enum")) {
        fuzz::require(!detail::validationProblem(schema, nlohmann::json::object()),
                      "an empty object fits an object schema with nothing required");
    }
    return 0;
}
