#include <sagely/ui/CoachSettingsAdapter.h>

namespace sagely::ui {

namespace {

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

CoachSettingsAdapter::CoachSettingsAdapter(CoachSettingsStore& store, QObject* parent)
    : QObject(parent), m_store(store) {
    auto relay = [this](void (CoachSettingsAdapter::*signal)()) {
        return [this, signal](const auto&) {
            Q_EMIT(this->*signal)();
            Q_EMIT settingsChanged();
        };
    };
    m_subscriptions.push_back(
        store.provider.onDidChange(relay(&CoachSettingsAdapter::providerChanged)));
    m_subscriptions.push_back(store.model.onDidChange(relay(&CoachSettingsAdapter::modelChanged)));
    m_subscriptions.push_back(
        store.customEndpoint.onDidChange(relay(&CoachSettingsAdapter::customEndpointChanged)));
    m_subscriptions.push_back(
        store.temperature.onDidChange(relay(&CoachSettingsAdapter::temperatureChanged)));
    m_subscriptions.push_back(
        store.maxTokens.onDidChange(relay(&CoachSettingsAdapter::maxTokensChanged)));
    m_subscriptions.push_back(
        store.apiKey.onDidChange(relay(&CoachSettingsAdapter::apiKeyChanged)));
}

CoachSettingsAdapter::~CoachSettingsAdapter() = default;

QString CoachSettingsAdapter::provider() const {
    return qs(std::string(storageID(m_store.provider.get())));
}
QString CoachSettingsAdapter::model() const {
    return qs(m_store.model.get());
}
QString CoachSettingsAdapter::customEndpoint() const {
    return qs(m_store.customEndpoint.get());
}
double CoachSettingsAdapter::temperature() const {
    return m_store.temperature.get();
}
qint64 CoachSettingsAdapter::maxTokens() const {
    return m_store.maxTokens.get();
}
QString CoachSettingsAdapter::apiKey() const {
    return qs(m_store.apiKey.get());
}

void CoachSettingsAdapter::setModel(const QString& model) {
    m_store.model.set(model.toStdString());
}

void CoachSettingsAdapter::setCustomEndpoint(const QString& endpoint) {
    m_store.customEndpoint.set(endpoint.toStdString());
}

void CoachSettingsAdapter::setTemperature(double temperature) {
    m_store.temperature.set(temperature);
}

void CoachSettingsAdapter::setMaxTokens(qint64 maxTokens) {
    m_store.maxTokens.set(maxTokens);
}

void CoachSettingsAdapter::setApiKey(const QString& key) {
    m_store.apiKey.set(key.toStdString());
}

void CoachSettingsAdapter::selectProvider(const QString& storageId) {
    if (const auto provider = providerFromStorageID(storageId.toStdString()))
        m_store.selectProvider(*provider);
}

}  // namespace sagely::ui
