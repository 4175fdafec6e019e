#include "DemoWindows.h"

#include <sagely/ui/CoachBranding.h>
#include <sagely/ui/CoachSettingsView.h>
#include <sagely/ui/CoachSymbols.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include <QApplication>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenuBar>
#include <QRegularExpression>
#include <QStatusBar>
#include <QStyle>
#include <QTabWidget>
#include <QTextBlock>
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

QPalette darkPalette() {
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x1E, 0x1E, 0x1E));
    palette.setColor(QPalette::WindowText, QColor(0xEE, 0xEE, 0xEE));
    palette.setColor(QPalette::Base, QColor(0x28, 0x28, 0x28));
    palette.setColor(QPalette::AlternateBase, QColor(0x32, 0x32, 0x32));
    palette.setColor(QPalette::Text, QColor(0xEE, 0xEE, 0xEE));
    palette.setColor(QPalette::Button, QColor(0x3A, 0x3A, 0x3A));
    palette.setColor(QPalette::ButtonText, QColor(0xEE, 0xEE, 0xEE));
    palette.setColor(QPalette::Highlight, QColor(0x0A, 0x84, 0xFF));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0x99, 0x99, 0x99));
    return palette;
}

// A chapter heading of the manual: "## 7. The AI Canvas".
const QRegularExpression& chapterHeading() {
    static const QRegularExpression heading(QStringLiteral(R"(^## \d+\. (.+)$)"),
                                            QRegularExpression::MultilineOption);
    return heading;
}

}  // namespace

GuideWindow::GuideWindow(const QString& markdown, QWidget* parent) : QDialog(parent) {
    setWindowTitle(tr("Tessel Guide"));
    setObjectName(QStringLiteral("guideWindow"));
    auto* layout = new QVBoxLayout(this);
    m_browser = new QTextBrowser;
    m_browser->setObjectName(QStringLiteral("guideText"));
    m_browser->setOpenExternalLinks(true);
    m_browser->setMarkdown(markdown);
    layout->addWidget(m_browser);
    resize(720, 800);
}

QStringList GuideWindow::chapterTitles(const QString& markdown) {
    QStringList titles;
    for (auto match = chapterHeading().globalMatch(markdown); match.hasNext();)
        titles << match.next().captured(1).trimmed();
    return titles;
}

bool GuideWindow::showChapter(const QString& title) {
    for (QTextBlock block = m_browser->document()->begin(); block.isValid(); block = block.next()) {
        if (block.blockFormat().headingLevel() != 2 ||
            !block.text().endsWith(QStringLiteral(". ") + title))
            continue;
        // To the end first, so that the heading lands at the top of the view.
        m_browser->moveCursor(QTextCursor::End);
        m_browser->setTextCursor(QTextCursor(block));
        m_browser->ensureCursorVisible();
        return true;
    }
    return false;
}

QString GuideWindow::currentHeading() const {
    return m_browser->textCursor().block().text();
}

CanvasWindow::CanvasWindow(const sagely::CoachLesson& lesson, QWidget* parent)
    : QDialog(parent), m_title(qs(lesson.title)) {
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
    QMenu* view = menuBar()->addMenu(tr("&View"));
    m_darkAction = view->addAction(tr("Dark Appearance"));
    m_darkAction->setCheckable(true);
    connect(m_darkAction, &QAction::toggled, this, &DemoMainWindow::useDarkAppearance);
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

bool DemoMainWindow::openGuideChapter(const QString& title) {
    openGuide();
    return m_guide->showChapter(title);
}

void DemoMainWindow::useDarkAppearance(bool dark) {
    if (dark == m_dark) return;
    m_dark = dark;
    QApplication::setPalette(dark ? darkPalette() : QApplication::style()->standardPalette());
    m_darkAction->setChecked(dark);
}

CanvasWindow* DemoMainWindow::createCanvas(const QString& name) {
    sagely::CoachLesson lesson;
    lesson.title = name.toStdString();
    auto* canvas = new CanvasWindow(lesson, this);
    canvas->show();
    return canvas;
}

}  // namespace tessel
