// NlohmannValue — the reading interface of SimdjsonValue over an nlohmann::json value, so the
// hosts' from_json adapters run the very decoders of the file path (same keys, same rules,
// same error texts).
#pragma once

#include "model/json/KeyPath.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace sagely::detail {

class NlohmannValue {
public:
    explicit NlohmannValue(const nlohmann::json& json) : m_json(json) {}

    template <class Visit>
    void forEachField(const KeyPath& path, Visit&& visit) const {
        if (!m_json.is_object()) path.failExpected("an object");
        for (auto it = m_json.begin(); it != m_json.end(); ++it) {
            const std::string& key = it.key();
            NlohmannValue value(*it);
            visit(std::string_view(key), value, path.child(key));
        }
    }

    /// A tree can be read in any order, so the two passes are two plain walks.
    template <class First, class Second>
    void forEachFieldTwice(const KeyPath& path, First&& first, Second&& second) const {
        forEachField(path, first);
        forEachField(path, second);
    }

    template <class Visit>
    void forEachElement(const KeyPath& path, Visit&& visit) const {
        if (!m_json.is_array()) path.failExpected("an array");
        for (std::size_t i = 0; i < m_json.size(); ++i) {
            NlohmannValue value(m_json[i]);
            visit(value, path.element(i));
        }
    }

    std::string string(const KeyPath& path) const {
        if (!m_json.is_string()) path.failExpected("a string");
        return m_json.get_ref<const std::string&>();
    }

    std::string_view stringView(const KeyPath& path, std::string&) const {
        if (!m_json.is_string()) path.failExpected("a string");
        return m_json.get_ref<const std::string&>();
    }

    double number(const KeyPath& path) const {
        if (!m_json.is_number()) path.failExpected("a number");
        return m_json.get<double>();
    }

    bool takeNull(const KeyPath&) const { return m_json.is_null(); }
    /// A tree is JSON already: nothing to check.
    void skip(const KeyPath&) const {}

private:
    const nlohmann::json& m_json;
};

}  // namespace sagely::detail
