#include <sagely/Uuid.h>

#include <stdlib.h>

#include <array>
#include <cstdint>

namespace sagely {
namespace {

// The value of each byte as a hex digit, or -1: a look-up, since a history's load parses an id
// for every message.
constexpr std::array<std::int8_t, 256> kHexDigitValues = [] {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (int c = '0'; c <= '9'; ++c) values[c] = static_cast<std::int8_t>(c - '0');
    for (int c = 'a'; c <= 'f'; ++c) values[c] = static_cast<std::int8_t>(c - 'a' + 10);
    for (int c = 'A'; c <= 'F'; ++c) values[c] = static_cast<std::int8_t>(c - 'A' + 10);
    return values;
}();

int hexDigitValue(char c) {
    return kHexDigitValues[static_cast<unsigned char>(c)];
}

// Where each byte's two digits start in the 8-4-4-4-12 form.
constexpr std::array<std::uint8_t, 16> kDigitPairs = {0,  2,  4,  6,  9,  11, 14, 16,
                                                      19, 21, 24, 26, 28, 30, 32, 34};

}  // namespace

Uuid Uuid::random() {
    // The system's generator, read for every id: a per-process generator seeded once would hand
    // a forked child the same ids as its parent.
    std::array<std::uint8_t, 16> bytes{};
    arc4random_buf(bytes.data(), bytes.size());
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return Uuid(bytes);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36 || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
        text[23] != '-')
        return std::nullopt;
    std::array<std::uint8_t, 16> bytes{};
    int invalid = 0;  // any digit's -1 sets the sign bit
    for (std::size_t i = 0; i < 16; ++i) {
        const int hi = hexDigitValue(text[kDigitPairs[i]]);
        const int lo = hexDigitValue(text[kDigitPairs[i] + 1]);
        invalid |= hi | lo;
        bytes[i] = static_cast<std::uint8_t>(hi * 16 + lo);
    }
    if (invalid < 0) return std::nullopt;
    return Uuid(bytes);
}

std::string Uuid::toString() const {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
        out.push_back(kHex[m_bytes[i] >> 4]);
        out.push_back(kHex[m_bytes[i] & 0x0F]);
    }
    return out;
}

}  // namespace sagely
