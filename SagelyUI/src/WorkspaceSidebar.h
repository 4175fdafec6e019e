// The workspace's sidebar: the "Conversations" header with the new-conversation button, and
// either the empty state or the list of conversations (title and how long ago it changed), whose
// selection follows the coach's current conversation. Each row offers "Delete" in its context
// menu, and its tooltip adds up the tokens the conversation's replies used, with their cost when
// every model has a price.
#pragma once

#include <QWidget>

class QListWidget;
class QStackedWidget;
class QTimer;

#include <vector>

namespace sagely::ui {
class AICoachAdapter;
}

namespace sagely::ui::detail {

class WorkspaceSidebar : public QWidget {
    Q_OBJECT
public:
    explicit WorkspaceSidebar(AICoachAdapter& coach, QWidget* parent = nullptr);

    /// Rebuilds the rows from the coach's conversations.
    void refresh();
    /// Selects the row of the current conversation (or none) without asking the coach.
    void syncSelection();
    QListWidget* list() const { return m_list; }
    /// The sidebar's stops for Tab: the new-conversation button and the list.
    std::vector<QWidget*> focusChain() const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void applyListStyle();
    QWidget* header();
    QWidget* emptyState();
    QWidget* row(int index);
    /// The title and the usage lines of a row's tooltip; empty when no reply said its usage.
    QString usageToolTip(const QString& conversationId) const;
    void refreshDates();
    void onRowChanged(int row);
    /// Asks whether to delete the selected conversation, and deletes it on "Delete".
    void confirmDelete();

    AICoachAdapter& m_coach;
    QStackedWidget* m_stack;
    QListWidget* m_list = nullptr;
    QTimer* m_dateTimer;
    QWidget* m_newButton = nullptr;
};

}  // namespace sagely::ui::detail
