#include <sagely/Uuid.h>

#include <stdlib.h>

namespace sagely {
namespace {

int hexDigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isDashPosition(std::size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

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
    if (text.size() != 36) return std::nullopt;
    std::array<std::uint8_t, 16> bytes{};
    std::size_t byteIndex = 0;
    for (std::size_t i = 0; i < 36;) {
        if (isDashPosition(i)) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        int hi = hexDigitValue(text[i]);
        int lo = hexDigitValue(text[i + 1]);
        if (hi < 0 || lo < 0 || isDashPosition(i + 1)) return std::nullopt;
        bytes[byteIndex++] = static_cast<std::uint8_t>(hi * 16 + lo);
        i += 2;
    }
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
