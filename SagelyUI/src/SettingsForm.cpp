#include "SettingsForm.h"

#include "ProviderRequests.h"
#include "SettingsTexts.h"

#include <sagely/ui/CoachSettingsContentPadding.h>

#include <sagely/Text.h>

#include <QComboBox>
#include <QHBoxLayout>
#include <QScrollArea>
#include <QSlider>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <utility>

namespace sagely::ui::detail {
namespace {

using Provider = CoachConfig::Provider;

constexpr int kTemperatureTenthsMaximum = 12;  // 1.2
constexpr std::int64_t kMaxTokensMinimum = 256;
constexpr std::int64_t kMaxTokensMaximum = 8192;
constexpr std::int64_t kMaxTokensStep = 256;

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

FormSection::FormSection(const QString& title, QWidget* parent) : QWidget(parent) {
    auto* column = vstack(this, 6);
    m_title = new StyledLabel(title, TextStyle::subheadline, Tint::secondary, {.bold = true});
    m_title->setObjectName(QStringLiteral("sectionTitle"));
    m_title->setContentsMargins(4, 0, 0, 0);
    column->addWidget(m_title);
    auto* panel = new RoundedPanel(Tint::primary, 0.04, 10);
    panel->setStroke(Tint::primary, 0.08);
    m_content = vstack(panel, 10, 12);
    column->addWidget(panel);
}

void FormSection::setTitle(const QString& title) {
    m_title->setText(title);
}

SettingsForm::SettingsForm(CoachSettingsStore& store, bool usesContentPadding, QWidget* view)
    : store(store),
      usesContentPadding(usesContentPadding),
      m_view(view),
      m_adapter(store),
      m_statusSource([] { return AppleIntelligenceInfo::status(); }),
      m_builtProvider(store.provider.get()) {
    auto* root = vstack(view, 0);
    auto* scroll = new QScrollArea;
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setAccessibleName(localized("Coach Settings"));
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(buildForm());
    root->addWidget(scroll);
    connect(&m_adapter, &CoachSettingsAdapter::settingsChanged, this,
            &SettingsForm::onStoreChanged);
    connect(&m_adapter, &CoachSettingsAdapter::providerChanged, this,
            &SettingsForm::onProviderChanged);
    // Only these change which providers have a saved key (asking the key store is not free).
    connect(&m_adapter, &CoachSettingsAdapter::providerChanged, this,
            [this] { m_savedKeysChanged = true; });
    connect(&m_adapter, &CoachSettingsAdapter::apiKeyChanged, this,
            [this] { m_savedKeysChanged = true; });
    connect(&ProviderRequests::shared(), &ProviderRequests::modelListChanged, this,
            &SettingsForm::fillModelPicker);
    appear();
}

QWidget* SettingsForm::buildForm() {
    auto* form = new QWidget;
    form->setObjectName(QStringLiteral("settingsForm"));
    auto* column = new QVBoxLayout(form);
    column->setSpacing(18);
    CoachSettingsContentPadding{usesContentPadding}.apply(column);
    column->addWidget(providerSection());
    m_providerSection = new FormSection(providerSectionTitle(store.provider.get()));
    m_providerSection->setObjectName(QStringLiteral("providerSection"));
    column->addWidget(m_providerSection);
    column->addWidget(responseStyleSection());
    column->addStretch(1);
    return form;
}

QWidget* SettingsForm::providerSection() {
    auto* section = new FormSection(localized("Provider"));
    section->setObjectName(QStringLiteral("providerChoiceSection"));
    auto* row = nestedHStack(section->content(), 8);
    row->addWidget(new StyledLabel(localized("AI Provider"), TextStyle::body));
    m_providerPicker = new QComboBox;
    m_providerPicker->setObjectName(QStringLiteral("providerPicker"));
    m_providerPicker->setAccessibleName(localized("AI Provider"));
    for (Provider provider : CoachConfig::selectableProviders())
        m_providerPicker->addItem(providerEntryText(provider, false), int(provider));
    row->addWidget(m_providerPicker, 1);
    connect(m_providerPicker, &QComboBox::activated, this, &SettingsForm::onProviderChosen);
    auto* note = textLabel(
        localized("Each company keeps its own key and model. Switch anytime to compare answers."),
        Qt::PlainText, TextStyle::caption, Tint::secondary);
    section->content()->addWidget(note);
    section->content()->addWidget(currentProviderBox());
    return section;
}

QWidget* SettingsForm::currentProviderBox() {
    auto* box = new RoundedPanel(Tint::accent, 0.1, 10);
    box->setObjectName(QStringLiteral("currentProviderBox"));
    auto* column = vstack(box, 10, 10);
    m_currentTitle =
        new StyledLabel(QString(), TextStyle::subheadline, Tint::primary, {.semibold = true});
    m_currentTitle->setObjectName(QStringLiteral("currentProviderTitle"));
    column->addWidget(m_currentTitle);
    m_currentModel = new StyledLabel(QString(), TextStyle::caption, Tint::secondary);
    m_currentModel->setObjectName(QStringLiteral("currentProviderModel"));
    column->addWidget(m_currentModel);
    m_currentKey = new StyledLabel(QString(), TextStyle::caption, Tint::secondary);
    m_currentKey->setObjectName(QStringLiteral("currentProviderKey"));
    column->addWidget(m_currentKey);
    return box;
}

QWidget* SettingsForm::responseStyleSection() {
    auto* section = new FormSection(localized("Response Style"));
    section->setObjectName(QStringLiteral("responseStyleSection"));
    auto* temperature = nestedHStack(section->content(), 8);
    temperature->addWidget(new StyledLabel(localized("Temperature"), TextStyle::body));
    m_temperature = new QSlider(Qt::Horizontal);
    m_temperature->setObjectName(QStringLiteral("temperatureSlider"));
    m_temperature->setAccessibleName(localized("Temperature"));
    m_temperature->setRange(0, kTemperatureTenthsMaximum);
    m_temperature->setSingleStep(1);
    m_temperature->setPageStep(1);
    temperature->addWidget(m_temperature, 1);
    m_temperatureValue =
        new StyledLabel(QString(), TextStyle::caption, Tint::secondary, {.monospaced = true});
    m_temperatureValue->setObjectName(QStringLiteral("temperatureValue"));
    temperature->addWidget(m_temperatureValue);
    connect(m_temperature, &QSlider::valueChanged, this,
            [this](int tenths) { store.temperature.set(tenths / 10.0); });
    auto* tokens = nestedHStack(section->content(), 6);
    m_maxTokensLabel = new StyledLabel(QString(), TextStyle::body);
    m_maxTokensLabel->setObjectName(QStringLiteral("maxTokensLabel"));
    tokens->addWidget(m_maxTokensLabel, 1);
    m_maxTokensDown = new TintedButton(QStringLiteral("\u2212"), ButtonStyle::bordered,
                                       Tint::primary, TextStyle::body);
    m_maxTokensDown->setObjectName(QStringLiteral("maxTokensDecrement"));
    m_maxTokensDown->setAccessibleName(localized("Fewer Max Tokens"));
    m_maxTokensUp = new TintedButton(QStringLiteral("+"), ButtonStyle::bordered, Tint::primary,
                                     TextStyle::body);
    m_maxTokensUp->setObjectName(QStringLiteral("maxTokensIncrement"));
    m_maxTokensUp->setAccessibleName(localized("More Max Tokens"));
    tokens->addWidget(m_maxTokensDown);
    tokens->addWidget(m_maxTokensUp);
    connect(m_maxTokensDown, &QPushButton::clicked, this, [this] {
        store.maxTokens.set(std::max(store.maxTokens.get() - kMaxTokensStep, kMaxTokensMinimum));
    });
    connect(m_maxTokensUp, &QPushButton::clicked, this, [this] {
        store.maxTokens.set(std::min(store.maxTokens.get() + kMaxTokensStep, kMaxTokensMaximum));
    });
    return section;
}

void SettingsForm::appear() {
    m_savedKeysChanged = true;
    draftAPIKey = qs(store.apiKey.get());
    evaluateAppleStatus();
    useCustomModel = modelIsCustom();
    rebuildProviderSection();
    refresh();
}

void SettingsForm::setStatusSource(StatusSource source) {
    m_statusSource = std::move(source);
    evaluateAppleStatus();
    rebuildProviderSection();
    refresh();
}

void SettingsForm::evaluateAppleStatus() {
    appleStatus = m_statusSource();
}

bool SettingsForm::modelIsCustom() const {
    const std::string& model = store.model.get();
    if (text::trimmed(model).empty()) return false;
    const auto& known = CoachConfig::knownModels();
    const auto found = known.find(store.provider.get());
    if (found != known.end() &&
        std::any_of(found->second.begin(), found->second.end(),
                    [&](const CoachConfig::KnownModel& entry) { return entry.id == model; }))
        return false;
    const auto* live = ProviderRequests::shared().modelList(store.config());
    return live == nullptr ||
           std::none_of(live->models.begin(), live->models.end(),
                        [&](const ProviderModel& entry) { return entry.id == model; });
}

void SettingsForm::onProviderChosen(int index) {
    const auto provider = Provider(m_providerPicker->itemData(index).toInt());
    store.selectProvider(provider);
    draftAPIKey = qs(store.apiKey.get());
    rebuildProviderSection();
    refresh();
}

void SettingsForm::onProviderChanged() {
    // The store announces the provider before it has loaded that provider's key; look once it
    // is done.
    QTimer::singleShot(0, this, [this] {
        if (m_builtProvider == store.provider.get()) return;
        draftAPIKey = qs(store.apiKey.get());
        rebuildProviderSection();
        refresh();
    });
}

void SettingsForm::onStoreChanged() {
    if (m_refreshQueued) return;
    m_refreshQueued = true;
    QTimer::singleShot(0, this, [this] {
        m_refreshQueued = false;
        refresh();
    });
}

void SettingsForm::refresh() {
    refreshProviderPicker();
    refreshCurrentProviderBox();
    refreshProviderFields();
    refreshResponseStyle();
}

void SettingsForm::refreshProviderPicker() {
    const QSignalBlocker blocker(m_providerPicker);
    const bool entries = std::exchange(m_savedKeysChanged, false);
    for (int i = 0; i < m_providerPicker->count(); ++i) {
        const auto provider = Provider(m_providerPicker->itemData(i).toInt());
        if (entries)
            m_providerPicker->setItemText(i,
                                          providerEntryText(provider, store.hasSavedKey(provider)));
        if (provider == store.provider.get()) m_providerPicker->setCurrentIndex(i);
    }
}

void SettingsForm::refreshCurrentProviderBox() {
    const Provider provider = store.provider.get();
    m_currentTitle->setText(localized("Answers come from %1")
                                .arg(QString::fromUtf8(menuLabel(provider).data(),
                                                       qsizetype(menuLabel(provider).size()))));
    m_currentModel->setText(localized("Model: %1").arg(qs(store.config().resolvedModel())));
    if (CoachConfig::isKeylessProvider(provider))
        m_currentKey->setText(localized("No API key needed."));
    else if (store.keyUnreadable(provider))
        m_currentKey->setText(
            localized("The API key could not be read from the secret store. It is left as it is."));
    else if (store.hasSavedKey(provider))
        m_currentKey->setText(localized("API key saved for this provider."));
    else
        m_currentKey->setText(localized("No API key saved for this provider yet."));
}

void SettingsForm::refreshResponseStyle() {
    const double temperature = store.temperature.get();
    {
        const QSignalBlocker blocker(m_temperature);
        m_temperature->setValue(int(std::lround(temperature * 10.0)));
    }
    m_temperatureValue->setText(QString::asprintf("%.1f", temperature));
    const std::int64_t maxTokens = store.maxTokens.get();
    m_maxTokensLabel->setText(localized("Max Tokens: ") + QString::number(maxTokens));
    m_maxTokensDown->setEnabled(maxTokens > kMaxTokensMinimum);
    m_maxTokensUp->setEnabled(maxTokens < kMaxTokensMaximum);
}

}  // namespace sagely::ui::detail
