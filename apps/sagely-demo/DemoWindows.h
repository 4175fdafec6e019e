// The demo host's windows: the main window around the coach's workspace, a preferences dialog
// holding the settings view, the guide window, and a canvas that shows a lesson's poster.
#pragma once

#include <sagely/AICoach.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachSettingsStore.h>

#include <QDialog>
#include <QMainWindow>
#include <QPointer>

namespace sagely::ui {
class CoachWorkspaceView;
}

namespace tessel {

/// The manual, rendered, in a window of its own.
class GuideWindow : public QDialog {
    Q_OBJECT
public:
    GuideWindow(const QString& markdown, QWidget* parent = nullptr);
};

/// A lesson's poster: its title, its checklist and how to verify success.
class CanvasWindow : public QDialog {
    Q_OBJECT
public:
    CanvasWindow(const sagely::CoachLesson& lesson, QWidget* parent = nullptr);
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

private:
    void buildMenus();

    sagely::AICoach& m_coach;
    sagely::CoachSettingsStore& m_settings;
    QString m_manual;
    sagely::ui::CoachWorkspaceView* m_workspace;
    QPointer<PreferencesDialog> m_preferences;
    QPointer<GuideWindow> m_guide;
};

}  // namespace tessel
