// What the UI tests share: finding widgets by object name and text, waiting on the event loop,
// saving screenshots, and a coach world — a settings store in a temporary folder with in-memory
// keys, a Qt main executor, and a loopback server standing in for the model provider.
#pragma once

#include "support/LoopbackHttpServer.h"
#include "support/TemporaryDirectory.h"

#include <sagely/AICoach.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/SecretStore.h>
#include <sagely/StaticCoachContextProvider.h>
#include <sagely/ui/CoachBranding.h>
#include <sagely/ui/QtMainExecutor.h>

#include <QAbstractButton>
#include <QLabel>
#include <QPalette>
#include <QString>
#include <QStringList>
#include <QWidget>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace sagely::testing {

/// Processes events until the condition holds; false after the timeout.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout = std::chrono::seconds(10));
/// Processes events (posted work, zero timers, layouts) for a short moment.
void settle();

/// The children of `root` with that object name that are not hidden (relative to `root`).
template <typename T = QWidget>
std::vector<T*> visibleChildren(const QWidget* root, const QString& name) {
    std::vector<T*> result;
    for (T* child : root->findChildren<T*>(name))
        if (child->isVisibleTo(root)) result.push_back(child);
    return result;
}

/// The one visible child with that name, or null (when there is none or more than one).
template <typename T = QWidget>
T* visibleChild(const QWidget* root, const QString& name) {
    const auto found = visibleChildren<T>(root, name);
    return found.size() == 1 ? found.front() : nullptr;
}

/// The texts of every visible label and button under `root`, in creation order.
QStringList visibleTexts(const QWidget* root);
/// The visible button whose text is exactly `text`, or null.
QAbstractButton* buttonWithText(const QWidget* root, const QString& text);

/// Lays the widget out at the size and grabs it into <build>/screenshots/<name>.png; returns
/// the path (empty when saving failed).
QString saveScreenshot(QWidget* widget, const QString& name);

/// The branding of the sample host the tests use; `noAPIKeyMessage` for the missing-key banner.
ui::CoachBranding tesselBranding(std::string noAPIKeyMessage = "Add a key in Coach Settings.");

/// A dark palette of the kind a desktop in dark mode hands an application.
QPalette darkPalette();

/// A reply body in the OpenAI chat-completions format.
std::string chatCompletionBody(const std::string& content);
/// The content of the last "user" message in an OpenAI-format request body.
std::string lastUserContent(const std::string& requestBody);

class CoachWorld {
public:
    CoachWorld();
    ~CoachWorld();

    /// Makes OpenAI current with the key (empty: none) and the loopback endpoint.
    void useOpenAI(const std::string& apiKey = "sk-test-key");

    struct CoachOptions {
        std::string guideText = "# Tessel guide\nOpen Speech in the sidebar.";
        CoachLocalActionResolver resolver = {};
        bool allowsLLMCompletion = true;
        std::shared_ptr<LLMService> llm;  // default: the kit's client
        /// The host actions the context provider offers the model.
        std::vector<CoachHostAction> actions = {};
    };
    std::unique_ptr<AICoach> makeCoach(CoachOptions options);
    std::unique_ptr<AICoach> makeCoach() { return makeCoach(CoachOptions{}); }

    TemporaryDirectory storage;
    std::shared_ptr<InMemorySecretStore> secrets = std::make_shared<InMemorySecretStore>();
    std::unique_ptr<CoachSettingsStore> settings;
    std::shared_ptr<ui::QtMainExecutor> executor = std::make_shared<ui::QtMainExecutor>();
    LoopbackHttpServer server;
};

}  // namespace sagely::testing
