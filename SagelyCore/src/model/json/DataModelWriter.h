// Writing the data model as JSON: write(writer, value) for cards, lessons, messages and
// conversations, with any writer of the JsonWriter interface (JsonWriter for text, JsonBuilder
// for nlohmann trees). Keys are the field names, in field order; optional values are left out
// when none; enumerations are written as their raw strings.
#pragma once

#include "model/json/DataModelKeys.h"

#include <sagely/CoachCard.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachMessage.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely::detail {

template <class W>
void write(W& w, const std::string& text) {
    w.string(text);
}

template <class W, class T>
void writeField(W& w, std::string_view key, const T& value) {
    w.key(key);
    write(w, value);
}

template <class W, class T>
void writeOptionalField(W& w, std::string_view key, const std::optional<T>& value) {
    if (value) writeField(w, key, *value);
}

template <class W, class T>
void write(W& w, const std::vector<T>& values) {
    w.beginArray();
    for (const T& value : values) write(w, value);
    w.endArray();
}

template <class W>
void writeRawField(W& w, std::string_view key, std::string_view raw) {
    w.key(key);
    w.plainString(raw);
}

/// The canonical upper-case text of a UUID, without an allocation.
class UuidText {
public:
    explicit UuidText(const Uuid& id) {
        static constexpr char kHex[] = "0123456789ABCDEF";
        std::size_t at = 0;
        for (std::size_t i = 0; i < 16; ++i) {
            if (i == 4 || i == 6 || i == 8 || i == 10) m_text[at++] = '-';
            m_text[at++] = kHex[id.bytes()[i] >> 4];
            m_text[at++] = kHex[id.bytes()[i] & 0x0F];
        }
    }
    std::string_view view() const { return {m_text, sizeof m_text}; }

private:
    char m_text[36];
};

template <class W>
void write(W& w, const CoachCard::Section& section) {
    w.beginObject();
    writeField(w, keys::title, section.title);
    writeField(w, keys::items, section.items);
    w.endObject();
}

template <class W>
void write(W& w, const CoachCard& card) {
    w.beginObject();
    writeRawField(w, keys::style, rawValue(card.style));
    writeField(w, keys::title, card.title);
    writeOptionalField(w, keys::subtitle, card.subtitle);
    writeField(w, keys::sections, card.sections);
    writeField(w, keys::suggestions, card.suggestions);
    w.endObject();
}

template <class W>
void write(W& w, const CoachLesson::Line& line) {
    w.beginObject();
    writeField(w, keys::text, line.text);
    writeRawField(w, keys::kind, rawValue(line.kind));
    w.endObject();
}

template <class W>
void write(W& w, const CoachLesson::StepGroup& group) {
    w.beginObject();
    writeField(w, keys::title, group.title);
    writeField(w, keys::lines, group.lines);
    w.endObject();
}

template <class W>
void write(W& w, const CoachLesson::Callout& callout) {
    w.beginObject();
    writeField(w, keys::title, callout.title);
    writeField(w, keys::body, callout.body);
    writeRawField(w, keys::tone, rawValue(callout.tone));
    w.endObject();
}

// {"type": <block type>, <block type>: payload}
template <class W>
void write(W& w, const CoachLesson::Block& block) {
    std::string_view type = rawValue(block.type());
    w.beginObject();
    writeRawField(w, keys::type, type);
    if (const auto* group = block.asStepGroup()) writeField(w, type, *group);
    if (const auto* callout = block.asCallout()) writeField(w, type, *callout);
    if (const auto* text = block.asText()) writeField(w, type, *text);
    w.endObject();
}

template <class W>
void write(W& w, const CoachLesson::CanvasPoster& poster) {
    w.beginObject();
    writeField(w, keys::title, poster.title);
    writeField(w, keys::steps, poster.steps);
    writeOptionalField(w, keys::verification, poster.verification);
    w.endObject();
}

template <class W>
void write(W& w, const CoachLesson& lesson) {
    w.beginObject();
    writeRawField(w, keys::style, rawValue(lesson.style));
    writeField(w, keys::title, lesson.title);
    writeOptionalField(w, keys::subtitle, lesson.subtitle);
    writeOptionalField(w, keys::summary, lesson.summary);
    writeField(w, keys::blocks, lesson.blocks);
    writeField(w, keys::suggestions, lesson.suggestions);
    writeOptionalField(w, keys::canvasPoster, lesson.canvasPoster);
    w.endObject();
}

template <class W>
void write(W& w, const CoachMessage& message) {
    w.beginObject();
    writeRawField(w, keys::id, UuidText(message.id()).view());
    writeRawField(w, keys::role, rawValue(message.role()));
    writeField(w, keys::content, message.content());
    writeOptionalField(w, keys::card, message.card());
    writeOptionalField(w, keys::lesson, message.lesson());
    w.key(keys::timestamp);
    w.number(message.timestamp().secondsSinceReferenceDate());
    w.endObject();
}

template <class W>
void write(W& w, const CoachConversation& conversation) {
    w.beginObject();
    writeRawField(w, keys::id, UuidText(conversation.id()).view());
    writeField(w, keys::title, conversation.title());
    writeField(w, keys::messages, conversation.messages());
    w.key(keys::createdAt);
    w.number(conversation.createdAt().secondsSinceReferenceDate());
    w.key(keys::updatedAt);
    w.number(conversation.updatedAt().secondsSinceReferenceDate());
    w.endObject();
}

}  // namespace sagely::detail
