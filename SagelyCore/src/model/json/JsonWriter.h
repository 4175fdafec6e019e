// JsonWriter — a compact JSON writer that appends straight into one string.
//
// It is the encoder of the persistence hot path: no DOM, no per-value allocation. Keys are
// written as given (callers pass plain ASCII names); strings are escaped as JSON requires and
// passed through as UTF-8; numbers use the shortest text that reads back as the same double.
// A string that is not valid UTF-8 is written with U+FFFD in place of each ill-formed
// sequence, so the output is always readable JSON.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sagely::detail {

/// Whether `text` is well-formed UTF-8.
bool isValidUtf8(std::string_view text);
/// `text` with every ill-formed UTF-8 sequence replaced by U+FFFD (maximal subparts).
std::string repairedUtf8(std::string_view text);

/// Appends `text` as a quoted JSON string.
void appendJsonString(std::string& out, std::string_view text);
/// Appends the shortest round-trip form of `value`. Throws sagely::Error naming `key` when the
/// value is not finite, as JSON has no text for it.
void appendJsonNumber(std::string& out, double value, std::string_view key);
/// Throws sagely::Error naming `key` when the value is NaN or infinite.
void requireFinite(double value, std::string_view key);

class JsonWriter {
public:
    explicit JsonWriter(std::size_t capacity = 0) { m_out.reserve(capacity); }

    void beginObject() { open('{'); }
    void endObject() { close('}'); }
    void beginArray() { open('['); }
    void endArray() { close(']'); }

    void key(std::string_view name);
    void string(std::string_view value) {
        separate();
        appendJsonString(m_out, value);
        m_needsComma = true;
    }
    /// A string known to need no escaping and to be ASCII (raw values, identifiers).
    void plainString(std::string_view value) {
        separate();
        m_out += '"';
        m_out += value;
        m_out += '"';
        m_needsComma = true;
    }
    void number(double value) {
        separate();
        appendJsonNumber(m_out, value, m_key);
        m_needsComma = true;
    }

    /// The text written so far; the writer is left empty.
    std::string take() { return std::move(m_out); }

private:
    void separate() {
        if (m_needsComma) m_out += ',';
    }
    void open(char bracket) {
        separate();
        m_out += bracket;
        m_needsComma = false;
    }
    void close(char bracket) {
        m_out += bracket;
        m_needsComma = true;
    }

    std::string m_out;
    std::string_view m_key;  // the last key, for the text of an encoding error
    bool m_needsComma = false;
};

}  // namespace sagely::detail
