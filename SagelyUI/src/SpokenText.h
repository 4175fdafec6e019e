// What a screen reader speaks for a message and what it carries: the reply as plain text with
// its steps numbered, and cards and lessons as a few sentences. Markdown is read as its text.
#pragma once

#include <sagely/CoachCard.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachMessage.h>
#include <sagely/CoachMessageFormatting.h>

#include <QString>

#include <functional>

#include <string>
#include <string_view>
#include <vector>

class QWidget;

namespace sagely::ui::detail {

/// A reply's text without its Markdown, a procedure as "Step 1: …" lines.
QString spokenReply(const CoachMessageFormatting::ReplyLayout& layout);
/// One step of a procedure as "Step 1: title. detail."
QString spokenStep(long long number, std::string_view title,
                   const std::vector<std::string>& details);
QString spokenCard(const CoachCard& card);
QString spokenLesson(const CoachLesson& lesson);
/// "You: …" or "Coach: …" with the reply, as a message is read out.
QString spokenMessage(const CoachMessage& message);

/// Tells assistive technology that `banner` has just appeared (an Alert event).
void announce(QWidget* banner);
/// Also hands every announced widget to `listener` (none: stop). Without a screen reader Qt
/// drops the Alert events, so this is how a test hears them.
void setAnnouncementListener(std::function<void(QWidget*)> listener);

}  // namespace sagely::ui::detail
