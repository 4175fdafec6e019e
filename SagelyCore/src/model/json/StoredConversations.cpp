#include "model/json/StoredConversations.h"

#include "model/json/DataModelAccess.h"
#include "model/json/JsonText.h"

#include <sagely/CoachActionCall.h>
#include <sagely/CoachCard.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachMessage.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

namespace sagely::detail {
namespace {

// The length of the well-formed UTF-8 sequence that starts at `at` with a byte of 0x80 or more;
// 0 when it is ill-formed (the writer would replace it).
std::size_t sequenceLength(std::string_view text, std::size_t at) {
    auto byte = [&](std::size_t i) -> unsigned {
        return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0;
    };
    auto continuation = [&](std::size_t i, unsigned low = 0x80, unsigned high = 0xBF) {
        return byte(i) >= low && byte(i) <= high;
    };
    const unsigned lead = byte(0);
    if (lead >= 0xC2 && lead <= 0xDF) return continuation(1) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        const unsigned low = lead == 0xE0 ? 0xA0 : 0x80, high = lead == 0xED ? 0x9F : 0xBF;
        return continuation(1, low, high) && continuation(2) ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const unsigned low = lead == 0xF0 ? 0x90 : 0x80, high = lead == 0xF4 ? 0x8F : 0xBF;
        return continuation(1, low, high) && continuation(2) && continuation(3) ? 4 : 0;
    }
    return 0;
}

// A byte the writer writes as it is, in a string: printable ASCII but quotes and backslashes.
bool isPlain(char c) {
    return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x80 &&
           c != '"' && c != '\\';
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;  // the writer writes lower-case digits only
}

// Reads the writer's form and nothing else: every step either matches what the writer would
// have written at that point or fails.
class Scanner {
public:
    explicit Scanner(std::string_view text) : m_text(text) {}

    std::size_t at() const { return m_at; }
    bool atEnd() const { return m_at == m_text.size(); }

    bool literal(std::string_view expected) {
        // An equality test, which the compiler turns into a few loads for a constant key.
        if (m_text.size() - m_at < expected.size() ||
            std::memcmp(m_text.data() + m_at, expected.data(), expected.size()) != 0)
            return false;
        m_at += expected.size();
        return true;
    }

    /// A string escaped as the writer escapes it; its value goes to `value` when given.
    bool string(std::string* value) {
        if (!literal("\"")) return false;
        while (m_at < m_text.size()) {
            const std::size_t plain = m_at;
            skipPlain();
            if (value) value->append(m_text.substr(plain, m_at - plain));
            if (m_at == m_text.size()) break;
            const char c = m_text[m_at];
            const auto code = static_cast<unsigned char>(c);
            if (c == '"') {
                ++m_at;
                return true;
            }
            if (code < 0x20) return false;
            if (c == '\\') {
                char unescaped = 0;
                if (!escape(unescaped)) return false;
                if (value) value->push_back(unescaped);
            } else {
                const std::size_t length = sequenceLength(m_text, m_at);
                if (length == 0) return false;
                if (value) value->append(m_text.substr(m_at, length));
                m_at += length;
            }
        }
        return false;
    }

    /// An id as the writer writes it: the upper-case text of a UUID.
    std::optional<Uuid> uuid() {
        // 36 characters between quotes; any other string, escapes included, is no id.
        constexpr std::size_t kLength = 36;
        if (m_text.size() - m_at < kLength + 2 || m_text[m_at] != '"' ||
            m_text[m_at + kLength + 1] != '"')
            return std::nullopt;
        const std::string_view text = m_text.substr(m_at + 1, kLength);
        // Uuid::parse takes both cases of hex digits; the writer writes upper-case ones.
        if (std::any_of(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'f'; }))
            return std::nullopt;
        auto id = Uuid::parse(text);
        if (id) m_at += kLength + 2;
        return id;
    }

    /// A time: the shortest digits of its seconds, in the writer's notation.
    bool time(Timestamp& time) {
        const std::optional<double> seconds = shortestDouble(numberText());
        if (seconds) time = Timestamp(*seconds);
        return seconds.has_value();
    }

    /// A whole number of tokens, as the writer writes an int64.
    bool count() { return wholeNumber<std::int64_t>(numberText()) == std::errc(); }

    /// A provider's turn as the writer writes what the decoder makes of it: an object, compact,
    /// keys in the order read and none twice (the writer keeps only the last), numbers as
    /// `number` takes them.
    bool turn() { return m_at < m_text.size() && m_text[m_at] == '{' && value(0); }

    /// Passes over an object whatever it holds, by its brackets and strings alone; what it is
    /// is for a decoder to say.
    bool skipObject() {
        if (m_at >= m_text.size() || m_text[m_at] != '{') return false;
        int depth = 0;
        bool inString = false;
        for (; m_at < m_text.size(); ++m_at) {
            const char c = m_text[m_at];
            if (inString) {
                if (c == '\\')
                    ++m_at;
                else if (c == '"')
                    inString = false;
            } else if (c == '"') {
                inString = true;
            } else if (c == '{' || c == '[') {
                ++depth;
            } else if ((c == '}' || c == ']') && --depth == 0) {
                ++m_at;
                return true;
            }
        }
        return false;
    }

    void rewind(std::size_t at) { m_at = at; }

private:
    // Far deeper than any turn a provider sends; a deeper one is left to the decoder.
    static constexpr int kMaxTurnDepth = 64;

    bool value(int depth) {
        if (depth > kMaxTurnDepth) return false;
        if (literal("{")) {
            if (literal("}")) return true;
            std::vector<std::string_view> keys;
            do {
                // One spelling per string, so keys that read the same have the same text.
                const std::size_t key = m_at;
                if (!string(nullptr)) return false;
                keys.push_back(m_text.substr(key, m_at - key));
                if (!literal(":") || !value(depth + 1)) return false;
            } while (literal(","));
            if (!literal("}")) return false;
            std::sort(keys.begin(), keys.end());
            return std::adjacent_find(keys.begin(), keys.end()) == keys.end();
        }
        if (literal("[")) {
            if (literal("]")) return true;
            do {
                if (!value(depth + 1)) return false;
            } while (literal(","));
            return literal("]");
        }
        if (m_at < m_text.size() && m_text[m_at] == '"') return string(nullptr);
        return literal("true") || literal("false") || literal("null") || number();
    }

    // A number read as nlohmann reads it, and written back the same: a whole number that fits
    // 64 bits is kept as it is (so in its shortest digits); any other becomes a double, written
    // in the writer's notation. "-0" reads as the double -0.
    bool number() {
        const std::string_view text = numberText();
        if (text.find_first_of(".eE") == std::string_view::npos && text != "-0") {
            const std::errc read = text.starts_with('-') ? wholeNumber<std::int64_t>(text)
                                                         : wholeNumber<std::uint64_t>(text);
            if (read != std::errc::result_out_of_range) return read == std::errc();
        }
        return shortestDouble(text).has_value();
    }

    // Whether `text` is a T in its shortest digits: std::errc() when it is, result_out_of_range
    // when it is a whole number too large for T, invalid_argument otherwise.
    template <class T>
    static std::errc wholeNumber(std::string_view text) {
        T value = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc()) return error;
        char buffer[24];
        auto written = std::to_chars(buffer, buffer + sizeof buffer, value);
        return end == text.data() + text.size() && std::string_view(buffer, written.ptr) == text
                   ? std::errc()
                   : std::errc::invalid_argument;
    }

    // The double that `text` is the writer's shortest digits of, if it is.
    static std::optional<double> shortestDouble(std::string_view text) {
        double value = 0;
        auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
        std::string written;
        appendNumber(written, value);
        if (written != text) return std::nullopt;
        return value;
    }

    // The writer escapes only quotes, backslashes and control characters: those with a short
    // form in it, the others as \u00xx.
    bool escape(char& unescaped) {
        if (m_at + 1 >= m_text.size()) return false;
        switch (m_text[m_at + 1]) {
            case '"':
                unescaped = '"';
                break;
            case '\\':
                unescaped = '\\';
                break;
            case 'b':
                unescaped = '\b';
                break;
            case 'f':
                unescaped = '\f';
                break;
            case 'n':
                unescaped = '\n';
                break;
            case 'r':
                unescaped = '\r';
                break;
            case 't':
                unescaped = '\t';
                break;
            case 'u': {
                if (m_text.compare(m_at + 2, 2, "00") != 0 || m_at + 6 > m_text.size())
                    return false;
                const int high = hexDigit(m_text[m_at + 4]), low = hexDigit(m_text[m_at + 5]);
                if (high < 0 || high > 1 || low < 0) return false;
                const char code = static_cast<char>(high * 16 + low);
                if (code == '\b' || code == '\f' || code == '\n' || code == '\r' || code == '\t')
                    return false;
                unescaped = code;
                m_at += 6;
                return true;
            }
            default:
                return false;
        }
        m_at += 2;
        return true;
    }

    std::string_view numberText() {
        const std::size_t start = m_at;
        while (m_at < m_text.size()) {
            const char c = m_text[m_at];
            if (!((c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' ||
                  c == 'E'))
                break;
            ++m_at;
        }
        return m_text.substr(start, m_at - start);
    }

    // Moves past the bytes isPlain takes, eight at a time where it can: the text of a long
    // history is almost all such bytes, and this is the loop its load spends most time in.
    void skipPlain() {
        if constexpr (std::endian::native == std::endian::little) {
            constexpr std::uint64_t ones = 0x0101010101010101, highs = 0x8080808080808080;
            while (m_text.size() - m_at >= 8) {
                std::uint64_t block;
                std::memcpy(&block, m_text.data() + m_at, 8);
                // A byte's high bit is set in `stops` when it is below 0x20 (the subtraction
                // wraps), 0x80 or above, a quote or a backslash (the exclusive or gives zero,
                // which wraps). A wrap borrows from the byte above, so only the lowest flag is
                // sure to be a stop, and only the lowest is used.
                const std::uint64_t stops =
                    ((block - 0x20 * ones) | block | ((block ^ ('"' * ones)) - ones) |
                     ((block ^ ('\\' * ones)) - ones)) &
                    highs;
                if (stops) {
                    m_at += static_cast<std::size_t>(std::countr_zero(stops)) / 8;
                    return;
                }
                m_at += 8;
            }
        }
        while (m_at < m_text.size() && isPlain(m_text[m_at])) ++m_at;
    }

    std::string_view m_text;
    std::size_t m_at = 0;
};

// A card or a lesson: rare enough to be checked by the writer itself, which must make of its
// value the very text read.
template <class Decode>
bool attachment(Scanner& in, std::string_view text, Decode decode) {
    const std::size_t start = in.at();
    if (!in.skipObject()) return false;
    const std::string_view value = text.substr(start, in.at() - start);
    try {
        return encodeJson(decode(value)) == value;
    } catch (...) {
        return false;
    }
}

// An optional string the writer leaves out when empty: absent, or present and not empty.
bool nonEmptyString(Scanner& in, std::string_view key) {
    if (!in.literal(key)) return true;
    std::string value;
    return in.string(&value) && !value.empty();
}

// {"id":…[,"idMadeUp":true],"name":…[,"title":…],"arguments":…,"status":…,"result":…
//  [,"card":…]}
bool actionCall(Scanner& in, std::string_view text) {
    std::string status;
    if (!in.literal("{\"id\":") || !in.string(nullptr)) return false;
    in.literal(",\"idMadeUp\":true");  // written only when true
    if (!in.literal(",\"name\":") || !in.string(nullptr) || !nonEmptyString(in, ",\"title\":") ||
        !in.literal(",\"arguments\":") || !in.string(nullptr) || !in.literal(",\"status\":") ||
        !in.string(&status) || !actionStatusFromRawValue(status) || !in.literal(",\"result\":") ||
        !in.string(nullptr))
        return false;
    if (in.literal(",\"card\":") && !attachment(in, text, decodeCard)) return false;
    return in.literal("}");
}

// {"id":…,"role":…,"content":…[,"card":…][,"lesson":…]
//  [,"usage":{"inputTokens":…,"outputTokens":…[,"provider":…][,"model":…]}]
//  [,"actionCalls":[…]][,"providerTurn":{…}],"timestamp":…}
bool message(Scanner& in, std::string_view text, std::vector<Uuid>& ids) {
    std::optional<Uuid> id;
    std::string role;
    Timestamp timestamp;
    if (!in.literal("{\"id\":") || !(id = in.uuid()) || !in.literal(",\"role\":") ||
        !in.string(&role) || !roleFromRawValue(role) || !in.literal(",\"content\":") ||
        !in.string(nullptr))
        return false;
    if (in.literal(",\"card\":") && !attachment(in, text, decodeCard)) return false;
    if (in.literal(",\"lesson\":") && !attachment(in, text, decodeLesson)) return false;
    if (in.literal(",\"usage\":{\"inputTokens\":")) {
        if (!in.count() || !in.literal(",\"outputTokens\":") || !in.count() ||
            !nonEmptyString(in, ",\"provider\":") || !nonEmptyString(in, ",\"model\":") ||
            !in.literal("}"))
            return false;
    }
    if (in.literal(",\"actionCalls\":[")) {
        do {
            if (!actionCall(in, text)) return false;
        } while (in.literal(","));
        if (!in.literal("]")) return false;
    }
    if (in.literal(",\"providerTurn\":") && !in.turn()) return false;
    if (!in.literal(",\"timestamp\":") || !in.time(timestamp) || !in.literal("}")) return false;
    ids.push_back(*id);
    return true;
}

// {"id":…,"title":…,"messages":[…],"createdAt":…,"updatedAt":…}
std::optional<CoachConversation> storedConversation(Scanner& in, std::string_view text,
                                                    const std::shared_ptr<const void>& file) {
    const std::size_t start = in.at();
    std::optional<Uuid> id;
    std::string title;
    std::vector<Uuid> messageIds;
    Timestamp createdAt, updatedAt;
    if (!in.literal("{\"id\":") || !(id = in.uuid()) || !in.literal(",\"title\":") ||
        !in.string(&title) || !in.literal(",\"messages\":["))
        return std::nullopt;
    if (!in.literal("]")) {
        do {
            if (!message(in, text, messageIds)) return std::nullopt;
        } while (in.literal(","));
        if (!in.literal("]")) return std::nullopt;
    }
    if (!in.literal(",\"createdAt\":") || !in.time(createdAt) || !in.literal(",\"updatedAt\":") ||
        !in.time(updatedAt) || !in.literal("}"))
        return std::nullopt;
    auto stored = std::make_shared<const StoredConversation>(
        StoredConversation{file, text.substr(start, in.at() - start), std::move(messageIds)});
    return DataModelAccess::storedConversation(*id, std::move(title), createdAt, updatedAt,
                                               std::move(stored));
}

// One conversation: kept as text when it is in the writer's form, else decoded alone.
std::optional<CoachConversation> conversation(Scanner& in, std::string_view text,
                                              const std::shared_ptr<const void>& file) {
    const std::size_t start = in.at();
    if (auto stored = storedConversation(in, text, file)) return stored;
    in.rewind(start);
    if (!in.skipObject()) return std::nullopt;
    try {
        return decodeConversation(text.substr(start, in.at() - start));
    } catch (...) {
        return std::nullopt;
    }
}

}  // namespace

std::optional<std::vector<CoachConversation>> storedConversations(
    std::string_view text, const std::shared_ptr<const void>& file) {
    Scanner in(text);
    std::vector<CoachConversation> conversations;
    if (!in.literal("[")) return std::nullopt;
    if (!in.literal("]")) {
        do {
            auto read = conversation(in, text, file);
            if (!read) return std::nullopt;
            conversations.push_back(std::move(*read));
        } while (in.literal(","));
        if (!in.literal("]")) return std::nullopt;
    }
    if (!in.atEnd()) return std::nullopt;
    return conversations;
}

}  // namespace sagely::detail
