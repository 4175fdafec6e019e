#include "model/json/JsonWriter.h"

#include <sagely/Error.h>

#include <simdjson.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace sagely::detail {
namespace {

constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
constexpr std::uint64_t kHighs = 0x8080808080808080ULL;

// The length of the well-formed sequence starting at text[i], or 0 when there is none; then
// `consumed` is the length of the maximal ill-formed subpart to replace.
std::size_t sequenceLength(std::string_view text, std::size_t i, std::size_t& consumed) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[i + k]); };
    unsigned char lead = byte(0);
    consumed = 1;
    if (lead < 0x80) return 1;
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;  // the allowed range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF)
        length = 2;
    else if (lead == 0xE0)
        length = 3, low = 0xA0;
    else if (lead >= 0xE1 && lead <= 0xEC)
        length = 3;
    else if (lead == 0xED)
        length = 3, high = 0x9F;
    else if (lead >= 0xEE && lead <= 0xEF)
        length = 3;
    else if (lead == 0xF0)
        length = 4, low = 0x90;
    else if (lead >= 0xF1 && lead <= 0xF3)
        length = 4;
    else if (lead == 0xF4)
        length = 4, high = 0x8F;
    else
        return 0;
    for (std::size_t k = 1; k < length; ++k) {
        if (i + k >= text.size()) return 0;
        unsigned char c = byte(k);
        if (c < (k == 1 ? low : 0x80) || c > (k == 1 ? high : 0xBF)) return 0;
        consumed = k + 1;
    }
    return length;
}

// Flags (in the high bit of each byte) the quotes, backslashes and control characters of an
// eight-byte block. The lowest flagged byte is exact; bytes above it may be flagged wrongly,
// so only the lowest one is ever used.
inline std::uint64_t specialMask(std::uint64_t block) {
    std::uint64_t quote = block ^ (kOnes * '"');
    std::uint64_t backslash = block ^ (kOnes * '\\');
    std::uint64_t zeroQuote = (quote - kOnes) & ~quote;
    std::uint64_t zeroBackslash = (backslash - kOnes) & ~backslash;
    std::uint64_t control = (block - kOnes * 0x20) & ~block;
    return (zeroQuote | zeroBackslash | control) & kHighs;
}

inline bool needsEscape(unsigned char c) {
    return c < 0x20 || c == '"' || c == '\\';
}

void appendEscape(std::string& out, unsigned char c) {
    switch (c) {
        case '"':
            out += "\\\"";
            return;
        case '\\':
            out += "\\\\";
            return;
        case '\b':
            out += "\\b";
            return;
        case '\f':
            out += "\\f";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        default:
            break;
    }
    static constexpr char kHex[] = "0123456789abcdef";
    const char escape[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0x0F]};
    out.append(escape, sizeof escape);
}

// The position of the first byte at or after `i` that must be escaped, or `size`. Clean runs
// are skipped a block at a time; `nonAscii` is set when a skipped block held a byte >= 0x80.
std::size_t nextSpecial(const char* data, std::size_t size, std::size_t i, bool& nonAscii) {
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    const __m128i lastControl = _mm_set1_epi8(0x1F);
    for (; i + 16 <= size; i += 16) {
        __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
        __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(block, lastControl), block);
        __m128i special = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(block, quote), _mm_cmpeq_epi8(block, backslash)), control);
        nonAscii |= _mm_movemask_epi8(block) != 0;
        if (int mask = _mm_movemask_epi8(special))
            return i + static_cast<std::size_t>(std::countr_zero(static_cast<unsigned>(mask)));
    }
#endif
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + 8 <= size; i += 8) {
            std::uint64_t block;
            std::memcpy(&block, data + i, 8);
            nonAscii |= (block & kHighs) != 0;
            if (std::uint64_t mask = specialMask(block)) return i + std::countr_zero(mask) / 8;
        }
    }
    for (; i < size; ++i) {
        auto c = static_cast<unsigned char>(data[i]);
        if (needsEscape(c)) return i;
        nonAscii |= c >= 0x80;
    }
    return size;
}

// Appends `text` escaped; returns whether it held any byte >= 0x80 (and so may be ill-formed).
bool appendEscaped(std::string& out, std::string_view text) {
    const char* data = text.data();
    std::size_t size = text.size();
    bool nonAscii = false;
    std::size_t runStart = 0;
    for (std::size_t i = nextSpecial(data, size, 0, nonAscii); i < size;
         i = nextSpecial(data, size, i, nonAscii)) {
        out.append(data + runStart, i - runStart);
        appendEscape(out, static_cast<unsigned char>(data[i]));
        runStart = ++i;
    }
    out.append(data + runStart, size - runStart);
    return nonAscii;
}

}  // namespace

bool isValidUtf8(std::string_view text) {
    return simdjson::validate_utf8(text.data(), text.size());
}

std::string repairedUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (std::size_t i = 0; i < text.size();) {
        std::size_t consumed = 0;
        std::size_t length = sequenceLength(text, i, consumed);
        if (length == 0) {
            out += "\xEF\xBF\xBD";
            i += consumed;
            continue;
        }
        out.append(text.data() + i, length);
        i += length;
    }
    return out;
}

void appendJsonString(std::string& out, std::string_view text) {
    std::size_t start = out.size();
    out += '"';
    if (appendEscaped(out, text) && !isValidUtf8(text)) {
        out.resize(start + 1);
        appendEscaped(out, repairedUtf8(text));
    }
    out += '"';
}

void JsonWriter::key(std::string_view name) {
    // One append for the separator, the quoted name and the colon: keys are short.
    char buffer[64];
    std::size_t length = 0;
    if (m_needsComma) buffer[length++] = ',';
    if (name.size() + 4 > sizeof buffer) {
        m_out.append(buffer, length);
        (m_out += '"').append(name) += "\":";
    } else {
        buffer[length++] = '"';
        std::memcpy(buffer + length, name.data(), name.size());
        length += name.size();
        buffer[length++] = '"';
        buffer[length++] = ':';
        m_out.append(buffer, length);
    }
    m_needsComma = false;
    m_key = name;
}

void requireFinite(double value, std::string_view key) {
    if (std::isfinite(value)) return;
    std::string message(key);
    if (!message.empty()) message += ": ";
    message += "cannot encode a number that is not finite";
    throw Error(message);
}

void appendJsonNumber(std::string& out, double value, std::string_view key) {
    requireFinite(value, key);
    // The shortest digits that read back as the same double, in plain notation across the
    // range times and settings live in (so 700000000 rather than 7e+08), with an exponent only
    // for very large or very small magnitudes.
    double magnitude = std::fabs(value);
    bool plain = magnitude == 0 || (magnitude >= 1e-6 && magnitude < 1e21);
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value,
                                plain ? std::chars_format::fixed : std::chars_format::scientific);
    out.append(buffer, result.ptr);
}

}  // namespace sagely::detail
