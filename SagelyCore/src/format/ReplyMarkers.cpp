#include "format/ReplyMarkers.h"

#include <unicode/uchar.h>

#include <bitset>

namespace sagely::detail {

std::u16string_view stepLettersFoldedFrom(UChar32 c) {
    if (c == 0x017F) return u"s";                  // ſ
    if (c == 0xFB05 || c == 0xFB06) return u"st";  // ﬅ, ﬆ
    return {};
}

bool isDecimalDigitBeyondAscii(UChar32 c) {
    if (c > 0xFFFF) return u_isdigit(c);
    // Looked up once per process, when a text first holds a character beyond ASCII where a
    // digit may stand: a lookup in ICU per character costs more than the scans themselves.
    static const std::bitset<0x10000> kDigits = [] {
        std::bitset<0x10000> digits;
        for (UChar32 d = 0x80; d <= 0xFFFF; ++d) digits[static_cast<std::size_t>(d)] = u_isdigit(d);
        return digits;
    }();
    return kDigits[static_cast<std::size_t>(c)];
}

}  // namespace sagely::detail
