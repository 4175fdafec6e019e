// The public entry points of the data model's JSON coding. Both the text path (JsonWriter and
// simdjson, used for files) and the nlohmann adapters (for hosts) run the one coding of
// json/DataModelWriter.h and json/DataModelReader.h.
#include "model/json/ConversationsInPlace.h"
#include "model/json/DataModelReader.h"
#include "model/json/DataModelWriter.h"
#include "model/json/JsonBuilder.h"
#include "model/json/JsonWriter.h"
#include "model/json/NlohmannReader.h"
#include "model/json/SimdjsonReader.h"

#include <nlohmann/json.hpp>

namespace sagely {
namespace {

using detail::KeyPath;

template <class T>
std::string encodeText(const T& value, std::size_t capacity) {
    detail::JsonWriter writer(capacity);
    detail::write(writer, value);
    return writer.take();
}

template <class T>
nlohmann::json encodeTree(const T& value) {
    detail::JsonBuilder builder;
    detail::write(builder, value);
    return builder.take();
}

template <class Read>
auto decodeText(std::string_view json, Read read) {
    return detail::decodeJsonDocument(json, read);
}

template <class Read>
auto decodeTree(const nlohmann::json& json, Read read) {
    detail::NlohmannValue root(json);
    return read(root, KeyPath());
}

// The readers as function objects, so one name serves every reader type.
constexpr auto kReadCard = [](auto& value, const KeyPath& path) {
    return detail::readCard(value, path);
};
constexpr auto kReadLesson = [](auto& value, const KeyPath& path) {
    return detail::readLesson(value, path);
};
constexpr auto kReadMessage = [](auto& value, const KeyPath& path) {
    return detail::readMessage(value, path);
};
constexpr auto kReadConversation = [](auto& value, const KeyPath& path) {
    return detail::readConversation(value, path);
};
constexpr auto kReadConversations = [](auto& value, const KeyPath& path) {
    return detail::readArray<CoachConversation>(value, path, kReadConversation);
};

// Room for the whole text up front, so the writer never copies what it has written.
std::size_t estimatedSize(const CoachMessage& message) {
    std::size_t size = 128 + message.content().size() + message.content().size() / 16;
    if (message.card()) size += 512;
    if (message.lesson()) size += 2048;
    return size;
}

std::size_t estimatedSize(const CoachConversation& conversation) {
    std::size_t size = 160 + conversation.title().size();
    for (const CoachMessage& message : conversation.messages()) size += estimatedSize(message);
    return size;
}

std::size_t estimatedSize(const std::vector<CoachConversation>& conversations) {
    std::size_t size = 2;
    for (const CoachConversation& conversation : conversations) size += estimatedSize(conversation);
    return size;
}

}  // namespace

// ---- Text ------------------------------------------------------------------------------------

std::string encodeJson(const CoachCard& card) {
    return encodeText(card, 256);
}
CoachCard decodeCard(std::string_view json) {
    return decodeText(json, kReadCard);
}

std::string encodeJson(const CoachLesson& lesson) {
    return encodeText(lesson, 2048);
}
CoachLesson decodeLesson(std::string_view json) {
    return decodeText(json, kReadLesson);
}

std::string encodeJson(const CoachMessage& message) {
    return encodeText(message, estimatedSize(message));
}
CoachMessage decodeMessage(std::string_view json) {
    return decodeText(json, kReadMessage);
}

std::string encodeJson(const CoachConversation& conversation) {
    return encodeText(conversation, estimatedSize(conversation));
}
CoachConversation decodeConversation(std::string_view json) {
    return decodeText(json, kReadConversation);
}

std::string encodeConversations(const std::vector<CoachConversation>& conversations) {
    return encodeText(conversations, estimatedSize(conversations));
}
std::vector<CoachConversation> decodeConversations(std::string_view json) {
    return decodeText(json, kReadConversations);
}
std::vector<CoachConversation> detail::decodeConversationsInPlace(const std::string& buffer) {
    return detail::decodeJsonDocument(buffer, kReadConversations, buffer.capacity());
}

// ---- nlohmann --------------------------------------------------------------------------------

void to_json(nlohmann::json& json, const CoachCard& card) {
    json = encodeTree(card);
}
void from_json(const nlohmann::json& json, CoachCard& card) {
    card = decodeTree(json, kReadCard);
}

void to_json(nlohmann::json& json, const CoachLesson& lesson) {
    json = encodeTree(lesson);
}
void from_json(const nlohmann::json& json, CoachLesson& lesson) {
    lesson = decodeTree(json, kReadLesson);
}

}  // namespace sagely

namespace nlohmann {

sagely::CoachMessage adl_serializer<sagely::CoachMessage>::from_json(const json& j) {
    return sagely::decodeTree(j, sagely::kReadMessage);
}
void adl_serializer<sagely::CoachMessage>::to_json(json& j, const sagely::CoachMessage& message) {
    j = sagely::encodeTree(message);
}

sagely::CoachConversation adl_serializer<sagely::CoachConversation>::from_json(const json& j) {
    return sagely::decodeTree(j, sagely::kReadConversation);
}
void adl_serializer<sagely::CoachConversation>::to_json(json& j,
                                                        const sagely::CoachConversation& c) {
    j = sagely::encodeTree(c);
}

}  // namespace nlohmann
