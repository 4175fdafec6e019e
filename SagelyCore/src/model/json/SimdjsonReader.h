// SimdjsonReader — reading a JSON document with simdjson's On-Demand parser, straight into the
// caller's values.
//
// The decoders walk the document once, in text order. Strings are unescaped directly into the
// std::string they end up in, so nothing but the padded copy of the input and simdjson's
// index of structural characters is held besides the values being built. Values the decoders
// do not want (unknown keys) are still checked to the end, so text that is not JSON fails
// wherever it stands. Every failure is a DecodingError naming the key path.
//
// The interface of SimdjsonValue (forEachField, forEachFieldTwice, forEachElement, string,
// stringView, number, takeNull, skip) is shared with NlohmannValue, so one set of decoders serves
// both.
#pragma once

#include "model/json/KeyPath.h"

#include <simdjson.h>

#include <string>
#include <string_view>
#include <utility>

namespace sagely::detail {

namespace ondemand = simdjson::ondemand;

/// Throws DecodingError "<path>: invalid JSON: <simdjson's description>".
[[noreturn]] void failJson(simdjson::error_code code, const KeyPath& path);
/// Nothing on success; "expected <what>" for a value of another type; invalid JSON otherwise.
inline void checkJson(simdjson::error_code code, const KeyPath& path, std::string_view what = {}) {
    if (code == simdjson::SUCCESS) return;
    if (code == simdjson::INCORRECT_TYPE && !what.empty()) path.failExpected(what);
    failJson(code, path);
}

/// Appends the string token whose text starts at `raw` (just after its opening quote) to
/// `out`, resolving escapes. The token must lie in a padded simdjson buffer.
void unescapeJsonString(const char* raw, std::string& out, const KeyPath& path);
/// The text of a string token (a key or a value): a view of the document when it holds no
/// escapes, else `scratch`.
std::string_view stringText(const char* raw, std::string& scratch, const KeyPath& path);
/// Reads a value of any type to its end, failing on anything that is not JSON.
void validateJsonValue(ondemand::value& value, const KeyPath& path, int depth = 0);

template <class Source>  // ondemand::value, or ondemand::document for the root
class SimdjsonValue {
public:
    explicit SimdjsonValue(Source& source) : m_source(source) {}

    /// Calls visit(key, value, keyPath) for each field, in document order.
    template <class Visit>
    void forEachField(const KeyPath& path, Visit&& visit) {
        ondemand::object object = startObject(path);
        visitFields(object, path, visit);
    }

    /// Two passes over the fields: the first may only read the values it wants (it must leave
    /// the others untouched), the second reads or skips every value the first did not read.
    template <class First, class Second>
    void forEachFieldTwice(const KeyPath& path, First&& first, Second&& second) {
        ondemand::object object = startObject(path);
        visitFields(object, path, first);
        bool ignored = false;
        checkJson(object.reset().get(ignored), path);
        visitFields(object, path, second);
    }

    /// Calls visit(value, elementPath) for each element, in order.
    template <class Visit>
    void forEachElement(const KeyPath& path, Visit&& visit) {
        ondemand::array array;
        check(m_source.get_array().get(array), path, "an array");
        std::size_t index = 0;
        for (auto result : array) {
            KeyPath at = path.element(index++);
            ondemand::value element;
            checkJson(std::move(result).get(element), at);
            SimdjsonValue<ondemand::value> value(element);
            visit(value, at);
        }
    }

    std::string string(const KeyPath& path) {
        ondemand::raw_json_string raw;
        check(m_source.get_raw_json_string().get(raw), path, "a string");
        std::string out;
        unescapeJsonString(raw.raw(), out, path);
        return out;
    }

    /// The string's text, as a view valid until the next read (escaped text goes to
    /// `scratch`); spares an allocation for values that are only looked at.
    std::string_view stringView(const KeyPath& path, std::string& scratch) {
        ondemand::raw_json_string raw;
        check(m_source.get_raw_json_string().get(raw), path, "a string");
        return stringText(raw.raw(), scratch, path);
    }

    double number(const KeyPath& path) {
        double value = 0;
        check(m_source.get_double().get(value), path, "a number");
        return value;
    }

    /// Whether the value is null (and then consumed).
    bool takeNull(const KeyPath& path) {
        bool isNull = false;
        checkJson(m_source.is_null().get(isNull), path);
        return isNull;
    }

    /// Passes over a value nobody wants, checking that it is JSON.
    void skip(const KeyPath& path) {
        if constexpr (std::is_same_v<Source, ondemand::value>) validateJsonValue(m_source, path);
    }

private:
    // Like checkJson, but a token that is no JSON value at all (say "}" where a value should
    // be) is reported as invalid JSON rather than as a value of the wrong type.
    void check(simdjson::error_code code, const KeyPath& path, std::string_view what) {
        if (code == simdjson::INCORRECT_TYPE) {
            ondemand::json_type type;
            simdjson::error_code typeError = m_source.type().get(type);
            if (typeError != simdjson::SUCCESS) failJson(typeError, path);
        }
        checkJson(code, path, what);
    }

    ondemand::object startObject(const KeyPath& path) {
        ondemand::object object;
        check(m_source.get_object().get(object), path, "an object");
        return object;
    }

    template <class Visit>
    static void visitFields(ondemand::object& object, const KeyPath& path, Visit& visit) {
        std::string scratch;
        for (auto result : object) {
            ondemand::field field;
            checkJson(std::move(result).get(field), path);
            std::string_view key = stringText(field.key().raw(), scratch, path);
            KeyPath at = path.child(key);
            SimdjsonValue<ondemand::value> value(field.value());
            visit(key, value, at);
        }
    }

    Source& m_source;
};

/// Parses `json`, hands its root to decode(rootValue, rootPath) and requires that nothing but
/// white space follows the root value. `capacity` is how many bytes from json.data() may be
/// read: with SIMDJSON_PADDING spare bytes the text is parsed in place, otherwise it is copied
/// into a padded buffer first.
template <class Decode>
auto decodeJsonDocument(std::string_view json, Decode&& decode, std::size_t capacity = 0) {
    KeyPath root;
    simdjson::padded_string copy;
    simdjson::padded_string_view input;
    if (capacity >= json.size() + simdjson::SIMDJSON_PADDING) {
        input = simdjson::padded_string_view(json.data(), json.size(), capacity);
    } else {
        copy = simdjson::padded_string(json);
        input = copy;
    }
    ondemand::parser parser;
    ondemand::document document;
    checkJson(parser.iterate(input).get(document), root);
    SimdjsonValue<ondemand::document> value(document);
    auto result = decode(value, root);
    if (document.current_location().error() == simdjson::SUCCESS)
        root.fail("invalid JSON: unexpected text after the end of the value");
    return result;
}

}  // namespace sagely::detail
