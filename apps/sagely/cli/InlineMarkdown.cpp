#include "cli/InlineMarkdown.h"

#include <cctype>

namespace sagely::cli {
namespace {

struct SpanStyle {
    bool bold = false;
    bool italic = false;
    bool code = false;
    bool link = false;
};

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool isWordChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}
bool isPunctuation(char c) {
    return std::ispunct(static_cast<unsigned char>(c)) != 0;
}

std::string selectGraphics(const SpanStyle& style) {
    std::string out(ansi::reset);
    if (style.bold) out += ansi::bold;
    if (style.italic) out += ansi::italic;
    if (style.link) out += ansi::underline;
    if (style.code) out += ansi::cyan;
    return out;
}

// Whether a run of `length` delimiters `c` may open emphasis at `i`.
bool canOpen(std::string_view text, std::size_t i, std::size_t length) {
    const char c = text[i];
    if (i + length >= text.size() || isSpace(text[i + length]) || text[i + length] == c)
        return false;
    return c != '_' || i == 0 || !isWordChar(text[i - 1]);
}

// Whether the delimiters at `j` may close emphasis of `length` delimiters `c`.
bool canClose(std::string_view text, std::size_t j, std::size_t length, char c) {
    if (text.compare(j, length, std::string(length, c)) != 0) return false;
    if (isSpace(text[j - 1]) || text[j - 1] == c) return false;
    const std::size_t after = j + length;
    if (after < text.size() && text[after] == c) return false;
    return c != '_' || after >= text.size() || !isWordChar(text[after]);
}

std::size_t findClosing(std::string_view text, std::size_t from, std::size_t length, char c) {
    for (std::size_t j = from; j + length <= text.size(); ++j)
        if (canClose(text, j, length, c)) return j;
    return std::string_view::npos;
}

class InlineRenderer {
public:
    explicit InlineRenderer(bool color) : m_color(color) {}

    std::string render(std::string_view text) {
        renderSpan(text, {});
        return std::move(m_out);
    }

private:
    void renderSpan(std::string_view text, SpanStyle style) {
        std::size_t i = 0;
        while (i < text.size()) {
            std::size_t used = tryEscape(text, i);
            if (!used) used = tryCode(text, i, style);
            if (!used) used = tryEmphasis(text, i, style);
            if (!used) used = tryLink(text, i, style);
            if (!used) {
                m_out += text[i];
                used = 1;
            }
            i += used;
        }
    }

    std::size_t tryEscape(std::string_view text, std::size_t i) {
        if (text[i] != '\\' || i + 1 >= text.size() || !isPunctuation(text[i + 1])) return 0;
        m_out += text[i + 1];
        return 2;
    }

    std::size_t tryCode(std::string_view text, std::size_t i, SpanStyle style) {
        if (text[i] != '`') return 0;
        const std::size_t codeStart = text.find_first_not_of('`', i);
        if (codeStart == std::string_view::npos) return 0;
        const std::size_t run = codeStart - i;
        const std::string fence(run, '`');
        const std::size_t close = text.find(fence, codeStart);
        if (close == std::string_view::npos) return 0;
        const std::string_view code = text.substr(codeStart, close - codeStart);
        SpanStyle inner = style;
        inner.code = true;
        if (m_color)
            m_out += selectGraphics(inner) + std::string(code) + selectGraphics(style);
        else
            m_out += fence + std::string(code) + fence;
        return close + run - i;
    }

    std::size_t tryEmphasis(std::string_view text, std::size_t i, SpanStyle style) {
        const char c = text[i];
        if (c != '*' && c != '_') return 0;
        for (std::size_t length : {std::size_t{2}, std::size_t{1}}) {
            if (text.compare(i, length, std::string(length, c)) != 0) continue;
            if (!canOpen(text, i, length)) continue;
            const std::size_t close = findClosing(text, i + length + 1, length, c);
            if (close == std::string_view::npos) continue;
            SpanStyle inner = style;
            (length == 2 ? inner.bold : inner.italic) = true;
            styled(text.substr(i + length, close - i - length), style, inner);
            return close + length - i;
        }
        return 0;
    }

    std::size_t tryLink(std::string_view text, std::size_t i, SpanStyle style) {
        if (text[i] != '[') return 0;
        const std::size_t labelEnd = text.find(']', i + 1);
        if (labelEnd == std::string_view::npos || labelEnd + 1 >= text.size() ||
            text[labelEnd + 1] != '(')
            return 0;
        const std::size_t urlEnd = text.find(')', labelEnd + 2);
        if (urlEnd == std::string_view::npos || labelEnd == i + 1) return 0;
        const std::string_view label = text.substr(i + 1, labelEnd - i - 1);
        const std::string_view url = text.substr(labelEnd + 2, urlEnd - labelEnd - 2);
        SpanStyle inner = style;
        inner.link = true;
        styled(label, style, inner);
        if (url != label) m_out += " (" + std::string(url) + ")";
        return urlEnd + 1 - i;
    }

    void styled(std::string_view content, SpanStyle outer, SpanStyle inner) {
        if (m_color) m_out += selectGraphics(inner);
        renderSpan(content, inner);
        if (m_color) m_out += selectGraphics(outer);
    }

    bool m_color;
    std::string m_out;
};

}  // namespace

std::string renderInlineMarkdown(std::string_view markdown, bool color) {
    return InlineRenderer(color).render(markdown);
}

}  // namespace sagely::cli
