// A Qt Widgets host outside the kit's trees: it embeds the workspace with the kit's own guide,
// shows it offscreen and prints the texts the views show, which only a working kit can.
#include <sagely/AICoach.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/SagelyKnowledge.h>
#include <sagely/SecretStore.h>
#include <sagely/StaticCoachContextProvider.h>
#include <sagely/ui/CoachWorkspaceView.h>
#include <sagely/ui/QtMainExecutor.h>

#include <QApplication>
#include <QLabel>
#include <QMainWindow>
#include <QTemporaryDir>

#include <iostream>
#include <memory>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QTemporaryDir storage;
    if (!storage.isValid()) return 2;

    sagely::CoachSettingsStore store(
        "com.example.packaged-host", "coach-api-key",
        {.secretStore = std::make_shared<sagely::InMemorySecretStore>(),
         .storageRoot = storage.path().toStdString()});
    auto context = std::make_shared<sagely::StaticCoachContextProvider>(
        "Packaged Host", "Version 1.0", sagely::SagelyKnowledge::bundledGuideText());
    sagely::AICoach coach(std::make_shared<sagely::ui::QtMainExecutor>(), context, &store, "host");

    sagely::ui::CoachBranding branding(
        "Packaged Host", "Packaged Host Coach", "Ask anything about Packaged Host.",
        {"How are API keys stored?"}, "Ask the coach…", "Add an API key in Coach Settings.");
    QMainWindow window;
    window.setCentralWidget(new sagely::ui::CoachWorkspaceView(coach, branding));
    window.resize(900, 600);
    window.show();
    for (int i = 0; i < 5; ++i) app.processEvents();

    int shown = 0;
    for (QLabel* label : window.findChildren<QLabel*>()) {
        if (!label->isVisible() || label->text().isEmpty()) continue;
        std::cout << "label: " << label->text().toStdString() << "\n";
        ++shown;
    }
    return shown > 0 ? 0 : 1;
}
