// The per-provider section of the settings form: the on-device status block, the key field,
// the model choice and the endpoint.
#include "SettingsForm.h"

#include "ProviderRequests.h"
#include "SettingsTexts.h"

#include <sagely/ui/CoachSymbols.h>

#include <QComboBox>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPointer>
#include <QStandardItemModel>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <functional>

namespace sagely::ui::detail {
namespace {

using Provider = CoachConfig::Provider;
using Status = AppleIntelligenceInfo::Status;

QString qs(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

StyledLabel* caption(const QString& text, Tint tint = Tint::secondary) {
    return textLabel(text, Qt::PlainText, TextStyle::caption, tint);
}

QLineEdit* monospacedField(const QString& placeholder, const char* name,
                           const QString& accessibleName) {
    auto* field = new QLineEdit;
    field->setAccessibleName(accessibleName);
    field->setPlaceholderText(placeholder);
    field->setFont(styleFont(TextStyle::body, {.monospaced = true}));
    field->setObjectName(QString::fromLatin1(name));
    field->setClearButtonEnabled(false);
    return field;
}

QWidget* freeBadge() {
    auto* badge = new RoundedPanel(Tint::green, 0.15, 4);
    badge->setObjectName(QStringLiteral("freeBadge"));
    auto* layout = hstack(badge, 0);
    layout->setContentsMargins(5, 1, 5, 1);
    layout->addWidget(
        new StyledLabel(localized("FREE"), TextStyle::caption2, Tint::green, {.bold = true}));
    return badge;
}

// What a model picker entry does when chosen, besides choosing a model.
constexpr int kEntryActionRole = Qt::UserRole + 1;
enum EntryAction { chooseCustomModel = 1 };

// The model picker; opening it loads the provider's live list (once per session).
class ModelPicker : public QComboBox {
public:
    std::function<void()> aboutToOpen;

    void showPopup() override {
        if (aboutToOpen) aboutToOpen();
        QComboBox::showPopup();
    }
};

QString liveModelText(const ProviderModel& model) {
    if (model.displayName.empty() || model.displayName == model.id)
        return QString::fromStdString(model.id);
    return QString::fromStdString(model.displayName + " \u2014 " + model.id);
}

}  // namespace

void SettingsForm::rebuildProviderSection() {
    m_keyField = nullptr;
    m_showKeyButton = nullptr;
    m_savedLabel = nullptr;
    m_modelPicker = nullptr;
    m_refreshModelsButton = nullptr;
    m_checkButton = nullptr;
    m_checkResult = nullptr;
    m_customModelField = nullptr;
    m_endpointField = nullptr;
    if (m_providerContent) {
        m_providerContent->hide();
        m_providerContent->deleteLater();  // may be rebuilt from one of its own buttons
    }
    const Provider provider = store.provider.get();
    m_builtProvider = provider;
    m_providerSection->setTitle(providerSectionTitle(provider));
    m_providerContent = new QWidget;
    m_providerContent->setObjectName(QStringLiteral("providerSectionContent"));
    auto* column = vstack(m_providerContent, 12);
    if (provider == Provider::apple) {
        addAppleStatusBlock(column);
        addAdvancedEndpoint(column);
    } else {
        addKeyBlock(column);
        addModelBlock(column);
        addEndpointBlock(column);
    }
    m_providerSection->content()->addWidget(m_providerContent);
    m_providerContent->show();  // at once, not when the layout gets round to it
}

void SettingsForm::addAppleStatusBlock(QVBoxLayout* section) {
    const bool ready = appleStatus == Status::ready;
    auto* block = new QWidget;
    block->setObjectName(QStringLiteral("appleStatusBlock"));
    auto* column = vstack(block, 8);
    auto* heading = nestedHStack(column, 10);
    auto* symbol =
        new SymbolView(QStringLiteral("laptopcomputer"), ready ? Tint::green : Tint::accent,
                       symbolSize(TextStyle::title2));
    symbol->setObjectName(QStringLiteral("appleStatusSymbol"));
    heading->addWidget(symbol, 0, Qt::AlignTop);
    auto* titles = nestedVStack(heading, 2, 1);
    auto* titleRow = nestedHStack(titles, 6);
    titleRow->addWidget(new StyledLabel(localized("Apple (On-Device)"), TextStyle::subheadline,
                                        Tint::primary, {.semibold = true}));
    titleRow->addWidget(freeBadge());
    titleRow->addStretch(1);
    titles->addWidget(new StyledLabel(localized("On-device \u2014 no API key"), TextStyle::caption,
                                      Tint::secondary));
    column->addWidget(caption(localized(
        "Private, no per-question cost. Choose this to try Coach immediately, then switch to "
        "OpenAI, Anthropic, or Gemini to compare.")));
    if (ready)
        addReadyRows(column);
    else
        addSetupRows(column);
    section->addWidget(block);
}

void SettingsForm::addReadyRows(QVBoxLayout* block) {
    auto* row = nestedHStack(block, 6);
    row->addWidget(new SymbolView(QStringLiteral("checkmark.circle.fill"), Tint::green,
                                  symbolSize(TextStyle::body)));
    auto* ready =
        new StyledLabel(localized("Apple Intelligence is ready."), TextStyle::body, Tint::green);
    ready->setObjectName(QStringLiteral("appleReadyLabel"));
    row->addWidget(ready, 1);
    auto* generation = caption(qs(AppleIntelligenceInfo::installedModelGeneration()));
    generation->setObjectName(QStringLiteral("installedModelGeneration"));
    block->addWidget(generation);
    block->addWidget(caption(onDeviceReadyNote()));
}

void SettingsForm::addSetupRows(QVBoxLayout* block) {
    auto* note = caption(qs(AppleIntelligenceInfo::availabilityNote()), Tint::orange);
    note->setObjectName(QStringLiteral("availabilityNote"));
    block->addWidget(note);
    block->addWidget(caption(onDeviceSetupNote()));
    long long number = 0;
    for (const std::string& step : AppleIntelligenceInfo::setupSteps()) {
        auto* row = nestedHStack(block, 6);
        auto* index = new StyledLabel(QString::asprintf("%lld.", ++number), TextStyle::callout,
                                      Tint::secondary);
        row->addWidget(index, 0, Qt::AlignTop);
        auto* text = textLabel(qs(step), Qt::PlainText, TextStyle::callout);
        text->setObjectName(QStringLiteral("setupStep"));
        row->addWidget(text, 1);
    }
    auto* buttons = nestedHStack(block, 8);
    auto* open = new TintedButton(localized("Open Apple Intelligence Settings"),
                                  ButtonStyle::borderedProminent, Tint::accent, TextStyle::body);
    open->setObjectName(QStringLiteral("openAppleSettingsButton"));
    connect(open, &QPushButton::clicked, this, [] {
        if (const auto url = AppleIntelligenceInfo::settingsURL())
            QDesktopServices::openUrl(QUrl(QString::fromStdString(*url)));
    });
    buttons->addWidget(open);
    auto* check = new TintedButton(localized("Check Again"), ButtonStyle::bordered, Tint::accent,
                                   TextStyle::body);
    check->setObjectName(QStringLiteral("checkAgainButton"));
    connect(check, &QPushButton::clicked, this, [this] {
        evaluateAppleStatus();
        rebuildProviderSection();
        refresh();
    });
    buttons->addWidget(check);
    buttons->addStretch(1);
}

void SettingsForm::addKeyBlock(QVBoxLayout* section) {
    const Provider provider = store.provider.get();
    if (provider == Provider::local) {
        auto* note = caption(keyHelpText(provider));
        note->setObjectName(QStringLiteral("keyHelp"));
        section->addWidget(note);
        auto* row = nestedHStack(section, 8);
        addCheckButton(row, section);
        row->addStretch(1);
        return;
    }
    auto* fieldRow = nestedHStack(section, 6);
    m_keyField =
        monospacedField(localized("Paste your API key here"), "apiKeyField", localized("API Key"));
    m_keyField->setAccessibleDescription(keyHelpText(provider));
    m_keyField->setText(draftAPIKey);
    connect(m_keyField, &QLineEdit::textEdited, this,
            [this](const QString& text) { draftAPIKey = text; });
    fieldRow->addWidget(m_keyField, 1);
    m_showKeyButton =
        new SymbolButton(QStringLiteral("eye"), Tint::secondary, symbolSize(TextStyle::body));
    m_showKeyButton->setObjectName(QStringLiteral("showKeyButton"));
    connect(m_showKeyButton, &QPushButton::clicked, this, [this] { setShowKey(!showKey); });
    fieldRow->addWidget(m_showKeyButton);
    setShowKey(showKey);
    auto* buttons = nestedHStack(section, 8);
    auto* save = new TintedButton(localized("Save Key"), ButtonStyle::borderedProminent,
                                  Tint::accent, TextStyle::body);
    save->setObjectName(QStringLiteral("saveKeyButton"));
    connect(save, &QPushButton::clicked, this, &SettingsForm::saveKey);
    buttons->addWidget(save);
    auto* clear =
        new TintedButton(localized("Clear"), ButtonStyle::bordered, Tint::accent, TextStyle::body);
    clear->setObjectName(QStringLiteral("clearKeyButton"));
    connect(clear, &QPushButton::clicked, this, &SettingsForm::clearKey);
    buttons->addWidget(clear);
    addCheckButton(buttons, nullptr);
    m_savedLabel = new StyledLabel(localized("Saved"), TextStyle::caption, Tint::green);
    m_savedLabel->setObjectName(QStringLiteral("savedKeyLabel"));
    buttons->addWidget(m_savedLabel);
    buttons->addStretch(1);
    auto* help = caption(keyHelpText(provider));
    help->setObjectName(QStringLiteral("keyHelp"));
    section->addWidget(help);
    section->addWidget(m_checkResult);
}

// "Check" in `row`; its outcome shows in a caption added to `section` (or by the caller).
void SettingsForm::addCheckButton(QBoxLayout* row, QVBoxLayout* section) {
    m_checkButton =
        new TintedButton(localized("Check"), ButtonStyle::bordered, Tint::accent, TextStyle::body);
    m_checkButton->setObjectName(QStringLiteral("checkConnectionButton"));
    m_checkButton->setToolTip(
        localized("Send one tiny request to see whether the key, the "
                  "endpoint and the model work"));
    connect(m_checkButton, &QPushButton::clicked, this, &SettingsForm::checkConnection);
    row->addWidget(m_checkButton);
    m_checkResult = caption(QString());
    m_checkResult->setObjectName(QStringLiteral("connectionCheckResult"));
    m_checkResult->hide();
    if (section) section->addWidget(m_checkResult);
}

// The key being typed counts, so a key can be tried before it is saved.
void SettingsForm::checkConnection() {
    CoachConfig config = store.config();
    if (m_keyField && !draftAPIKey.trimmed().isEmpty()) config.apiKey = draftAPIKey.toStdString();
    m_checkButton->setEnabled(false);
    m_checkButton->setText(localized("Checking\u2026"));
    m_checkResult->hide();
    QPointer<QPushButton> button = m_checkButton;
    QPointer<StyledLabel> result = m_checkResult;
    ProviderRequests::shared().check(config, [button, result](const ConnectionCheck& check) {
        if (button) {
            button->setEnabled(true);
            button->setText(localized("Check"));
        }
        if (!result) return;  // the section was rebuilt meanwhile
        result->setText(QString::fromStdString(check.summary));
        result->setTint(check.works ? Tint::green : Tint::orange);
        result->show();
    });
}

void SettingsForm::setShowKey(bool show) {
    showKey = show;
    if (!m_keyField) return;
    m_keyField->setEchoMode(show ? QLineEdit::Normal : QLineEdit::Password);
    m_showKeyButton->setSymbol(show ? QStringLiteral("eye.slash") : QStringLiteral("eye"));
    m_showKeyButton->setToolTip(show ? localized("Hide Key") : localized("Show Key"));
    m_showKeyButton->setAccessibleName(m_showKeyButton->toolTip());
}

void SettingsForm::saveKey() {
    store.apiKey.set(draftAPIKey.toStdString());
}

void SettingsForm::clearKey() {
    draftAPIKey.clear();
    if (m_keyField) m_keyField->clear();
    store.apiKey.set(std::string());
}

void SettingsForm::addModelBlock(QVBoxLayout* section) {
    const Provider provider = store.provider.get();
    if (!useCustomModel) {
        auto* row = nestedHStack(section, 8);
        row->addWidget(new StyledLabel(localized("Model"), TextStyle::body));
        auto* picker = new ModelPicker;
        m_modelPicker = picker;
        m_modelPicker->setObjectName(QStringLiteral("modelPicker"));
        m_modelPicker->setAccessibleName(localized("Model"));
        picker->aboutToOpen = [this] {
            ProviderRequests::shared().loadModelList(store.config(), false);
        };
        fillModelPicker();
        connect(m_modelPicker, &QComboBox::activated, this, [this](int index) {
            if (m_modelPicker->itemData(index, kEntryActionRole).toInt() == chooseCustomModel) {
                useCustomModel = true;
                rebuildProviderSection();
                refresh();
                return;
            }
            const QVariant id = m_modelPicker->itemData(index);
            if (id.isValid()) store.model.set(id.toString().toStdString());
        });
        row->addWidget(m_modelPicker, 1);
        if (ProviderRequests::hasModelList(store.config())) {
            m_refreshModelsButton = new TintedButton(localized("Refresh"), ButtonStyle::bordered,
                                                     Tint::accent, TextStyle::caption);
            m_refreshModelsButton->setObjectName(QStringLiteral("refreshModelsButton"));
            m_refreshModelsButton->setToolTip(localized("Load the models the provider offers now"));
            connect(m_refreshModelsButton, &QPushButton::clicked, this,
                    [this] { ProviderRequests::shared().loadModelList(store.config(), true); });
            row->addWidget(m_refreshModelsButton);
        }
        return;
    }
    auto* label = new StyledLabel(qs(CoachConfig::modelFieldLabel(provider)), TextStyle::body);
    section->addWidget(label);
    auto* row = nestedHStack(section, 8);
    m_customModelField =
        monospacedField(qs(CoachConfig::modelExample(provider)), "customModelField", label->text());
    m_customModelField->setText(qs(store.model.get()));
    connect(m_customModelField, &QLineEdit::textEdited, this,
            [this](const QString& text) { store.model.set(text.toStdString()); });
    row->addWidget(m_customModelField, 1);
    auto* presets = new TintedButton(localized("Presets"), ButtonStyle::bordered, Tint::accent,
                                     TextStyle::caption);
    presets->setObjectName(QStringLiteral("presetsButton"));
    connect(presets, &QPushButton::clicked, this, [this] {
        useCustomModel = false;
        store.model.set(CoachConfig::defaultModel(store.provider.get()));
        rebuildProviderSection();
        refresh();
    });
    row->addWidget(presets);
    if (provider == Provider::custom)
        section->addWidget(caption(localized(
            "Enter the model name your API expects (e.g. gemini-2.0-flash, mistral-large, a "
            "hosted fine-tune).")));
}

QLineEdit* SettingsForm::endpointEditor(const QString& placeholder, const QString& name) {
    m_endpointField = monospacedField(placeholder, "endpointField", name);
    m_endpointField->setAccessibleDescription(endpointHelpText(store.provider.get()));
    m_endpointField->setText(qs(store.customEndpoint.get()));
    connect(m_endpointField, &QLineEdit::textEdited, this,
            [this](const QString& text) { store.customEndpoint.set(text.toStdString()); });
    return m_endpointField;
}

void SettingsForm::addEndpointBlock(QVBoxLayout* section) {
    const Provider provider = store.provider.get();
    if (provider != Provider::custom && provider != Provider::local) {
        addAdvancedEndpoint(section);
        return;
    }
    const bool custom = provider == Provider::custom;
    const QString label =
        custom ? localized("API Endpoint (required)") : localized("Ollama Endpoint");
    section->addWidget(new StyledLabel(label, TextStyle::body));
    section->addWidget(
        endpointEditor(custom ? customEndpointPlaceholder() : ollamaEndpointPlaceholder(), label));
    auto* help = caption(endpointHelpText(provider));
    help->setObjectName(QStringLiteral("endpointHelp"));
    section->addWidget(help);
}

void SettingsForm::addAdvancedEndpoint(QVBoxLayout* section) {
    auto* toggle = new QToolButton;
    toggle->setObjectName(QStringLiteral("advancedEndpointToggle"));
    toggle->setText(localized("Advanced endpoint"));
    toggle->setCheckable(true);
    toggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    toggle->setAutoRaise(true);
    section->addWidget(toggle, 0, Qt::AlignLeft);
    auto* body = new QWidget;
    body->setObjectName(QStringLiteral("advancedEndpoint"));
    auto* column = vstack(body, 6);
    column->setContentsMargins(18, 0, 0, 0);
    const QString label = localized("Custom Endpoint (optional)");
    column->addWidget(new StyledLabel(label, TextStyle::body));
    column->addWidget(endpointEditor(localized("Leave blank for provider default"), label));
    auto* help = caption(endpointHelpText(store.provider.get()));
    help->setObjectName(QStringLiteral("endpointHelp"));
    column->addWidget(help);
    section->addWidget(body);
    const auto setOpen = [toggle, body](bool open) {
        body->setVisible(open);
        toggle->setIcon(CoachSymbols::icon(
            open ? QStringLiteral("chevron.down") : QStringLiteral("chevron.right"),
            color(Tint::secondary, toggle->palette())));
    };
    connect(toggle, &QToolButton::toggled, body, setOpen);
    // Open from the start when an endpoint is already set, so it is not overlooked.
    toggle->setChecked(!store.customEndpoint.get().empty());
    setOpen(toggle->isChecked());
}

// The catalogue's models, then the live ones the provider reported (a spinner entry while they
// load; the failure as the picker's tooltip), then the custom entry.
void SettingsForm::fillModelPicker() {
    if (!m_modelPicker) return;
    const QSignalBlocker blocker(m_modelPicker);
    m_modelPicker->clear();
    const Provider provider = store.provider.get();
    const auto& known = CoachConfig::knownModels();
    std::vector<std::string> shown;
    if (const auto found = known.find(provider); found != known.end()) {
        for (const auto& model : found->second) {
            m_modelPicker->addItem(QString::fromStdString(model.label),
                                   QString::fromStdString(model.id));
            shown.push_back(model.id);
        }
    }
    const auto* live = ProviderRequests::shared().modelList(store.config());
    QString tooltip;
    if (live != nullptr) {
        bool separated = false;
        for (const ProviderModel& model : live->models) {
            if (std::find(shown.begin(), shown.end(), model.id) != shown.end()) continue;
            if (!separated) m_modelPicker->insertSeparator(m_modelPicker->count());
            separated = true;
            m_modelPicker->addItem(liveModelText(model), QString::fromStdString(model.id));
        }
        if (live->loading) {
            m_modelPicker->addItem(localized("Loading models\u2026"));
            auto* item = qobject_cast<QStandardItemModel*>(m_modelPicker->model())
                             ->item(m_modelPicker->count() - 1);
            item->setEnabled(false);
            item->setData(QStringLiteral("modelListLoading"), Qt::AccessibleDescriptionRole);
        }
        if (!live->failure.isEmpty())
            tooltip = localized("The provider\u2019s model list could not be loaded: %1")
                          .arg(live->failure);
    }
    m_modelPicker->setToolTip(tooltip);
    m_modelPicker->addItem(localized("Use custom model ID\u2026"));
    m_modelPicker->setItemData(m_modelPicker->count() - 1, chooseCustomModel, kEntryActionRole);
    m_modelPicker->setCurrentIndex(
        m_modelPicker->findData(QString::fromStdString(store.model.get())));
    if (m_refreshModelsButton) m_refreshModelsButton->setEnabled(live == nullptr || !live->loading);
}

void SettingsForm::refreshProviderFields() {
    if (m_savedLabel) m_savedLabel->setVisible(store.hasSavedKey(store.provider.get()));
    if (m_modelPicker) {
        const QSignalBlocker blocker(m_modelPicker);
        m_modelPicker->setCurrentIndex(
            m_modelPicker->findData(QString::fromStdString(store.model.get())));
    }
    const QString model = QString::fromStdString(store.model.get());
    if (m_customModelField && m_customModelField->text() != model)
        m_customModelField->setText(model);
    const QString endpoint = QString::fromStdString(store.customEndpoint.get());
    if (m_endpointField && m_endpointField->text() != endpoint) m_endpointField->setText(endpoint);
}

}  // namespace sagely::ui::detail
