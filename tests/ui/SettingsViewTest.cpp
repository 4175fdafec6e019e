// The settings form against a real settings store (temporary folder, in-memory keys): the
// provider menu, the draft key that never crosses providers, the model and endpoint fields, the
// on-device status block, the response-style bounds and the padding rule.
#include "UiTestSupport.h"

#include <sagely/ui/CoachSettingsContentPadding.h>
#include <sagely/ui/CoachSettingsView.h>

#include <gtest/gtest.h>

#include <QComboBox>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QStyle>
#include <QTest>
#include <QToolButton>

#include <algorithm>
#include <cmath>

namespace sagely::testing {
namespace {

using ui::CoachSettingsView;
using Provider = CoachConfig::Provider;
using Status = AppleIntelligenceInfo::Status;
using namespace std::chrono_literals;

class SettingsViewTest : public ::testing::Test {
protected:
    void makeView(bool embedInPreferences = false) {
        view = std::make_unique<CoachSettingsView>(world.settings.get(), embedInPreferences);
        view->resize(560, 900);
        view->show();
        settle();
    }
    template <typename T = QWidget>
    T* child(const char* name) const {
        return visibleChild<T>(view.get(), QString::fromLatin1(name));
    }
    void choose(Provider provider) {
        auto* picker = child<QComboBox>("providerPicker");
        ASSERT_NE(picker, nullptr);
        const int index = picker->findData(int(provider));
        ASSERT_GE(index, 0);
        picker->setCurrentIndex(index);
        Q_EMIT picker->activated(index);
        settle();
    }
    void typeKey(const QString& key) {
        auto* field = child<QLineEdit>("apiKeyField");
        ASSERT_NE(field, nullptr);
        field->selectAll();
        QTest::keyClick(field, Qt::Key_Backspace);
        QTest::keyClicks(field, key);
    }
    void click(const char* name) {
        auto* button = child<QAbstractButton>(name);
        ASSERT_NE(button, nullptr) << name;
        QTest::mouseClick(button, Qt::LeftButton);
        settle();
    }
    QString keyField() {
        auto* field = child<QLineEdit>("apiKeyField");
        return field ? field->text() : QStringLiteral("<no key field>");
    }
    QString sectionTitle() {
        auto* section = child("providerSection");
        auto* title =
            section ? section->findChild<QLabel*>(QStringLiteral("sectionTitle")) : nullptr;
        return title ? title->text() : QString();
    }

    CoachWorld world;
    std::unique_ptr<CoachSettingsView> view;
};

TEST_F(SettingsViewTest, SwitchingProvidersNeverShowsAnotherProvidersKey) {
    makeView();
    choose(Provider::openai);
    typeKey(QStringLiteral("sk-openai-1"));
    click("saveKeyButton");
    choose(Provider::anthropic);
    EXPECT_EQ(keyField(), QString());
    EXPECT_EQ(view->draftAPIKey(), QString());
    typeKey(QStringLiteral("sk-ant-2"));
    click("saveKeyButton");
    choose(Provider::openai);
    EXPECT_EQ(keyField(), QStringLiteral("sk-openai-1"));
    choose(Provider::anthropic);
    EXPECT_EQ(keyField(), QStringLiteral("sk-ant-2"));
    EXPECT_EQ(world.settings->apiKey.get(), "sk-ant-2");
}

TEST_F(SettingsViewTest, AnUnsavedDraftStaysWithItsProvider) {
    makeView();
    choose(Provider::gemini);
    typeKey(QStringLiteral("typed-but-not-saved"));
    EXPECT_EQ(world.settings->apiKey.get(), "");
    choose(Provider::custom);
    EXPECT_EQ(keyField(), QString());
    choose(Provider::gemini);
    EXPECT_EQ(keyField(), QString());
}

TEST_F(SettingsViewTest, ASwitchMadeElsewhereReloadsTheDraftFromTheNewProvider) {
    world.settings->selectProvider(Provider::anthropic);
    world.settings->apiKey.set("sk-ant-stored");
    world.settings->selectProvider(Provider::openai);
    world.settings->apiKey.set("sk-openai-stored");
    makeView();
    EXPECT_EQ(keyField(), QStringLiteral("sk-openai-stored"));
    world.settings->selectProvider(Provider::anthropic);
    settle();
    EXPECT_EQ(keyField(), QStringLiteral("sk-ant-stored"));
    EXPECT_EQ(sectionTitle(), QStringLiteral("Anthropic"));
}

TEST_F(SettingsViewTest, ProviderMenuMarksSavedKeysOfKeyedProvidersOnly) {
    world.settings->selectProvider(Provider::gemini);
    world.settings->apiKey.set("gm-key");
    world.settings->selectProvider(Provider::openai);
    makeView();
    auto* picker = child<QComboBox>("providerPicker");
    ASSERT_NE(picker, nullptr);
    QStringList entries;
    for (int i = 0; i < picker->count(); ++i) entries << picker->itemText(i);
    EXPECT_EQ(entries,
              (QStringList{QStringLiteral("Apple Intelligence (on-device, no key)"),
                           QStringLiteral("OpenAI"), QStringLiteral("Anthropic"),
                           QStringLiteral("Google Gemini  \u00B7  key saved"),
                           QStringLiteral("Local (Ollama)"), QStringLiteral("Custom API")}));
    EXPECT_EQ(picker->currentText(), QStringLiteral("OpenAI"));
}

TEST_F(SettingsViewTest, KeyFieldIsSecureUntilTheEyeIsPressed) {
    makeView();
    auto* field = child<QLineEdit>("apiKeyField");
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->echoMode(), QLineEdit::Password);
    EXPECT_EQ(field->placeholderText(), QStringLiteral("Paste your API key here"));
    auto* eye = child<QPushButton>("showKeyButton");
    ASSERT_NE(eye, nullptr);
    EXPECT_EQ(eye->toolTip(), QStringLiteral("Show Key"));
    click("showKeyButton");
    EXPECT_TRUE(view->showsKey());
    EXPECT_EQ(field->echoMode(), QLineEdit::Normal);
    EXPECT_EQ(eye->toolTip(), QStringLiteral("Hide Key"));
    click("showKeyButton");
    EXPECT_EQ(field->echoMode(), QLineEdit::Password);
}

TEST_F(SettingsViewTest, TypingAloneSavesNothingSaveKeyAndClearDo) {
    makeView();
    choose(Provider::openai);
    EXPECT_EQ(child("savedKeyLabel"), nullptr);
    typeKey(QStringLiteral("sk-new"));
    EXPECT_EQ(world.settings->apiKey.get(), "");
    EXPECT_EQ(view->draftAPIKey(), QStringLiteral("sk-new"));
    click("saveKeyButton");
    EXPECT_EQ(world.settings->apiKey.get(), "sk-new");
    ASSERT_NE(child<QLabel>("savedKeyLabel"), nullptr);
    EXPECT_EQ(child<QLabel>("savedKeyLabel")->text(), QStringLiteral("Saved"));
    click("clearKeyButton");
    EXPECT_EQ(world.settings->apiKey.get(), "");
    EXPECT_EQ(keyField(), QString());
    EXPECT_EQ(view->draftAPIKey(), QString());
    EXPECT_EQ(child("savedKeyLabel"), nullptr);
}

TEST_F(SettingsViewTest, TemperatureSliderStaysWithinZeroAndOnePointTwoInTenths) {
    makeView();
    auto* slider = child<QSlider>("temperatureSlider");
    auto* value = child<QLabel>("temperatureValue");
    ASSERT_NE(slider, nullptr);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->text(), QStringLiteral("0.3"));
    slider->setFocus();
    QTest::keyClick(slider, Qt::Key_End);
    settle();
    EXPECT_DOUBLE_EQ(world.settings->temperature.get(), 1.2);
    QTest::keyClick(slider, Qt::Key_Right);
    QTest::keyClick(slider, Qt::Key_PageUp);
    settle();
    EXPECT_DOUBLE_EQ(world.settings->temperature.get(), 1.2);
    EXPECT_EQ(value->text(), QStringLiteral("1.2"));
    QTest::keyClick(slider, Qt::Key_Left);
    settle();
    EXPECT_DOUBLE_EQ(world.settings->temperature.get(), 1.1);
    EXPECT_EQ(value->text(), QStringLiteral("1.1"));
    QTest::keyClick(slider, Qt::Key_Home);
    QTest::keyClick(slider, Qt::Key_Left);
    settle();
    EXPECT_DOUBLE_EQ(world.settings->temperature.get(), 0.0);
    EXPECT_EQ(value->text(), QStringLiteral("0.0"));
    for (int tenths = 1; tenths <= 12; ++tenths) {
        QTest::keyClick(slider, Qt::Key_Right);
        const double temperature = world.settings->temperature.get();
        EXPECT_DOUBLE_EQ(temperature * 10.0, std::round(temperature * 10.0));
        EXPECT_NEAR(temperature, tenths / 10.0, 1e-12);
    }
}

TEST_F(SettingsViewTest, MaxTokensStepperStaysWithin256And8192InSteps) {
    world.settings->maxTokens.set(512);
    makeView();
    auto* label = child<QLabel>("maxTokensLabel");
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->text(), QStringLiteral("Max Tokens: 512"));
    click("maxTokensDecrement");
    EXPECT_EQ(world.settings->maxTokens.get(), 256);
    EXPECT_EQ(label->text(), QStringLiteral("Max Tokens: 256"));
    EXPECT_FALSE(child<QPushButton>("maxTokensDecrement")->isEnabled());
    QTest::mouseClick(child<QPushButton>("maxTokensDecrement"), Qt::LeftButton);
    EXPECT_EQ(world.settings->maxTokens.get(), 256);
    for (int i = 0; i < 40; ++i) click("maxTokensIncrement");
    EXPECT_EQ(world.settings->maxTokens.get(), 8192);
    EXPECT_EQ(label->text(), QStringLiteral("Max Tokens: 8192"));
    EXPECT_FALSE(child<QPushButton>("maxTokensIncrement")->isEnabled());
    click("maxTokensDecrement");
    EXPECT_EQ(world.settings->maxTokens.get(), 8192 - 256);
}

TEST_F(SettingsViewTest, MaxTokensOffTheGridClampsAtTheBounds) {
    world.settings->maxTokens.set(8100);
    makeView();
    click("maxTokensIncrement");
    EXPECT_EQ(world.settings->maxTokens.get(), 8192);
    world.settings->maxTokens.set(300);
    settle();
    click("maxTokensDecrement");
    EXPECT_EQ(world.settings->maxTokens.get(), 256);
}

TEST_F(SettingsViewTest, EmbeddedInPreferencesTheFormHasNoOuterPadding) {
    makeView(true);
    auto* form = view->findChild<QWidget*>(QStringLiteral("settingsForm"));
    ASSERT_NE(form, nullptr);
    EXPECT_FALSE(view->usesContentPadding());
    EXPECT_EQ(form->layout()->contentsMargins(), QMargins());
}

TEST_F(SettingsViewTest, StandingAloneTheFormHasTheDefaultPadding) {
    makeView(false);
    auto* form = view->findChild<QWidget*>(QStringLiteral("settingsForm"));
    ASSERT_NE(form, nullptr);
    EXPECT_TRUE(view->usesContentPadding());
    const int left = form->style()->pixelMetric(QStyle::PM_LayoutLeftMargin);
    ASSERT_GT(left, 0);
    EXPECT_EQ(form->layout()->contentsMargins().left(), left);
    EXPECT_EQ(form->layout()->contentsMargins(),
              ui::CoachSettingsContentPadding{true}.margins(form));
}

TEST_F(SettingsViewTest, ContentPaddingDisabledLeavesContentAlone) {
    QWidget widget;
    EXPECT_EQ(ui::CoachSettingsContentPadding{false}.margins(&widget), QMargins());
    EXPECT_NE(ui::CoachSettingsContentPadding{true}.margins(&widget), QMargins());
}

TEST_F(SettingsViewTest, ModelPickerListsThePresetsAndACustomEntry) {
    makeView();
    choose(Provider::anthropic);
    auto* picker = child<QComboBox>("modelPicker");
    ASSERT_NE(picker, nullptr);
    QStringList entries;
    for (int i = 0; i < picker->count(); ++i) entries << picker->itemText(i);
    EXPECT_EQ(entries, (QStringList{QStringLiteral("Claude Sonnet 4 (balanced)"),
                                    QStringLiteral("Claude 3.5 Haiku (fast, cheap)"),
                                    QStringLiteral("Use custom model ID\u2026")}));
    EXPECT_EQ(picker->currentText(), QStringLiteral("Claude Sonnet 4 (balanced)"));
    picker->setCurrentIndex(1);
    Q_EMIT picker->activated(1);
    settle();
    EXPECT_EQ(world.settings->model.get(), "claude-3-5-haiku-20241022");
}

TEST_F(SettingsViewTest, CustomModelIdAndBackToPresets) {
    makeView();
    choose(Provider::custom);
    auto* picker = child<QComboBox>("modelPicker");
    ASSERT_NE(picker, nullptr);
    picker->setCurrentIndex(picker->count() - 1);
    Q_EMIT picker->activated(picker->count() - 1);
    settle();
    EXPECT_TRUE(view->usesCustomModel());
    EXPECT_EQ(child("modelPicker"), nullptr);
    EXPECT_TRUE(visibleTexts(view.get()).contains(QStringLiteral("Model ID (e.g. your-model-id)")));
    EXPECT_TRUE(visibleTexts(view.get())
                    .contains(QStringLiteral("Enter the model name your API expects (e.g. "
                                             "gemini-2.0-flash, mistral-large, a hosted "
                                             "fine-tune).")));
    auto* field = child<QLineEdit>("customModelField");
    ASSERT_NE(field, nullptr);
    field->selectAll();
    QTest::keyClicks(field, QStringLiteral("mistral-large"));
    EXPECT_EQ(world.settings->model.get(), "mistral-large");
    click("presetsButton");
    EXPECT_FALSE(view->usesCustomModel());
    EXPECT_EQ(world.settings->model.get(), "gpt-4o-mini");
    ASSERT_NE(child<QComboBox>("modelPicker"), nullptr);
}

TEST_F(SettingsViewTest, AppearingWithAModelOutsideThePresetsShowsTheCustomField) {
    world.settings->model.set("gpt-5-experimental");
    makeView();
    EXPECT_TRUE(view->usesCustomModel());
    ASSERT_NE(child<QLineEdit>("customModelField"), nullptr);
    EXPECT_EQ(child<QLineEdit>("customModelField")->text(), QStringLiteral("gpt-5-experimental"));
}

TEST_F(SettingsViewTest, AppearingWithABlankModelKeepsThePresetPicker) {
    world.settings->model.set("  \n");
    makeView();
    EXPECT_FALSE(view->usesCustomModel());
    ASSERT_NE(child<QComboBox>("modelPicker"), nullptr);
    EXPECT_EQ(child<QComboBox>("modelPicker")->currentIndex(), -1);
}

TEST_F(SettingsViewTest, LocalNeedsNoKeyAndOffersTheOllamaEndpoint) {
    makeView();
    choose(Provider::local);
    EXPECT_EQ(sectionTitle(), QStringLiteral("Local"));
    EXPECT_EQ(child("apiKeyField"), nullptr);
    EXPECT_TRUE(
        visibleTexts(view.get())
            .contains(QStringLiteral("No API key needed when using a local Ollama server.")));
    EXPECT_TRUE(visibleTexts(view.get()).contains(QStringLiteral("Ollama Endpoint")));
    auto* endpoint = child<QLineEdit>("endpointField");
    ASSERT_NE(endpoint, nullptr);
    EXPECT_EQ(endpoint->placeholderText(), QStringLiteral("http://localhost:11434/api/chat"));
    QTest::keyClicks(endpoint, QStringLiteral("http://studio.local:11434/api/chat"));
    EXPECT_EQ(world.settings->customEndpoint.get(), "http://studio.local:11434/api/chat");
    auto* help = child<QLabel>("endpointHelp");
    ASSERT_NE(help, nullptr);
    EXPECT_EQ(help->text(), QStringLiteral("Leave blank to use the Ollama server on localhost. "
                                           "Change only if Ollama runs elsewhere."));
}

TEST_F(SettingsViewTest, CustomRequiresAnEndpoint) {
    makeView();
    choose(Provider::custom);
    EXPECT_EQ(sectionTitle(), QStringLiteral("Custom"));
    EXPECT_TRUE(visibleTexts(view.get()).contains(QStringLiteral("API Endpoint (required)")));
    auto* endpoint = child<QLineEdit>("endpointField");
    ASSERT_NE(endpoint, nullptr);
    EXPECT_TRUE(endpoint->placeholderText().endsWith(QStringLiteral("/v1/chat/completions")));
    EXPECT_EQ(child<QLabel>("endpointHelp")->text(),
              CoachSettingsView::endpointHelpText(Provider::custom));
    EXPECT_EQ(child<QLabel>("keyHelp")->text(),
              QStringLiteral("Required for most cloud APIs. Leave blank only if your endpoint "
                             "does not use authentication."));
}

TEST_F(SettingsViewTest, CloudProvidersKeepTheEndpointBehindAdvanced) {
    makeView();
    choose(Provider::gemini);
    EXPECT_EQ(sectionTitle(), QStringLiteral("Gemini"));
    EXPECT_EQ(child("endpointField"), nullptr);
    auto* toggle = child<QToolButton>("advancedEndpointToggle");
    ASSERT_NE(toggle, nullptr);
    EXPECT_EQ(toggle->text(), QStringLiteral("Advanced endpoint"));
    QTest::mouseClick(toggle, Qt::LeftButton);
    auto* endpoint = child<QLineEdit>("endpointField");
    ASSERT_NE(endpoint, nullptr);
    EXPECT_EQ(endpoint->placeholderText(), QStringLiteral("Leave blank for provider default"));
    EXPECT_TRUE(visibleTexts(view.get()).contains(QStringLiteral("Custom Endpoint (optional)")));
    EXPECT_EQ(child<QLabel>("endpointHelp")->text(),
              QStringLiteral("Leave blank for Google Gemini. Override only if you use a proxy."));
    EXPECT_EQ(child<QLabel>("keyHelp")->text(),
              QStringLiteral("Stored in Keychain for Google Gemini only. Get a key from Google AI "
                             "Studio."));
}

TEST_F(SettingsViewTest, HelpTextsByProvider) {
    EXPECT_EQ(CoachSettingsView::keyHelpText(Provider::openai),
              QStringLiteral("Stored in Keychain for OpenAI only. Switching to Anthropic or "
                             "Gemini will not overwrite this key."));
    EXPECT_EQ(CoachSettingsView::keyHelpText(Provider::anthropic),
              QStringLiteral("Stored in Keychain for Anthropic only. Your OpenAI and Gemini keys "
                             "stay saved."));
    EXPECT_EQ(CoachSettingsView::keyHelpText(Provider::apple),
              QStringLiteral("Stored in Keychain. Each provider keeps its own key so you can "
                             "experiment."));
    EXPECT_EQ(CoachSettingsView::endpointHelpText(Provider::apple),
              QStringLiteral("Leave blank to answer on this Mac. An address here sends the "
                             "question to that OpenAI-compatible endpoint instead."));
    EXPECT_EQ(CoachSettingsView::endpointHelpText(Provider::openai),
              QStringLiteral("Leave blank for OpenAI. For an OpenAI-compatible proxy, paste that "
                             "URL."));
    EXPECT_EQ(CoachSettingsView::endpointHelpText(Provider::anthropic),
              QStringLiteral("Leave blank for Anthropic. Advanced users can point at a compatible "
                             "proxy."));
    EXPECT_EQ(CoachSettingsView::endpointHelpText(Provider::custom),
              QStringLiteral("Custom API uses the OpenAI chat-completions format. Paste any "
                             "compatible endpoint \u2014 Gemini OpenAI-compat, Together, Groq, a "
                             "self-hosted server, etc."));
    EXPECT_EQ(CoachSettingsView::providerEntryText(Provider::local, true),
              QStringLiteral("Local (Ollama)"));
    EXPECT_EQ(CoachSettingsView::providerEntryText(Provider::custom, true),
              QStringLiteral("Custom API  \u00B7  key saved"));
}

TEST_F(SettingsViewTest, OnDeviceNotReadyShowsSetupGuidance) {
    makeView();
    choose(Provider::apple);
    EXPECT_EQ(sectionTitle(), QStringLiteral("Apple"));
    EXPECT_EQ(view->appleStatus(), Status::unsupportedOS);
    const QStringList texts = visibleTexts(view.get());
    EXPECT_TRUE(texts.contains(QStringLiteral("Apple (On-Device)")));
    EXPECT_TRUE(texts.contains(QStringLiteral("FREE")));
    EXPECT_TRUE(texts.contains(QStringLiteral("On-device \u2014 no API key")));
    EXPECT_TRUE(
        texts.contains(QString::fromUtf8(AppleIntelligenceInfo::availabilityNote().data())));
    QStringList steps;
    for (auto* step : visibleChildren<QLabel>(view.get(), QStringLiteral("setupStep")))
        steps << step->text();
    ASSERT_EQ(steps.size(), 4);
    EXPECT_EQ(steps[0], QStringLiteral("Open System Settings \u2192 Apple Intelligence & Siri."));
    EXPECT_EQ(steps[3], QStringLiteral("Return here \u2014 no API key needed."));
    EXPECT_TRUE(texts.contains(QStringLiteral("1.")));
    EXPECT_TRUE(texts.contains(QStringLiteral("4.")));
    EXPECT_NE(child("openAppleSettingsButton"), nullptr);
    EXPECT_NE(child("checkAgainButton"), nullptr);
    EXPECT_EQ(child("apiKeyField"), nullptr);
    EXPECT_EQ(child("modelPicker"), nullptr);
    EXPECT_NE(child("advancedEndpointToggle"), nullptr);
}

TEST_F(SettingsViewTest, CheckAgainReevaluatesTheOnDeviceStatus) {
    makeView();
    choose(Provider::apple);
    Status status = Status::needsSetup;
    view->setAppleStatusSource([&status] { return status; });
    EXPECT_EQ(view->appleStatus(), Status::needsSetup);
    EXPECT_EQ(child("appleReadyLabel"), nullptr);
    status = Status::ready;
    click("checkAgainButton");
    EXPECT_EQ(view->appleStatus(), Status::ready);
    auto* ready = child<QLabel>("appleReadyLabel");
    ASSERT_NE(ready, nullptr);
    EXPECT_EQ(ready->text(), QStringLiteral("Apple Intelligence is ready."));
    EXPECT_EQ(child<QLabel>("installedModelGeneration")->text(),
              QString::fromStdString(AppleIntelligenceInfo::installedModelGeneration()));
    EXPECT_EQ(child("checkAgainButton"), nullptr);
}

TEST_F(SettingsViewTest, ScreenshotsOfEveryProvider) {
    makeView();
    for (Provider provider : CoachConfig::selectableProviders()) {
        choose(provider);
        const QString name =
            QStringLiteral("settings-") + QString::fromUtf8(storageID(provider).data());
        EXPECT_EQ(sectionTitle(), QString::fromUtf8(shortName(provider).data()));
        EXPECT_FALSE(saveScreenshot(view.get(), name).isEmpty());
    }
    view->setAppleStatusSource([] { return Status::ready; });
    choose(Provider::apple);
    EXPECT_FALSE(saveScreenshot(view.get(), QStringLiteral("settings-apple-ready")).isEmpty());
}

// --- live model lists and the connection check ---

class SettingsLiveModelsTest : public SettingsViewTest {
protected:
    void useOllama() {
        world.settings->selectProvider(Provider::local);
        world.settings->customEndpoint.set(world.server.url("/api/chat"));
        world.settings->model.set("gemma3:4b");
    }
    QStringList pickerEntries() {
        auto* picker = child<QComboBox>("modelPicker");
        QStringList entries;
        if (picker)
            for (int i = 0; i < picker->count(); ++i) entries << picker->itemText(i);
        return entries;
    }
    void openPicker() {
        auto* picker = child<QComboBox>("modelPicker");
        ASSERT_NE(picker, nullptr);
        picker->showPopup();
        picker->hidePopup();
    }
};

TEST_F(SettingsLiveModelsTest, OpeningThePickerAddsTheInstalledModelsAfterTheCatalogue) {
    useOllama();
    world.server.enqueue(ScriptedResponse::slowHeaders(
        300ms, R"({"models":[{"name":"llama3.2"},{"name":"qwen3:8b"},{"name":"mistral:7b"}]})"));
    makeView();
    QStringList expected = pickerEntries();
    EXPECT_EQ(world.server.requestCount(), 0u);  // nothing is asked before the picker opens
    openPicker();
    EXPECT_TRUE(pickerEntries().contains(QStringLiteral("Loading models\u2026")));
    ASSERT_TRUE(waitUntil([&] { return pickerEntries().contains(QStringLiteral("qwen3:8b")); }));
    // The catalogue first, then a separator and the installed models it does not hold.
    QStringList added{QString()};
    for (const char* name : {"llama3.2", "qwen3:8b", "mistral:7b"}) {
        const auto& known = CoachConfig::knownModels().at(Provider::local);
        if (std::none_of(known.begin(), known.end(), [&](const auto& m) { return m.id == name; }))
            added << QString::fromLatin1(name);
    }
    for (const QString& entry : added) expected.insert(expected.size() - 1, entry);
    EXPECT_EQ(pickerEntries(), expected);
    EXPECT_EQ(world.server.requests()[0].target, "/api/tags");

    auto* picker = child<QComboBox>("modelPicker");
    const int index = picker->findText(QStringLiteral("qwen3:8b"));
    picker->setCurrentIndex(index);
    Q_EMIT picker->activated(index);
    settle();
    EXPECT_EQ(world.settings->model.get(), "qwen3:8b");
}

TEST_F(SettingsLiveModelsTest, TheListIsKeptForTheSessionAndRefreshedOnDemand) {
    useOllama();
    world.server.enqueue(ScriptedResponse::json(200, R"({"models":[{"name":"first:1b"}]})"));
    world.server.enqueue(ScriptedResponse::json(200, R"({"models":[{"name":"second:2b"}]})"));
    makeView();
    openPicker();
    ASSERT_TRUE(waitUntil([&] { return pickerEntries().contains(QStringLiteral("first:1b")); }));
    view.reset();
    makeView();  // a new settings window shows the list at once, without asking again
    EXPECT_TRUE(pickerEntries().contains(QStringLiteral("first:1b")));
    openPicker();
    settle();
    EXPECT_EQ(world.server.requestCount(), 1u);
    click("refreshModelsButton");
    ASSERT_TRUE(waitUntil([&] { return pickerEntries().contains(QStringLiteral("second:2b")); }));
    EXPECT_FALSE(pickerEntries().contains(QStringLiteral("first:1b")));
    EXPECT_EQ(world.server.requestCount(), 2u);
}

TEST_F(SettingsLiveModelsTest, AFailedListLeavesTheCatalogueAndSaysWhyInTheTooltip) {
    useOllama();
    world.server.enqueue(ScriptedResponse::text(500, "model store unavailable"));
    makeView();
    const QStringList catalogue = pickerEntries();
    openPicker();
    auto* picker = child<QComboBox>("modelPicker");
    ASSERT_TRUE(waitUntil([&] { return !picker->toolTip().isEmpty(); }));
    EXPECT_EQ(picker->toolTip(),
              QStringLiteral("The provider\u2019s model list could not be loaded: HTTP 500: "
                             "model store unavailable"));
    EXPECT_EQ(pickerEntries(), catalogue);
}

TEST_F(SettingsLiveModelsTest, ACustomEndpointWithoutAListHasNoRefreshButton) {
    world.settings->selectProvider(Provider::custom);
    world.settings->customEndpoint.set(world.server.url("/generate"));
    makeView();
    ASSERT_NE(child("modelPicker"), nullptr);
    EXPECT_EQ(child("refreshModelsButton"), nullptr);
    openPicker();
    settle();
    EXPECT_EQ(world.server.requestCount(), 0u);
}

TEST_F(SettingsLiveModelsTest, CheckTriesTheTypedKeyWithoutSavingIt) {
    world.useOpenAI("sk-saved");
    world.settings->customEndpoint.set(world.server.url("/v1/chat/completions"));
    world.settings->model.set("gpt-4o-mini");
    world.server.enqueue(ScriptedResponse::json(200, R"({"data":[{"id":"gpt-4o-mini"}]})"));
    makeView();
    typeKey(QStringLiteral("sk-typed"));
    click("checkConnectionButton");
    ASSERT_TRUE(waitUntil([&] { return child<QLabel>("connectionCheckResult") != nullptr; }));
    auto* result = child<QLabel>("connectionCheckResult");
    EXPECT_TRUE(result->text().startsWith(QStringLiteral("OpenAI answered in ")))
        << result->text().toStdString();
    EXPECT_TRUE(result->text().endsWith(
        QStringLiteral(" ms: the key works and gpt-4o-mini is available (1 model in all).")));
    EXPECT_TRUE(child<QPushButton>("checkConnectionButton")->isEnabled());
    EXPECT_EQ(world.server.requests()[0].header("Authorization"), "Bearer sk-typed");
    EXPECT_EQ(world.settings->apiKey.get(), "sk-saved");
}

TEST_F(SettingsLiveModelsTest, CheckSaysWhatFailed) {
    useOllama();
    world.server.enqueue(ScriptedResponse::json(200, R"({"models":[{"name":"qwen3:8b"}]})"));
    makeView();
    click("checkConnectionButton");
    ASSERT_TRUE(waitUntil([&] { return child<QLabel>("connectionCheckResult") != nullptr; }));
    EXPECT_TRUE(child<QLabel>("connectionCheckResult")
                    ->text()
                    .endsWith(QStringLiteral(", but the model gemma3:4b is not installed (1 "
                                             "model installed). Install it with \u201collama "
                                             "pull gemma3:4b\u201d.")));
}

}  // namespace
}  // namespace sagely::testing
