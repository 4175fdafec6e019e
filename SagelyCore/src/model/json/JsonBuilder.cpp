#include "model/json/JsonBuilder.h"

#include "model/json/JsonWriter.h"

#include <string>

namespace sagely::detail {

nlohmann::json& JsonBuilder::slot() {
    if (m_open.empty()) return m_root;
    nlohmann::json& container = *m_open.back();
    if (container.is_object()) return container[std::string(m_key)];
    container.push_back(nullptr);
    return container.back();
}

void JsonBuilder::string(std::string_view value) {
    slot() = isValidUtf8(value) ? std::string(value) : repairedUtf8(value);
}

void JsonBuilder::number(double value) {
    requireFinite(value, m_key);
    slot() = value;
}

}  // namespace sagely::detail
