// The data model's JSON. Keys are the field names, written in field order; optional values are
// left out when none and read as none when missing or null; enumerations are their raw
// strings, identifiers upper-case UUID text and times seconds since the reference date. Unknown
// keys are ignored; a value that is not what its key needs fails the whole decode with a
// DecodingError naming its key path, so no partial value is ever returned.
//
// One coding serves the hosts' nlohmann::json values (the adl_serializer adapters) and the
// files, which are read and written as nlohmann::ordered_json (json/JsonText.h) so that keys
// keep their order.
#include "model/json/ConversationsInPlace.h"
#include "model/json/DataModelAccess.h"
#include "model/json/JsonText.h"
#include "model/json/KeyPathError.h"
#include "model/json/StoredConversations.h"

#include <sagely/Error.h>

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace sagely {
namespace {

using detail::KeyPathError;
using detail::underIndex;
using detail::underKey;
using FileJson = nlohmann::ordered_json;

template <class Json>
constexpr bool kIsFile = std::is_same_v<std::remove_const_t<Json>, FileJson>;

// ---- Writing --------------------------------------------------------------------------------

template <class Json>
struct Writer {
    static Json of(const std::string& text) {
        // dumpJson replaces ill-formed UTF-8 as it writes; a host's value is given well-formed
        // text up front.
        if constexpr (kIsFile<Json>)
            return text;
        else
            return detail::wellFormedUtf8(text);
    }

    template <class T>
    static Json of(const std::vector<T>& values) {
        Json json = Json::array();
        json.template get_ref<typename Json::array_t&>().reserve(values.size());
        for (const T& value : values) json.push_back(of(value));
        return json;
    }

    template <class T>
    static void optional(Json& json, const char* key, const std::optional<T>& value) {
        if (value) json[key] = of(*value);
    }

    static Json time(Timestamp time, std::string_view key) {
        double seconds = time.secondsSinceReferenceDate();
        if (!std::isfinite(seconds))
            throw Error(std::string(key) + ": cannot encode a number that is not finite");
        return seconds;
    }

    static Json of(const CoachCard::Section& section) {
        Json json = Json::object();
        json["title"] = of(section.title);
        json["items"] = of(section.items);
        return json;
    }

    static Json of(const CoachCard& card) {
        Json json = Json::object();
        json["style"] = rawValue(card.style);
        json["title"] = of(card.title);
        optional(json, "subtitle", card.subtitle);
        json["sections"] = of(card.sections);
        json["suggestions"] = of(card.suggestions);
        return json;
    }

    static Json of(const CoachLesson::Line& line) {
        Json json = Json::object();
        json["text"] = of(line.text);
        json["kind"] = rawValue(line.kind);
        return json;
    }

    static Json of(const CoachLesson::StepGroup& group) {
        Json json = Json::object();
        json["title"] = of(group.title);
        json["lines"] = of(group.lines);
        return json;
    }

    static Json of(const CoachLesson::Callout& callout) {
        Json json = Json::object();
        json["title"] = of(callout.title);
        json["body"] = of(callout.body);
        json["tone"] = rawValue(callout.tone);
        return json;
    }

    // {"type": <block type>, <block type>: payload}
    static Json of(const CoachLesson::Block& block) {
        std::string type(rawValue(block.type()));
        Json json = Json::object();
        json["type"] = type;
        if (const auto* group = block.asStepGroup()) json[type] = of(*group);
        if (const auto* callout = block.asCallout()) json[type] = of(*callout);
        if (const auto* text = block.asText()) json[type] = of(*text);
        return json;
    }

    static Json of(const CoachLesson::CanvasPoster& poster) {
        Json json = Json::object();
        json["title"] = of(poster.title);
        json["steps"] = of(poster.steps);
        optional(json, "verification", poster.verification);
        return json;
    }

    static Json of(const CoachLesson& lesson) {
        Json json = Json::object();
        json["style"] = rawValue(lesson.style);
        json["title"] = of(lesson.title);
        optional(json, "subtitle", lesson.subtitle);
        optional(json, "summary", lesson.summary);
        json["blocks"] = of(lesson.blocks);
        json["suggestions"] = of(lesson.suggestions);
        optional(json, "canvasPoster", lesson.canvasPoster);
        return json;
    }

    static Json of(const TokenUsage& usage) {
        Json json = Json::object();
        json["inputTokens"] = usage.inputTokens;
        json["outputTokens"] = usage.outputTokens;
        if (!usage.provider.empty()) json["provider"] = of(usage.provider);
        if (!usage.model.empty()) json["model"] = of(usage.model);
        return json;
    }

    static Json of(const CoachActionCall& call) {
        Json json = Json::object();
        json["id"] = of(call.id);
        if (call.idMadeUp) json["idMadeUp"] = true;
        json["name"] = of(call.name);
        if (!call.title.empty()) json["title"] = of(call.title);
        json["arguments"] = of(call.arguments);
        json["status"] = rawValue(call.status);
        json["result"] = of(call.result);
        optional(json, "card", call.card);
        return json;
    }

    static Json of(const CoachMessage& message) {
        Json json = Json::object();
        json["id"] = message.id().toString();
        json["role"] = rawValue(message.role());
        json["content"] = of(message.content());
        optional(json, "card", message.card());
        optional(json, "lesson", message.lesson());
        optional(json, "usage", message.usage());
        if (!message.actionCalls().empty()) json["actionCalls"] = of(message.actionCalls());
        if (!message.providerTurn().empty()) {
            // Stored as the JSON it is; a turn that is not JSON (never made by the kit) is left
            // out.
            Json turn = Json::parse(message.providerTurn(), nullptr, false);
            if (!turn.is_discarded()) json["providerTurn"] = std::move(turn);
        }
        json["timestamp"] = time(message.timestamp(), "timestamp");
        return json;
    }

    static Json of(const CoachConversation& conversation) {
        Json json = Json::object();
        json["id"] = conversation.id().toString();
        json["title"] = of(conversation.title());
        json["messages"] = of(conversation.messages());
        json["createdAt"] = time(conversation.createdAt(), "createdAt");
        json["updatedAt"] = time(conversation.updatedAt(), "updatedAt");
        return json;
    }
};

// ---- Reading --------------------------------------------------------------------------------

// Deeper than any value of the data model by far; it bounds the values of unknown keys.
constexpr int kMaxUnknownDepth = 512;

// `Json` is a host's const nlohmann::json, or a parsed file, whose strings are moved out.
template <class Json>
struct Reader {
    [[noreturn]] static void fail(std::string problem) { throw KeyPathError(std::move(problem)); }

    template <class T>
    static T required(std::optional<T>& field, std::string_view key) {
        if (!field) throw KeyPathError("missing key").underKey(key);
        return std::move(*field);
    }

    /// Calls visit(key, value) for each field, in document order.
    template <class Visit>
    static void fields(Json& json, Visit&& visit) {
        if (!json.is_object()) fail("expected an object");
        for (auto field = json.begin(); field != json.end(); ++field)
            underKey(field.key(), [&] { visit(field.key(), *field); });
    }

    template <class T, class Read>
    static std::vector<T> array(Json& json, Read&& read) {
        if (!json.is_array()) fail("expected an array");
        std::vector<T> values;
        values.reserve(json.size());
        std::size_t index = 0;
        for (auto& element : json)
            values.push_back(underIndex(index++, [&] { return read(element); }));
        return values;
    }

    /// A value nobody reads. A file's is still held to a bound on its depth.
    static void unknown(const Json& json, int depth = 0) {
        if constexpr (kIsFile<Json>) {
            if (depth > kMaxUnknownDepth) fail("invalid JSON: nested too deeply");
            if (json.is_object()) {
                for (auto field = json.begin(); field != json.end(); ++field)
                    underKey(field.key(), [&] { unknown(*field, depth + 1); });
            } else if (json.is_array()) {
                std::size_t index = 0;
                for (const auto& element : json)
                    underIndex(index++, [&] { unknown(element, depth + 1); });
            }
        }
    }

    static const std::string& text(Json& json) {
        if (!json.is_string()) fail("expected a string");
        return json.template get_ref<const std::string&>();
    }

    static std::string string(Json& json) {
        text(json);
        if constexpr (std::is_const_v<Json>)
            return json.template get_ref<const std::string&>();
        else
            return std::move(json.template get_ref<std::string&>());
    }

    static std::vector<std::string> strings(Json& json) {
        return array<std::string>(json, [](Json& element) { return string(element); });
    }

    /// None for null, else the value read by `read`.
    template <class Read>
    static auto optional(Json& json, Read&& read) -> std::optional<decltype(read(json))> {
        if (json.is_null()) return std::nullopt;
        return read(json);
    }

    static std::optional<std::string> optionalString(Json& json) {
        return optional(json, [](Json& value) { return string(value); });
    }

    /// The case whose raw value the string holds, or `unknown <what> "<raw>"`.
    template <class E>
    static E enumeration(Json& json, std::optional<E> (*fromRawValue)(std::string_view),
                         std::string_view what) {
        const std::string& raw = text(json);
        std::optional<E> parsed = fromRawValue(raw);
        if (!parsed) fail("unknown " + std::string(what) + " \"" + raw + "\"");
        return *parsed;
    }

    static bool boolean(Json& json) {
        if (!json.is_boolean()) fail("expected a boolean");
        return json.template get<bool>();
    }

    static Uuid uuid(Json& json) {
        const std::string& raw = text(json);
        std::optional<Uuid> id = Uuid::parse(raw);
        if (!id) fail("malformed UUID \"" + raw + "\"");
        return *id;
    }

    static Timestamp time(Json& json) {
        if (!json.is_number()) fail("expected a number");
        return Timestamp(json.template get<double>());
    }

    static CoachCard::Section section(Json& json) {
        std::optional<std::string> title;
        std::optional<std::vector<std::string>> items;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "title")
                title = string(value);
            else if (key == "items")
                items = strings(value);
            else
                unknown(value);
        });
        CoachCard::Section section;
        section.title = required(title, "title");
        section.items = required(items, "items");
        return section;
    }

    /// A provider's turn, kept as compact JSON text (key order as stored).
    static std::string turnText(Json& json) {
        if (!json.is_object()) fail("expected an object");
        unknown(json);
        return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }

    static std::int64_t count(Json& json) {
        if (!json.is_number_integer() ||
            (json.is_number_unsigned() &&
             json.template get<std::uint64_t>() > std::uint64_t(INT64_MAX)))
            fail("expected a whole number");
        return json.template get<std::int64_t>();
    }

    static TokenUsage tokenUsage(Json& json) {
        std::optional<std::int64_t> input, output;
        std::string provider, model;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "inputTokens")
                input = count(value);
            else if (key == "outputTokens")
                output = count(value);
            else if (key == "provider")
                provider = optionalString(value).value_or("");
            else if (key == "model")
                model = optionalString(value).value_or("");
            else
                unknown(value);
        });
        TokenUsage usage(required(input, "inputTokens"), required(output, "outputTokens"));
        usage.provider = std::move(provider);
        usage.model = std::move(model);
        return usage;
    }

    static CoachCard card(Json& json) {
        std::optional<CoachCard::Style> style;
        std::optional<std::string> title, subtitle;
        std::optional<std::vector<CoachCard::Section>> sections;
        std::optional<std::vector<std::string>> suggestions;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "style")
                style = enumeration(value, cardStyleFromRawValue, "style");
            else if (key == "title")
                title = string(value);
            else if (key == "subtitle")
                subtitle = optionalString(value);
            else if (key == "sections")
                sections = array<CoachCard::Section>(value, section);
            else if (key == "suggestions")
                suggestions = strings(value);
            else
                unknown(value);
        });
        CoachCard card;
        card.style = required(style, "style");
        card.title = required(title, "title");
        card.subtitle = std::move(subtitle);
        card.sections = required(sections, "sections");
        card.suggestions = required(suggestions, "suggestions");
        return card;
    }

    static CoachLesson::Line line(Json& json) {
        std::optional<std::string> text;
        std::optional<CoachLesson::Line::Kind> kind;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "text")
                text = string(value);
            else if (key == "kind")
                kind = enumeration(value, lineKindFromRawValue, "kind");
            else
                unknown(value);
        });
        std::string lineText = required(text, "text");
        return CoachLesson::Line(std::move(lineText), required(kind, "kind"));
    }

    static CoachLesson::StepGroup stepGroup(Json& json) {
        std::optional<std::string> title;
        std::optional<std::vector<CoachLesson::Line>> lines;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "title")
                title = string(value);
            else if (key == "lines")
                lines = array<CoachLesson::Line>(value, line);
            else
                unknown(value);
        });
        CoachLesson::StepGroup group;
        group.title = required(title, "title");
        group.lines = required(lines, "lines");
        return group;
    }

    static CoachLesson::Callout callout(Json& json) {
        std::optional<std::string> title, body;
        std::optional<CoachLesson::Callout::Tone> tone;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "title")
                title = string(value);
            else if (key == "body")
                body = string(value);
            else if (key == "tone")
                tone = enumeration(value, calloutToneFromRawValue, "tone");
            else
                unknown(value);
        });
        CoachLesson::Callout callout;
        callout.title = required(title, "title");
        callout.body = required(body, "body");
        callout.tone = required(tone, "tone");
        return callout;
    }

    // "type" is read first, wherever it stands; then only the payload key it names. Other
    // payload keys are ignored.
    static CoachLesson::Block block(Json& json) {
        using BlockType = CoachLesson::Block::BlockType;
        std::optional<BlockType> type;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "type") type = enumeration(value, blockTypeFromRawValue, "block type");
        });
        BlockType blockType = required(type, "type");
        std::string_view payloadKey = rawValue(blockType);
        std::optional<CoachLesson::Block> block;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == payloadKey) {
                if (blockType == BlockType::stepGroup)
                    block = CoachLesson::Block::stepGroup(stepGroup(value));
                else if (blockType == BlockType::callout)
                    block = CoachLesson::Block::callout(callout(value));
                else
                    block = CoachLesson::Block::text(string(value));
            } else if (key != "type") {
                unknown(value);
            }
        });
        return required(block, payloadKey);
    }

    static CoachLesson::CanvasPoster canvasPoster(Json& json) {
        std::optional<std::string> title, verification;
        std::optional<std::vector<std::string>> steps;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "title")
                title = string(value);
            else if (key == "steps")
                steps = strings(value);
            else if (key == "verification")
                verification = optionalString(value);
            else
                unknown(value);
        });
        CoachLesson::CanvasPoster poster;
        poster.title = required(title, "title");
        poster.steps = required(steps, "steps");
        poster.verification = std::move(verification);
        return poster;
    }

    static CoachLesson lesson(Json& json) {
        std::optional<CoachLesson::Style> style;
        std::optional<std::string> title, subtitle, summary;
        std::optional<std::vector<CoachLesson::Block>> blocks;
        std::optional<std::vector<std::string>> suggestions;
        std::optional<CoachLesson::CanvasPoster> poster;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "style")
                style = enumeration(value, lessonStyleFromRawValue, "style");
            else if (key == "title")
                title = string(value);
            else if (key == "subtitle")
                subtitle = optionalString(value);
            else if (key == "summary")
                summary = optionalString(value);
            else if (key == "blocks")
                blocks = array<CoachLesson::Block>(value, block);
            else if (key == "suggestions")
                suggestions = strings(value);
            else if (key == "canvasPoster")
                poster = optional(value, canvasPoster);
            else
                unknown(value);
        });
        CoachLesson lesson;
        lesson.style = required(style, "style");
        lesson.title = required(title, "title");
        lesson.subtitle = std::move(subtitle);
        lesson.summary = std::move(summary);
        lesson.blocks = required(blocks, "blocks");
        lesson.suggestions = required(suggestions, "suggestions");
        lesson.canvasPoster = std::move(poster);
        return lesson;
    }

    static CoachActionCall actionCall(Json& json) {
        std::optional<std::string> id, name, title, arguments, result;
        bool idMadeUp = false;
        std::optional<CoachActionCall::Status> status;
        std::optional<CoachCard> attachedCard;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "id")
                id = string(value);
            else if (key == "idMadeUp")
                idMadeUp = optional(value, boolean).value_or(false);
            else if (key == "name")
                name = string(value);
            else if (key == "title")
                title = optionalString(value);
            else if (key == "arguments")
                arguments = string(value);
            else if (key == "status")
                status = enumeration(value, actionStatusFromRawValue, "status");
            else if (key == "result")
                result = string(value);
            else if (key == "card")
                attachedCard = optional(value, card);
            else
                unknown(value);
        });
        CoachActionCall call;
        call.id = required(id, "id");
        call.idMadeUp = idMadeUp;
        call.name = required(name, "name");
        call.title = title.value_or("");
        call.arguments = required(arguments, "arguments");
        call.status = required(status, "status");
        call.result = required(result, "result");
        call.card = std::move(attachedCard);
        return call;
    }

    static CoachMessage message(Json& json) {
        std::optional<Uuid> id;
        std::optional<CoachMessage::Role> role;
        std::optional<std::string> content;
        std::optional<CoachCard> attachedCard;
        std::optional<CoachLesson> attachedLesson;
        std::optional<TokenUsage> usage;
        std::optional<std::vector<CoachActionCall>> actionCalls;
        std::string providerTurn;
        std::optional<Timestamp> timestamp;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "id")
                id = uuid(value);
            else if (key == "role")
                role = enumeration(value, roleFromRawValue, "role");
            else if (key == "content")
                content = string(value);
            else if (key == "card")
                attachedCard = optional(value, card);
            else if (key == "lesson")
                attachedLesson = optional(value, lesson);
            else if (key == "usage")
                usage = optional(value, tokenUsage);
            else if (key == "actionCalls")
                actionCalls = optional(
                    value, [](Json& calls) { return array<CoachActionCall>(calls, actionCall); });
            else if (key == "providerTurn")
                providerTurn = value.is_null() ? std::string() : turnText(value);
            else if (key == "timestamp")
                timestamp = time(value);
            else
                unknown(value);
        });
        Uuid messageId = required(id, "id");
        CoachMessage::Role messageRole = required(role, "role");
        std::string messageContent = required(content, "content");
        Timestamp messageTimestamp = required(timestamp, "timestamp");
        return detail::DataModelAccess::message(
            messageId, messageRole, std::move(messageContent), std::move(attachedCard),
            std::move(attachedLesson), usage, messageTimestamp,
            std::move(actionCalls).value_or(std::vector<CoachActionCall>{}),
            std::move(providerTurn));
    }

    static CoachConversation conversation(Json& json) {
        std::optional<Uuid> id;
        std::optional<std::string> title;
        std::optional<std::vector<CoachMessage>> messages;
        std::optional<Timestamp> createdAt, updatedAt;
        fields(json, [&](const std::string& key, Json& value) {
            if (key == "id")
                id = uuid(value);
            else if (key == "title")
                title = string(value);
            else if (key == "messages")
                messages = array<CoachMessage>(value, message);
            else if (key == "createdAt")
                createdAt = time(value);
            else if (key == "updatedAt")
                updatedAt = time(value);
            else
                unknown(value);
        });
        Uuid conversationId = required(id, "id");
        std::string conversationTitle = required(title, "title");
        std::vector<CoachMessage> conversationMessages = required(messages, "messages");
        Timestamp created = required(createdAt, "createdAt");
        Timestamp updated = required(updatedAt, "updatedAt");
        return detail::DataModelAccess::conversation(conversationId, std::move(conversationTitle),
                                                     std::move(conversationMessages), created,
                                                     updated);
    }

    static std::vector<CoachConversation> conversations(Json& json) {
        return array<CoachConversation>(json, conversation);
    }
};

using FileReader = Reader<FileJson>;
using HostReader = Reader<const nlohmann::json>;

template <class T>
std::string encodeText(const T& value) {
    return detail::dumpJson(Writer<FileJson>::of(value));
}

template <class Read>
auto decodeText(std::string_view text, Read read) {
    FileJson json = detail::parseJson(text);
    return read(json);
}

}  // namespace

// ---- Text ------------------------------------------------------------------------------------

std::string encodeJson(const CoachCard& card) {
    return encodeText(card);
}
CoachCard decodeCard(std::string_view json) {
    return decodeText(json, FileReader::card);
}

std::string encodeJson(const CoachLesson& lesson) {
    return encodeText(lesson);
}
CoachLesson decodeLesson(std::string_view json) {
    return decodeText(json, FileReader::lesson);
}

std::string encodeJson(const CoachMessage& message) {
    return encodeText(message);
}
CoachMessage decodeMessage(std::string_view json) {
    return decodeText(json, FileReader::message);
}

// A conversation still as it was read is its text.
std::string encodeJson(const CoachConversation& conversation) {
    if (const auto* stored = detail::DataModelAccess::stored(conversation))
        return std::string(stored->text);
    return encodeText(conversation);
}
CoachConversation decodeConversation(std::string_view json) {
    return decodeText(json, FileReader::conversation);
}

std::string encodeConversations(const std::vector<CoachConversation>& conversations) {
    const detail::EncodedConversations encoded = detail::encodeConversationsInPieces(conversations);
    std::size_t size = 0;
    for (std::string_view piece : encoded.pieces) size += piece.size();
    std::string out;
    out.reserve(size);
    for (std::string_view piece : encoded.pieces) out += piece;
    return out;
}
std::vector<CoachConversation> decodeConversations(std::string_view json) {
    return decodeText(json, FileReader::conversations);
}
// The compact array of the conversations' texts; those still as they were read are their text.
detail::EncodedConversations detail::encodeConversationsInPieces(
    const std::vector<CoachConversation>& conversations) {
    EncodedConversations result;
    for (const auto& conversation : conversations) {
        if (!DataModelAccess::stored(conversation))
            result.encoded.push_back(encodeText(conversation));
    }
    auto encoded = result.encoded.begin();
    result.pieces.reserve(2 * conversations.size() + 1);
    result.pieces.emplace_back("[");
    for (const auto& conversation : conversations) {
        if (&conversation != conversations.data()) result.pieces.emplace_back(",");
        const auto* stored = DataModelAccess::stored(conversation);
        result.pieces.emplace_back(stored ? stored->text : std::string_view(*encoded++));
    }
    result.pieces.emplace_back("]");
    return result;
}

std::vector<CoachConversation> detail::decodeConversationsInPlace(
    std::string_view text, const std::shared_ptr<const void>& buffer) {
    if (auto stored = storedConversations(text, buffer)) return std::move(*stored);
    return decodeConversations(text);
}

// ---- nlohmann --------------------------------------------------------------------------------

void to_json(nlohmann::json& json, const CoachCard& card) {
    json = Writer<nlohmann::json>::of(card);
}
void from_json(const nlohmann::json& json, CoachCard& card) {
    card = HostReader::card(json);
}

void to_json(nlohmann::json& json, const CoachLesson& lesson) {
    json = Writer<nlohmann::json>::of(lesson);
}
void from_json(const nlohmann::json& json, CoachLesson& lesson) {
    lesson = HostReader::lesson(json);
}

}  // namespace sagely

namespace nlohmann {

sagely::CoachMessage adl_serializer<sagely::CoachMessage>::from_json(const json& j) {
    return sagely::HostReader::message(j);
}
void adl_serializer<sagely::CoachMessage>::to_json(json& j, const sagely::CoachMessage& message) {
    j = sagely::Writer<json>::of(message);
}

sagely::CoachConversation adl_serializer<sagely::CoachConversation>::from_json(const json& j) {
    return sagely::HostReader::conversation(j);
}
void adl_serializer<sagely::CoachConversation>::to_json(json& j,
                                                        const sagely::CoachConversation& c) {
    j = sagely::Writer<json>::of(c);
}

}  // namespace nlohmann
