// How each reply is shown — its procedure when it reads as one, else its paragraphs — worked out
// once per message for its bubble and for what a screen reader speaks, and kept for the next
// render: a long reply is normalised once, not two or three times each time it is drawn.
//
// Thread rules: GUI thread (the views'); the cache is guarded all the same.
#pragma once

#include <sagely/CoachMessage.h>
#include <sagely/CoachMessageFormatting.h>

#include <memory>

namespace sagely::ui::detail {

using ReplyLayout = CoachMessageFormatting::ReplyLayout;

/// The layout of the message's content, kept by message id for the most recent messages. A
/// message whose content has changed since (a streamed reply grows) is laid out anew.
std::shared_ptr<const ReplyLayout> replyLayout(const CoachMessage& message);

}  // namespace sagely::ui::detail
