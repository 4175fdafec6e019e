#include "cli/TerminalText.h"

#include <cstdint>
#include <cstdio>

namespace sagely::cli {
namespace {

constexpr char32_t kInvalid = 0xFFFFFFFF;

// The code point at `i` and its length in bytes; kInvalid (length 1) for a byte that does not
// start a well-formed UTF-8 sequence.
char32_t decodeAt(std::string_view s, std::size_t i, std::size_t& length) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char lead = byte(i);
    length = 1;
    if (lead < 0x80) return lead;
    std::size_t need = 0;
    char32_t value = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        need = 1, value = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        need = 2, value = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        need = 3, value = lead & 0x07, minimum = 0x10000;
    } else {
        return kInvalid;
    }
    if (i + need >= s.size()) return kInvalid;
    for (std::size_t k = 1; k <= need; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80) return kInvalid;
        value = (value << 6) | (byte(i + k) & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return kInvalid;
    length = need + 1;
    return value;
}

bool isControl(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F);
}

// Where a control string (OSC, DCS, SOS, PM, APC) that starts at `i` ends: after its terminator
// (BEL, ESC \ or U+009C), or at the next line feed or the end when it has none. Its introducer
// is gone, so the terminal never enters the string state and the rest of the line is plain text
// for it; removing it still keeps a payload such as a title out of sight.
std::size_t endOfControlString(std::string_view s, std::size_t i) {
    while (i < s.size()) {
        if (s[i] == '\a') return i + 1;
        if (s[i] == '\x1b' && i + 1 < s.size() && s[i + 1] == '\\') return i + 2;
        if (s.compare(i, 2, "\xC2\x9C") == 0) return i + 2;
        if (s[i] == '\n') return i;
        ++i;
    }
    return i;
}

// Where a CSI sequence whose parameters start at `i` ends: after its final byte, or before the
// first byte that cannot be part of it.
std::size_t endOfCsi(std::string_view s, std::size_t i) {
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        if (c >= 0x40 && c <= 0x7E) return i + 1;
        if (c < 0x20 || c > 0x3F) return i;
        ++i;
    }
    return i;
}

bool startsControlString(char32_t c) {
    return c == ']' || c == 'P' || c == 'X' || c == '^' || c == '_';
}

}  // namespace

std::string terminalSafe(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t length = 1;
        const char32_t c = decodeAt(text, i, length);
        if (c == kInvalid) {
            out += "\xEF\xBF\xBD";
            ++i;
            continue;
        }
        if (c == '\n' || c == '\t' || !isControl(c)) {
            out.append(text, i, length);
            i += length;
            continue;
        }
        i += length;
        if (c == 0x1B && i < text.size()) {  // ESC: a 7-bit sequence
            const char next = text[i];
            if (next == '[') {
                i = endOfCsi(text, i + 1);
            } else if (startsControlString(static_cast<unsigned char>(next))) {
                i = endOfControlString(text, i + 1);
            } else {
                while (i < text.size() && text[i] >= 0x20 && text[i] <= 0x2F) ++i;  // intermediates
                if (i < text.size() && text[i] >= 0x30 && text[i] <= 0x7E) ++i;     // final
            }
        } else if (c == 0x9B) {  // 8-bit CSI
            i = endOfCsi(text, i);
        } else if (c == 0x9D || c == 0x90 || c == 0x98 || c == 0x9E || c == 0x9F) {
            i = endOfControlString(text, i);
        }
    }
    return out;
}

std::string terminalSafeJson(std::string_view json) {
    std::string out;
    out.reserve(json.size());
    for (std::size_t i = 0; i < json.size(); ++i) {
        const auto c = static_cast<unsigned char>(json[i]);
        if (c == 0x7F) {
            out += "\\u007f";
        } else if (c == 0xC2 && i + 1 < json.size() &&
                   static_cast<unsigned char>(json[i + 1]) >= 0x80 &&
                   static_cast<unsigned char>(json[i + 1]) <= 0x9F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x",
                          static_cast<unsigned>(static_cast<unsigned char>(json[i + 1])));
            out += escaped;
            ++i;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace sagely::cli
