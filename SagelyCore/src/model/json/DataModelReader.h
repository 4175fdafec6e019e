// Reading the data model from JSON: readCard, readLesson, readMessage, readConversation
// (value, path), with any reader of the SimdjsonValue interface (SimdjsonValue, NlohmannValue).
// Optional values read as none when missing or null; every other key is required; unknown keys
// are ignored (and still checked to be JSON); a value that is not what its key needs fails the
// whole decode with a DecodingError naming its key path, so no partial value is ever returned.
#pragma once

#include "model/json/DataModelAccess.h"
#include "model/json/DataModelKeys.h"
#include "model/json/KeyPath.h"

#include <sagely/CoachCard.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachMessage.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely::detail {

/// The value of a required field, or "<path>.<key>: missing key".
template <class T>
T required(std::optional<T>& field, const KeyPath& path, std::string_view key) {
    if (!field) path.child(key).failMissingKey();
    return std::move(*field);
}

template <class Element, class V, class ReadElement>
std::vector<Element> readArray(V& value, const KeyPath& path, ReadElement&& readElement) {
    std::vector<Element> out;
    value.forEachElement(
        path, [&](auto& element, const KeyPath& at) { out.push_back(readElement(element, at)); });
    return out;
}

template <class V>
std::vector<std::string> readStrings(V& value, const KeyPath& path) {
    return readArray<std::string>(
        value, path, [](auto& element, const KeyPath& at) { return element.string(at); });
}

/// None for null, else the value read by `read`.
template <class V, class Read>
auto readOptional(V& value, const KeyPath& path, Read&& read)
    -> std::optional<decltype(read(value, path))> {
    if (value.takeNull(path)) return std::nullopt;
    return read(value, path);
}

template <class V>
std::optional<std::string> readOptionalString(V& value, const KeyPath& path) {
    return readOptional(value, path, [](auto& v, const KeyPath& at) { return v.string(at); });
}

/// The case whose raw value the string holds, or `unknown <what> "<raw>"`.
template <class V, class E>
E readEnum(V& value, const KeyPath& path, std::optional<E> (*fromRawValue)(std::string_view),
           std::string_view what) {
    std::string scratch;
    std::string_view raw = value.stringView(path, scratch);
    std::optional<E> parsed = fromRawValue(raw);
    if (!parsed) path.failUnknown(what, raw);
    return *parsed;
}

template <class V>
Uuid readUuid(V& value, const KeyPath& path) {
    std::string scratch;
    std::string_view raw = value.stringView(path, scratch);
    std::optional<Uuid> id = Uuid::parse(raw);
    if (!id) path.fail("malformed UUID \"" + std::string(raw) + "\"");
    return *id;
}

template <class V>
Timestamp readTimestamp(V& value, const KeyPath& path) {
    return Timestamp(value.number(path));
}

template <class V>
CoachCard::Section readCardSection(V& value, const KeyPath& path) {
    std::optional<std::string> title;
    std::optional<std::vector<std::string>> items;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::title)
            title = field.string(at);
        else if (key == keys::items)
            items = readStrings(field, at);
        else
            field.skip(at);
    });
    CoachCard::Section section;
    section.title = required(title, path, keys::title);
    section.items = required(items, path, keys::items);
    return section;
}

template <class V>
CoachCard readCard(V& value, const KeyPath& path) {
    std::optional<CoachCard::Style> style;
    std::optional<std::string> title, subtitle;
    std::optional<std::vector<CoachCard::Section>> sections;
    std::optional<std::vector<std::string>> suggestions;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::style)
            style = readEnum(field, at, cardStyleFromRawValue, "style");
        else if (key == keys::title)
            title = field.string(at);
        else if (key == keys::subtitle)
            subtitle = readOptionalString(field, at);
        else if (key == keys::sections)
            sections = readArray<CoachCard::Section>(
                field, at, [](auto& v, const KeyPath& p) { return readCardSection(v, p); });
        else if (key == keys::suggestions)
            suggestions = readStrings(field, at);
        else
            field.skip(at);
    });
    CoachCard card;
    card.style = required(style, path, keys::style);
    card.title = required(title, path, keys::title);
    card.subtitle = std::move(subtitle);
    card.sections = required(sections, path, keys::sections);
    card.suggestions = required(suggestions, path, keys::suggestions);
    return card;
}

template <class V>
CoachLesson::Line readLessonLine(V& value, const KeyPath& path) {
    std::optional<std::string> text;
    std::optional<CoachLesson::Line::Kind> kind;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::text)
            text = field.string(at);
        else if (key == keys::kind)
            kind = readEnum(field, at, lineKindFromRawValue, "kind");
        else
            field.skip(at);
    });
    std::string lineText = required(text, path, keys::text);
    return CoachLesson::Line(std::move(lineText), required(kind, path, keys::kind));
}

template <class V>
CoachLesson::StepGroup readStepGroup(V& value, const KeyPath& path) {
    std::optional<std::string> title;
    std::optional<std::vector<CoachLesson::Line>> lines;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::title)
            title = field.string(at);
        else if (key == keys::lines)
            lines = readArray<CoachLesson::Line>(
                field, at, [](auto& v, const KeyPath& p) { return readLessonLine(v, p); });
        else
            field.skip(at);
    });
    CoachLesson::StepGroup group;
    group.title = required(title, path, keys::title);
    group.lines = required(lines, path, keys::lines);
    return group;
}

template <class V>
CoachLesson::Callout readCallout(V& value, const KeyPath& path) {
    std::optional<std::string> title, body;
    std::optional<CoachLesson::Callout::Tone> tone;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::title)
            title = field.string(at);
        else if (key == keys::body)
            body = field.string(at);
        else if (key == keys::tone)
            tone = readEnum(field, at, calloutToneFromRawValue, "tone");
        else
            field.skip(at);
    });
    CoachLesson::Callout callout;
    callout.title = required(title, path, keys::title);
    callout.body = required(body, path, keys::body);
    callout.tone = required(tone, path, keys::tone);
    return callout;
}

template <class V>
CoachLesson::Block readBlockPayload(CoachLesson::Block::BlockType type, V& value,
                                    const KeyPath& path) {
    using BlockType = CoachLesson::Block::BlockType;
    if (type == BlockType::stepGroup)
        return CoachLesson::Block::stepGroup(readStepGroup(value, path));
    if (type == BlockType::callout) return CoachLesson::Block::callout(readCallout(value, path));
    return CoachLesson::Block::text(value.string(path));
}

// "type" is read first; then only the payload key it names. Other payload keys are ignored.
template <class V>
CoachLesson::Block readBlock(V& value, const KeyPath& path) {
    std::optional<CoachLesson::Block::BlockType> type;
    std::optional<CoachLesson::Block> block;
    auto readType = [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::type) type = readEnum(field, at, blockTypeFromRawValue, "block type");
    };
    auto readPayload = [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::type) return;  // read in the first pass
        if (!type) path.child(keys::type).failMissingKey();
        if (key == rawValue(*type))
            block = readBlockPayload(*type, field, at);
        else
            field.skip(at);
    };
    value.forEachFieldTwice(path, readType, readPayload);
    CoachLesson::Block::BlockType blockType = required(type, path, keys::type);
    return required(block, path, rawValue(blockType));
}

template <class V>
CoachLesson::CanvasPoster readCanvasPoster(V& value, const KeyPath& path) {
    std::optional<std::string> title, verification;
    std::optional<std::vector<std::string>> steps;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::title)
            title = field.string(at);
        else if (key == keys::steps)
            steps = readStrings(field, at);
        else if (key == keys::verification)
            verification = readOptionalString(field, at);
        else
            field.skip(at);
    });
    CoachLesson::CanvasPoster poster;
    poster.title = required(title, path, keys::title);
    poster.steps = required(steps, path, keys::steps);
    poster.verification = std::move(verification);
    return poster;
}

template <class V>
CoachLesson readLesson(V& value, const KeyPath& path) {
    std::optional<CoachLesson::Style> style;
    std::optional<std::string> title, subtitle, summary;
    std::optional<std::vector<CoachLesson::Block>> blocks;
    std::optional<std::vector<std::string>> suggestions;
    std::optional<CoachLesson::CanvasPoster> poster;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::style)
            style = readEnum(field, at, lessonStyleFromRawValue, "style");
        else if (key == keys::title)
            title = field.string(at);
        else if (key == keys::subtitle)
            subtitle = readOptionalString(field, at);
        else if (key == keys::summary)
            summary = readOptionalString(field, at);
        else if (key == keys::blocks)
            blocks = readArray<CoachLesson::Block>(
                field, at, [](auto& v, const KeyPath& p) { return readBlock(v, p); });
        else if (key == keys::suggestions)
            suggestions = readStrings(field, at);
        else if (key == keys::canvasPoster)
            poster = readOptional(field, at,
                                  [](auto& v, const KeyPath& p) { return readCanvasPoster(v, p); });
        else
            field.skip(at);
    });
    CoachLesson lesson;
    lesson.style = required(style, path, keys::style);
    lesson.title = required(title, path, keys::title);
    lesson.subtitle = std::move(subtitle);
    lesson.summary = std::move(summary);
    lesson.blocks = required(blocks, path, keys::blocks);
    lesson.suggestions = required(suggestions, path, keys::suggestions);
    lesson.canvasPoster = std::move(poster);
    return lesson;
}

template <class V>
CoachMessage readMessage(V& value, const KeyPath& path) {
    std::optional<Uuid> id;
    std::optional<CoachMessage::Role> role;
    std::optional<std::string> content;
    std::optional<CoachCard> card;
    std::optional<CoachLesson> lesson;
    std::optional<Timestamp> timestamp;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::id)
            id = readUuid(field, at);
        else if (key == keys::role)
            role = readEnum(field, at, roleFromRawValue, "role");
        else if (key == keys::content)
            content = field.string(at);
        else if (key == keys::card)
            card =
                readOptional(field, at, [](auto& v, const KeyPath& p) { return readCard(v, p); });
        else if (key == keys::lesson)
            lesson =
                readOptional(field, at, [](auto& v, const KeyPath& p) { return readLesson(v, p); });
        else if (key == keys::timestamp)
            timestamp = readTimestamp(field, at);
        else
            field.skip(at);
    });
    Uuid messageId = required(id, path, keys::id);
    CoachMessage::Role messageRole = required(role, path, keys::role);
    std::string messageContent = required(content, path, keys::content);
    Timestamp messageTimestamp = required(timestamp, path, keys::timestamp);
    return DataModelAccess::message(messageId, messageRole, std::move(messageContent),
                                    std::move(card), std::move(lesson), messageTimestamp);
}

template <class V>
CoachConversation readConversation(V& value, const KeyPath& path) {
    std::optional<Uuid> id;
    std::optional<std::string> title;
    std::optional<std::vector<CoachMessage>> messages;
    std::optional<Timestamp> createdAt, updatedAt;
    value.forEachField(path, [&](std::string_view key, auto& field, const KeyPath& at) {
        if (key == keys::id)
            id = readUuid(field, at);
        else if (key == keys::title)
            title = field.string(at);
        else if (key == keys::messages)
            messages = readArray<CoachMessage>(
                field, at, [](auto& v, const KeyPath& p) { return readMessage(v, p); });
        else if (key == keys::createdAt)
            createdAt = readTimestamp(field, at);
        else if (key == keys::updatedAt)
            updatedAt = readTimestamp(field, at);
        else
            field.skip(at);
    });
    Uuid conversationId = required(id, path, keys::id);
    std::string conversationTitle = required(title, path, keys::title);
    std::vector<CoachMessage> conversationMessages = required(messages, path, keys::messages);
    Timestamp created = required(createdAt, path, keys::createdAt);
    Timestamp updated = required(updatedAt, path, keys::updatedAt);
    return DataModelAccess::conversation(conversationId, std::move(conversationTitle),
                                         std::move(conversationMessages), created, updated);
}

}  // namespace sagely::detail
