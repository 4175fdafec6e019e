#include <sagely/ui/CoachWorkspaceView.h>

#include <sagely/ui/AICoachAdapter.h>

#include "ConversationPane.h"
#include "MessageInputBar.h"
#include "Primitives.h"
#include "SpokenText.h"
#include "WorkspaceBanners.h"
#include "WorkspaceSidebar.h"

#include <sagely/Text.h>

#include <QAbstractButton>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollArea>
#include <QShowEvent>
#include <QSplitter>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

namespace sagely::ui {

using namespace detail;

namespace {

// The one-pixel line between the sidebar and the content, in the divider colour.
class PaneDividerHandle : public QSplitterHandle {
public:
    using QSplitterHandle::QSplitterHandle;

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), paneDivider(palette()));
    }
};

class WorkspaceSplitter : public QSplitter {
public:
    using QSplitter::QSplitter;

protected:
    QSplitterHandle* createHandle() override { return new PaneDividerHandle(orientation(), this); }
};

}  // namespace

CoachWorkspaceView::CoachWorkspaceView(AICoach& coach, CoachBranding branding, Actions actions,
                                       QWidget* parent)
    : QWidget(parent),
      m_adapter(new AICoachAdapter(coach, this)),
      m_branding(std::move(branding)),
      m_actions(std::move(actions)) {
    setObjectName(QStringLiteral("coachWorkspace"));
    setAccessibleName(QString::fromStdString(m_branding.title));
    setAccessibleDescription(QString::fromStdString(m_branding.subtitle));
    auto* root = hstack(this, 0);
    m_splitter = new WorkspaceSplitter(Qt::Horizontal);
    m_splitter->setObjectName(QStringLiteral("workspaceSplitter"));
    m_splitter->setChildrenCollapsible(false);
    m_splitter->setHandleWidth(1);
    m_sidebar = new WorkspaceSidebar(*m_adapter);
    m_splitter->addWidget(m_sidebar);
    m_splitter->addWidget(detailPane());
    m_splitter->setStretchFactor(0, 0);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setSizes({180, 720});
    root->addWidget(m_splitter);
    m_wasLoadingManual = coach.isLoadingManual().get();
    connectCoach();
    connect(m_pane, &ConversationPane::contentChanged, this, &CoachWorkspaceView::scheduleTabOrder);
    onCurrentConversationChanged();
    onThinkingChanged();
    refreshKnowledgeBanner();
    refreshErrorBanner();
}

CoachWorkspaceView::~CoachWorkspaceView() {
    // The panes go first, while the adapter they report to still exists.
    delete m_splitter;
}

AICoach& CoachWorkspaceView::coach() const {
    return m_adapter->coach();
}

QWidget* CoachWorkspaceView::detailPane() {
    auto* pane = new QWidget;
    pane->setObjectName(QStringLiteral("detailPane"));
    pane->setMinimumWidth(360);
    auto* column = vstack(pane, 0);
    m_knowledgeBanner = new KnowledgeBanner;
    column->addWidget(m_knowledgeBanner);
    m_content = new QStackedWidget;
    m_content->addWidget(emptyState());
    m_content->addWidget(conversationPage());
    column->addWidget(m_content, 1);
    m_errorArea = new QWidget;
    m_errorArea->setObjectName(QStringLiteral("errorArea"));
    m_errorLayout = vstack(m_errorArea, 0);
    column->addWidget(m_errorArea);
    return pane;
}

QWidget* CoachWorkspaceView::emptyState() {
    auto* page = new QWidget;
    page->setObjectName(QStringLiteral("emptyState"));
    auto* column = vstack(page, 16, 24);
    column->addStretch(1);
    auto* symbol = new SymbolView(QStringLiteral("sparkles"), Tint::blue, 48);
    column->addWidget(symbol, 0, Qt::AlignHCenter);
    auto* title = new StyledLabel(QString::fromStdString(m_branding.title), TextStyle::title2,
                                  Tint::primary, {.bold = true});
    title->setObjectName(QStringLiteral("emptyStateTitle"));
    column->addWidget(title, 0, Qt::AlignHCenter);
    auto* subtitle = textLabel(QString::fromStdString(m_branding.subtitle), Qt::PlainText,
                               TextStyle::body, Tint::secondary);
    subtitle->setAlignment(Qt::AlignHCenter | Qt::AlignTop);
    subtitle->setObjectName(QStringLiteral("emptyStateSubtitle"));
    column->addWidget(subtitle, 0, Qt::AlignHCenter);
    auto* start = new TintedButton(localized("Start a Conversation"),
                                   ButtonStyle::borderedProminent, Tint::accent, TextStyle::body);
    start->setObjectName(QStringLiteral("startConversationButton"));
    connect(start, &QPushButton::clicked, m_adapter, &AICoachAdapter::newConversation);
    column->addWidget(start, 0, Qt::AlignHCenter);
    column->addStretch(1);
    return page;
}

QWidget* CoachWorkspaceView::conversationPage() {
    auto* page = new QWidget;
    page->setObjectName(QStringLiteral("conversationPage"));
    auto* column = vstack(page, 0);
    m_pane = new ConversationPane(
        m_branding, [this](const std::string& text) { chooseSuggestion(text); },
        m_actions.onOpenInCanvas);
    column->addWidget(m_pane, 1);
    column->addWidget(new Divider);
    m_input = new MessageInputBar(QString::fromStdString(m_branding.inputPlaceholder),
                                  {m_actions.onOpenGuide, m_actions.onOpenSettings});
    connect(m_input, &MessageInputBar::sendRequested, this, &CoachWorkspaceView::send);
    connect(m_input, &MessageInputBar::stopRequested, m_adapter, &AICoachAdapter::stop);
    column->addWidget(m_input);
    return page;
}

void CoachWorkspaceView::connectCoach() {
    connect(m_adapter, &AICoachAdapter::conversationsChanged, m_sidebar,
            &WorkspaceSidebar::refresh);
    connect(m_adapter, &AICoachAdapter::currentConversationChanged, this,
            &CoachWorkspaceView::onCurrentConversationChanged);
    connect(m_adapter, &AICoachAdapter::thinkingChanged, this,
            &CoachWorkspaceView::onThinkingChanged);
    connect(m_adapter, &AICoachAdapter::partialReplyChanged, this, [this] {
        m_pane->setPartialReply(m_adapter->coach().partialReply().get());
        m_input->setResponding(m_adapter->isResponding());
    });
    connect(m_adapter, &AICoachAdapter::retryStatusChanged, this,
            [this] { m_pane->setRetryStatus(m_adapter->retryStatus()); });
    connect(m_adapter, &AICoachAdapter::loadingManualChanged, this,
            &CoachWorkspaceView::onLoadingManualChanged);
    connect(m_adapter, &AICoachAdapter::errorChanged, this,
            &CoachWorkspaceView::refreshErrorBanner);
    connect(m_adapter, &AICoachAdapter::pendingActionChanged, this, [this] {
        refreshApproval();
        m_input->setResponding(m_adapter->isResponding());
    });
}

void CoachWorkspaceView::onCurrentConversationChanged() {
    m_sidebar->syncSelection();
    const auto& current = m_adapter->currentConversation();
    m_content->setCurrentIndex(current ? 1 : 0);
    if (current) m_pane->showConversation(*current);
    refreshApproval();
    scheduleTabOrder();
}

void CoachWorkspaceView::refreshApproval() {
    // Shown only with its own conversation: another one open must not offer to run it.
    std::optional<ConversationPane::PendingApproval> shown;
    const auto& pending = coach().pendingAction().get();
    const auto& current = m_adapter->currentConversation();
    if (pending && current && pending->conversationId == current->id())
        shown = {pending->callId, pending->title, pending->argumentSummary};
    m_pane->showApproval(shown, [this](bool allowed, bool always) {
        if (allowed)
            m_adapter->approvePendingAction(always);
        else
            m_adapter->denyPendingAction();
    });
}

void CoachWorkspaceView::onThinkingChanged() {
    const bool thinking = m_adapter->isThinking();
    m_pane->setThinking(thinking);
    m_input->setThinking(thinking);
    m_input->setResponding(m_adapter->isResponding());
}

void CoachWorkspaceView::onLoadingManualChanged() {
    const bool loading = m_adapter->isLoadingManual();
    const bool finished = m_wasLoadingManual && !loading;
    m_wasLoadingManual = loading;
    refreshKnowledgeBanner();
    if (!finished) return;
    // Checked once the coach has finished its update, when manualReady holds its new value.
    QTimer::singleShot(0, this, [this] {
        if (!m_adapter->manualReady()) return;
        setReadyBannerShown(true);
        QTimer::singleShot(kReadyBannerMilliseconds, this, [this] { setReadyBannerShown(false); });
    });
}

void CoachWorkspaceView::setReadyBannerShown(bool shown) {
    m_showReadyBanner = shown;
    refreshKnowledgeBanner();
}

void CoachWorkspaceView::refreshKnowledgeBanner() {
    if (m_adapter->isLoadingManual())
        m_knowledgeBanner->showLoading();
    else if (m_showReadyBanner)
        m_knowledgeBanner->showReady();
    else
        m_knowledgeBanner->hide();
}

void CoachWorkspaceView::refreshErrorBanner() {
    while (QLayoutItem* item = m_errorLayout->takeAt(0)) {
        if (QWidget* old = item->widget()) {
            old->hide();
            old->deleteLater();  // a Dismiss button may still be delivering its click
        }
        delete item;
    }
    const QString error = m_adapter->error();
    if (!m_adapter->hasError()) return;
    const auto dismiss = [this] { m_adapter->clearError(); };
    QWidget* banner = nullptr;
    if (error == QLatin1String(AICoach::kNoAPIKeyCode))
        banner = missingKeyBanner(m_branding.noAPIKeyMessage,
                                  {m_actions.onOpenSettings, m_actions.onOpenGuide, dismiss});
    else if (error == QLatin1String(AICoach::kLocalOnlyCode))
        banner = localOnlyBanner(m_actions.onOpenGuide, dismiss);
    else
        banner = errorBanner(error.toStdString(), dismiss);
    m_errorLayout->addWidget(banner);
    banner->show();
    announce(banner);
    scheduleTabOrder();
}

void CoachWorkspaceView::scheduleTabOrder() {
    if (m_tabOrderQueued) return;
    m_tabOrderQueued = true;
    QTimer::singleShot(0, this, [this] {
        m_tabOrderQueued = false;
        applyTabOrder();
    });
}

void CoachWorkspaceView::applyTabOrder() {
    std::vector<QWidget*> chain = m_sidebar->focusChain();
    chain.push_back(m_pane->scrollArea());
    for (QWidget* widget : m_pane->focusableContent()) chain.push_back(widget);
    for (QAbstractButton* button : m_errorArea->findChildren<QAbstractButton*>())
        chain.push_back(button);
    for (QWidget* widget : m_input->focusChain()) chain.push_back(widget);
    for (std::size_t i = 1; i < chain.size(); ++i) QWidget::setTabOrder(chain[i - 1], chain[i]);
}

QString CoachWorkspaceView::messageInput() const {
    return m_input->draft();
}

void CoachWorkspaceView::setMessageInput(const QString& text) {
    m_input->setDraft(text);
}

void CoachWorkspaceView::send() {
    const std::string trimmed = text::trimmed(m_input->draft().toStdString());
    if (trimmed.empty()) return;
    m_input->setDraft(QString());
    // Like an unstructured task: the input is free at once and nothing waits for the reply.
    QTimer::singleShot(0, this, [this, trimmed] {
        if (m_actions.onSendMessage)
            m_actions.onSendMessage(trimmed);
        else
            coach().sendAndReturnReply(trimmed, [](const std::optional<CoachMessage>&) {});
    });
}

void CoachWorkspaceView::chooseSuggestion(const std::string& suggestion) {
    m_input->setDraft(QString::fromStdString(suggestion));
    send();
}

void CoachWorkspaceView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    // Every appearance asks; the coach ignores the request while loading or once ready.
    if (!event->spontaneous()) m_adapter->preloadManual();
}

void CoachWorkspaceView::keyPressEvent(QKeyEvent* event) {
    // Escape reaches here from any child that has no use for it: it dismisses the banner.
    if (event->key() == Qt::Key_Escape && m_adapter->hasError()) {
        m_adapter->clearError();
        event->accept();
        return;
    }
    // Otherwise it stops a reply in flight, as the stop button does.
    if (event->key() == Qt::Key_Escape && m_adapter->isResponding()) {
        m_adapter->stop();
        event->accept();
        return;
    }
    QWidget::keyPressEvent(event);
}

void CoachWorkspaceView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), controlBackground(palette()));
}

}  // namespace sagely::ui
