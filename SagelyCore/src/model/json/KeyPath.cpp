#include "model/json/KeyPath.h"

#include <sagely/Error.h>

namespace sagely::detail {

void KeyPath::appendTo(std::string& out) const {
    if (!m_parent) return;  // the root has no text of its own
    m_parent->appendTo(out);
    if (m_isIndex) {
        out += '[';
        out += std::to_string(m_index);
        out += ']';
        return;
    }
    if (!out.empty()) out += '.';
    out += m_key;
}

std::string KeyPath::toString() const {
    std::string out;
    appendTo(out);
    return out;
}

void KeyPath::fail(std::string_view problem) const {
    std::string message = toString();
    if (!message.empty()) message += ": ";
    message += problem;
    throw DecodingError(message);
}

void KeyPath::failMissingKey() const {
    fail("missing key");
}

void KeyPath::failExpected(std::string_view what) const {
    fail("expected " + std::string(what));
}

void KeyPath::failUnknown(std::string_view what, std::string_view raw) const {
    fail("unknown " + std::string(what) + " \"" + std::string(raw) + "\"");
}

}  // namespace sagely::detail
