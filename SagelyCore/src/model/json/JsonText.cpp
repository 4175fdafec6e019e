#include "model/json/JsonText.h"

#include "model/json/KeyPathError.h"

#include <sagely/Error.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <vector>

namespace sagely::detail {
namespace {

using Json = nlohmann::ordered_json;

constexpr auto kReplace = Json::error_handler_t::replace;

constexpr const char* kUnclosedString = "A string is opened, but never closed.";
constexpr const char* kUnescapedCharacters =
    "Within strings, some characters must be escaped, we found unescaped characters";
constexpr const char* kIllFormedUtf8 = "The input is not valid UTF-8";
constexpr const char* kEndedEarly =
    "JSON document ended early in the middle of an object or array.";

// Whether the last run of letters in `token` (the text the lexer read up to a fault, perhaps
// with what came before) begins like true, false or null.
bool startsLikeALiteral(std::string_view token) {
    auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    std::size_t end = token.size();
    while (end > 0 && !isLetter(token[end - 1])) --end;
    std::size_t start = end;
    while (start > 0 && isLetter(token[start - 1])) --start;
    return start < end && (token[start] == 't' || token[start] == 'f' || token[start] == 'n');
}

// What a parse error says, in the words our files' errors have always used; `atRoot` is set
// for faults that are not told by key path.
std::string describeParseError(const nlohmann::detail::exception& error, const std::string& token,
                               bool nothingRead, bool& atRoot) {
    std::string_view what = error.what();
    auto says = [&](std::string_view text) { return what.find(text) != std::string_view::npos; };
    atRoot = true;
    if (says("ill-formed UTF-8")) return kIllFormedUtf8;
    if (says("control character")) return kUnescapedCharacters;
    if (says("missing closing quote")) return kUnclosedString;
    if (says("; expected end of input")) return "unexpected text after the end of the value";
    atRoot = false;
    if (says("forbidden character after backslash")) return "invalid escape sequence in a string";
    if (says("must be followed by 4 hex digits")) return "malformed \\u escape in a string";
    if (says("surrogate")) return "unpaired surrogate in a string";
    if (says("invalid number") || says("number overflow")) return "Problem while parsing a number";
    if (says("invalid literal") && startsLikeALiteral(token))
        return "The JSON element does not have the requested type.";
    if (says("unexpected end of input")) {
        atRoot = nothingRead;
        return nothingRead ? "Empty: no JSON found" : kEndedEarly;
    }
    return "The JSON document has an improper structure: missing or superfluous commas, braces, "
           "missing keys, etc.";
}

bool isWellFormedUtf8(std::string_view text) {
    try {
        Json(std::string(text)).dump();
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

// A fault of the text as a whole, which takes precedence over any other wherever it stands, as
// it always has: an odd number of quotes (a backslash escapes the byte after it), an unescaped
// control character in a string, ill-formed UTF-8, more brackets opened than closed.
std::optional<std::string> wholeTextFault(std::string_view text) {
    bool inString = false;
    bool control = false;
    long depth = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '\\') {
            ++i;
        } else if (c == '"') {
            inString = !inString;
        } else if (inString) {
            control = control || static_cast<unsigned char>(c) < 0x20;
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if (c == '}' || c == ']') {
            --depth;
        }
    }
    if (inString) return kUnclosedString;
    if (control) return kUnescapedCharacters;
    if (!isWellFormedUtf8(text)) return kIllFormedUtf8;
    if (depth > 0) return kEndedEarly;
    return std::nullopt;
}

// nlohmann's SAX events into an ordered_json, keeping repeated keys (a decoder reads each in
// turn, as it stands) and the key path of the value being read, for the text of a parse error.
class DocumentBuilder {
public:
    explicit DocumentBuilder(std::string_view text) : m_text(text) {}

    using number_integer_t = Json::number_integer_t;
    using number_unsigned_t = Json::number_unsigned_t;
    using number_float_t = Json::number_float_t;
    using string_t = Json::string_t;
    using binary_t = Json::binary_t;

    bool null() { return place(nullptr); }
    bool boolean(bool value) { return place(value); }
    // The lexer reads a number without a fraction or exponent as unsigned unless it has a
    // minus sign, so a signed zero is "-0": a time written as -0 reads back as -0.
    bool number_integer(number_integer_t value) { return value == 0 ? place(-0.0) : place(value); }
    bool number_unsigned(number_unsigned_t value) { return place(value); }
    bool number_float(number_float_t value, const string_t&) { return place(value); }
    bool string(string_t& value) { return place(std::move(value)); }
    bool binary(binary_t&) { return false; }  // JSON text has none

    bool start_object(std::size_t) { return open(Json::object()); }
    bool key(string_t& key) {
        m_open.back().json->get_ref<Json::object_t&>().emplace_back(std::move(key), nullptr);
        m_open.back().inValue = true;
        return true;
    }
    bool end_object() { return close(); }
    bool start_array(std::size_t) { return open(Json::array()); }
    bool end_array() { return close(); }

    bool parse_error(std::size_t position, const std::string& token,
                     const nlohmann::detail::exception& error) {
        bool atRoot = false;
        std::string problem = describeParseError(error, token, m_open.empty(), atRoot);
        // The lexer reads "01" as two numbers; it is one malformed number, the last value read.
        bool inLastValue = std::string_view(error.what()).find("unexpected number literal") !=
                               std::string_view::npos &&
                           followsDigit(position - std::min(position, token.size()));
        if (inLastValue) problem = "Problem while parsing a number";
        // A key without its colon is a fault of the object, not of a value.
        // (At the root there is no object; the text may only quote those words.)
        if (!m_open.empty() && std::string_view(error.what()).find("parsing object separator") !=
                                   std::string_view::npos)
            m_open.back().inValue = false;
        KeyPathError failure("invalid JSON: " + problem);
        if (atRoot) throw failure;
        // The innermost level stands between its values (or in its last one); each outer one is
        // reading its last value.
        for (auto level = m_open.rbegin(); level != m_open.rend(); ++level) {
            bool inLast = level != m_open.rbegin() || inLastValue;
            const Json& json = *level->json;
            if (json.is_array())
                failure = failure.underIndex(json.size() - (inLast ? 1 : 0));
            else if (level->inValue || inLast)
                failure = failure.underKey(json.get_ref<const Json::object_t&>().back().first);
        }
        throw failure;
    }

    Json take() { return std::move(m_root); }

private:
    struct Level {
        Json* json;
        bool inValue = false;  // an object's last key has been read, its value not yet
    };

    // Where the next value goes: the root, the end of the array being read, or the value of
    // the key just read.
    Json& slot() {
        if (m_open.empty()) return m_root;
        Level& level = m_open.back();
        if (level.json->is_array()) {
            level.json->push_back(nullptr);
            return level.json->back();
        }
        level.inValue = false;
        return level.json->get_ref<Json::object_t&>().back().second;
    }

    template <class Value>
    bool place(Value&& value) {
        slot() = std::forward<Value>(value);
        return true;
    }

    bool open(Json container) {
        Json& placed = slot();
        placed = std::move(container);
        m_open.push_back({&placed});
        return true;
    }

    bool close() {
        m_open.pop_back();
        return true;
    }

    bool followsDigit(std::size_t at) const {
        return at > 0 && at <= m_text.size() && m_text[at - 1] >= '0' && m_text[at - 1] <= '9';
    }

    std::string_view m_text;
    Json m_root;
    std::vector<Level> m_open;  // the objects and arrays being read, innermost last
};

// Room for the text of `json` with a few escapes, so the writer rarely grows its string.
std::size_t sizeBound(const Json& json) {
    if (json.is_string()) {
        const auto& text = json.get_ref<const std::string&>();
        return text.size() + text.size() / 16 + 2;
    }
    std::size_t size = 32;
    if (json.is_object()) {
        for (auto field = json.begin(); field != json.end(); ++field)
            size += field.key().size() + 4 + sizeBound(*field);
    } else if (json.is_array()) {
        for (const auto& element : json) size += 1 + sizeBound(element);
    }
    return size;
}

// nlohmann's dump, but for floating-point numbers. Scalars go through nlohmann's serializer,
// which escapes strings and replaces ill-formed UTF-8.
class Writer {
public:
    explicit Writer(std::string& out)
        : m_out(out), m_scalars(nlohmann::detail::output_adapter<char>(out), ' ', kReplace) {}

    void write(const Json& json) {
        if (json.is_object()) {
            m_out += '{';
            for (auto field = json.begin(); field != json.end(); ++field) {
                if (field != json.begin()) m_out += ',';
                key(field.key());
                write(*field);
            }
            m_out += '}';
        } else if (json.is_array()) {
            m_out += '[';
            for (auto element = json.begin(); element != json.end(); ++element) {
                if (element != json.begin()) m_out += ',';
                write(*element);
            }
            m_out += ']';
        } else if (json.is_number_float()) {
            appendNumber(m_out, json.get<double>());
        } else {
            m_scalars.dump(json, false, false, 0);
        }
    }

private:
    // Field names go as they are; a provider's turn may hold keys that need escaping.
    void key(const std::string& key) {
        const bool plain = std::all_of(key.begin(), key.end(), [](char c) {
            return static_cast<unsigned char>(c) >= 0x20 && static_cast<unsigned char>(c) < 0x80 &&
                   c != '"' && c != '\\';
        });
        if (plain)
            (m_out += '"').append(key) += '"';
        else
            m_scalars.dump(Json(key), false, false, 0);
        m_out += ':';
    }

    std::string& m_out;
    nlohmann::detail::serializer<Json> m_scalars;
};

}  // namespace

void appendNumber(std::string& out, double value) {
    double magnitude = std::fabs(value);
    bool plain = magnitude == 0 || (magnitude >= 1e-6 && magnitude < 1e21);
    char buffer[64];
    auto result = std::to_chars(buffer, buffer + sizeof buffer, value,
                                plain ? std::chars_format::fixed : std::chars_format::scientific);
    out.append(buffer, result.ptr);
}

Json parseJson(std::string_view text) {
    DocumentBuilder builder(text);
    try {
        Json::sax_parse(text, &builder);
    } catch (const KeyPathError&) {
        if (std::optional<std::string> fault = wholeTextFault(text))
            throw KeyPathError("invalid JSON: " + *fault);
        throw;
    }
    // The lexer takes a NUL byte for the end of the text; outside a string (where it is an
    // error of its own) one can only have followed a whole value.
    if (text.find('\0') != std::string_view::npos)
        throw KeyPathError("invalid JSON: unexpected text after the end of the value");
    return builder.take();
}

std::string dumpJson(const Json& json) {
    std::string out;
    out.reserve(sizeBound(json));
    Writer(out).write(json);
    return out;
}

std::string wellFormedUtf8(const std::string& text) {
    bool ascii = std::all_of(text.begin(), text.end(),
                             [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (ascii) return text;
    return Json::parse(Json(text).dump(-1, ' ', false, kReplace)).get<std::string>();
}

}  // namespace sagely::detail
