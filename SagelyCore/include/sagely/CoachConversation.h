// CoachConversation — a titled, time-stamped list of messages, oldest first.
//
// Its identity and creation time are fixed when it is made (or decoded); the title may be
// reassigned, and messages grow by append(). Two conversations are the same conversation when
// their ids are equal, so the type has no equality operator.
//
// A conversation read from a file keeps its text while it stays unchanged: its messages are
// decoded when first asked for, and saving writes the text back as it is. So a long history
// costs only the conversations a run touches.
//
// Thread rules: a plain value; a conversation is used by one thread at a time (reading its
// messages may decode them), copies freely: a copy shares its messages' unchanging contents, so
// copying a long conversation costs a reference count per message. The coding functions below
// are pure and may run on any thread.
#pragma once

#include <sagely/CoachMessage.h>
#include <sagely/Export.h>
#include <sagely/Timestamp.h>
#include <sagely/Uuid.h>

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

namespace detail {
struct StoredConversation;
}

class SAGELY_EXPORT CoachConversation {
public:
    /// A fresh id, the title, no messages; createdAt then updatedAt read from the clock.
    explicit CoachConversation(std::string title);

    const Uuid& id() const { return m_id; }
    const std::string& title() const { return m_title; }
    void setTitle(std::string title);
    const std::vector<CoachMessage>& messages() const {
        if (m_undecoded) decodeMessages();
        return m_messages;
    }
    /// Mutable access for the engine (for example to cap a long conversation).
    std::vector<CoachMessage>& messages();
    Timestamp createdAt() const { return m_createdAt; }
    Timestamp updatedAt() const { return m_updatedAt; }
    void setUpdatedAt(Timestamp updatedAt);

    /// Adds the message at the end and sets updatedAt to now; the title is untouched.
    void append(CoachMessage message);

private:
    friend struct detail::DataModelAccess;
    CoachConversation() = default;
    CoachConversation(Uuid id, std::string title, std::vector<CoachMessage> messages,
                      Timestamp createdAt, Timestamp updatedAt);
    // Made only inside the kit, so the shared library keeps it to itself.
    SAGELY_NO_EXPORT CoachConversation(Uuid id, std::string title, Timestamp createdAt,
                                       Timestamp updatedAt,
                                       std::shared_ptr<const detail::StoredConversation> stored);

    void decodeMessages() const;
    // Any change makes the stored text stale.
    void forgetStored();

    Uuid m_id = Uuid::random();
    std::string m_title;
    mutable std::vector<CoachMessage> m_messages;
    Timestamp m_createdAt;
    Timestamp m_updatedAt;
    // The text this conversation was read from, while it is unchanged; null otherwise.
    std::shared_ptr<const detail::StoredConversation> m_stored;
    mutable bool m_undecoded = false;  // m_messages is still to be decoded from m_stored
};

// The file form of a conversation list: a compact JSON array of conversation objects with the
// keys "id", "title", "messages", "createdAt", "updatedAt" (all required), written in field
// order. Decoding failures throw DecodingError naming the key path (for example
// "[2].messages[7].role"); no partial list is ever returned.
SAGELY_EXPORT std::string encodeConversations(const std::vector<CoachConversation>& conversations);
SAGELY_EXPORT std::vector<CoachConversation> decodeConversations(std::string_view json);

/// The same form for single values (one conversation, one message).
SAGELY_EXPORT std::string encodeJson(const CoachConversation& conversation);
SAGELY_EXPORT std::string encodeJson(const CoachMessage& message);
SAGELY_EXPORT CoachConversation decodeConversation(std::string_view json);
SAGELY_EXPORT CoachMessage decodeMessage(std::string_view json);

}  // namespace sagely

namespace nlohmann {
template <>
struct SAGELY_EXPORT adl_serializer<sagely::CoachConversation> {
    static sagely::CoachConversation from_json(const json& j);
    static void to_json(json& j, const sagely::CoachConversation& conversation);
};
}  // namespace nlohmann
