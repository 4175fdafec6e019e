// sagely-demo — Tessel, a sample desktop host of the coach.
//
//   sagely-demo                       the shared settings store and the system's key store
//   sagely-demo --storage DIR         settings and conversations under DIR, keys in memory
//   sagely-demo --ask "QUESTION"      asks a question as soon as the window is up
//   sagely-demo --screenshot FILE     saves a picture of the window after a moment, then quits
#include "DemoActions.h"
#include "DemoContext.h"
#include "DemoWindows.h"

#include <sagely/AICoach.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/SecretStore.h>
#include <sagely/ui/CoachWorkspaceView.h>
#include <sagely/ui/QtMainExecutor.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include <memory>

namespace {

struct Options {
    QString storage;
    QString question;
    QString screenshot;
};

Options parseOptions(const QApplication& app) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Tessel, a sample host of the Sagely coach."));
    parser.addHelpOption();
    const QCommandLineOption storage(
        QStringLiteral("storage"),
        QStringLiteral("Keep settings and conversations under <dir> and API keys in memory."),
        QStringLiteral("dir"));
    const QCommandLineOption ask(QStringLiteral("ask"),
                                 QStringLiteral("Ask <question> once the window is up."),
                                 QStringLiteral("question"));
    const QCommandLineOption screenshot(
        QStringLiteral("screenshot"),
        QStringLiteral("Save a picture of the window to <file> after a moment, then quit."),
        QStringLiteral("file"));
    parser.addOptions({storage, ask, screenshot});
    parser.process(app);
    return {parser.value(storage), parser.value(ask), parser.value(screenshot)};
}

std::unique_ptr<sagely::CoachSettingsStore> isolatedStore(const QString& root) {
    sagely::CoachSettingsStore::Options options;
    options.secretStore = std::make_shared<sagely::InMemorySecretStore>();
    options.storageRoot = root.toStdString();
    return std::make_unique<sagely::CoachSettingsStore>("com.brindlewood.sagely", "coach-api-key",
                                                        options);
}

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("sagely-demo"));
    QApplication::setApplicationDisplayName(QStringLiteral("Tessel"));
    const Options options = parseOptions(app);

    std::unique_ptr<sagely::CoachSettingsStore> ownStore;
    if (!options.storage.isEmpty()) ownStore = isolatedStore(options.storage);
    sagely::CoachSettingsStore& settings =
        ownStore ? *ownStore : sagely::CoachSettingsStore::shared();

    auto context = std::make_shared<tessel::DemoContext>();
    sagely::AICoach coach(std::make_shared<sagely::ui::QtMainExecutor>(), context, &settings,
                          "tessel-demo");
    coach.replyEnrichmentProvider = [](auto done) { done(tessel::DemoContext::liveObservation()); };

    tessel::DemoMainWindow window(coach, settings, QString::fromStdString(context->manualText()));
    context->actions = tessel::demoActions(window);
    window.show();

    if (!options.question.isEmpty()) {
        QTimer::singleShot(0, &window, [&window, question = options.question] {
            window.workspace()->setMessageInput(question);
            window.workspace()->send();
        });
    }
    if (!options.screenshot.isEmpty()) {
        QTimer::singleShot(1000, &window, [&window, path = options.screenshot] {
            QDir().mkpath(QFileInfo(path).absolutePath());
            QApplication::exit(window.grab().save(path) ? 0 : 1);
        });
    }
    return QApplication::exec();
}
