// CoachSettingsAdapter — a CoachSettingsStore seen from Qt: each published setting as a
// Q_PROPERTY whose NOTIFY signal is re-emitted from the store's did-change notification, and
// provider switching by storage id ("apple", "openai", "anthropic", "gemini", "local",
// "custom").
//
// Writing a property writes the store, which persists it as the store does. The adapter holds
// the store by reference: destroy it before the store.
//
// Thread rules: GUI thread only.
#pragma once

#include <sagely/CoachSettingsStore.h>
#include <sagely/ui/Export.h>

#include <QObject>
#include <QString>

#include <vector>

namespace sagely::ui {

class SAGELY_UI_EXPORT CoachSettingsAdapter : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString provider READ provider WRITE selectProvider NOTIFY providerChanged)
    Q_PROPERTY(QString model READ model WRITE setModel NOTIFY modelChanged)
    Q_PROPERTY(QString customEndpoint READ customEndpoint WRITE setCustomEndpoint NOTIFY
                   customEndpointChanged)
    Q_PROPERTY(double temperature READ temperature WRITE setTemperature NOTIFY temperatureChanged)
    Q_PROPERTY(qint64 maxTokens READ maxTokens WRITE setMaxTokens NOTIFY maxTokensChanged)
    Q_PROPERTY(QString apiKey READ apiKey WRITE setApiKey NOTIFY apiKeyChanged)

public:
    explicit CoachSettingsAdapter(CoachSettingsStore& store, QObject* parent = nullptr);
    ~CoachSettingsAdapter() override;

    CoachSettingsStore& store() const { return m_store; }

    /// The current provider's storage id.
    QString provider() const;
    QString model() const;
    QString customEndpoint() const;
    double temperature() const;
    qint64 maxTokens() const;
    QString apiKey() const;

    void setModel(const QString& model);
    void setCustomEndpoint(const QString& endpoint);
    void setTemperature(double temperature);
    void setMaxTokens(qint64 maxTokens);
    void setApiKey(const QString& key);

public Q_SLOTS:
    /// Switches to the provider with that storage id; an unknown id does nothing.
    void selectProvider(const QString& storageId);

Q_SIGNALS:
    void providerChanged();
    void modelChanged();
    void customEndpointChanged();
    void temperatureChanged();
    void maxTokensChanged();
    void apiKeyChanged();
    /// After any of the above.
    void settingsChanged();

private:
    CoachSettingsStore& m_store;
    std::vector<Subscription> m_subscriptions;
};

}  // namespace sagely::ui
