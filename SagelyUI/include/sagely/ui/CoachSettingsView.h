// CoachSettingsView — the form in which the user picks the model provider, enters that
// provider's API key, chooses a model, optionally overrides the endpoint, and tunes temperature
// and reply length. It edits a CoachSettingsStore directly; the store persists each change.
//
// Sections, in order: "Provider" (the provider menu, with "  ·  key saved" behind providers
// whose key is stored, and a box describing the current choice), one titled with the provider's
// short name (the on-device status block, or the key field with Save Key and Clear, the model
// picker or a custom model field, and the endpoint), and "Response Style" (temperature 0.0–1.2
// in tenths, max tokens 256–8192 in steps of 256).
//
// The key being edited is a draft: it reaches the store only through "Save Key" or "Clear", and
// it is reloaded from the store whenever the provider changes, so one provider's key is never
// shown under another. Every other field writes the store as it changes.
//
// Thread rules: GUI thread only. Destroy the view before the store.
#pragma once

#include <sagely/AppleIntelligenceInfo.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/ui/Export.h>

#include <QWidget>

#include <functional>
#include <memory>

namespace sagely::ui {

namespace detail {
class SettingsForm;
}

class SAGELY_UI_EXPORT CoachSettingsView : public QWidget {
    Q_OBJECT
public:
    using AppleStatusSource = std::function<AppleIntelligenceInfo::Status()>;

    /// `settings` null means CoachSettingsStore::shared(). Embedded in preferences, the form has
    /// no outer padding of its own.
    explicit CoachSettingsView(CoachSettingsStore* settings = nullptr,
                               bool embedInPreferences = false, QWidget* parent = nullptr);
    ~CoachSettingsView() override;

    CoachSettingsStore& settings() const;
    bool usesContentPadding() const;
    /// The key being edited (not yet saved).
    QString draftAPIKey() const;
    bool showsKey() const;
    bool usesCustomModel() const;
    AppleIntelligenceInfo::Status appleStatus() const;

    /// Where the on-device status comes from (default: AppleIntelligenceInfo::status()); the
    /// status is evaluated again at once. For hosts that know better, and for tests.
    void setAppleStatusSource(AppleStatusSource source);

    /// The provider menu's entry: its menu label, plus "  ·  key saved" when `keySaved`.
    static QString providerEntryText(CoachConfig::Provider provider, bool keySaved);
    /// The help under the key field.
    static QString keyHelpText(CoachConfig::Provider provider);
    /// The help under the endpoint field.
    static QString endpointHelpText(CoachConfig::Provider provider);

protected:
    void showEvent(QShowEvent* event) override;

private:
    std::unique_ptr<detail::SettingsForm> m_form;
};

}  // namespace sagely::ui
