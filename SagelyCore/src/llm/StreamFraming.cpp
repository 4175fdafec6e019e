#include "llm/StreamFraming.h"

#include <utility>

namespace sagely::detail {

void SseParser::feed(std::string_view bytes) {
    while (!bytes.empty()) {
        if (m_afterCR) {
            m_afterCR = false;
            if (bytes.front() == '\n') bytes.remove_prefix(1);
            continue;
        }
        const std::size_t end = bytes.find_first_of("\r\n");
        if (end == std::string_view::npos) {
            m_line.append(bytes);
            return;
        }
        m_afterCR = bytes[end] == '\r';
        if (m_line.empty()) {
            line(bytes.substr(0, end));
        } else {
            m_line.append(bytes.substr(0, end));
            line(m_line);
            m_line.clear();
        }
        bytes.remove_prefix(end + 1);
    }
}

void SseParser::line(std::string_view text) {
    if (m_firstLine) {
        m_firstLine = false;
        if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    }
    if (text.empty()) {
        // Taken out first: the handler may throw, and the next event starts afresh anyway.
        SseEvent event = std::exchange(m_event, {});
        if (std::exchange(m_hasData, false)) m_handler(event);
        return;
    }
    if (text.front() == ':') return;
    const std::size_t colon = text.find(':');
    const std::string_view field = text.substr(0, colon);
    std::string_view value =
        colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
    if (value.starts_with(' ')) value.remove_prefix(1);
    if (field == "data") {
        if (m_hasData) m_event.data += '\n';
        m_event.data.append(value);
        m_hasData = true;
    } else if (field == "event") {
        m_event.type.assign(value);
    }
}

void NdjsonSplitter::feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        if (end == std::string_view::npos) {
            m_line.append(bytes);
            return;
        }
        if (m_line.empty()) {
            line(bytes.substr(0, end));
        } else {
            m_line.append(bytes.substr(0, end));
            std::string whole = std::move(m_line);
            m_line.clear();
            line(whole);
        }
        bytes.remove_prefix(end + 1);
    }
}

void NdjsonSplitter::finish() {
    std::string rest = std::move(m_line);
    m_line.clear();
    line(rest);
}

void NdjsonSplitter::line(std::string_view text) {
    if (text.ends_with('\r')) text.remove_suffix(1);
    if (text.find_first_not_of(" \t") == std::string_view::npos) return;
    m_handler(text);
}

}  // namespace sagely::detail
