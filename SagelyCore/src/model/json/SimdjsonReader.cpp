#include "model/json/SimdjsonReader.h"

#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace sagely::detail {
namespace {

// Deeper than any value of the data model by far; it only bounds the recursion over unknown
// values, which could otherwise exhaust the stack.
constexpr int kMaxUnknownDepth = 512;

constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
constexpr std::uint64_t kHighs = 0x8080808080808080ULL;

inline std::uint64_t zeroBytes(std::uint64_t block) {
    return (block - kOnes) & ~block & kHighs;
}

// The first quote or backslash at or after `p`. The token ends with a quote inside a padded
// buffer, so reading whole blocks of 16 bytes never leaves the buffer. In the eight-byte
// variant the lowest flagged byte of the mask is exact; only bytes above it may be flagged
// wrongly.
const char* findQuoteOrBackslash(const char* p) {
#if defined(__SSE2__)
    const __m128i quote = _mm_set1_epi8('"');
    const __m128i backslash = _mm_set1_epi8('\\');
    for (;; p += 16) {
        __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        __m128i found =
            _mm_or_si128(_mm_cmpeq_epi8(block, quote), _mm_cmpeq_epi8(block, backslash));
        if (int mask = _mm_movemask_epi8(found))
            return p + std::countr_zero(static_cast<unsigned>(mask));
    }
#endif
    if constexpr (std::endian::native == std::endian::little) {
        for (;; p += 8) {
            std::uint64_t block;
            std::memcpy(&block, p, 8);
            std::uint64_t mask =
                zeroBytes(block ^ (kOnes * '"')) | zeroBytes(block ^ (kOnes * '\\'));
            if (mask) return p + std::countr_zero(mask) / 8;
        }
    }
    while (*p != '"' && *p != '\\') ++p;
    return p;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The four hexadecimal digits at `p`, or -1.
long hex4(const char* p) {
    long value = 0;
    for (int i = 0; i < 4; ++i) {
        int digit = hexValue(p[i]);
        if (digit < 0) return -1;
        value = value * 16 + digit;
    }
    return value;
}

void appendUtf8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Resolves "\uXXXX" (with `p` after the "u"), joining a surrogate pair; returns the position
// after the escape.
const char* unescapeUnicode(const char* p, std::string& out, const KeyPath& path) {
    long code = hex4(p);
    if (code < 0) path.fail("invalid JSON: malformed \\u escape in a string");
    p += 4;
    if (code >= 0xDC00 && code <= 0xDFFF) path.fail("invalid JSON: unpaired surrogate in a string");
    if (code >= 0xD800 && code <= 0xDBFF) {
        long low = (p[0] == '\\' && p[1] == 'u') ? hex4(p + 2) : -1;
        if (low < 0xDC00 || low > 0xDFFF) path.fail("invalid JSON: unpaired surrogate in a string");
        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        p += 6;
    }
    appendUtf8(out, static_cast<std::uint32_t>(code));
    return p;
}

// Resolves the escape whose letter is at `p`; returns the position after it.
const char* unescapeOne(const char* p, std::string& out, const KeyPath& path) {
    switch (*p) {
        case '"':
            out += '"';
            break;
        case '\\':
            out += '\\';
            break;
        case '/':
            out += '/';
            break;
        case 'b':
            out += '\b';
            break;
        case 'f':
            out += '\f';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'u':
            return unescapeUnicode(p + 1, out, path);
        default:
            path.fail("invalid JSON: invalid escape sequence in a string");
    }
    return p + 1;
}

void validateObject(ondemand::value& value, const KeyPath& path, int depth) {
    ondemand::object object;
    checkJson(value.get_object().get(object), path);
    std::string scratch;
    for (auto result : object) {
        ondemand::field field;
        checkJson(std::move(result).get(field), path);
        std::string_view key = stringText(field.key().raw(), scratch, path);
        validateJsonValue(field.value(), path.child(key), depth + 1);
    }
}

void validateArray(ondemand::value& value, const KeyPath& path, int depth) {
    ondemand::array array;
    checkJson(value.get_array().get(array), path);
    std::size_t index = 0;
    for (auto result : array) {
        KeyPath at = path.element(index++);
        ondemand::value element;
        checkJson(std::move(result).get(element), at);
        validateJsonValue(element, at, depth + 1);
    }
}

void validateScalar(ondemand::value& value, ondemand::json_type type, const KeyPath& path) {
    if (type == ondemand::json_type::string) {
        ondemand::raw_json_string raw;
        checkJson(value.get_raw_json_string().get(raw), path);
        std::string ignored;
        unescapeJsonString(raw.raw(), ignored, path);
    } else if (type == ondemand::json_type::number) {
        double ignored = 0;
        checkJson(value.get_double().get(ignored), path);
    } else if (type == ondemand::json_type::boolean) {
        bool ignored = false;
        checkJson(value.get_bool().get(ignored), path);
    } else {
        bool isNull = false;
        checkJson(value.is_null().get(isNull), path);
        if (!isNull) failJson(simdjson::N_ATOM_ERROR, path);
    }
}

}  // namespace

void failJson(simdjson::error_code code, const KeyPath& path) {
    path.fail(std::string("invalid JSON: ") + simdjson::error_message(code));
}

void unescapeJsonString(const char* raw, std::string& out, const KeyPath& path) {
    const char* p = raw;
    for (;;) {
        const char* special = findQuoteOrBackslash(p);
        out.append(p, special);
        if (*special == '"') return;
        p = unescapeOne(special + 1, out, path);
    }
}

std::string_view stringText(const char* raw, std::string& scratch, const KeyPath& path) {
    const char* special = findQuoteOrBackslash(raw);
    if (*special == '"') return std::string_view(raw, static_cast<std::size_t>(special - raw));
    scratch.clear();
    unescapeJsonString(raw, scratch, path);
    return scratch;
}

void validateJsonValue(ondemand::value& value, const KeyPath& path, int depth) {
    if (depth > kMaxUnknownDepth) path.fail("invalid JSON: nested too deeply");
    ondemand::json_type type;
    checkJson(value.type().get(type), path);
    if (type == ondemand::json_type::object) {
        validateObject(value, path, depth);
    } else if (type == ondemand::json_type::array) {
        validateArray(value, path, depth);
    } else {
        validateScalar(value, type, path);
    }
}

}  // namespace sagely::detail
