// JsonBuilder — the JsonWriter calls, building an nlohmann::json value instead of text.
//
// The hosts' nlohmann adapters encode through the same functions as the file writer, so the
// keys, their order and the rules for optional values exist once.
#pragma once

#include <nlohmann/json.hpp>

#include <string_view>
#include <vector>

namespace sagely::detail {

class JsonBuilder {
public:
    void beginObject() { open(nlohmann::json::object()); }
    void endObject() { m_open.pop_back(); }
    void beginArray() { open(nlohmann::json::array()); }
    void endArray() { m_open.pop_back(); }

    void key(std::string_view name) { m_key = name; }
    void string(std::string_view value);
    void plainString(std::string_view value) { slot() = std::string(value); }
    void number(double value);

    /// The value built so far; the builder is left empty.
    nlohmann::json take() { return std::move(m_root); }

private:
    nlohmann::json& slot();
    void open(nlohmann::json container) {
        nlohmann::json& placed = slot();
        placed = std::move(container);
        m_open.push_back(&placed);
    }

    nlohmann::json m_root;
    std::vector<nlohmann::json*> m_open;  // the containers being filled, innermost last
    std::string_view m_key;
};

}  // namespace sagely::detail
