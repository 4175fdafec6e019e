#include "DemoWindows.h"

#include <sagely/ui/CoachBranding.h>
#include <sagely/ui/CoachSettingsView.h>
#include <sagely/ui/CoachSymbols.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include <QApplication>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenuBar>
#include <QStatusBar>
#include <QStyle>
#include <QTabWidget>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace tessel {
namespace {

using sagely::ui::CoachBranding;
using sagely::ui::CoachWorkspaceView;

CoachBranding tesselBranding() {
    return CoachBranding(
        "Tessel", "Tessel Coach",
        "Ask how to build tiles and flows, record with Teach, use the canvas, or set up "
        "speech.",
        {"How do I set up speech and voice control?", "What is Teach mode?",
         "How do I schedule a flow to run every morning?", "How do I share a canvas?"},
        "Ask Tessel Coach…",
        "Tessel Coach answers with a model provider of your choice. Add an OpenAI, Anthropic or "
        "Gemini key in Coach Settings, or choose a local Ollama server.");
}

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

GuideWindow::GuideWindow(const QString& markdown, QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Tessel Guide"));
    setObjectName(QStringLiteral("guideWindow"));
    auto* layout = new QVBoxLayout(this);
    auto* browser = new QTextBrowser;
    browser->setOpenExternalLinks(true);
    browser->setMarkdown(markdown);
    layout->addWidget(browser);
    resize(720, 800);
}

CanvasWindow::CanvasWindow(const sagely::CoachLesson& lesson, QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("AI Canvas"));
    setObjectName(QStringLiteral("canvasWindow"));
    setAttribute(Qt::WA_DeleteOnClose);
    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(10);
    const auto poster = lesson.canvasPoster.value_or(
        sagely::CoachLesson::CanvasPoster{lesson.title, {}, std::nullopt});
    auto* title = new QLabel(qs(poster.title));
    QFont titleFont = title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.6);
    titleFont.setBold(true);
    title->setFont(titleFont);
    layout->addWidget(title);
    int number = 0;
    for (const std::string& step : poster.steps) {
        auto* line = new QLabel(QStringLiteral("☐  %1.  %2").arg(++number).arg(qs(step)));
        line->setWordWrap(true);
        layout->addWidget(line);
    }
    if (poster.verification) {
        auto* check = new QLabel(tr("Check: %1").arg(qs(*poster.verification)));
        check->setWordWrap(true);
        check->setStyleSheet(QStringLiteral("color: #1f8f3a;"));
        layout->addWidget(check);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
    resize(520, 360);
}

PreferencesDialog::PreferencesDialog(sagely::CoachSettingsStore& settings, QWidget* parent)
    : QDialog(parent) {
    setWindowTitle(tr("Tessel Preferences"));
    setObjectName(QStringLiteral("preferencesDialog"));
    auto* layout = new QVBoxLayout(this);
    auto* tabs = new QTabWidget;
    auto* general = new QLabel(tr("Tessel keeps your projects in ~/Tessel. (Demo)"));
    general->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    general->setMargin(12);
    tabs->addTab(general, tr("General"));
    // Embedded, the form brings no padding of its own: the tab page gives it the margins of
    // the platform's layouts, as every other page of a preferences window has.
    auto* coachPage = new QWidget;
    coachPage->setObjectName(QStringLiteral("coachPreferencesPage"));
    auto* coachLayout = new QVBoxLayout(coachPage);
    const QStyle* style = coachPage->style();
    coachLayout->setContentsMargins(style->pixelMetric(QStyle::PM_LayoutLeftMargin),
                                    style->pixelMetric(QStyle::PM_LayoutTopMargin),
                                    style->pixelMetric(QStyle::PM_LayoutRightMargin),
                                    style->pixelMetric(QStyle::PM_LayoutBottomMargin));
    coachLayout->addWidget(new sagely::ui::CoachSettingsView(&settings, true));
    tabs->addTab(coachPage, tr("Coach"));
    tabs->setCurrentIndex(1);
    layout->addWidget(tabs);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::close);
    layout->addWidget(buttons);
    resize(600, 760);
}

DemoMainWindow::DemoMainWindow(sagely::AICoach& coach, sagely::CoachSettingsStore& settings,
                               QString manual)
    : m_coach(coach), m_settings(settings), m_manual(std::move(manual)) {
    setWindowTitle(tr("Tessel — Coach (sagely-demo)"));
    CoachWorkspaceView::Actions actions;
    actions.onOpenSettings = [this] { openSettings(); };
    actions.onOpenGuide = [this] { openGuide(); };
    actions.onOpenInCanvas = [this](const sagely::CoachLesson& lesson) { openCanvas(lesson); };
    m_workspace = new CoachWorkspaceView(coach, tesselBranding(), std::move(actions));
    setCentralWidget(m_workspace);
    buildMenus();
    coach.onLocalLessonDelivered = [this](const sagely::CoachLesson& lesson) {
        statusBar()->showMessage(tr("Lesson delivered: %1").arg(qs(lesson.title)), 5000);
    };
    resize(1000, 720);
}

void DemoMainWindow::buildMenus() {
    QMenu* app = menuBar()->addMenu(tr("&Tessel"));
    QAction* preferences = app->addAction(tr("Preferences…"), this, &DemoMainWindow::openSettings);
    preferences->setShortcut(QKeySequence::Preferences);
    app->addSeparator();
    app->addAction(tr("&Quit"), qApp, &QApplication::quit)->setShortcut(QKeySequence::Quit);
    QMenu* coach = menuBar()->addMenu(tr("&Coach"));
    coach->addAction(tr("New Conversation"), [this] { m_coach.newConversation(); })
        ->setShortcut(QKeySequence::New);
    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("Tessel Guide"), this, &DemoMainWindow::openGuide)
        ->setShortcut(QKeySequence::HelpContents);
}

void DemoMainWindow::openSettings() {
    if (!m_preferences) m_preferences = new PreferencesDialog(m_settings, this);
    m_preferences->show();
    m_preferences->raise();
}

void DemoMainWindow::openGuide() {
    if (!m_guide) m_guide = new GuideWindow(m_manual, this);
    m_guide->show();
    m_guide->raise();
}

void DemoMainWindow::openCanvas(const sagely::CoachLesson& lesson) {
    auto* canvas = new CanvasWindow(lesson, this);
    canvas->show();
}

}  // namespace tessel
