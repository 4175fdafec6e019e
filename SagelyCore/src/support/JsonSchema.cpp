#include "support/JsonSchema.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace sagely::detail {
namespace {

constexpr int kMaxDepth = 32;
constexpr std::array<std::string_view, 6> kTypes{"object", "string",  "integer",
                                                 "number", "boolean", "array"};
constexpr std::array<std::string_view, 10> kKeywords{
    "type",        "properties", "required", "enum",    "items", "additionalProperties",
    "description", "title",      "default",  "examples"};

std::string under(const std::string& path, std::string_view key) {
    return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string problemAt(const std::string& path, const std::string& problem) {
    return path.empty() ? problem : path + ": " + problem;
}

std::optional<std::string> checkSchema(const nlohmann::json& schema, const std::string& path,
                                       int depth) {
    if (depth > kMaxDepth) return problemAt(path, "the schema is nested too deeply");
    if (!schema.is_object()) return problemAt(path, "a schema must be a JSON object");
    for (const auto& [key, value] : schema.items()) {
        if (std::find(kKeywords.begin(), kKeywords.end(), key) == kKeywords.end())
            return problemAt(path, "unsupported keyword \"" + key + "\"");
    }
    if (auto type = schema.find("type"); type != schema.end()) {
        if (!type->is_string() || std::find(kTypes.begin(), kTypes.end(),
                                            type->get_ref<const std::string&>()) == kTypes.end())
            return problemAt(path,
                             "\"type\" must be one of object, string, integer, number, "
                             "boolean, array");
    }
    if (auto properties = schema.find("properties"); properties != schema.end()) {
        if (!properties->is_object()) return problemAt(path, "\"properties\" must be an object");
        for (const auto& [name, property] : properties->items()) {
            if (auto problem = checkSchema(property, under(path, name), depth + 1)) return problem;
        }
    }
    if (auto required = schema.find("required"); required != schema.end()) {
        if (!required->is_array() ||
            !std::all_of(required->begin(), required->end(),
                         [](const nlohmann::json& name) { return name.is_string(); }))
            return problemAt(path, "\"required\" must be an array of strings");
    }
    if (auto values = schema.find("enum"); values != schema.end()) {
        if (!values->is_array() || values->empty())
            return problemAt(path, "\"enum\" must be a non-empty array");
    }
    if (auto items = schema.find("items"); items != schema.end()) {
        if (auto problem = checkSchema(*items, under(path, "[]"), depth + 1)) return problem;
    }
    if (auto additional = schema.find("additionalProperties"); additional != schema.end()) {
        if (!additional->is_boolean())
            return problemAt(path, "\"additionalProperties\" must be true or false");
    }
    return std::nullopt;
}

bool isWholeNumber(const nlohmann::json& value) {
    if (value.is_number_integer()) return true;
    if (!value.is_number_float()) return false;
    const double number = value.get<double>();
    return std::isfinite(number) && std::floor(number) == number;
}

bool hasType(const nlohmann::json& value, std::string_view type) {
    if (type == "object") return value.is_object();
    if (type == "string") return value.is_string();
    if (type == "integer") return isWholeNumber(value);
    if (type == "number") return value.is_number();
    if (type == "boolean") return value.is_boolean();
    return value.is_array();
}

// JSON Schema equality: numbers compare by value (1 equals 1.0), everything else structurally.
bool sameValue(const nlohmann::json& a, const nlohmann::json& b) {
    if (a.is_number() && b.is_number()) {
        if (a.is_number_integer() && b.is_number_integer()) {
            if (a.is_number_unsigned() != b.is_number_unsigned()) {
                const auto& s = a.is_number_unsigned() ? b : a;
                const auto& u = a.is_number_unsigned() ? a : b;
                return s.get<std::int64_t>() >= 0 &&
                       static_cast<std::uint64_t>(s.get<std::int64_t>()) == u.get<std::uint64_t>();
            }
            return a == b;
        }
        return a.get<double>() == b.get<double>();
    }
    if (a.type() != b.type()) return false;
    if (a.is_array()) {
        return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), sameValue);
    }
    if (a.is_object()) {
        if (a.size() != b.size()) return false;
        for (const auto& [key, value] : a.items()) {
            auto other = b.find(key);
            if (other == b.end() || !sameValue(value, *other)) return false;
        }
        return true;
    }
    return a == b;
}

std::optional<std::string> validate(const nlohmann::json& schema, const nlohmann::json& value,
                                    const std::string& path) {
    if (auto type = schema.find("type"); type != schema.end()) {
        const auto& name = type->get_ref<const std::string&>();
        if (!hasType(value, name))
            return problemAt(
                path,
                "expected " +
                    std::string(name == "integer" || name == "array" || name == "object" ? "an "
                                                                                         : "a ") +
                    name);
    }
    if (auto values = schema.find("enum"); values != schema.end()) {
        if (std::none_of(values->begin(), values->end(),
                         [&](const nlohmann::json& allowed) { return sameValue(allowed, value); }))
            return problemAt(path, "must be one of " + values->dump());
    }
    if (value.is_object()) {
        const auto properties = schema.find("properties");
        if (auto required = schema.find("required"); required != schema.end()) {
            for (const auto& name : *required) {
                if (!value.contains(name.get_ref<const std::string&>()))
                    return problemAt(path, "missing \"" + name.get<std::string>() + "\"");
            }
        }
        const auto additional = schema.find("additionalProperties");
        const bool closed = additional != schema.end() && !additional->get<bool>();
        for (const auto& [key, member] : value.items()) {
            const nlohmann::json* propertySchema = nullptr;
            if (properties != schema.end()) {
                if (auto found = properties->find(key); found != properties->end())
                    propertySchema = &*found;
            }
            if (propertySchema == nullptr) {
                if (closed) return problemAt(path, "unexpected \"" + key + "\"");
                continue;
            }
            if (auto problem = validate(*propertySchema, member, under(path, key))) return problem;
        }
    }
    if (value.is_array()) {
        if (auto items = schema.find("items"); items != schema.end()) {
            std::size_t index = 0;
            for (const auto& element : value) {
                if (auto problem =
                        validate(*items, element, path + "[" + std::to_string(index++) + "]"))
                    return problem;
            }
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> schemaProblem(const nlohmann::json& schema) {
    return checkSchema(schema, "", 0);
}

std::optional<std::string> validationProblem(const nlohmann::json& schema,
                                             const nlohmann::json& value) {
    return validate(schema, value, "");
}

}  // namespace sagely::detail
