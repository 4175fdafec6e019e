#include "ondevice/AppleOnDeviceToolSchema.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace sagely::detail {
namespace {

using nlohmann::json;

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
    throw std::invalid_argument(path + ": " + why);
}

void copyDescription(const json& schema, json& node) {
    if (auto description = schema.find("description");
        description != schema.end() && description->is_string())
        node["description"] = *description;
}

json describe(const json& schema, const std::string& path) {
    if (!schema.is_object()) refuse(path, "not a schema");
    const auto type = schema.find("type");
    if (auto choices = schema.find("enum"); choices != schema.end()) {
        if (type != schema.end() && *type != "string")
            refuse(path, "an enum has an on-device form only as strings");
        for (const json& choice : *choices)
            if (!choice.is_string()) refuse(path, "an enum has an on-device form only as strings");
        json node = {{"kind", "choices"}, {"name", path}, {"choices", *choices}};
        copyDescription(schema, node);
        return node;
    }
    if (type == schema.end() || !type->is_string()) refuse(path, "no type");
    const std::string& kind = type->get_ref<const std::string&>();
    if (kind == "object") {
        const json none = json::object();
        const auto properties = schema.find("properties");
        const json& members = properties != schema.end() ? *properties : none;
        const json required = schema.value("required", json::array());
        json node = {{"kind", "object"}, {"name", path}, {"properties", json::array()}};
        copyDescription(schema, node);
        for (const auto& [name, member] : members.items()) {
            json property = {
                {"name", name},
                {"optional", std::find(required.begin(), required.end(), name) == required.end()},
                {"schema", describe(member, path + "." + name)}};
            copyDescription(member, property);
            node["properties"].push_back(std::move(property));
        }
        return node;
    }
    if (kind == "array") {
        const auto items = schema.find("items");
        if (items == schema.end()) refuse(path, "an array needs \"items\"");
        return {{"kind", "array"}, {"items", describe(*items, path + "[]")}};
    }
    if (kind == "string" || kind == "integer" || kind == "number" || kind == "boolean")
        return {{"kind", kind}};
    refuse(path, "the type \"" + kind + "\" has no on-device form");
}

}  // namespace

json onDeviceSchemaDescription(std::string_view actionName, const json& parameters) {
    const std::string root(actionName);
    if (!parameters.is_object() || parameters.value("type", "") != "object")
        refuse(root, "the parameters must be an object schema");
    return describe(parameters, root);
}

}  // namespace sagely::detail
