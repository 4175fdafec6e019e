// CoachUserMessageText — the text of a user's message: plain (never Markdown), selectable, at
// most 560 pixels wide, aligned to the trailing edge.
//
// Thread rules: GUI thread only, like every widget.
#pragma once

#include <sagely/ui/Export.h>

#include <QWidget>

#include <string>

class QLabel;

namespace sagely::ui {

class SAGELY_UI_EXPORT CoachUserMessageText : public QWidget {
    Q_OBJECT
public:
    static constexpr int kMaximumWidth = 560;

    explicit CoachUserMessageText(const std::string& content, QWidget* parent = nullptr);

    const std::string& content() const { return m_content; }
    /// The label that shows the text.
    QLabel* label() const { return m_label; }

private:
    std::string m_content;
    QLabel* m_label;
};

}  // namespace sagely::ui
