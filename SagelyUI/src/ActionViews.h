// What the conversation shows of the host actions the model calls: the card that asks the user
// to allow one ("Run Create canvas with name = Launch?", Allow, Deny, "Always allow for this
// conversation"), and the compact line each answered call leaves ("Done: Create canvas").
#pragma once

#include "Primitives.h"

#include <QWidget>

#include <functional>
#include <string>

class QCheckBox;

namespace sagely::ui::detail {

/// The question of the approval card as rich text: the action's title in italics, then its
/// arguments ("name = Launch") when there are any.
QString approvalQuestion(const std::string& title, const std::string& argumentSummary);

class ActionApprovalCard : public RoundedPanel {
public:
    /// Called once with the user's answer: allowed or not, and "always" (only with allowed).
    using AnswerHandler = std::function<void(bool allowed, bool always)>;

    ActionApprovalCard(const std::string& title, const std::string& argumentSummary,
                       AnswerHandler onAnswer, QWidget* parent = nullptr);

private:
    void answer(bool allowed);

    AnswerHandler m_onAnswer;
    QPushButton* m_allow;
    QPushButton* m_deny;
    QCheckBox* m_always;
};

/// What became of a call, as far as its line's symbol tells.
enum class ActionOutcome { ran, declined, failed };

/// A call's outcome in one line ("Done: Create canvas"): a green check mark for a call that ran,
/// a grey stop sign for one declined or cancelled, an orange warning for one that failed.
QWidget* actionOutcomeLine(const std::string& summary, ActionOutcome outcome);

}  // namespace sagely::ui::detail
