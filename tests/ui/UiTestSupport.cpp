#include "UiTestSupport.h"

#include <nlohmann/json.hpp>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTest>

namespace sagely::testing {

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds timeout) {
    return QTest::qWaitFor(condition, int(timeout.count()));
}

void settle() {
    for (int round = 0; round < 5; ++round) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
}

QStringList visibleTexts(const QWidget* root) {
    QStringList texts;
    for (QWidget* child : root->findChildren<QWidget*>()) {
        if (!child->isVisibleTo(root)) continue;
        if (auto* label = qobject_cast<QLabel*>(child)) texts << label->text();
        if (auto* button = qobject_cast<QAbstractButton*>(child))
            if (!button->text().isEmpty()) texts << button->text();
    }
    return texts;
}

QAbstractButton* buttonWithText(const QWidget* root, const QString& text) {
    for (QAbstractButton* button : root->findChildren<QAbstractButton*>())
        if (button->isVisibleTo(root) && button->text() == text) return button;
    return nullptr;
}

QString saveScreenshot(QWidget* widget, const QString& name) {
    QDir().mkpath(QStringLiteral(SAGELY_SCREENSHOT_DIR));
    settle();
    const QString path = QStringLiteral(SAGELY_SCREENSHOT_DIR "/") + name + QStringLiteral(".png");
    return widget->grab().save(path) ? path : QString();
}

ui::CoachBranding tesselBranding(std::string noAPIKeyMessage) {
    return ui::CoachBranding("Tessel", "Tessel Coach", "Ask anything about Tessel.",
                             {"How do I set up speech?"}, "Ask Tessel Coach…",
                             std::move(noAPIKeyMessage));
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

std::string chatCompletionBody(const std::string& content) {
    const nlohmann::json body = {{"id", "chatcmpl-test"},
                                 {"object", "chat.completion"},
                                 {"choices",
                                  {{{"index", 0},
                                    {"message", {{"role", "assistant"}, {"content", content}}},
                                    {"finish_reason", "stop"}}}}};
    return body.dump();
}

std::string lastUserContent(const std::string& requestBody) {
    const auto body = nlohmann::json::parse(requestBody, nullptr, false);
    if (!body.is_object() || !body.contains("messages")) return {};
    std::string last;
    for (const auto& message : body["messages"])
        if (message.value("role", "") == "user") last = message.value("content", "");
    return last;
}

CoachWorld::CoachWorld() {
    CoachSettingsStore::Options options;
    options.secretStore = secrets;
    options.storageRoot = storage.path();
    settings = std::make_unique<CoachSettingsStore>("com.brindlewood.sagely.tests", "coach-api-key",
                                                    options);
}

CoachWorld::~CoachWorld() = default;

void CoachWorld::useOpenAI(const std::string& apiKey) {
    settings->selectProvider(CoachConfig::Provider::openai);
    settings->apiKey.set(apiKey);
    settings->customEndpoint.set(server.url("/v1/chat/completions"));
}

namespace {

// The sample host's context, offering the actions it was given.
class ActionOfferingProvider final : public StaticCoachContextProvider {
public:
    ActionOfferingProvider(std::string guideText, std::vector<CoachHostAction> actions)
        : StaticCoachContextProvider("Tessel", "Tessel 3.2 with one open document.",
                                     std::move(guideText)),
          m_actions(std::move(actions)) {}
    std::vector<CoachHostAction> hostActions() override { return m_actions; }

private:
    std::vector<CoachHostAction> m_actions;
};

}  // namespace

std::unique_ptr<AICoach> CoachWorld::makeCoach(CoachOptions options) {
    auto provider = std::make_shared<ActionOfferingProvider>(std::move(options.guideText),
                                                             std::move(options.actions));
    return std::make_unique<AICoach>(executor, provider, settings.get(), "ui-tests",
                                     std::move(options.resolver), options.allowsLLMCompletion,
                                     std::move(options.llm));
}

}  // namespace sagely::testing
