#include <sagely/Text.h>

#include "support/TextViews.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <memory>

namespace sagely::text {
namespace {

// Decodes the code point at `i` (advancing `i`); malformed bytes decode as a negative value.
UChar32 nextCodePoint(std::string_view s, std::size_t& i) {
    UChar32 c = 0;
    int32_t index = static_cast<int32_t>(i);
    U8_NEXT(reinterpret_cast<const uint8_t*>(s.data()), index, static_cast<int32_t>(s.size()), c);
    i = static_cast<std::size_t>(index);
    return c;
}

// Without an early exit the loop is vectorised: long ASCII texts (a pasted log) are common.
bool isAscii(std::string_view s) {
    unsigned char any = 0;
    for (unsigned char c : s) any |= c;
    return any < 0x80;
}

// ASCII text without CR is one grapheme cluster per byte; everything else asks ICU.
bool isSimpleAscii(std::string_view s) {
    for (unsigned char c : s)
        if (c >= 0x80 || c == '\r') return false;
    return true;
}

// Calls `visit(byteOffset)` at every grapheme boundary after the start until it returns false.
template <typename Visitor>
void forEachCharacterBoundary(std::string_view s, Visitor visit) {
    if (isSimpleAscii(s)) {
        for (std::size_t i = 1; i <= s.size(); ++i)
            if (!visit(i)) return;
        return;
    }
    UErrorCode status = U_ZERO_ERROR;
    UText* ut = utext_openUTF8(nullptr, s.data(), static_cast<int64_t>(s.size()), &status);
    std::unique_ptr<icu::BreakIterator> it(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !it) {
        utext_close(ut);
        return;
    }
    it->setText(ut, status);
    for (int32_t b = it->next(); b != icu::BreakIterator::DONE; b = it->next())
        if (!visit(static_cast<std::size_t>(b))) break;
    utext_close(ut);
}

}  // namespace

std::string trimmed(std::string_view s) {
    return std::string(detail::trimmedView(s));
}

std::string trimmedSpacesAndTabs(std::string_view s) {
    return std::string(detail::trimmedSpacesAndTabsView(s));
}

bool isBlank(std::string_view s) {
    return detail::trimmedView(s).empty();
}

std::size_t characterCount(std::string_view s) {
    std::size_t count = 0;
    forEachCharacterBoundary(s, [&](std::size_t) {
        ++count;
        return true;
    });
    return count;
}

bool hasMoreCharactersThan(std::string_view s, std::size_t count) {
    if (s.size() <= count) return false;  // every character takes at least one byte
    std::size_t seen = 0;
    bool more = false;
    forEachCharacterBoundary(s, [&](std::size_t) {
        if (++seen > count) {
            more = true;
            return false;
        }
        return true;
    });
    return more;
}

std::string prefixCharacters(std::string_view s, std::size_t count) {
    if (count == 0) return {};
    std::size_t seen = 0;
    std::size_t end = s.size();
    forEachCharacterBoundary(s, [&](std::size_t boundary) {
        if (++seen == count) {
            end = boundary;
            return false;
        }
        return true;
    });
    return std::string(s.substr(0, end));
}

std::string lowercased(std::string_view s) {
    if (isAscii(s)) {
        // Branch-free, so that the loop is vectorised.
        std::string out(s);
        for (char& c : out)
            c = static_cast<char>(c | (static_cast<unsigned char>(c - 'A') < 26) << 5);
        return out;
    }
    icu::UnicodeString u =
        icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
    u.toLower(icu::Locale::getRoot());
    std::string out;
    u.toUTF8String(out);
    return out;
}

std::u16string toUtf16(std::string_view s) {
    icu::UnicodeString u =
        icu::UnicodeString::fromUTF8(icu::StringPiece(s.data(), static_cast<int32_t>(s.size())));
    return std::u16string(u.getBuffer(), static_cast<std::size_t>(u.length()));
}

std::string toUtf8(std::u16string_view s) {
    icu::UnicodeString u(false, s.data(), static_cast<int32_t>(s.size()));
    std::string out;
    u.toUTF8String(out);
    return out;
}

bool isValidUtf8(std::string_view s) {
    // ASCII is read a block at a time: the or of a block vectorises, and only a block with a
    // byte of 0x80 or more is decoded.
    constexpr std::size_t kBlock = 32;
    std::size_t i = 0;
    while (i < s.size()) {
        if (i + kBlock <= s.size()) {
            unsigned char any = 0;
            for (std::size_t j = i; j < i + kBlock; ++j) any |= static_cast<unsigned char>(s[j]);
            if (any < 0x80) {
                i += kBlock;
                continue;
            }
        }
        // Up to the end of the block, or past the code point that crosses it.
        for (std::size_t end = std::min(i + kBlock, s.size()); i < end;)
            if (nextCodePoint(s, i) < 0) return false;
    }
    return true;
}

std::string percentEncodePath(std::string_view s) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(s.size());
    for (unsigned char c : s) {
        bool allowed = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                       std::string_view("-._~!$&'()*+,;=:@/").find(static_cast<char>(c)) !=
                           std::string_view::npos;
        if (allowed) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 0xF]);
        }
    }
    return out;
}

std::string percentDecode(std::string_view s) {
    auto hexValue = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string out;
    out.reserve(s.size());
    for (std::size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size()) {
            int hi = hexValue(s[i + 1]);
            int lo = hexValue(s[i + 2]);
            if (hi >= 0 && lo >= 0) {
                out.push_back(static_cast<char>(hi * 16 + lo));
                i += 2;
                continue;
            }
        }
        out.push_back(s[i]);
    }
    return out;
}

}  // namespace sagely::text
