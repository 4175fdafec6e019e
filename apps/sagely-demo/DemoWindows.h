// The demo host's windows: the main window around the coach's workspace, a preferences dialog
// holding the settings view, the guide window, and a canvas that shows a lesson's poster.
#pragma once

#include <sagely/AICoach.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachSettingsStore.h>

#include <QDialog>
#include <QMainWindow>
#include <QPointer>
#include <QStringList>

#include <optional>

class QAction;
class QTextBrowser;

namespace sagely::ui {
class CoachWorkspaceView;
}

namespace tessel {

/// The manual, rendered, in a window of its own.
class GuideWindow : public QDialog {
    Q_OBJECT
public:
    GuideWindow(const QString& markdown, QWidget* parent = nullptr);
    /// The chapters' titles ("The AI Canvas"), in order.
    static QStringList chapterTitles(const QString& markdown);
    /// Scrolls to the chapter with that title; false when the guide has none.
    bool showChapter(const QString& title);
    /// The text of the heading at the top of the view's cursor, e.g. after showChapter().
    QString currentHeading() const;

private:
    QTextBrowser* m_browser;
};

/// A lesson's poster: its title, its checklist and how to verify success.
class CanvasWindow : public QDialog {
    Q_OBJECT
public:
    CanvasWindow(const sagely::CoachLesson& lesson, QWidget* parent = nullptr);
    /// The canvas's title.
    QString title() const { return m_title; }

private:
    QString m_title;
};

/// Tessel's preferences; the coach's settings are one tab, embedded without their own padding.
class PreferencesDialog : public QDialog {
    Q_OBJECT
public:
    PreferencesDialog(sagely::CoachSettingsStore& settings, QWidget* parent = nullptr);
};

class DemoMainWindow : public QMainWindow {
    Q_OBJECT
public:
    DemoMainWindow(sagely::AICoach& coach, sagely::CoachSettingsStore& settings, QString manual);

    sagely::ui::CoachWorkspaceView* workspace() const { return m_workspace; }

public Q_SLOTS:
    void openSettings();
    void openGuide();
    void openCanvas(const sagely::CoachLesson& lesson);

public:
    // What the coach's actions do (see DemoActions).
    /// Opens the guide at the chapter with that title; false when there is none.
    bool openGuideChapter(const QString& title);
    /// Tessel's appearance: the light or the dark palette for the whole application.
    void useDarkAppearance(bool dark);
    bool usesDarkAppearance() const { return m_dark; }
    /// Opens a new, empty canvas with that name.
    CanvasWindow* createCanvas(const QString& name);
    QString manual() const { return m_manual; }

private:
    void buildMenus();

    sagely::AICoach& m_coach;
    sagely::CoachSettingsStore& m_settings;
    QString m_manual;
    sagely::ui::CoachWorkspaceView* m_workspace;
    QPointer<PreferencesDialog> m_preferences;
    QPointer<GuideWindow> m_guide;
    bool m_dark = false;
    QAction* m_darkAction = nullptr;
};

}  // namespace tessel
