// The workspace's input area: a borderless message field that grows from one to five lines,
// the send button beside it, and the footer of host buttons (guide, settings) under them.
//
// Return in the field submits; Shift-Return breaks the line; Ctrl-Return (Command-Return on
// macOS) presses the send button, so it does nothing while the button is disabled.
#pragma once

#include <QPlainTextEdit>
#include <QPushButton>
#include <QWidget>

#include <functional>

namespace sagely::ui::detail {

class SymbolButton;

/// The growing message field.
class MessageInputField : public QPlainTextEdit {
    Q_OBJECT
public:
    static constexpr int kMaximumLines = 5;

    explicit MessageInputField(QWidget* parent = nullptr);
    /// The number of lines the field is currently tall.
    int visibleLines() const;

Q_SIGNALS:
    void submitted();
    void commandSubmitted();

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void fitHeight();
    int m_lines = 1;
};

class MessageInputBar : public QWidget {
    Q_OBJECT
public:
    struct Footer {
        std::function<void()> onOpenGuide;
        std::function<void()> onOpenSettings;
    };

    MessageInputBar(const QString& placeholder, Footer footer, QWidget* parent = nullptr);

    MessageInputField* field() const { return m_field; }
    QPushButton* sendButton() const;
    /// Shown while a request runs; Escape in the workspace does the same.
    QPushButton* stopButton() const;
    /// The bar's stops for Tab: the field, the send button, the footer buttons.
    std::vector<QWidget*> focusChain() const;
    QString draft() const;
    void setDraft(const QString& draft);
    void setThinking(bool thinking);
    /// A request runs (thinking or streaming): the stop button shows.
    void setResponding(bool responding);

Q_SIGNALS:
    /// Return in the field, the send button, or its shortcut.
    void sendRequested();
    void stopRequested();

private:
    void refreshSendButton();
    QWidget* footerRow(const Footer& footer);

    MessageInputField* m_field;
    SymbolButton* m_send;
    SymbolButton* m_stop;
    std::vector<QWidget*> m_footerButtons;
    bool m_thinking = false;
};

}  // namespace sagely::ui::detail
