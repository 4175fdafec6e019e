// The state and widgets behind CoachSettingsView: the form's three sections, kept in step with
// the settings store. The per-provider section is rebuilt only when its structure changes (the
// provider, custom-model mode, the on-device status); other store changes update the existing
// fields in place, so a field being typed in is never replaced under the cursor.
#pragma once

#include <sagely/AppleIntelligenceInfo.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/ui/CoachSettingsAdapter.h>

#include "Primitives.h"

#include <QObject>

#include <functional>

class QBoxLayout;
class QComboBox;
class QLineEdit;
class QSlider;
class QVBoxLayout;

namespace sagely::ui::detail {

/// A titled group of the form: the title above a softly filled rounded panel.
class FormSection : public QWidget {
public:
    FormSection(const QString& title, QWidget* parent = nullptr);
    void setTitle(const QString& title);
    QString title() const { return m_title->text(); }
    QVBoxLayout* content() const { return m_content; }

private:
    StyledLabel* m_title;
    QVBoxLayout* m_content;
};

class SettingsForm : public QObject {
    Q_OBJECT
public:
    using StatusSource = std::function<AppleIntelligenceInfo::Status()>;

    /// Builds the form into `view` (which it does not own; the view owns the form).
    SettingsForm(CoachSettingsStore& store, bool usesContentPadding, QWidget* view);

    /// What appearing does: reload the draft key, evaluate the on-device status, choose between
    /// the model presets and a custom model.
    void appear();
    void setStatusSource(StatusSource source);

    CoachSettingsStore& store;
    const bool usesContentPadding;
    bool showKey = false;
    QString draftAPIKey;
    bool useCustomModel = false;
    AppleIntelligenceInfo::Status appleStatus = AppleIntelligenceInfo::Status::unsupportedOS;

private:
    // The form (SettingsForm.cpp).
    QWidget* buildForm();
    QWidget* providerSection();
    QWidget* currentProviderBox();
    QWidget* responseStyleSection();
    void onProviderChosen(int index);
    void onStoreChanged();
    void onProviderChanged();
    void refresh();
    void refreshProviderPicker();
    void refreshCurrentProviderBox();
    void refreshResponseStyle();
    void evaluateAppleStatus();
    bool modelIsCustom() const;

    // The per-provider section (SettingsProviderPanel.cpp).
    void rebuildProviderSection();
    void addAppleStatusBlock(QVBoxLayout* section);
    void addReadyRows(QVBoxLayout* block);
    void addSetupRows(QVBoxLayout* block);
    void addKeyBlock(QVBoxLayout* section);
    void addModelBlock(QVBoxLayout* section);
    void addEndpointBlock(QVBoxLayout* section);
    void addAdvancedEndpoint(QVBoxLayout* section);
    QLineEdit* endpointEditor(const QString& placeholder, const QString& name);
    void refreshProviderFields();
    void setShowKey(bool show);
    void saveKey();
    void clearKey();
    void fillModelPicker();
    void addCheckButton(QBoxLayout* row, QVBoxLayout* section);
    void checkConnection();

    QWidget* m_view;
    CoachSettingsAdapter m_adapter;
    StatusSource m_statusSource;
    CoachConfig::Provider m_builtProvider;
    bool m_refreshQueued = false;
    bool m_savedKeysChanged = true;

    QComboBox* m_providerPicker = nullptr;
    StyledLabel* m_currentTitle = nullptr;
    StyledLabel* m_currentModel = nullptr;
    StyledLabel* m_currentKey = nullptr;
    FormSection* m_providerSection = nullptr;
    QWidget* m_providerContent = nullptr;
    QSlider* m_temperature = nullptr;
    StyledLabel* m_temperatureValue = nullptr;
    StyledLabel* m_maxTokensLabel = nullptr;
    QPushButton* m_maxTokensDown = nullptr;
    QPushButton* m_maxTokensUp = nullptr;

    // Fields of the per-provider section; null when the current provider has none.
    QLineEdit* m_keyField = nullptr;
    SymbolButton* m_showKeyButton = nullptr;
    StyledLabel* m_savedLabel = nullptr;
    QComboBox* m_modelPicker = nullptr;
    QPushButton* m_refreshModelsButton = nullptr;
    QPushButton* m_checkButton = nullptr;
    StyledLabel* m_checkResult = nullptr;
    QLineEdit* m_customModelField = nullptr;
    QLineEdit* m_endpointField = nullptr;
};

}  // namespace sagely::ui::detail
