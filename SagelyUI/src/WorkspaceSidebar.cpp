#include "WorkspaceSidebar.h"

#include "Primitives.h"
#include "RelativeDate.h"

#include <sagely/CoachPriceTable.h>
#include <sagely/ui/AICoachAdapter.h>
#include <sagely/ui/MessageBubble.h>

#include <QAction>
#include <QEvent>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QListWidget>
#include <QLocale>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QToolTip>
#include <QVBoxLayout>

#include <functional>

namespace sagely::ui::detail {
namespace {

constexpr int kIdRole = Qt::UserRole;
constexpr int kUpdatedAtRole = Qt::UserRole + 1;
constexpr const char* kConversationIdProperty = "conversationId";

// The list of conversations. A right click opens the row's menu without selecting the row, so
// the conversation being read stays on screen; Delete asks to remove the selected one.
class ConversationList : public QListWidget {
public:
    std::function<void()> onDeleteKey;

protected:
    void mousePressEvent(QMouseEvent* event) override {
        if (event->button() == Qt::RightButton) return event->accept();
        QListWidget::mousePressEvent(event);
    }
    void mouseReleaseEvent(QMouseEvent* event) override {
        if (event->button() == Qt::RightButton) return event->accept();
        QListWidget::mouseReleaseEvent(event);
    }
    void mouseDoubleClickEvent(QMouseEvent* event) override {
        if (event->button() == Qt::RightButton) return event->accept();
        QListWidget::mouseDoubleClickEvent(event);
    }
    void keyPressEvent(QKeyEvent* event) override {
        if ((event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) &&
            event->modifiers() == Qt::NoModifier && currentRow() >= 0 && onDeleteKey) {
            event->accept();
            onDeleteKey();
            return;
        }
        QListWidget::keyPressEvent(event);
    }
};

}  // namespace

WorkspaceSidebar::WorkspaceSidebar(AICoachAdapter& coach, QWidget* parent)
    : QWidget(parent), m_coach(coach) {
    setObjectName(QStringLiteral("sidebar"));
    setMinimumWidth(160);
    setMaximumWidth(220);
    auto* column = vstack(this, 0);
    column->addWidget(header());
    column->addWidget(new Divider);
    m_stack = new QStackedWidget;
    m_stack->addWidget(emptyState());
    auto* list = new ConversationList;
    list->onDeleteKey = [this] { confirmDelete(); };
    m_list = list;
    m_list->setObjectName(QStringLiteral("conversationList"));
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setAccessibleName(localized("Conversations"));
    m_list->setAccessibleDescription(
        localized("The arrow keys open a conversation; Delete removes the selected one."));
    applyListStyle();
    m_stack->addWidget(m_list);
    column->addWidget(m_stack, 1);
    connect(m_list, &QListWidget::currentRowChanged, this, &WorkspaceSidebar::onRowChanged);
    m_dateTimer = new QTimer(this);
    m_dateTimer->setInterval(30'000);
    connect(m_dateTimer, &QTimer::timeout, this, &WorkspaceSidebar::refreshDates);
    m_dateTimer->start();
    refresh();
}

void WorkspaceSidebar::applyListStyle() {
    // A soft accent behind the selected row, so its text keeps its own colours.
    const QColor accent = withOpacity(color(Tint::accent, palette()), 0.22);
    m_list->setStyleSheet(
        QStringLiteral("QListWidget { background: transparent; outline: none; }"
                       "QListWidget::item { border-radius: 6px; margin: 1px 6px; }"
                       "QListWidget::item:selected { background: rgba(%1,%2,%3,%4); }")
            .arg(accent.red())
            .arg(accent.green())
            .arg(accent.blue())
            .arg(QString::number(accent.alphaF(), 'f', 3)));
}

void WorkspaceSidebar::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && m_list) applyListStyle();
}

void WorkspaceSidebar::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), sidebarBackground(palette()));
}

QWidget* WorkspaceSidebar::header() {
    auto* header = new QWidget;
    auto* row = hstack(header, 8, 12);
    row->addWidget(new StyledLabel(localized("Conversations"), TextStyle::headline));
    row->addStretch(1);
    auto* add = new SymbolButton(QStringLiteral("plus.circle.fill"), Tint::accent,
                                 symbolSize(TextStyle::headline));
    add->setObjectName(QStringLiteral("newConversationButton"));
    add->setToolTip(localized("New Conversation"));
    add->setAccessibleName(localized("New Conversation"));
    m_newButton = add;
    connect(add, &QPushButton::clicked, &m_coach, &AICoachAdapter::newConversation);
    row->addWidget(add);
    return header;
}

QWidget* WorkspaceSidebar::emptyState() {
    auto* page = new QWidget;
    page->setObjectName(QStringLiteral("sidebarEmptyState"));
    auto* column = vstack(page, 12, 12);
    column->addStretch(1);
    auto* symbol =
        new SymbolView(QStringLiteral("bubble.left.and.text.bubble.right"), Tint::secondary, 32);
    column->addWidget(symbol, 0, Qt::AlignHCenter);
    auto* title =
        new StyledLabel(localized("No conversations yet"), TextStyle::callout, Tint::secondary);
    column->addWidget(title, 0, Qt::AlignHCenter);
    auto* hint =
        new StyledLabel(localized("Click + to start chatting"), TextStyle::caption, Tint::tertiary);
    column->addWidget(hint, 0, Qt::AlignHCenter);
    column->addStretch(1);
    return page;
}

void WorkspaceSidebar::refresh() {
    const auto& conversations = m_coach.conversations();
    m_stack->setCurrentIndex(conversations.empty() ? 0 : 1);
    const QSignalBlocker blocker(m_list);
    m_list->clear();
    for (std::size_t i = 0; i < conversations.size(); ++i) {
        auto* item = new QListWidgetItem(m_list);
        item->setData(kIdRole, QString::fromStdString(conversations[i].id().toString()));
        item->setData(kUpdatedAtRole, conversations[i].updatedAt().secondsSinceReferenceDate());
        item->setData(Qt::AccessibleTextRole, QString::fromStdString(conversations[i].title()));
        QWidget* widget = row(int(i));
        // As wide as the list, never as wide as a long title: the title gives way instead.
        item->setSizeHint(QSize(1, widget->sizeHint().height()));
        m_list->setItemWidget(item, widget);
    }
    syncSelection();
}

QWidget* WorkspaceSidebar::row(int index) {
    const CoachConversation& conversation = m_coach.conversations()[std::size_t(index)];
    auto* row = new QWidget;
    row->setObjectName(QStringLiteral("conversationRow"));
    auto* column = vstack(row, 2);
    column->setContentsMargins(8, 5, 8, 5);
    auto* title = new ElidedLabel(QString::fromStdString(conversation.title()), TextStyle::callout);
    title->setObjectName(QStringLiteral("conversationTitle"));
    column->addWidget(title);
    auto* date = new StyledLabel(relativeDateText(conversation.updatedAt(), Timestamp::now()),
                                 TextStyle::caption2, Tint::secondary);
    date->setObjectName(QStringLiteral("conversationDate"));
    column->addWidget(date);
    auto* remove = new QAction(localized("Delete"), row);
    remove->setObjectName(QStringLiteral("deleteConversationAction"));
    const QString id = QString::fromStdString(conversation.id().toString());
    // Queued: deleting rebuilds the list, and with it the row whose menu is still closing.
    AICoachAdapter* coach = &m_coach;
    connect(
        remove, &QAction::triggered, coach, [coach, id] { coach->deleteConversation(id); },
        Qt::QueuedConnection);
    row->addAction(remove);
    row->setContextMenuPolicy(Qt::ActionsContextMenu);
    // The usage is added up only when the tooltip is asked for: listing must not decode every
    // saved conversation.
    row->setProperty(kConversationIdProperty, id);
    for (QWidget* part : std::initializer_list<QWidget*>{row, title, date})
        part->installEventFilter(this);
    return row;
}

bool WorkspaceSidebar::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::ToolTip) return QWidget::eventFilter(watched, event);
    auto* widget = static_cast<QWidget*>(watched);
    QWidget* rowWidget =
        widget->property(kConversationIdProperty).isValid() ? widget : widget->parentWidget();
    const QString text = usageToolTip(rowWidget->property(kConversationIdProperty).toString());
    if (text.isEmpty()) return false;  // the title's own tooltip, or none
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), text, widget);
    return true;
}

QString WorkspaceSidebar::usageToolTip(const QString& conversationId) const {
    for (const CoachConversation& conversation : m_coach.conversations()) {
        if (QString::fromStdString(conversation.id().toString()) != conversationId) continue;
        const auto total = CoachPriceTable::current().total(conversation.messages());
        if (total.replies == 0) return {};
        // A sum names no model, so this is the tokens line alone.
        const QString tokens = MessageBubble::usageText(total.tokens);
        const QString replies =
            total.replies == 1
                ? localized("1 reply")
                : localized("%1 replies").arg(QLocale().toString(qulonglong(total.replies)));
        QString text = QString::fromStdString(conversation.title()) + u'\n' +
                       localized("%1 (%2)").arg(tokens, replies);
        if (total.cost)
            text +=
                u'\n' + localized("%1 in all")
                            .arg(QString::fromStdString(CoachPriceTable::costText(*total.cost)));
        return text;
    }
    return {};
}

void WorkspaceSidebar::refreshDates() {
    for (int i = 0; i < m_list->count(); ++i) {
        QListWidgetItem* item = m_list->item(i);
        auto* date =
            m_list->itemWidget(item)->findChild<QLabel*>(QStringLiteral("conversationDate"));
        const Timestamp updatedAt(item->data(kUpdatedAtRole).toDouble());
        if (date) date->setText(relativeDateText(updatedAt, Timestamp::now()));
    }
}

std::vector<QWidget*> WorkspaceSidebar::focusChain() const {
    return {m_newButton, m_list};
}

void WorkspaceSidebar::confirmDelete() {
    QListWidgetItem* item = m_list->currentItem();
    if (!item) return;
    const QString id = item->data(kIdRole).toString();
    const CoachConversation* conversation = m_coach.conversation(id);
    if (!conversation) return;
    // Window-modal and not waited for, so the event loop (and the coach) goes on meanwhile.
    auto* box = new QMessageBox(this);
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(localized("Delete Conversation"));
    box->setText(
        localized("Delete \u201C%1\u201D?").arg(QString::fromStdString(conversation->title())));
    box->setInformativeText(localized("The conversation and its messages are removed."));
    box->setStandardButtons(QMessageBox::Cancel);
    box->setObjectName(QStringLiteral("deleteConversationConfirmation"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton* remove = box->addButton(localized("Delete"), QMessageBox::DestructiveRole);
    remove->setObjectName(QStringLiteral("confirmDeleteButton"));
    box->setDefaultButton(QMessageBox::Cancel);
    box->setEscapeButton(QMessageBox::Cancel);
    AICoachAdapter* coach = &m_coach;
    connect(
        remove, &QPushButton::clicked, coach, [coach, id] { coach->deleteConversation(id); },
        Qt::QueuedConnection);
    connect(box, &QDialog::finished, m_list, [list = m_list] { list->setFocus(); });
    box->setWindowModality(Qt::WindowModal);
    box->open();
}

void WorkspaceSidebar::syncSelection() {
    const QString current = m_coach.currentConversationId();
    const QSignalBlocker blocker(m_list);
    for (int i = 0; i < m_list->count(); ++i) {
        if (m_list->item(i)->data(kIdRole).toString() == current) {
            m_list->setCurrentRow(i);
            return;
        }
    }
    m_list->setCurrentRow(-1);
    m_list->clearSelection();
}

void WorkspaceSidebar::onRowChanged(int row) {
    if (row < 0) return;
    m_coach.selectConversation(m_list->item(row)->data(kIdRole).toString());
}

}  // namespace sagely::ui::detail
